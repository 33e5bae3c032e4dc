// How much of its indexes one listing reads.
//
// Nothing keeps a prepared volume from giving the same index to thousands of directories, each listed for its
// own: the time would be that of all their names, times the number of directories.
//
//     record 40  $INDEX_ALLOCATION  --.
//     record 41  $INDEX_ALLOCATION  ---+--> clusters 100 to 355        each in its own right is sound
//     record 42  $INDEX_ALLOCATION  --'
//
// On a sound volume each index block has clusters of its own. So the blocks of all directories together have
// no more bytes than the source has content, and a listing that needs more ends. A walk that rested reads its
// nodes and the records of its directory again, at most once for each directory below; for that there is a
// second budget.
#pragma once

#include "exact/failure.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quarry::exact {

class index_budget {
  public:
    // Bytes that may be read again for each byte of the source. A directory takes a record of 1 KiB at least;
    // to go back from it to its parent costs four blocks of 4 KiB in a tree of millions of names, and rarely
    // more than a record.
    static constexpr std::uint64_t read_again_for_a_byte = 32;
    // What may be read of any source, however small.
    static constexpr std::uint64_t always_read = 0x100000;

    // `content_bytes`: of the source, see byte_source.
    explicit index_budget(std::uint64_t content_bytes)
        : m_blocks(content_bytes + always_read), m_again(m_blocks * read_again_for_a_byte) {}

    // Takes the bytes of a block that is read for the first time. False if there are not so many left.
    [[nodiscard]] bool take_block(std::uint64_t bytes, std::string where) {
        return take(
            m_blocks, bytes, std::move(where),
            "the directories have more index blocks than the source has room for, so they share some; "
            "the listing ends here");
    }
    // Takes what a directory costs that is read again.
    [[nodiscard]] bool take_again(std::uint64_t bytes, std::string where) {
        return take(m_again, bytes, std::move(where),
                    "to go back to the directories above costs more than in any tree; the listing ends here");
    }
    // Why nothing more may be read; nothing as long as something may.
    [[nodiscard]] const std::optional<failure>& spent() const { return m_spent; }

  private:
    bool take(std::uint64_t& left, std::uint64_t bytes, std::string where, const char* why) {
        if (bytes > left) {
            m_spent = failure{failure_code::index, std::move(where), why, std::nullopt};
            return false;
        }
        left -= bytes;
        return true;
    }

    std::uint64_t m_blocks;  // bytes left
    std::uint64_t m_again;   // bytes left
    std::optional<failure> m_spent;
};

}  // namespace quarry::exact
