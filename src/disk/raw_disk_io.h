// The source of bytes as the default mode reads it: an image or a device by path, a physical drive by number,
// or a virtual disk.
//
// Every reader asks a RAW_DISK_IO for so many bytes at a byte offset of the source, and no reader sees a
// descriptor. An object opens its source once, in its constructor, and reads only. It owns a byte_source,
// which says what is lost, and gives zeros for it: bytes that were asked for and could not be read are zeros,
// whatever the kind of source. The kinds differ in two points: where a request ends that reaches beyond the
// end of the source, and which losses make a read fail.
#pragma once

#include "disk/byte_source.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

class vmdk_disk;

// What RAW_DISK_IO::m_kind says about the source.
inline constexpr std::uint32_t source_kind_path = 0;
inline constexpr std::uint32_t source_kind_drive = 3;
inline constexpr std::uint32_t source_kind_virtual_disk = 4;
inline constexpr std::uint32_t source_kind_none = 8;

class RAW_DISK_IO {
  public:
    // By path. The requested kinds 0 to 3 open it and are stored as 0; any other kind, and an empty path,
    // leave the object unusable. A path that cannot be opened leaves a usable object of size 0 whose reads
    // fail.
    RAW_DISK_IO(const std::wstring& path, bool writable, std::uint32_t requested_kind);
    // A physical drive by number, from 0 for the first to 19, as kind 3. Any other number leaves the object
    // unusable. A drive that cannot be opened does so too, with a message on standard error. `suppress_open`
    // and kind 5 leave the object unusable, kinds other than 3 and 5 usable with nothing opened, so that
    // reads fail.
    RAW_DISK_IO(std::int32_t drive_number, bool writable, bool suppress_open, std::uint32_t kind);
    // A virtual disk from its files, in any order, as kind 4. The object is usable if the files make one
    // whole chain; its size is that of the base disk. `check_only` opens nothing and leaves it unusable.
    RAW_DISK_IO(const std::vector<std::wstring>& vmdk_files, bool writable, bool check_only);
    RAW_DISK_IO(const RAW_DISK_IO&) = delete;
    RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;
    virtual ~RAW_DISK_IO();

    // Reads `length` bytes at byte `offset` of the source into `buffer`, which has room for all of them.
    // True: `length` holds how many bytes of the source the answer covers. That is what was asked for, less
    // what lies beyond the end of a source opened by path; the bytes of the buffer after it are zeros, and so
    // are those that the source should have held and did not give. False (null buffer, unusable object,
    // length 0, offset at or beyond the end, failed read): neither the buffer nor `length` holds anything of
    // use.
    [[nodiscard]] bool read(void* buffer, std::uint64_t& length, std::uint64_t offset);
    // The same for readers that join several small reads into one: true only if every byte was asked for
    // inside the source and did come from it. After false the buffer holds anything, and the caller makes its
    // small reads, each of which then fails or falls short by itself.
    [[nodiscard]] bool read_whole(void* buffer, std::uint64_t length, std::uint64_t offset);

    // Bytes of the source; 0 on an unusable object.
    [[nodiscard]] std::uint64_t size() const;
    // Bytes that the source can have content in: the cap of what is allocated or walked at the source's word.
    // A device has it in all of its bytes. The size of a sparse file, and that of a virtual disk, is only a
    // number, which costs nothing: a file counts for what is stored of it, a virtual disk for what is stored
    // of its files, and each for some zeros beside, which a sound one may leave out.
    [[nodiscard]] std::uint64_t content_size() const;
    [[nodiscard]] std::uint32_t bytes_per_sector() const { return m_bytes_per_sector; }
    [[nodiscard]] bool is_ok() const { return m_ok; }
    // Records where the volume begins that a virtual disk is read for: its byte offset in two words.
    void set_origin(std::int32_t sectors, std::uint32_t offset_low, std::uint32_t offset_high);
    // The recorded offset, as far as it was kept; 0 when none was recorded.
    [[nodiscard]] std::uint64_t origin() const;
    // Byte offset of the first partition that a virtual disk reported; 0 for any other source.
    [[nodiscard]] std::uint64_t virtual_disk_offset() const;

    // What is read; null if nothing was opened.
    std::unique_ptr<byte_source> m_bytes;
    // The same as a chain of files if it is one, otherwise null.
    vmdk_disk* m_vmdk = nullptr;
    // The number that a drive was opened by, otherwise -1.
    std::int32_t m_drive_number = -1;
    std::int32_t m_origin_sectors = -1;
    bool m_writable = false;
    // Set, it makes the reads of a drive fail.
    bool m_locked = false;
    // The descriptor of the path, the drive or the base of the chain, which m_bytes closes.
    int m_fd = -1;
    // 512 once a source is open, 0 before.
    std::uint32_t m_bytes_per_sector = 0;
    std::uint32_t m_origin_offset_low = 0;
    std::uint32_t m_origin_offset_high = 0;
    std::string m_path_utf8;
    std::wstring m_path;
    std::uint32_t m_kind = source_kind_none;
    bool m_ok = false;
    std::uint64_t m_size = 0;
    std::uint64_t m_content_size = 0;

  private:
    void take(std::unique_ptr<byte_source> bytes, int descriptor);
    [[nodiscard]] bool open_drive(std::int32_t drive_number);
    // True if the read of a range may be tried.
    [[nodiscard]] bool may_read(const void* buffer, std::uint64_t length, std::uint64_t offset) const;
};

}  // namespace quarry
