// One monolithic sparse VMDK file: which grains of a virtual disk it holds, and where.
//
// Opening a file reads all of its metadata into memory: header, descriptor, directory and tables. It also
// looks at the first sector of the disk, as far as this file holds it, for the partitions that it names.
// Afterwards an offset of the disk is turned into a position in the file, or into "not here". What a file
// does not hold is found in its parents; see vmdk_disk.h. Disks in several extents and flat extents are not
// supported: each file carries its own header.
#pragma once

#include "disk/grain_tables.h"
#include "disk/vmdk_descriptor.h"
#include "disk/vmdk_layout.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// Part of the virtual disk, in bytes, whose every offset has the same table entry and lies in one row in the
// file.
struct grain_span {
    std::uint64_t m_begin = 0;
    std::uint64_t m_end = 0;
};

class vmdk_file : public vmdk_descriptor {
  public:
    vmdk_file() = default;
    vmdk_file(const vmdk_file&) = delete;
    vmdk_file& operator=(const vmdk_file&) = delete;
    ~vmdk_file();

    // Opens the file and reads its metadata. True exactly if `m_ok` is set. False for what is no sparse file,
    // one that cannot be read, and one whose grains or tables have no size or a size beyond 64 bits. After
    // false the object is of no further use, but for its path.
    [[nodiscard]] bool open(const std::wstring& path, bool writable);
    // The same for a file that is open for reading already; `path` only names it. The descriptor stays the
    // caller's: the object works on a duplicate.
    [[nodiscard]] bool open_duplicate(const std::wstring& path, int descriptor);

    // Size of the virtual disk in bytes; 0 unless `m_ok`. What leaves 64 bits is the largest number.
    [[nodiscard]] std::uint64_t capacity_bytes() const;
    // Bytes from an offset of the disk to the end of its grain, at least 1. The file must be `m_ok`.
    [[nodiscard]] std::uint64_t bytes_to_grain_end(std::uint64_t offset) const;
    // The position in this file of a byte of the disk. False, with `file_offset` 0, if the file does not hold
    // its grain.
    [[nodiscard]] bool map_offset(std::uint64_t offset, std::uint64_t& file_offset) const;
    // The surroundings of an offset for which `map_offset` gives one answer. The file must be `m_ok`.
    [[nodiscard]] grain_span span_of(std::uint64_t offset) const;
    // Reads bytes of the disk from this file only. True: `length` holds how many bytes came, less than asked
    // where the grain reaches past the end of the file. False if the first or a later grain is not here or
    // gives no byte.
    [[nodiscard]] bool read_mapped(int descriptor, void* buffer, std::uint64_t offset,
                                   std::uint64_t& length) const;

    std::array<std::uint8_t, vmdk_header::bytes_read> m_header{};
    vmdk_file* m_child = nullptr;   // the next newer file of the chain
    vmdk_file* m_parent = nullptr;  // the next older one
    std::vector<std::uint32_t> m_grain_directory;
    std::uint64_t m_first_table_offset = 0;
    grain_tables m_grain_tables;
    std::uint64_t m_first_grain_offset = 0;
    std::vector<std::uint8_t> m_first_sector;
    // Of each partition that the first sector names: byte offset on the disk, and sector size.
    std::vector<std::uint64_t> m_volume_offsets;
    std::vector<std::uint32_t> m_volume_sector_sizes;
    std::uint32_t m_sector_size = 512;
    std::uint64_t m_file_size = 0;
    std::uint64_t m_stored_bytes = 0;  // see stored_bytes()
    std::uint64_t m_table_span = 0;    // bytes of disk that one grain table covers
    std::uint64_t m_grain_bytes = 0;
    std::uint64_t m_blocks_per_grain = 0;
    std::uint32_t m_block_size = 0;
    bool m_ok = false;
    int m_fd = -1;
    bool m_writable = false;
    std::string m_path_utf8;
    std::wstring m_path;

  private:
    [[nodiscard]] bool take_metadata();
    [[nodiscard]] bool parse_metadata(int descriptor);
    [[nodiscard]] bool read_header(const metadata_source& file);
    [[nodiscard]] bool read_descriptor(const metadata_source& file);
    [[nodiscard]] bool derive_sizes();
    [[nodiscard]] bool read_tables(const metadata_source& file);
    [[nodiscard]] bool read_first_sector(const metadata_source& file);
    void find_volumes();
};

}  // namespace quarry
