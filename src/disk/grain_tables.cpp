#include "disk/grain_tables.h"

#include <algorithm>

namespace quarry {

namespace {

constexpr std::uint64_t entry_bytes = 4;
constexpr std::uint64_t most_bytes_at_once = 0x100000;

// Fills a part of a buffer. Returns how many bytes there are in front of an error; all of them without one,
// for a file that has become shorter leaves zeros.
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
    bytes.resize((existing_end - *begin) / entry_bytes * entry_bytes);
    if (file.m_read(bytes, *begin) == -1) {
        return false;
    }
    out.reserve(bytes.size() / entry_bytes);
    for (std::uint64_t offset = 0; offset < bytes.size(); offset += entry_bytes) {
        out.push_back(byte_view(bytes).u32_or_zero(offset));
    }
    return true;
}

// The bytes that hold all tables, each byte in one range: tables that touch or overlap share one.
void grain_tables::plan_ranges(std::vector<std::uint32_t> sectors, std::uint64_t table_bytes,
                               std::uint64_t file_size) {
    std::sort(sectors.begin(), sectors.end());
    for (const std::uint32_t sector : sectors) {
        const std::uint64_t begin = sector * vmdk_sector_size;
        const std::uint64_t end = std::min(begin + table_bytes, file_size);
        if (begin >= end) {
            continue;
        }
        if (m_ranges.empty() || begin > m_ranges.back().m_end) {
            m_ranges.push_back({begin, end});
        }
        m_ranges.back().m_end = std::max(end, m_ranges.back().m_end);
    }
}

// Adds bytes to the blocks, zeros behind them up to the next block.
void grain_tables::keep(std::span<const std::uint8_t> bytes) {
    static constexpr block zeros{};
    // Each turn takes a block, and the last one the rest.
    while (!bytes.empty()) {
        const std::span<const std::uint8_t> part = bytes.first(std::min(block_bytes, bytes.size()));
        std::uint32_t number = 0;
        if (!std::equal(part.begin(), part.end(), zeros.begin())) {
            std::copy(part.begin(), part.end(), m_blocks.emplace_back(zeros).begin());
            number = static_cast<std::uint32_t>(m_blocks.size());
        }
        m_block_numbers.push_back(number);
        bytes = bytes.subspan(part.size());
    }
}

void grain_tables::read_range(kept_range& range, const metadata_source& file) {
    range.m_first_block = m_block_numbers.size();
    range.m_failed_from = range.m_end;
    std::vector<std::uint8_t> buffer(std::min(most_bytes_at_once, range.m_end - range.m_begin));
    // Each turn reads a part of the range, and the last one its end.
    for (std::uint64_t position = range.m_begin; position < range.m_end;) {
        const auto part =
            std::span(buffer).first(std::min<std::uint64_t>(buffer.size(), range.m_end - position));
        const std::uint64_t read = read_part(part, position, file);
        keep(part);
        if (read < part.size()) {
            range.m_failed_from = position + read;
            break;
        }
        position += part.size();
    }
    const std::uint64_t blocks = (range.m_end - range.m_begin + block_bytes - 1) / block_bytes;
    m_block_numbers.resize(range.m_first_block + blocks);
}

// Deliberate: one would expect a directory entry of 0 to stand for a table that is not there. It takes its
// table from the start of the file, so grains of that part of the disk come out as what the header names.
void grain_tables::read(const std::vector<std::uint32_t>& directory, std::uint32_t entries_per_table,
                        const metadata_source& file) {
    m_ranges.clear();
    m_block_numbers.clear();
    m_blocks.clear();
    plan_ranges(directory, entries_per_table * entry_bytes, file.m_size);
    for (kept_range& range : m_ranges) {
        read_range(range, file);
    }
    const auto failed = [this](std::uint32_t sector) {
        const std::uint64_t position = sector * vmdk_sector_size;
        const kept_range* range = range_of(position);
        return range != nullptr && position >= range->m_failed_from;
    };
    const auto end = std::find_if(directory.begin(), directory.end(), failed);
    m_size = static_cast<std::size_t>(end - directory.begin());
}

const grain_tables::kept_range* grain_tables::range_of(std::uint64_t position) const {
    const auto behind = std::upper_bound(
        m_ranges.begin(), m_ranges.end(), position,
        [](std::uint64_t wanted, const kept_range& range) { return wanted < range.m_begin; });
    if (behind == m_ranges.begin() || position >= std::prev(behind)->m_end) {
        return nullptr;
    }
    return &*std::prev(behind);
}

std::uint32_t grain_tables::entry(std::uint32_t table_sector, std::uint64_t index) const {
    const std::uint64_t position = table_sector * vmdk_sector_size + index * entry_bytes;
    const kept_range* range = range_of(position);
    if (range == nullptr) {
        return 0;
    }
    const std::uint64_t offset = position - range->m_begin;
    const std::uint32_t number = m_block_numbers[range->m_first_block + offset / block_bytes];
    return number == 0 ? 0 : byte_view(m_blocks[number - 1]).u32_or_zero(offset % block_bytes);
}

}  // namespace quarry
