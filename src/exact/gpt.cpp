#include "exact/gpt.h"

#include "disk/ql_disk_structs.h"
#include "foundation/crc32.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace quarry::exact {

namespace {

constexpr std::uint32_t smallest_header = 92;
constexpr std::uint32_t smallest_entry = 128;
constexpr std::uint32_t largest_entry = 4096;
constexpr std::uint32_t most_entries = 1024;

tl::unexpected<failure> wrong(std::string why, std::uint64_t source_byte) {
    return fail(failure_code::table, where::partition_table, "GPT " + std::move(why), source_byte);
}

// Bytes of sectors; nothing if they leave 63 bits.
std::optional<std::uint64_t> bytes_of(std::uint64_t sectors, std::uint32_t sector_size) {
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return sectors <= most / sector_size ? std::optional(sectors * sector_size) : std::nullopt;
}

result<std::vector<std::uint8_t>> read_header(const exact_source& source, std::uint64_t sector,
                                              std::uint32_t sector_size) {
    const std::uint64_t place = sector * sector_size;
    std::vector<std::uint8_t> bytes(sector_size);
    if (auto came = source.read(bytes, place); !came) {
        return passed_on(came);
    }
    const gpt_header header{byte_view(bytes)};
    if (!header.has_signature()) {
        return wrong("header has no signature", place);
    }
    if (header.header_size() < smallest_header || header.header_size() > sector_size) {
        return wrong("header has " + std::to_string(header.header_size()) + " bytes", place);
    }
    const std::uint32_t stored = header.own_checksum();
    std::vector<std::uint8_t> covered(bytes.begin(),
                                      bytes.begin() + static_cast<std::ptrdiff_t>(header.header_size()));
    std::fill_n(covered.begin() + gpt_header::own_checksum_offset, sizeof(stored), std::uint8_t{0});
    if (crc32(covered) != stored) {
        return wrong("header has checksum " + hex(stored) + ", its bytes give " + hex(crc32(covered)), place);
    }
    if (header.own_sector() != sector) {
        return wrong("header of sector " + std::to_string(sector) + " says that it is in sector " +
                         std::to_string(header.own_sector()),
                     place);
    }
    return bytes;
}

struct entry_array {
    std::uint64_t place = 0;  // on the source
    std::vector<std::uint8_t> bytes;
};

result<entry_array> read_entries(const exact_source& source, const gpt_header& header, std::uint64_t place,
                                 std::uint32_t sector_size) {
    const std::uint32_t count = header.entry_count();
    const std::uint32_t size = header.entry_size();
    if (size < smallest_entry || size > largest_entry) {
        return wrong("entries have " + std::to_string(size) + " bytes", place);
    }
    if (count > most_entries) {
        return wrong("has " + std::to_string(count) + " entries", place);
    }
    const auto entries_place = bytes_of(header.entries_sector(), sector_size);
    if (!entries_place) {
        return wrong("entries begin in sector " + std::to_string(header.entries_sector()), place);
    }
    entry_array entries{*entries_place, std::vector<std::uint8_t>(std::size_t{count} * size)};
    if (auto came = source.read(entries.bytes, entries.place); !came) {
        return passed_on(came);
    }
    const std::uint32_t checksum = crc32(entries.bytes);
    if (checksum != header.entries_checksum()) {
        return wrong(
            "entries have checksum " + hex(header.entries_checksum()) + ", their bytes give " + hex(checksum),
            entries.place);
    }
    return entries;
}

bool is_unused(const gpt_entry& entry) {
    return entry.type_guid() == std::array<std::uint8_t, 16>{};
}

}  // namespace

bool has_gpt_signature(const exact_source& source, std::uint64_t sector, std::uint32_t sector_size) {
    std::array<std::uint8_t, gpt_header::signature_text.size()> head{};
    return source.read(head, sector * sector_size) && gpt_header(byte_view(head)).has_signature();
}

result<std::vector<partition>> read_gpt(const exact_source& source, std::uint64_t sector,
                                        std::uint32_t sector_size) {
    auto bytes = read_header(source, sector, sector_size);
    if (!bytes) {
        return passed_on(bytes);
    }
    const gpt_header header{byte_view(*bytes)};
    auto entries = read_entries(source, header, sector * sector_size, sector_size);
    if (!entries) {
        return passed_on(entries);
    }
    std::vector<partition> found;
    for (std::uint32_t i = 0; i < header.entry_count(); ++i) {
        const std::uint64_t offset = std::uint64_t{i} * header.entry_size();
        const gpt_entry entry(byte_view(entries->bytes).clipped(offset, gpt_entry::size));
        if (is_unused(entry)) {
            continue;
        }
        const auto first = bytes_of(entry.first_sector(), sector_size);
        const auto end = entry.last_sector() == std::numeric_limits<std::uint64_t>::max()
                             ? std::nullopt
                             : bytes_of(entry.last_sector() + 1, sector_size);
        if (entry.first_sector() > entry.last_sector() || !first || !end) {
            return wrong("entry " + std::to_string(i) + " reaches from sector " +
                             std::to_string(entry.first_sector()) + " to " +
                             std::to_string(entry.last_sector()),
                         entries->place + offset);
        }
        found.push_back({*first, *end - *first});
    }
    return found;
}

}  // namespace quarry::exact
