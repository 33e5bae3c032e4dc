// The one source of bytes: an image or device by path, a physical drive by number, or a virtual disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

class vmdk_disk;

class RAW_DISK_IO {
  public:
    // By path. Requested kinds 0 to 3 open the path and are stored as 0.
    RAW_DISK_IO(const std::wstring& path, bool writable, std::uint32_t requested_kind);
    // A physical drive by number, kind 3.
    RAW_DISK_IO(std::int32_t drive_number, bool writable, bool suppress_open, std::uint32_t kind);
    // A virtual disk from its files, kind 4.
    RAW_DISK_IO(const std::vector<std::wstring>& vmdk_files, bool writable, bool check_only);
    RAW_DISK_IO(const RAW_DISK_IO&) = delete;
    RAW_DISK_IO& operator=(const RAW_DISK_IO&) = delete;
    virtual ~RAW_DISK_IO();

    // Reads `length` bytes at a byte offset of the source into `buffer`, which holds that many. Part of the
    // length may be cut at the end of the source; bytes that were not read are zeros.
    [[nodiscard]] bool read(void* buffer, std::uint64_t& length, std::uint64_t offset);

    [[nodiscard]] std::uint64_t size() const;
    [[nodiscard]] std::uint32_t bytes_per_sector() const { return m_bytes_per_sector; }
    [[nodiscard]] bool is_ok() const { return m_ok; }
    void set_origin(std::int32_t sectors, std::uint32_t offset_low, std::uint32_t offset_high);
    [[nodiscard]] std::uint64_t origin() const;
    // Byte offset of the first volume that a virtual disk reported; 0 for any other source.
    [[nodiscard]] std::uint64_t virtual_disk_offset() const;

    std::unique_ptr<vmdk_disk> m_vmdk;
    std::int32_t m_drive_number = -1;
    std::int32_t m_origin_sectors = -1;
    bool m_writable = false;
    bool m_locked = false;
    int m_fd = -1;
    std::uint32_t m_bytes_per_sector = 0;
    std::uint32_t m_origin_offset_low = 0;
    std::uint32_t m_origin_offset_high = 0;
    std::string m_path_utf8;
    std::wstring m_path;
    std::uint32_t m_kind = 8;
    bool m_ok = false;
    std::uint64_t m_size = 0;
};

// The directory in which physical drives stand, "/dev" unless a test puts another in its place.
[[nodiscard]] std::string& device_directory();

}  // namespace quarry
