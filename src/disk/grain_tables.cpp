#include "disk/grain_tables.h"

#include <algorithm>

namespace quarry {

namespace {

constexpr std::uint64_t entry_bytes = 4;
constexpr std::uint64_t most_bytes_at_once = 0x100000;
// The stretch after the last one: there is no more data.
constexpr file_stretch no_data{~std::uint64_t{0}, ~std::uint64_t{0}};

// Fills a part of a buffer. Returns how many bytes came before an error. Without an error that is all of
// them: a file that has become shorter leaves zeros.
std::uint64_t read_part(std::span<std::uint8_t> out, std::uint64_t position, const metadata_source& file) {
    std::uint64_t done = 0;
    // Each turn adds bytes or is the last.
    while (done < out.size()) {
        const std::int64_t count = file.m_read(out.subspan(done), position + done);
        if (count < 0) {
            return done;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::uint64_t>(count);
    }
    return out.size();
}

}  // namespace

bool read_grain_directory(std::vector<std::uint32_t>& out, const vmdk_header& header,
                          const metadata_source& file) {
    out.clear();
    const std::uint64_t metadata_bytes = header.overhead() * vmdk_sector_size;
    const std::optional<std::uint64_t> begin = vmdk_sectors_in_bytes(header.grain_directory_offset());
    if (metadata_bytes == 0 || metadata_bytes != low_32_bits(metadata_bytes) || !begin ||
        *begin + entry_bytes > metadata_bytes) {
        return false;
    }
    std::vector<std::uint8_t> bytes(entry_bytes);
    if (file.m_read(bytes, *begin) == -1) {
        return false;
    }
    const std::uint64_t end = byte_view(bytes).u32_or_zero(0) * vmdk_sector_size;
    if (end > metadata_bytes) {
        return false;
    }
    // A directory that its own entries place beyond the end of the file has no entries there.
    const std::uint64_t existing_end = std::min(end, file.m_size);
    if (existing_end <= *begin) {
        return true;
    }
    const std::uint64_t entries = std::min((existing_end - *begin) / entry_bytes,
                                           limits::directory_entries(std::min(file.m_stored, file.m_size)));
    bytes.resize(entries * entry_bytes);
    if (file.m_read(bytes, *begin) == -1) {
        return false;
    }
    out.reserve(entries);
    for (std::uint64_t offset = 0; offset < bytes.size(); offset += entry_bytes) {
        out.push_back(byte_view(bytes).u32_or_zero(offset));
    }
    return true;
}

// The bytes that hold all tables, each byte in one stretch: tables that touch or overlap share one.
std::vector<file_stretch> grain_tables::plan(std::vector<std::uint32_t> sectors, std::uint64_t table_bytes,
                                             std::uint64_t file_size) {
    std::vector<file_stretch> stretches;
    std::sort(sectors.begin(), sectors.end());
    for (const std::uint32_t sector : sectors) {
        const std::uint64_t begin = sector * vmdk_sector_size;
        const std::uint64_t end = std::min(begin + table_bytes, file_size);
        if (begin >= end) {
            continue;
        }
        if (stretches.empty() || begin > stretches.back().end) {
            stretches.push_back({begin, end});
        }
        stretches.back().end = std::max(end, stretches.back().end);
    }
    return stretches;
}

// Adds bytes to the blocks, and zeros after them up to the next block.
void grain_tables::keep(std::span<const std::uint8_t> bytes) {
    static constexpr block zeros{};
    // Each turn takes a block, and the last one the rest.
    while (!bytes.empty()) {
        const std::span<const std::uint8_t> part = bytes.first(std::min(block_bytes, bytes.size()));
        std::uint32_t number = 0;
        if (!std::equal(part.begin(), part.end(), zeros.begin())) {
            std::copy(part.begin(), part.end(), m_blocks.emplace_back(zeros).begin());
            number = static_cast<std::uint32_t>(m_blocks.size());
            m_memory.take(block_bytes);
        }
        m_block_numbers.push_back(number);
        bytes = bytes.subspan(part.size());
    }
}

// Reads a stretch of tables without its holes.
void grain_tables::read_stretch(const file_stretch& tables) {
    // Each turn passes a stretch of data, or is the last.
    for (std::uint64_t position = tables.begin; position < tables.end;) {
        if (m_file.m_next_data && position >= m_known_data.end) {
            m_known_data = m_file.m_next_data(position).value_or(no_data);
        }
        const file_stretch data{std::max(position, m_known_data.begin),
                                std::min(tables.end, m_known_data.end)};
        if (data.begin >= data.end) {
            return;
        }
        if (!read_data(data)) {
            m_failed.back().end = tables.end;
            return;
        }
        position = data.end;
    }
}

// Reads bytes into memory, as far as there is some for them, and notes the rest. False for an error, which
// m_failed then has the place of.
bool grain_tables::read_data(const file_stretch& data) {
    if (m_memory.spent() || m_looked_at.spent()) {
        m_ranges.push_back({data.begin, data.end, not_in_memory});
        return true;
    }
    m_ranges.push_back({data.begin, data.begin, m_block_numbers.size()});
    std::vector<std::uint8_t> buffer(std::min(most_bytes_at_once, data.end - data.begin));
    // Each turn reads a part of the data, and the last one its end.
    for (std::uint64_t position = data.begin; position < data.end;) {
        if (m_memory.spent() || m_looked_at.spent()) {
            m_ranges.push_back({position, data.end, not_in_memory});
            return true;
        }
        const auto part =
            std::span(buffer).first(std::min<std::uint64_t>(buffer.size(), data.end - position));
        const std::uint64_t read = read_part(part, position, m_file);
        m_looked_at.take(part.size());
        keep(part);
        position += part.size();
        m_ranges.back().m_end = position;
        if (read < part.size()) {
            m_failed.push_back({position - part.size() + read, data.end});
            return false;
        }
    }
    return true;
}

// Deliberate: a directory entry of 0 takes its table from the start of the file, not as a table that is
// missing. The user sees what the header names in place of the grains of that part of the disk.
void grain_tables::read(const std::vector<std::uint32_t>& directory, std::uint32_t entries_per_table,
                        const metadata_source& file) {
    m_file = file;
    m_known_data = file.m_next_data ? file_stretch{} : file_stretch{0, file.m_size};
    m_ranges.clear();
    m_failed.clear();
    m_block_numbers.clear();
    m_blocks.clear();
    m_memory = budget(limits::table_memory);
    m_looked_at = budget(limits::table_bytes_looked_at);
    for (const file_stretch& tables : plan(directory, entries_per_table * entry_bytes, file.m_size)) {
        read_stretch(tables);
    }
    const auto failed = [this](std::uint32_t sector) { return failed_at(sector * vmdk_sector_size); };
    const auto end =
        m_failed.empty() ? directory.end() : std::find_if(directory.begin(), directory.end(), failed);
    m_size = static_cast<std::size_t>(end - directory.begin());
}

bool grain_tables::failed_at(std::uint64_t position) const {
    const auto after = std::upper_bound(
        m_failed.begin(), m_failed.end(), position,
        [](std::uint64_t wanted, const file_stretch& stretch) { return wanted < stretch.begin; });
    return after != m_failed.begin() && position < std::prev(after)->end;
}

const grain_tables::kept_range* grain_tables::range_of(std::uint64_t position) const {
    const auto after = std::upper_bound(
        m_ranges.begin(), m_ranges.end(), position,
        [](std::uint64_t wanted, const kept_range& range) { return wanted < range.m_begin; });
    if (after == m_ranges.begin() || position >= std::prev(after)->m_end) {
        return nullptr;
    }
    return &*std::prev(after);
}

std::uint32_t grain_tables::entry(std::uint32_t table_sector, std::uint64_t index) const {
    const std::uint64_t position = table_sector * vmdk_sector_size + index * entry_bytes;
    const kept_range* range = range_of(position);
    if (range == nullptr) {
        return 0;
    }
    if (range->m_first_block == not_in_memory) {
        return entry_in_file(position);
    }
    const std::uint64_t offset = position - range->m_begin;
    const std::uint32_t number = m_block_numbers[range->m_first_block + offset / block_bytes];
    return number == 0 ? 0 : byte_view(m_blocks[number - 1]).u32_or_zero(offset % block_bytes);
}

// A number that can no longer be read is the largest: that grain lies beyond the end of any file, so it reads
// as zeros and not as what a parent holds.
std::uint32_t grain_tables::entry_in_file(std::uint64_t position) const {
    constexpr std::uint32_t beyond_any_file = 0xFFFFFFFF;
    std::array<std::uint8_t, entry_bytes> bytes{};
    return m_file.m_read(bytes, position) == -1 ? beyond_any_file : byte_view(bytes).u32_or_zero(0);
}

}  // namespace quarry
