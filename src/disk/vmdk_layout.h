// The header of a monolithic sparse VMDK file.
//
// A sparse file holds a virtual disk without the parts that were never written. The disk is divided into
// grains, commonly of 64 KiB, and the file keeps a grain only if it was written to. Tables of 32-bit sector
// numbers say where the grains lie: the grain directory lists the grain tables, each table lists so many
// grains, and an entry of 0 means a grain that this file does not hold. The file begins with a header of one
// sector and a text, the descriptor, which names the file and its parent (see vmdk_descriptor.h). The layout
// is that of the "Virtual Disk Format 5.0" note, which calls the file a hosted sparse extent.
//
// All numbers are little-endian; sectors are of 512 bytes.
#pragma once

#include "foundation/byte_view.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace quarry {

inline constexpr std::uint64_t vmdk_sector_size = 512;

// A count of sectors in bytes; empty if it has no place in 63 bits, where no file position reaches.
[[nodiscard]] constexpr std::optional<std::uint64_t> vmdk_sectors_in_bytes(std::uint64_t sectors) {
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max() / vmdk_sector_size;
    return sectors <= most ? std::optional(sectors * vmdk_sector_size) : std::nullopt;
}

// A view on the header. Fields that no reading depends on have no accessor: the version (4), the offset of
// the redundant grain directory (48), unclean shutdown (72), the four end-of-line test characters (73 to 76),
// the compression algorithm (77) and the pad (79). The default mode does not look at the flags: it reads a
// file with compressed grains like any other, its grains as they lie.
class vmdk_header {
  public:
    // Bytes that are asked of the file for it: one more than it has.
    static constexpr std::size_t bytes_read = 513;

    explicit vmdk_header(byte_view bytes) : m_bytes(bytes) {}

    // The bytes "KDMV".
    [[nodiscard]] bool has_magic_number() const { return m_bytes.u32_or_zero(0) == magic_number; }
    // Bit 0: the line-end test characters are valid; 1: there is a redundant directory; 2: entries of 1 are
    // grains of zeros; 16: grains are compressed; 17: markers exist.
    [[nodiscard]] std::uint32_t flags() const { return m_bytes.u32_or_zero(8); }
    // Size of the virtual disk in sectors.
    [[nodiscard]] std::uint64_t capacity() const { return m_bytes.u64_or_zero(12); }
    // Sectors in a grain.
    [[nodiscard]] std::uint64_t grain_size() const { return m_bytes.u64_or_zero(20); }
    // First sector of the descriptor, and its length in sectors, of which the low half is used.
    [[nodiscard]] std::uint64_t descriptor_offset() const { return m_bytes.u64_or_zero(28); }
    [[nodiscard]] std::uint32_t descriptor_size() const { return m_bytes.u32_or_zero(36); }
    // Number of entries in a grain table.
    [[nodiscard]] std::uint32_t grain_entries_per_table() const { return m_bytes.u32_or_zero(44); }
    // First sector of the grain directory.
    [[nodiscard]] std::uint64_t grain_directory_offset() const { return m_bytes.u64_or_zero(56); }
    // Sectors of metadata at the start of the file, of which the low half is used.
    [[nodiscard]] std::uint32_t overhead() const { return m_bytes.u32_or_zero(64); }

  private:
    static constexpr std::uint32_t magic_number = 0x564D444B;
    byte_view m_bytes;
};

}  // namespace quarry
