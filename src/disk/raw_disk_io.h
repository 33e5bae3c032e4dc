// The source of bytes as the default mode reads it.
//
// Every reader asks a RAW_DISK_IO for so many bytes at a byte offset of the source, and no reader sees a
// descriptor. An object reads only. It holds a byte_source, which says what is lost, and gives zeros for it:
// bytes that were asked for and could not be read are zeros, whatever the kind of source. What differs from
// kind to kind is in the rules that came with the bytes, see opened_bytes.h.
#pragma once

#include "disk/byte_source.h"
#include "disk/opened_bytes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

class RAW_DISK_IO {
  public:
    // Reads what was opened. Unusable if that is.
    explicit RAW_DISK_IO(opened_bytes opened);
    // Reserved: open_path, open_drive and open_chain, read by their rules. The program opens by a `source`.
    RAW_DISK_IO(const std::wstring& path, bool writable, std::uint32_t requested_kind)
        : RAW_DISK_IO(open_path(path, writable, requested_kind)) {}
    RAW_DISK_IO(std::int32_t drive_number, bool writable, bool suppress_open, std::uint32_t kind)
        : RAW_DISK_IO(open_drive(drive_number, writable, suppress_open, kind)) {}
    RAW_DISK_IO(const std::vector<std::wstring>& vmdk_files, bool writable, bool check_only)
        : RAW_DISK_IO(open_chain(vmdk_files, writable, check_only)) {}
    RAW_DISK_IO(const RAW_DISK_IO&) = delete;
    RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;
    virtual ~RAW_DISK_IO();

    // Reads `length` bytes at byte `offset` of the source into `buffer`, which has room for all of them.
    // False for a null buffer, an unusable object, a length of 0, an offset at or beyond the end, and a
    // failed read: neither the buffer nor `length` holds anything of use then. After true the whole buffer is
    // filled, with zeros for each byte that did not come. `length` is then as before, but where the rules
    // have a request end with the source it is what lies before that end.
    [[nodiscard]] bool read(void* buffer, std::uint64_t& length, std::uint64_t offset);
    // The same for readers that join several small reads into one: true only if every byte was asked for
    // inside the source and did come from it. After false the buffer holds anything, and the caller makes its
    // small reads, each of which then fails or falls short by itself.
    [[nodiscard]] bool read_whole(void* buffer, std::uint64_t length, std::uint64_t offset);

    // Bytes of the source; 0 on an unusable object.
    [[nodiscard]] std::uint64_t size() const;
    // Bytes that the source can have content in: the cap of what is allocated or walked at the source's word.
    // It is what the source says of itself (see byte_source) and some zeros, which a sparse file or a virtual
    // disk may leave out; at most its size.
    [[nodiscard]] std::uint64_t content_size() const;
    [[nodiscard]] std::uint32_t bytes_per_sector() const { return m_bytes_per_sector; }
    [[nodiscard]] bool is_ok() const { return m_ok; }
    // Records where the volume begins that a virtual disk is read for: its byte offset in two words.
    void set_origin(std::int32_t sectors, std::uint32_t offset_low, std::uint32_t offset_high);
    // The recorded offset, as far as it was kept; 0 when none was recorded.
    [[nodiscard]] std::uint64_t origin() const;
    // Byte offset of the first partition that a virtual disk reported; 0 for any other source.
    [[nodiscard]] std::uint64_t virtual_disk_offset() const { return m_virtual_disk_offset; }

    // What is read; null if nothing was opened.
    std::shared_ptr<byte_source> m_bytes;
    // The number that a drive was opened by, otherwise -1.
    std::int32_t m_drive_number = -1;
    std::int32_t m_origin_sectors = -1;
    bool m_writable = false;
    // Reserved: set, it makes the reads of a drive fail. No flow sets it.
    bool m_locked = false;
    // The descriptor of the path, the drive or the base of the chain, which m_bytes closes.
    int m_fd = -1;
    // 512 once a source is open, 0 before.
    std::uint32_t m_bytes_per_sector = 0;
    std::uint32_t m_origin_offset_low = 0;
    std::uint32_t m_origin_offset_high = 0;
    std::string m_path_utf8;
    std::wstring m_path;
    std::uint32_t m_kind = raw_kind_none;  // see raw_kind_path
    bool m_ok = false;
    std::uint64_t m_size = 0;
    std::uint64_t m_content_size = 0;

  private:
    // True if the read of a range may be tried.
    [[nodiscard]] bool may_read(const void* buffer, std::uint64_t length, std::uint64_t offset) const;

    read_rules m_rules;
    std::uint64_t m_virtual_disk_offset = 0;
};

}  // namespace quarry
