// File records that are wanted in ascending order, neighbours with one read of the source.
//
// The names of a large directory come from the records of its children, most of which lie side by side in
// $MFT. One read for each would cost more than all that is done with them.
#pragma once

#include "volume/record_reader.h"

#include <cstdint>
#include <span>
#include <vector>

namespace quarry {

class record_read_ahead {
  public:
    explicit record_read_ahead(const record_reader& records) : m_records(records) {}

    // The answer of record_reader::read for the first of `entries`, of which there is at least one, in the
    // same buffer and of the same length. The others, ascending, are those that will be asked for next. Where
    // neighbours cannot be read together each is read on its own, so damage shows as it does in single reads.
    [[nodiscard]] bool read(std::span<const std::uint64_t> entries, std::span<std::uint8_t> record,
                            std::uint64_t& length);

  private:
    // Positions are bytes from the start of the volume.
    struct stretch {
        [[nodiscard]] bool holds(std::uint64_t position, std::uint64_t size) const {
            return position >= begin && position < end && size <= end - position;
        }
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
    };

    [[nodiscard]] stretch neighbours(std::span<const std::uint64_t> entries, std::uint64_t size) const;
    void fetch(const stretch& wanted);

    record_reader m_records;
    stretch m_held;
    std::vector<std::uint8_t> m_bytes;  // what the source has there
    stretch m_refused;                  // the last stretch that could not be read as a whole
};

}  // namespace quarry
