// File records of a volume, read by their entry numbers.
//
// A record lies where the runs of $MFT place it, but for record 0, which says what those runs are: its place
// is in the boot sector. There is no cache; each call reads the source. One read takes a whole record from
// its first byte on, also where $MFT goes on elsewhere in the middle of it.
//
// A reader is a small value without a state of its own. CNtfs makes one whenever it is asked for one; the
// source and the map must outlive it.
#pragma once

#include "volume/cluster_reader.h"
#include "volume/file_record.h"
#include "volume/limits.h"
#include "volume/mft_map.h"

#include <cstdint>
#include <span>
#include <vector>

namespace quarry {

using limits::longest_record;

struct record_geometry {
    std::uint64_t mft_position = 0;  // of record 0, in bytes from the start of the volume
    std::uint32_t size_by_boot = 0;  // bytes of a record as the boot sector says, and record 0 if it is more
    std::uint32_t step = 0;          // bytes from one record to the next, as record 0 says
    std::uint32_t bytes_per_sector = 0;
};

class record_reader {
  public:
    // `map`: null as long as nobody may rely on it; then record 0 is the only one that can be read.
    record_reader(const cluster_reader& clusters, const mft_map* map, const record_geometry& geometry)
        : m_clusters(clusters), m_map(map), m_geometry(geometry) {}

    [[nodiscard]] const cluster_reader& clusters() const { return m_clusters; }
    // Bytes from one record to the next.
    [[nodiscard]] std::uint32_t step() const { return m_geometry.step; }
    // Bytes of a record where a form reads all records in one size.
    [[nodiscard]] std::uint32_t common_size() const {
        return m_geometry.size_by_boot == 0 ? 1024 : m_geometry.size_by_boot;
    }
    // Bytes that `read` and `read_raw` take for an entry.
    [[nodiscard]] std::uint32_t size_of(std::uint64_t entry) const;
    // Position of an entry by the map, in bytes from the start of the volume; 0 if it has none.
    [[nodiscard]] std::uint64_t position_of(std::uint64_t entry) const {
        return m_map == nullptr ? 0 : m_map->position(entry);
    }

    // Without restoring the fixups. `length` becomes what was read. The vector is made as long as the record,
    // and is empty after false. The span must have room for the whole record; if it has not, `length` is the
    // room needed.
    [[nodiscard]] bool read_raw(std::uint64_t entry, std::vector<std::uint8_t>& record,
                                std::uint64_t& position, std::uint64_t& length) const;
    [[nodiscard]] bool read_raw(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                                std::uint64_t& length) const;
    // The same with the fixups restored. False also for what is neither a record with a good header nor an
    // index block.
    [[nodiscard]] bool read(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                            std::uint64_t& length) const;
    [[nodiscard]] bool read(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                            std::uint64_t& length) const;
    // The second half of `read`, for those who read neighbouring records at once: tests what was read, and
    // restores its fixups.
    [[nodiscard]] bool accept(std::span<std::uint8_t> record) const;

    // A record of common_size() bytes, without and with its fixups restored; needs a map, for entry 0 as
    // well. After false the vector holds nothing of use. `kind` is `unknown` where nothing was read,
    // otherwise as from apply_fixups_checked, so that a "BAAD" record is known by its kind.
    [[nodiscard]] bool read_vector(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                   std::uint64_t entry) const;
    [[nodiscard]] bool read_checked(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                    record_kind& kind, std::uint64_t entry) const;

  private:
    [[nodiscard]] bool read_at_its_place(std::uint64_t entry, std::span<std::uint8_t> buffer,
                                         std::uint64_t& position, std::uint64_t& length) const;

    cluster_reader m_clusters;
    const mft_map* m_map;
    record_geometry m_geometry;
};

}  // namespace quarry
