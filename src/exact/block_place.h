// Where a block of bytes came from: a record, an index block, a page of the journal.
//
// A block usually lies in one piece, but a large one may be stored in several runs, so a byte in it is
// translated piece by piece.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct block_place {
    struct piece {
        std::uint64_t offset;       // in the block
        std::uint64_t source_byte;  // on the source
    };

    std::string where;          // in the words of a failure, such as "record 40"
    std::vector<piece> pieces;  // ascending; the first at offset 0

    // The byte of the source that is stored at an offset of the block.
    [[nodiscard]] std::optional<std::uint64_t> source_byte(std::uint64_t offset) const {
        std::optional<std::uint64_t> found;
        for (const piece& each : pieces) {
            if (each.offset <= offset) {
                found = each.source_byte + (offset - each.offset);
            }
        }
        return found;
    }
};

}  // namespace quarry::exact
