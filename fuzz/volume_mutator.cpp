// What the fuzzer of volumes does to an image beside its own mutations.
#include "fuzz/record_mutation.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
    quarry::fuzz::random_numbers random(seed);
    const std::span<std::uint8_t> image(data, size);
    const std::uint64_t choice = random() % 16;
    if (choice == 0 || image.size() < 512) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    if (choice == 1) {
        quarry::fuzz::mutate_boot_sector(image, random);
        return size;
    }
    return quarry::fuzz::mutate_block(image, random) ? size : LLVMFuzzerMutate(data, size, max_size);
}
