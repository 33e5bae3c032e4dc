// Mutations for the command line's fuzzer: one of the three parts changes, the others stay.
#include "fuzz/command_line_input.h"
#include "fuzz/sparse_mutation.h"

#include <algorithm>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using quarry::fuzz::part;

constexpr std::size_t longest_script = 256;
constexpr std::size_t longest_lines = 512;

void mutate(part& bytes, std::size_t longest) {
    const std::size_t size = std::min(bytes.size(), longest);
    bytes.resize(longest);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), size, longest));
}

void mutate_image(part& bytes, quarry::fuzz::random_numbers& random) {
    quarry::fuzz::sparse_input image = quarry::fuzz::take_sparse(bytes);
    if (random() % 8 == 0) {
        quarry::fuzz::mutate_places(image, random);
    } else if (!quarry::fuzz::mutate_block(image.stored, random)) {
        return mutate(bytes, std::max<std::size_t>(bytes.size(), 1024));
    }
    bytes = quarry::fuzz::put_sparse(image);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
    quarry::fuzz::random_numbers random(seed);
    quarry::fuzz::command_line_input parts = quarry::fuzz::take_apart(data, size);
    const std::uint64_t choice = random() % 16;
    if (choice < 9) {
        mutate(parts.script, longest_script);
    } else if (choice < 11) {
        mutate(parts.lines, longest_lines);
    } else {
        mutate_image(parts.image, random);
    }
    const part whole = quarry::fuzz::put_together(parts);
    const std::size_t taken = std::min(whole.size(), max_size);
    std::copy_n(whole.begin(), taken, data);
    return taken;
}
