// Records that will be needed soon, read in as few reads as possible.
//
// Whoever lists a directory knows from each node of the index which records come next. Files that were made
// one after another have records side by side, so those of a node are usually one read. What is held are the
// bytes as they are stored, in a fixed number of slots; a record is verified when it is asked for.
//
//     a node names      40 41 42 43 90 44          read: 40 to 44, and 90
//     slots             | 40 | 41 | ... a record takes the slot of its number, modulo their count
#pragma once

#include "exact/failure.h"
#include "exact/mft.h"
#include "exact/record.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::exact {

class record_ahead {
  public:
    // `table` must outlive the object.
    explicit record_ahead(const mft& table);

    // Reads those of the entries that are not held. What cannot be read is left out: read() says why.
    void fetch(std::vector<std::uint64_t> entries);
    [[nodiscard]] bool holds(std::uint64_t entry) const;
    // The bytes of a record that is held, as they are stored, with nothing of them verified. Good until
    // fetch().
    [[nodiscard]] std::optional<byte_view> stored(std::uint64_t entry) const;
    // Entries for which there is room at once if they are adjacent.
    [[nodiscard]] std::size_t room() const { return m_slots.size(); }

    // As mft::read() and mft::read_in_use(), from what is held if it is.
    [[nodiscard]] result<record> read(std::uint64_t entry, notices& told) const;
    [[nodiscard]] result<record> read_in_use(reference wanted, notices& told) const;

  private:
    struct slot {
        std::uint64_t entry = 0;
        bool filled = false;
    };
    [[nodiscard]] std::size_t slot_of(std::uint64_t entry) const {
        return static_cast<std::size_t>(entry % m_slots.size());
    }
    void fetch_adjacent(std::uint64_t first, std::size_t count);

    const mft* m_table;
    std::size_t m_record_size;
    std::vector<slot> m_slots;
    std::vector<std::uint8_t> m_bytes;   // of all slots
    std::vector<std::uint8_t> m_buffer;  // of one read
};

}  // namespace quarry::exact
