#include "disk/partition_buffer_reader.h"

#include "disk/format_sniffer.h"
#include "disk/partition_chain.h"
#include "disk/sector_source.h"

#include <cstdint>
#include <optional>

namespace quarry {

namespace {

constexpr std::uint32_t searched_sector_size = 512;

void follow_chain(byte_view bytes, partition_list& list, std::uint64_t base, std::uint32_t sector_size) {
    const sector_source source = [bytes](std::uint64_t offset, std::uint64_t length) {
        return bytes.sub(offset, length);
    };
    // A first table outside of the bytes is a chain that ends at once.
    walk_extended_chain(list, base, sector_size, rules_for_buffers, source);
}

std::optional<std::uint32_t> sector_size_of(byte_view bytes) {
    if (is_mbr(bytes)) {
        return searched_sector_size;
    }
    // A sector size counts only if there is something after the first sector.
    return find_sector_size(bytes, std::uint64_t{2} * searched_sector_size, bytes.size() - 1);
}

void read_table(byte_view bytes, partition_list& list, std::uint32_t sector_size, bool with_gaps) {
    const primary_table_result primary =
        walk_primary_table(list, bytes, sector_size, rules_for_buffers, with_gaps);
    if (primary.chain_base != 0) {
        follow_chain(bytes, list, primary.chain_base, sector_size);
    }
    for (partition_stats& record : list) {
        sniff_format(record, bytes.from(record.byte_offset()));
    }
}

// The chain from the first sector after sector 0 that holds a table. Its records are not looked at for file
// systems.
void search_table(byte_view bytes, partition_list& list) {
    for (std::uint64_t offset = searched_sector_size; offset < bytes.size(); offset += searched_sector_size) {
        if (is_mbr(bytes.from(offset))) {
            follow_chain(bytes, list, offset / searched_sector_size, searched_sector_size);
            return;
        }
    }
}

}  // namespace

bool read_partitions_from_buffer(byte_view bytes, partition_list& list, bool scan, bool with_gaps) {
    list.clear();
    if (bytes.size() < table_size) {
        return false;
    }
    std::uint32_t sector_size = searched_sector_size;
    if (is_volume_boot_sector(bytes)) {
        // Deliberate: a bare volume in a buffer counts as one only where a search is permitted, not at once
        // as on a disk. The user sees no difference: a virtual disk asks again with a search.
        if (scan) {
            list.push_back(bare_volume(bytes.clipped(0, table_size)));
        }
        return scan;
    }
    if (const auto found_size = sector_size_of(bytes); found_size.has_value()) {
        sector_size = *found_size;
        read_table(bytes, list, sector_size, with_gaps);
    } else if (scan) {
        search_table(bytes, list);
    }
    if (with_gaps && !list.empty()) {
        fill_gaps(list, bytes.size(), sector_size, false);
    }
    return !list.empty();
}

}  // namespace quarry
