// What the fuzzer of volumes does to an image beside its own mutations.
#include "fuzz/sparse_mutation.h"

#include <algorithm>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
    quarry::fuzz::random_numbers random(seed);
    quarry::fuzz::sparse_input input = quarry::fuzz::take_sparse({data, size});
    const std::uint64_t choice = random() % 16;
    if (choice == 0 || input.stored.size() < 512) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    if (choice == 1) {
        quarry::fuzz::mutate_boot_sector(input.stored, random);
    } else if (choice < 4) {
        quarry::fuzz::mutate_places(input, random);
    } else if (!quarry::fuzz::mutate_block(input.stored, random)) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    const std::vector<std::uint8_t> whole = quarry::fuzz::put_sparse(input);
    if (whole.size() > max_size) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    std::copy(whole.begin(), whole.end(), data);
    return whole.size();
}
