#include "disk/partition_reader.h"

#include "disk/format_sniffer.h"
#include "disk/gpt_table.h"
#include "disk/partition_chain.h"
#include "disk/sector_source.h"

#include <optional>
#include <vector>

namespace quarry {

namespace {

constexpr std::uint32_t searched_sector_size = 512;
// The last position that the search for a table looks at.
constexpr std::uint64_t search_limit = 0x100000;

// Reads of a disk for the rules. A view is good until the next read through the same object, and no longer
// than it.
class disk_source {
  public:
    explicit disk_source(RAW_DISK_IO& disk) : m_disk(disk) {}

    [[nodiscard]] std::optional<byte_view> read(std::uint64_t offset, std::uint64_t length) & {
        m_bytes.resize(length);
        if (!m_disk.read(m_bytes.data(), length, offset)) {
            return std::nullopt;
        }
        return byte_view(m_bytes).clipped(0, length);
    }
    [[nodiscard]] sector_source as_source() & {
        return [this](std::uint64_t offset, std::uint64_t length) { return read(offset, length); };
    }

  private:
    RAW_DISK_IO& m_disk;
    std::vector<std::uint8_t> m_bytes;
};

bool usable(const RAW_DISK_IO* disk) {
    return disk != nullptr && disk->is_ok();
}

// Deliberate: an NTFS volume at sector 63 before an extended partition is listed too, not only partitions
// that a table holds. The user sees the first partition again after its entry was deleted.
void guess_first_partition(RAW_DISK_IO& disk, partition_list& list, std::uint64_t base,
                           std::uint32_t sector_size, std::uint8_t type) {
    if (ntfs_at(&disk, guessed_start_sector * sector_size)) {
        prepend_guessed_partition(list, base, sector_size, type);
    }
}

// The chain of extended tables from `base` on, and the guess. False when the first table cannot be read.
bool follow_chain(RAW_DISK_IO& disk, partition_list& list, std::uint64_t base, std::uint32_t sector_size) {
    disk_source source(disk);
    const chain_result chain =
        walk_extended_chain(list, base, sector_size, rules_for_disks, source.as_source());
    if (!chain.first_table_read) {
        return false;
    }
    guess_first_partition(disk, list, base, sector_size, chain.last_ordinary_type);
    return true;
}

void sniff_all(RAW_DISK_IO& disk, partition_list& list) {
    disk_source source(disk);
    for (partition_stats& record : list) {
        if (const auto bytes = source.read(record.byte_offset(), record.m_sector_size); bytes.has_value()) {
            sniff_format(record, *bytes);
        }
    }
}

// The first sector after sector 0 that holds a table; nothing if there is none up to 1 MiB or the disk ends.
std::optional<std::uint64_t> search_table(RAW_DISK_IO& disk) {
    disk_source source(disk);
    for (std::uint64_t offset = searched_sector_size; offset <= search_limit;
         offset += searched_sector_size) {
        const std::optional<byte_view> sector = source.read(offset, searched_sector_size);
        if (!sector.has_value()) {
            return std::nullopt;
        }
        if (is_mbr(*sector)) {
            return offset / searched_sector_size;
        }
    }
    return std::nullopt;
}

// A disk with a table in its first sector.
bool read_table(RAW_DISK_IO& disk, partition_list& list, byte_view head, std::uint32_t sector_size,
                bool with_gaps) {
    const primary_table_result primary =
        walk_primary_table(list, head, sector_size, rules_for_disks, with_gaps);
    if (primary.is_gpt) {
        return read_gpt(&disk, list, with_gaps);
    }
    if (primary.chain_base != 0 && !follow_chain(disk, list, primary.chain_base, sector_size)) {
        return false;
    }
    sniff_all(disk, list);
    if (with_gaps && !list.empty()) {
        fill_gaps(list, disk.size(), sector_size, false);
    }
    return !list.empty();
}

// A disk without a table in its first sector: an ext volume, or with `scan` what is left of a table further
// on.
bool read_without_table(RAW_DISK_IO& disk, partition_list& list, byte_view head, bool scan, bool with_gaps) {
    const bool is_ext = has_ext_magic(head);
    if (scan) {
        // Deliberate: the search comes first, not the test for an ext volume, and what it finds is not
        // examined for file systems. The user sees no volume on a bare ext volume where the search finds
        // nothing, and records of a found table with the type of their entry.
        const std::optional<std::uint64_t> found = search_table(disk);
        if (!found.has_value() || !follow_chain(disk, list, *found, searched_sector_size)) {
            return false;
        }
    } else if (!is_ext) {
        return false;
    }
    if (is_ext) {
        list = {bare_volume(head.clipped(0, whole_probe_size))};
    }
    if (with_gaps && !list.empty()) {
        fill_gaps(list, disk.size(), searched_sector_size, false);
    }
    return !list.empty();
}

}  // namespace

bool ntfs_at(RAW_DISK_IO* disk, std::uint64_t byte_offset) {
    constexpr std::uint64_t head_of_boot_sector = 36;
    if (!usable(disk)) {
        return false;
    }
    disk_source source(*disk);
    const std::optional<byte_view> bytes = source.read(byte_offset, head_of_boot_sector);
    return bytes.has_value() && has_ntfs_name(*bytes);
}

bool read_partitions(RAW_DISK_IO* disk, partition_list& list, bool scan, bool with_gaps) {
    list.clear();
    if (!usable(disk)) {
        return false;
    }
    // A source that ends earlier has zeros from there on.
    std::vector<std::uint8_t> head_bytes(largest_sector_size);
    std::uint64_t length = head_bytes.size();
    if (!disk->read(head_bytes.data(), length, 0)) {
        return false;
    }
    const byte_view head(head_bytes);
    if (is_volume_boot_sector(head)) {
        list = {bare_volume(head.clipped(0, table_size))};
        return true;
    }
    // The entries are in the first 512 bytes even where the sectors are larger.
    if (const auto sector_size = find_sector_size(head, 0, largest_sector_size); sector_size.has_value()) {
        return read_table(*disk, list, head, *sector_size, with_gaps);
    }
    return read_without_table(*disk, list, head, scan, with_gaps);
}

bool read_gpt(RAW_DISK_IO* disk, partition_list& list, bool with_gaps) {
    list.clear();
    if (!usable(disk)) {
        return false;
    }
    disk_source source(*disk);
    return read_gpt_table(list, source.as_source(), disk->size(), with_gaps);
}

}  // namespace quarry
