#include "disk/gpt_table.h"

#include "disk/format_sniffer.h"
#include "disk/partition_chain.h"
#include "disk/partition_types.h"
#include "foundation/ql_string.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint64_t header_sector = 1;

// A table has 128 entries, and some tools make a few hundred. A header can claim 2^32 of them on a disk of
// zeros, which would take hours to look through.
constexpr std::uint32_t most_entries = 65536;

partition_stats metadata_record(const char* name, std::uint64_t start_sector, std::uint64_t num_sectors,
                                std::uint32_t sector_size) {
    partition_stats record = labelled_record(name, start_sector, num_sectors, sector_size);
    record.m_partition_type = type_gpt;
    record.m_is_gpt = true;
    return record;
}

// The byte offset of a sector, if 64 bits can hold it.
std::optional<std::uint64_t> position_of(std::uint64_t sector, std::uint32_t sector_size) {
    if (sector > std::numeric_limits<std::uint64_t>::max() / sector_size) {
        return std::nullopt;
    }
    return sector * sector_size;
}

// A name without the zeros that fill its place.
std::string name_of(const gpt_entry& entry) {
    const byte_view place = entry.name();
    std::uint64_t length = 0;
    while (place.u16_or_zero(length) != 0) {
        length += 2;
    }
    std::string name;
    // A name with a broken surrogate pair counts as far as it could be read.
    static_cast<void>(utf16_to_utf8(name, place.clipped(0, length)));
    name.shrink_to_fit();
    return name;
}

partition_stats to_record(const gpt_entry& entry, std::uint32_t sector_size) {
    partition_stats record;
    record.m_type_guid = entry.type_guid();
    record.m_partition_guid = entry.partition_guid();
    record.m_is_gpt = true;
    record.m_sector_size = sector_size;
    record.m_start_sector = entry.first_sector();
    // An entry whose last sector lies before its first wraps; its end is where it says.
    record.m_num_sectors = entry.last_sector() == 0 ? 0 : entry.last_sector() - entry.first_sector() + 1;
    record.m_flags = entry.flags();
    record.m_name = name_of(entry);
    return record;
}

// Looks for a file system in a partition. False when its beginning cannot be read.
bool sniff_partition(partition_stats& record, const sector_source& source) {
    const std::optional<std::uint64_t> position = position_of(record.m_start_sector, record.m_sector_size);
    if (!position.has_value()) {
        return false;
    }
    const bool is_small = record.m_num_sectors <= whole_probe_size / record.m_sector_size;
    const std::optional<byte_view> bytes =
        source(*position, is_small ? record.m_sector_size : whole_probe_size);
    if (!bytes.has_value()) {
        return false;
    }
    if (bytes->size() >= table_size) {
        record.m_partition_type = type_gpt;
        sniff_format(record, *bytes);
    }
    return true;
}

// True when `count` entries from a position on all begin inside of the source.
bool entries_fit(std::uint64_t position, std::uint64_t count, std::uint32_t entry_size,
                 std::uint64_t source_size) {
    return count == 0 || (position < source_size && (count - 1) * entry_size < source_size - position);
}

// Appends the entries in use, in the order of the table. False as soon as something cannot be read.
bool read_entries(partition_list& list, const gpt_header& header, std::uint32_t sector_size,
                  const sector_source& source, std::uint64_t source_size) {
    std::optional<std::uint64_t> position = position_of(header.entries_sector(), sector_size);
    if (!position.has_value() || header.entry_size() < gpt_entry::size) {
        return false;
    }
    // Every turn goes at least 128 bytes on, and the first one past the end of the source is the last.
    const std::uint32_t walked = std::min(header.entry_count(), most_entries);
    for (std::uint32_t i = 0; i < walked; ++i) {
        const std::optional<byte_view> bytes = source(*position, gpt_entry::size);
        if (!bytes.has_value()) {
            return false;
        }
        *position += header.entry_size();
        const gpt_entry entry(*bytes);
        if (entry.type_guid() == std::array<std::uint8_t, 16>{}) {
            continue;
        }
        partition_stats record = to_record(entry, sector_size);
        if (!sniff_partition(record, source)) {
            return false;
        }
        list.push_back(std::move(record));
    }
    return entries_fit(*position, header.entry_count() - walked, header.entry_size(), source_size);
}

std::optional<std::uint32_t> sector_size_of(const sector_source& source) {
    const std::optional<byte_view> head = source(0, largest_sector_size);
    return head.has_value() ? find_sector_size(*head, 0, largest_sector_size) : std::nullopt;
}

}  // namespace

bool read_gpt_table(partition_list& list, const sector_source& source, std::uint64_t source_size_bytes,
                    bool with_gaps) {
    list.clear();
    const std::optional<std::uint32_t> sector_size = sector_size_of(source);
    if (!sector_size.has_value()) {
        return false;
    }
    const std::optional<byte_view> sector = source(header_sector * *sector_size, table_size);
    if (!sector.has_value()) {
        return false;
    }
    const std::vector<std::uint8_t> header_bytes = sector->to_vector();
    const gpt_header header(header_bytes);
    // Deliberate: only the sector that the header claims to be in decides, not the signature and the
    // checksums. The user sees a table listed that is damaged elsewhere.
    if (header.own_sector() != header_sector) {
        return false;
    }
    if (with_gaps) {
        list.push_back(metadata_record("protective_mbr", 0, 1, *sector_size));
        list.push_back(metadata_record("gpt header", header_sector, 1, *sector_size));
        list.push_back(metadata_record("gpt partition entries", 2, 32, *sector_size));
    }
    if (!read_entries(list, header, *sector_size, source, source_size_bytes) || list.empty()) {
        return false;
    }
    if (with_gaps) {
        fill_gaps(list, source_size_bytes, *sector_size, true);
    }
    return true;
}

}  // namespace quarry
