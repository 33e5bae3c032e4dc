#include "exact/partition_table.h"

#include "disk/partition_types.h"
#include "disk/ql_disk_structs.h"
#include "exact/gpt.h"
#include "exact/volume_probe.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>

namespace quarry::exact {

namespace {

constexpr std::array<std::uint32_t, 4> sector_sizes = {512, 1024, 2048, 4096};
constexpr std::uint32_t usual_sector_size = 512;
constexpr std::uint32_t large_sector_size = 4096;
constexpr std::size_t most_tables = 1024;
constexpr std::uint8_t type_extended_linux = 0x85;

bool opens_chain(const partition_entry& entry) {
    return entry.num_sectors() != 0 && (entry.type() == type_extended || entry.type() == type_extended_lba ||
                                        entry.type() == type_extended_linux);
}

bool is_partition(const partition_entry& entry) {
    return entry.num_sectors() != 0 && entry.type() != 0 && !opens_chain(entry);
}

result<std::vector<std::uint8_t>> read_table(const exact_source& source, std::uint64_t place) {
    std::vector<std::uint8_t> bytes(table_size);
    if (auto came = source.read(bytes, place); !came) {
        return passed_on(came);
    }
    return bytes;
}

// A partition of an MBR or of a chain, and the type that it says it has.
struct typed_partition {
    partition place;
    std::uint8_t type = 0;
};

// All partitions of an MBR and its chains, with sectors of one size.
class mbr_walk {
  public:
    mbr_walk(const exact_source& source, std::uint32_t sector_size)
        : m_source(&source), m_sector_size(sector_size) {}

    [[nodiscard]] result<std::vector<typed_partition>> all(byte_view mbr) {
        const partition_table table(mbr);
        take_partitions(table, 0);
        for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
            if (opens_chain(table.entry(i))) {
                if (auto walked = walk_chain(table.entry(i).first_sector()); !walked) {
                    return passed_on(walked);
                }
            }
        }
        return std::move(m_found);
    }

    // The first extended table that lies past the end of the source, whose partitions are not known.
    [[nodiscard]] std::optional<failure> past_end() const { return m_past_end; }

  private:
    // Entries count from the sector of their table.
    void take_partitions(const partition_table& table, std::uint64_t table_sector) {
        for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
            const partition_entry entry = table.entry(i);
            if (is_partition(entry)) {
                m_found.push_back({{(table_sector + entry.first_sector()) * m_sector_size,
                                    std::uint64_t{entry.num_sectors()} * m_sector_size},
                                   entry.type()});
            }
        }
    }

    // The tables from the first one on. Each is visited once, so the walk ends.
    [[nodiscard]] result<void> walk_chain(std::uint64_t first_sector) {
        std::vector<std::uint64_t> waiting = {first_sector};
        while (!waiting.empty()) {
            const std::uint64_t sector = waiting.back();
            const std::uint64_t place = sector * m_sector_size;
            waiting.pop_back();
            if (!m_visited.insert(sector).second) {
                return wrong("the chain of extended tables comes back to sector " + std::to_string(sector),
                             place);
            }
            if (m_visited.size() > most_tables) {
                return wrong("the chain of extended tables has more than " + std::to_string(most_tables),
                             place);
            }
            auto bytes = read_table(*m_source, place);
            if (!bytes && bytes.error().code == failure_code::source_end) {
                m_past_end = m_past_end ? m_past_end : std::optional(bytes.error());
                continue;
            }
            if (!bytes) {
                return passed_on(bytes);
            }
            const partition_table table{byte_view(*bytes)};
            if (!table.has_mark()) {
                return wrong("the extended table in sector " + std::to_string(sector) + " has no mark 55 AA",
                             place);
            }
            take_partitions(table, sector);
            for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
                if (opens_chain(table.entry(i))) {
                    waiting.push_back(first_sector + table.entry(i).first_sector());
                }
            }
        }
        return {};
    }

    static tl::unexpected<failure> wrong(std::string why, std::uint64_t source_byte) {
        return fail(failure_code::table, where::partition_table, std::move(why), source_byte);
    }

    const exact_source* m_source;
    std::uint32_t m_sector_size;
    std::vector<typed_partition> m_found;
    std::set<std::uint64_t> m_visited;
    std::optional<failure> m_past_end;
};

bool begins_with_ntfs(const exact_source& source, std::uint64_t offset) {
    std::array<std::uint8_t, 16> head{};
    return source.read(head, offset) && probe_volume(byte_view(head)) == volume_kind::ntfs;
}

bool has_ntfs_where_it_says(const exact_source& source,
                            const result<std::vector<typed_partition>>& partitions) {
    return partitions &&
           std::any_of(partitions->begin(), partitions->end(), [&source](const typed_partition& each) {
               return each.type == type_ntfs && begins_with_ntfs(source, each.place.offset);
           });
}

// An MBR does not say how large its sectors are. They have 512 bytes, unless that leads to no NTFS volume
// where one should be and 4,096 do.
result<std::vector<partition>> read_mbr(const exact_source& source, byte_view mbr,
                                        std::optional<std::uint32_t> sector_size, notices& told) {
    mbr_walk walk(source, sector_size.value_or(usual_sector_size));
    auto partitions = walk.all(mbr);
    if (!sector_size && !has_ntfs_where_it_says(source, partitions)) {
        mbr_walk in_large_sectors(source, large_sector_size);
        auto others = in_large_sectors.all(mbr);
        if (has_ntfs_where_it_says(source, others)) {
            partitions = std::move(others);
            walk = std::move(in_large_sectors);
        }
    }
    if (const auto lost = walk.past_end()) {
        told.warn("source-short", where::partition_table,
                  "an extended table is not known: the source " + lost->why);
    }
    return partitions.map([](const std::vector<typed_partition>& typed) {
        std::vector<partition> found(typed.size());
        std::transform(typed.begin(), typed.end(), found.begin(),
                       [](const typed_partition& each) { return each.place; });
        return found;
    });
}

// The sizes that a sector may have: all, or the one that is known.
std::vector<std::uint32_t> possible_sizes(std::optional<std::uint32_t> known) {
    return known ? std::vector{*known} : std::vector<std::uint32_t>(sector_sizes.begin(), sector_sizes.end());
}

// The size with which sector 1 begins with a GPT header.
std::optional<std::uint32_t> size_with_gpt(const exact_source& source,
                                           std::optional<std::uint32_t> sector_size) {
    for (const std::uint32_t size : possible_sizes(sector_size)) {
        if (has_gpt_signature(source, 1, size)) {
            return size;
        }
    }
    return std::nullopt;
}

// The GPT whose header is in the last sector of the source.
std::optional<std::vector<partition>> read_gpt_backup(const exact_source& source,
                                                      std::optional<std::uint32_t> sector_size) {
    for (const std::uint32_t size : possible_sizes(sector_size)) {
        const std::uint64_t sectors = source.size() / size;
        if (sectors > 1 && has_gpt_signature(source, sectors - 1, size)) {
            if (auto found = read_gpt(source, sectors - 1, size)) {
                return std::move(*found);
            }
        }
    }
    return std::nullopt;
}

// What sector 0 says of a GPT.
enum class gpt_in_mbr : std::uint8_t { named, possible, not_named };

gpt_in_mbr gpt_in(const partition_table& table) {
    bool has_entries = false;
    for (std::size_t i = 0; i < partition_table::entry_count; ++i) {
        if (table.entry(i).type() == type_gpt) {
            return gpt_in_mbr::named;
        }
        has_entries = has_entries || is_partition(table.entry(i)) || opens_chain(table.entry(i));
    }
    return table.has_mark() && has_entries ? gpt_in_mbr::not_named : gpt_in_mbr::possible;
}

// The header in sector 1, or else its copy. Nothing if there is neither.
result<std::optional<std::vector<partition>>> read_any_gpt(const exact_source& source,
                                                           std::optional<std::uint32_t> sector_size,
                                                           notices& told) {
    const auto size = size_with_gpt(source, sector_size);
    auto primary = size ? read_gpt(source, 1, *size)
                        : result<std::vector<partition>>(fail(failure_code::table, where::partition_table,
                                                              "a GPT is announced, and sector 1 has none"));
    if (primary) {
        return std::optional(std::move(*primary));
    }
    if (auto backup = read_gpt_backup(source, size ? size : sector_size)) {
        told.warn("gpt-backup", where::partition_table, primary.error().why + "; the backup is used");
        return backup;
    }
    return size ? result<std::optional<std::vector<partition>>>(passed_on(primary)) : std::nullopt;
}

void sort_by_offset(std::vector<partition>& partitions) {
    std::stable_sort(partitions.begin(), partitions.end(), [](const partition& left, const partition& right) {
        return left.offset < right.offset;
    });
}

}  // namespace

result<std::optional<std::vector<partition>>> read_partitions(const exact_source& source,
                                                              std::optional<std::uint32_t> sector_size,
                                                              notices& told) {
    auto bytes = read_table(source, 0);
    if (!bytes) {
        return passed_on(bytes);
    }
    const partition_table table{byte_view(*bytes)};
    const gpt_in_mbr named = gpt_in(table);
    std::optional<std::vector<partition>> found;
    if (named == gpt_in_mbr::not_named) {
        if (size_with_gpt(source, sector_size)) {
            told.warn("gpt-stale", where::partition_table,
                      "there is a GPT that the MBR does not name; the MBR is used");
        }
    } else {
        auto gpt = read_any_gpt(source, sector_size, told);
        if (!gpt) {
            return passed_on(gpt);
        }
        if (!*gpt && named == gpt_in_mbr::named) {
            return fail(failure_code::table, where::partition_table,
                        "a protective entry, and no GPT at either end");
        }
        found = std::move(*gpt);
    }
    if (!found && table.has_mark()) {
        auto mbr = read_mbr(source, byte_view(*bytes), sector_size, told);
        if (!mbr) {
            return passed_on(mbr);
        }
        found = std::move(*mbr);
    }
    if (found) {
        sort_by_offset(*found);
    }
    return found;
}

}  // namespace quarry::exact
