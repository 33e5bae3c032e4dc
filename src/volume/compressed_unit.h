// One unit of a compressed stream, decompressed.
//
// A unit is 16 clusters of a stream. The file system stores it in one of three ways: uncompressed, with all
// clusters on disk; as a row of LZNT1 chunks in fewer clusters, the rest of the 16 sparse; or wholly sparse,
// for zeros. Nothing on disk says which; it follows from the sparse clusters. Each chunk begins with a header
// of 16 bits:
//
//     bits 0 to 11    bytes of the chunk, the header included, less 3
//     bits 12 to 14   signature, 3 as a rule; not looked at
// bit 15 set if the chunk is compressed, clear if its 4096 bytes are stored as they are
//
// A header of zero ends the chunks of its 4096-byte block.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>

namespace quarry {

// Takes the decompressed bytes of a unit, piece after piece.
class unit_output {
  public:
    unit_output() = default;
    unit_output(const unit_output&) = delete;
    unit_output& operator=(const unit_output&) = delete;
    virtual ~unit_output() = default;
    virtual void take(byte_view plain) = 0;
};

// The bytes of a unit. They need not all be in memory at once.
class unit_bytes {
  public:
    unit_bytes() = default;
    unit_bytes(const unit_bytes&) = delete;
    unit_bytes& operator=(const unit_bytes&) = delete;
    virtual ~unit_bytes() = default;
    [[nodiscard]] virtual std::uint64_t size() const = 0;
    // The bytes from `offset` on: at least `least` of them, which is 8 KiB at most, or all that there are.
    // Good until the next call.
    [[nodiscard]] virtual byte_view from(std::uint64_t offset, std::uint64_t least) = 0;
};

// What is known of a unit; the first and the last are bits of stream_reader's flags word.
inline constexpr std::uint32_t unit_met_sparse = 0x2;  // some of its clusters are sparse
inline constexpr std::uint32_t unit_judge_by_tail =
    0x4;  // its last 4096 bytes decide whether it is compressed
inline constexpr std::uint32_t unit_judge_by_sparse = 0x8;  // it is plain unless it met sparse clusters

// Decompresses `unit`, at most `limit` bytes of it. `written` is the number of bytes given to `output`. True
// if the unit could be decompressed; so can a wholly sparse one, with nothing written. False for an empty
// unit, a limit of 0, and a unit whose chunks are damaged and whose last 4096 bytes are zeros; what was given
// to `output` is of no use then.
[[nodiscard]] bool decompress_unit(unit_output& output, std::uint64_t& written, unit_bytes& unit,
                                   std::uint64_t limit, std::uint32_t flags);
[[nodiscard]] bool decompress_unit(unit_output& output, std::uint64_t& written, byte_view unit,
                                   std::uint64_t limit, std::uint32_t flags);

}  // namespace quarry
