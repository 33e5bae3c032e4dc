#include "disk/partition_chain.h"

#include "disk/format_sniffer.h"
#include "disk/partition_types.h"

#include <optional>
#include <unordered_set>
#include <utility>

namespace quarry {

namespace {

bool is_partition(const partition_entry& entry) {
    return is_partition_type(entry) && is_used(entry);
}

partition_stats to_record(const partition_entry& entry, std::uint64_t counted_from,
                          std::uint32_t sector_size) {
    partition_stats record;
    record.m_start_sector = counted_from + entry.first_sector();
    record.m_num_sectors = entry.num_sectors();
    record.m_partition_type = entry.type();
    record.m_sector_size = sector_size;
    return record;
}

struct chain_place {
    std::uint64_t base;
    // The sector of the table that is walked; the base for the first one.
    std::uint64_t table;
    std::uint32_t sector_size;
};

struct table_result {
    std::optional<std::uint64_t> next_table;
    std::uint8_t last_ordinary_type = 0;
};

table_result walk_extended_table(partition_list& list, const partition_table& table,
                                 const chain_place& place) {
    table_result result;
    for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
        const partition_entry entry = table.entry(i);
        if (!is_partition(entry)) {
            break;
        }
        if (is_link(entry)) {
            // Deliberate: a link is in the list as partitions are, not left out. The user sees the extended
            // partitions among the others.
            list.push_back(to_record(entry, place.base, place.sector_size));
            result.next_table = list.back().m_start_sector;
            break;
        }
        list.push_back(to_record(entry, place.table, place.sector_size));
        result.last_ordinary_type = entry.type();
    }
    return result;
}

}  // namespace

primary_table_result walk_primary_table(partition_list& list, byte_view sector, std::uint32_t sector_size,
                                        const chain_rules& rules, bool with_gaps) {
    const partition_table table(sector);
    for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
        const partition_entry entry = table.entry(i);
        if (rules.gpt_takes_over && entry.type() == type_gpt) {
            return {true, 0};
        }
        if (!is_partition(entry)) {
            // Deliberate: the first sector in a buffer is read up to its first unused entry, not as a whole
            // like that of a disk. The user sees no partition of a virtual disk after an unused entry.
            if (rules.bad_entry_ends_primary_table) {
                break;
            }
            continue;
        }
        if (with_gaps && list.empty()) {
            list.push_back(labelled_record("mbr", 0, 1, sector_size));
        }
        list.push_back(to_record(entry, 0, sector_size));
        if (is_link(entry)) {
            return {false, entry.first_sector()};
        }
    }
    return {};
}

chain_result walk_extended_chain(partition_list& list, std::uint64_t base, std::uint32_t sector_size,
                                 const chain_rules& rules, const sector_source& source) {
    // A base and a link are 32-bit numbers, so positions stay far below 64 bits.
    const std::optional<byte_view> first = source(base * sector_size, table_size);
    if (!first.has_value()) {
        return {};
    }
    const table_result first_result =
        walk_extended_table(list, partition_table(*first), {base, base, sector_size});
    // Each turn reads a table that was not read before, and the source has only so many.
    std::unordered_set<std::uint64_t> seen = {base};
    std::optional<std::uint64_t> next = first_result.next_table;
    while (next.has_value() && list.size() < most_chained_partitions && seen.insert(*next).second) {
        const std::optional<byte_view> table = source(*next * sector_size, table_size);
        if (!table.has_value() || (rules.links_need_mark && !is_mbr(*table))) {
            break;
        }
        next = walk_extended_table(list, partition_table(*table), {base, *next, sector_size}).next_table;
    }
    return {true, first_result.last_ordinary_type};
}

void prepend_guessed_partition(partition_list& list, std::uint64_t chain_base, std::uint32_t sector_size,
                               std::uint8_t type) {
    partition_stats record;
    record.m_start_sector = guessed_start_sector;
    // A base below 63 wraps, and the end of the record is the base all the same.
    record.m_num_sectors = chain_base - guessed_start_sector;
    record.m_partition_type = type_guessed | type;
    record.m_sector_size = sector_size;
    list.push_front(std::move(record));
}

void fill_gaps(partition_list& list, std::uint64_t source_size_bytes, std::uint32_t sector_size,
               bool is_gpt) {
    partition_list filled;
    std::uint64_t end = 0;
    const auto add_gap_before = [&](std::uint64_t start, std::uint32_t gap_sector_size) {
        if (start > end) {
            filled.push_back(labelled_record("unalloc", end, start - end, gap_sector_size));
            filled.back().m_is_gpt = is_gpt;
        }
    };
    for (partition_stats& record : list) {
        add_gap_before(record.m_start_sector, record.m_sector_size);
        end = record.m_start_sector + record.m_num_sectors;
        filled.push_back(std::move(record));
    }
    add_gap_before(source_size_bytes / sector_size, sector_size);
    list = std::move(filled);
}

}  // namespace quarry
