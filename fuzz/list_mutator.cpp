// Mutations for the fuzzer of lists: the lines, the image or the options change, the others stay.
#include "fuzz/list_input.h"
#include "fuzz/sparse_mutation.h"

#include <algorithm>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using quarry::fuzz::random_numbers;

constexpr std::size_t longest_lines = 4096;

void mutate_lines(std::string& lines) {
    std::vector<std::uint8_t> text(lines.begin(), lines.end());
    const std::size_t size = std::min(text.size(), longest_lines);
    text.resize(longest_lines);
    text.resize(LLVMFuzzerMutate(text.data(), size, longest_lines));
    lines.assign(text.begin(), text.end());
}

void mutate_bytes(std::vector<std::uint8_t>& stored) {
    if (!stored.empty()) {
        stored.resize(LLVMFuzzerMutate(stored.data(), stored.size(), stored.size()));
    }
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
    random_numbers random(seed);
    quarry::fuzz::list_input parts = quarry::fuzz::take_list({data, size});
    const std::uint64_t choice = random() % 16;
    if (choice < 4) {
        mutate_lines(parts.lines);
    } else if (choice == 4) {
        parts.options = static_cast<std::uint8_t>(random());
    } else if (choice == 5) {
        parts.repeats = static_cast<std::uint8_t>(random());
    } else if (choice == 6) {
        quarry::fuzz::mutate_places(parts.image, random);
    } else if (choice == 7 || !quarry::fuzz::mutate_block(parts.image.stored, random)) {
        mutate_bytes(parts.image.stored);
    }
    const std::vector<std::uint8_t> whole = quarry::fuzz::put_list(parts);
    if (whole.size() > max_size) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    std::copy(whole.begin(), whole.end(), data);
    return whole.size();
}
