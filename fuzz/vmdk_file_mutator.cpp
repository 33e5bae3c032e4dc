// What the fuzzer of VMDK files does to a file beside its own mutations: a field of the header changes, or
// where the stored bytes lie.
#include "fuzz/sparse_mutation.h"

#include <algorithm>
#include <array>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using quarry::fuzz::random_numbers;
using quarry::fuzz::sparse_input;

struct header_field {
    std::size_t offset;
    unsigned width;
};

// Capacity, grain size, descriptor, entries of a table, directories, overhead.
constexpr std::array<header_field, 9> header_fields = {
    {{4, 4}, {8, 4}, {12, 8}, {20, 8}, {28, 8}, {36, 8}, {44, 4}, {56, 8}, {64, 8}}};

void mutate_header(sparse_input& input, random_numbers& random) {
    const header_field field = header_fields[random() % header_fields.size()];
    const std::uint64_t value = quarry::fuzz::odd_number(random);
    for (unsigned i = 0; i < field.width && field.offset + i < input.stored.size(); ++i) {
        input.stored[field.offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
    random_numbers random(seed);
    const std::uint64_t choice = random() % 8;
    if (choice > 3) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    sparse_input input = quarry::fuzz::take_sparse({data, size});
    if (choice < 2) {
        mutate_header(input, random);
    } else {
        quarry::fuzz::mutate_places(input, random);
    }
    const std::vector<std::uint8_t> whole = quarry::fuzz::put_sparse(input);
    if (whole.size() > max_size) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    std::copy(whole.begin(), whole.end(), data);
    return whole.size();
}
