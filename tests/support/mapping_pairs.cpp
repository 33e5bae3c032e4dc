#include "support/mapping_pairs.h"

namespace quarry::test {

namespace {

// Bytes that a signed number needs so that its top bit is still its sign.
unsigned signed_width(std::int64_t value) {
    unsigned width = 1;
    while (width < 8) {
        const std::int64_t limit = std::int64_t{1} << (8 * width - 1);
        if (value >= -limit && value < limit) {
            break;
        }
        ++width;
    }
    return width;
}

}  // namespace

std::uint64_t clusters_of(const run_list& list) {
    std::uint64_t total = 0;
    for (const run& piece : list) {
        total += piece.length;
    }
    return total;
}

bytes encode_mapping_pairs(const run_list& list) {
    byte_writer pairs;
    std::int64_t previous = 0;
    for (const run& piece : list) {
        const unsigned length_width = signed_width(static_cast<std::int64_t>(piece.length));
        std::int64_t delta = 0;
        unsigned delta_width = 0;
        if (piece.lcn != hole) {
            delta = piece.lcn - previous;
            delta_width = signed_width(delta);
            previous = piece.lcn;
        }
        const std::size_t at = pairs.size();
        pairs.u8(at, delta_width * 16 + length_width);
        pairs.number(at + 1, length_width, piece.length);
        pairs.number(at + 1 + length_width, delta_width, static_cast<std::uint64_t>(delta));
    }
    pairs.u8(pairs.size(), 0);
    return pairs.take();
}

}  // namespace quarry::test
