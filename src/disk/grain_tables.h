// The grain directory and the grain tables of a sparse VMDK file.
//
// The directory is a row of 32-bit numbers: the sector where each grain table begins. A table is a row of
// 32-bit numbers again: the sector where each grain lies in the file, or 0. Nothing says how many entries the
// directory has. In a monolithic file the tables follow it directly, so it ends where its own first entry
// says that the first table begins.
//
// The entries of the tables stay in memory, because each read of the disk looks at them. They are kept as the
// bytes of the file that hold them, each byte once: tables that a damaged directory puts over each other, or
// beyond the end of the file, cost no more than the file has. Stretches of zeros, most of the tables of a
// disk that was hardly written to, cost next to nothing, and holes of the file, which its maker had for
// nothing, are not even read. Tables beyond what memory is given for are read entry by entry when they are
// wanted. What lies beyond the end of the file reads as zeros.
#pragma once

#include "disk/limits.h"
#include "disk/stored_size.h"
#include "disk/vmdk_layout.h"
#include "foundation/budget.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace quarry {

// The file that metadata is read from.
struct metadata_source {
    std::uint64_t m_size = 0;
    // Fills the span with bytes from a file position on, zeros where the file has none. Returns how many were
    // read, or -1 if an error came before the first.
    std::function<std::int64_t(std::span<std::uint8_t>, std::uint64_t)> m_read;
    // The first stretch of the file at or after a position that is no hole; nothing after the last. A file
    // without this has no holes.
    std::function<std::optional<file_stretch>(std::uint64_t)> m_next_data = {};
    // Bytes that the file stores; see stored_bytes().
    std::uint64_t m_stored = ~std::uint64_t{0};
};

// Reads the directory that a header names, at most as many entries as limits::directory_entries gives. False
// if the header's numbers are impossible: metadata of 0 bytes or of 4 GiB and more, a directory or a first
// table past the metadata. `out` is empty after false, and also if the first table does not begin after the
// directory.
[[nodiscard]] bool read_grain_directory(std::vector<std::uint32_t>& out, const vmdk_header& header,
                                        const metadata_source& file);

class grain_tables {
  public:
    // Reads the tables of a directory, with so many entries each. A table that cannot be read ends the work;
    // those before it in the directory stay.
    void read(const std::vector<std::uint32_t>& directory, std::uint32_t entries_per_table,
              const metadata_source& file);

    // How many tables there are, from the start of the directory.
    [[nodiscard]] std::size_t size() const { return m_size; }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    // True if a part of a table could not be read, even of one that counts: its entries there say 0.
    [[nodiscard]] bool has_failed() const { return !m_failed.empty(); }

    // An entry of the table that begins at a sector which the directory names: the sector of a grain, or 0.
    // An index past the table's end gives 0 or what lies there.
    [[nodiscard]] std::uint32_t entry(std::uint32_t table_sector, std::uint64_t index) const;

  private:
    static constexpr std::size_t block_bytes = 4096;
    using block = std::array<std::uint8_t, block_bytes>;

    // Bytes of the file that hold tables: those from m_begin up to m_end, in blocks from m_begin on.
    struct kept_range {
        std::uint64_t m_begin = 0;
        std::uint64_t m_end = 0;
        std::size_t m_first_block = 0;  // index into m_block_numbers
    };
    // In the place of a first block: the range is not in memory.
    static constexpr std::size_t not_in_memory = ~std::size_t{0};

    [[nodiscard]] static std::vector<file_stretch> plan(std::vector<std::uint32_t> sectors,
                                                        std::uint64_t table_bytes, std::uint64_t file_size);
    void read_stretch(const file_stretch& tables);
    [[nodiscard]] bool read_data(const file_stretch& data);
    void keep(std::span<const std::uint8_t> bytes);
    [[nodiscard]] bool failed_at(std::uint64_t position) const;
    [[nodiscard]] const kept_range* range_of(std::uint64_t position) const;
    [[nodiscard]] std::uint32_t entry_in_file(std::uint64_t position) const;

    metadata_source m_file;
    file_stretch m_known_data;         // the last stretch that the file named
    std::vector<kept_range> m_ranges;  // ascending, apart from each other
    // Parts of tables from an error on, ascending.
    std::vector<file_stretch> m_failed;
    // For each block of each range its place in m_blocks, counted from 1, or 0 for a block of zeros.
    std::vector<std::uint32_t> m_block_numbers;
    std::deque<block> m_blocks;
    std::size_t m_size = 0;
    budget m_memory{0};
    budget m_looked_at{0};
};

}  // namespace quarry
