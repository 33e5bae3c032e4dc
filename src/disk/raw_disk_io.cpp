#include "disk/raw_disk_io.h"

#include "disk/drive_source.h"
#include "disk/file_source.h"
#include "disk/limits.h"
#include "disk/vmdk_disk.h"
#include "foundation/ql_string.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint32_t default_bytes_per_sector = 512;
constexpr std::uint32_t highest_path_kind = 3;
// Drive numbers above this one are no numbers of drives at all ...
constexpr std::int32_t highest_drive_number = 24;
// ... and those from this one on are not opened: the last is /dev/sdt.
constexpr std::int32_t drives_that_open = 20;
constexpr std::uint32_t kind_not_opened = 5;
constexpr std::uint32_t origin_word_mask = 0x0FFFFFFF;

// `stored` is at most 2^63.
std::uint64_t with_left_out_zeros(std::uint64_t stored, std::uint64_t size) {
    return std::min(size, stored + limits::left_out_zeros);
}

// Whether a read of which nothing came is a failed one.
//
// Deliberate: an error of a drive reads as zeros, not as a failed read; only a drive that gives nothing
// without an error fails it. The user sees zeros in place of a bad sector, and the work on the drive goes on.
// With a path it is the reverse: an error fails the read, and a file that has shrunk reads as zeros where it
// was.
bool is_failure(const read_outcome& outcome, std::uint32_t kind) {
    if (outcome.bytes != 0 || kind == source_kind_virtual_disk) {
        return false;
    }
    return kind == source_kind_drive ? outcome.error == 0 : outcome.error != 0;
}

}  // namespace

RAW_DISK_IO::RAW_DISK_IO(const std::wstring& path, bool writable, std::uint32_t requested_kind) {
    if (path.empty() || requested_kind > highest_path_kind) {
        return;
    }
    m_kind = source_kind_path;
    m_path = path;
    m_path_utf8 = narrow(path);
    m_writable = writable;
    if (std::unique_ptr<file_source> file = file_source::open_any(m_path_utf8, writable)) {
        const int descriptor = file->descriptor();
        take(std::move(file), descriptor);
    }
    // Deliberate: a path that cannot be opened counts as an empty source, not as an unusable one. The user
    // sees the words for a disk without partitions where the image is missing.
    m_ok = true;
}

RAW_DISK_IO::RAW_DISK_IO(std::int32_t drive_number, bool writable, bool suppress_open, std::uint32_t kind) {
    if (drive_number < 0 || drive_number > highest_drive_number) {
        return;
    }
    m_kind = kind;
    m_writable = writable;
    if (suppress_open || kind == kind_not_opened) {
        return;
    }
    m_ok = kind != source_kind_drive || open_drive(drive_number);
}

RAW_DISK_IO::RAW_DISK_IO(const std::vector<std::wstring>& vmdk_files, bool writable, bool check_only)
    : m_writable(writable), m_kind(source_kind_virtual_disk) {
    if (check_only) {
        return;
    }
    auto disk = std::make_unique<vmdk_disk>(writable);
    if (!disk->add_files(vmdk_files) || !disk->link()) {
        return;
    }
    m_vmdk = disk.get();
    m_path_utf8 = m_vmdk->m_base->m_path_utf8;
    take(std::move(disk), m_vmdk->m_base->m_fd);
    m_ok = true;
}

RAW_DISK_IO::~RAW_DISK_IO() = default;

void RAW_DISK_IO::take(std::unique_ptr<byte_source> bytes, int descriptor) {
    m_bytes = std::move(bytes);
    m_fd = descriptor;
    m_size = m_bytes->size();
    m_content_size = with_left_out_zeros(m_bytes->content_size(), m_size);
    // Deliberate: 512 for every source, not the sector size of the drive. Tables of disks with larger sectors
    // are found by trying.
    m_bytes_per_sector = default_bytes_per_sector;
}

bool RAW_DISK_IO::open_drive(std::int32_t drive_number) {
    if (drive_number >= drives_that_open) {
        return false;
    }
    m_path_utf8 = drive_device(drive_number);
    errno = 0;
    std::unique_ptr<file_source> device = file_source::open_any(m_path_utf8, m_writable);
    if (device == nullptr) {
        std::fprintf(stderr, "prob opening %s, error %d\n", m_path_utf8.c_str(), errno);
        return false;
    }
    m_drive_number = drive_number;
    const bool has_end = device->has_end();
    const int descriptor = device->descriptor();
    take(std::make_unique<drive_source>(std::move(device)), descriptor);
    return has_end;
}

bool RAW_DISK_IO::may_read(const void* buffer, std::uint64_t length, std::uint64_t offset) const {
    constexpr std::uint64_t highest_offset = std::numeric_limits<std::uint64_t>::max();
    const bool is_locked = m_kind == source_kind_drive && m_locked;
    return buffer != nullptr && m_ok && m_bytes != nullptr && !is_locked && offset < m_size && length != 0 &&
           length - 1 <= highest_offset - offset;
}

bool RAW_DISK_IO::read(void* buffer, std::uint64_t& length, std::uint64_t offset) {
    if (!may_read(buffer, length, offset)) {
        return false;
    }
    const std::span<std::uint8_t> whole(static_cast<std::uint8_t*>(buffer), length);
    // Deliberate: the length says how much of the source was asked for (of a path what lies before its end,
    // of any other source all of it), not how much was read. The user sees zeros for what did not come, and
    // no short read.
    if (m_kind == source_kind_path) {
        length = std::min(length, m_size - offset);
    }
    const std::span<std::uint8_t> covered = whole.first(length);
    try {
        if (is_failure(read_with_zeros(*m_bytes, covered, offset), m_kind)) {
            return false;
        }
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    std::fill(whole.begin() + static_cast<std::ptrdiff_t>(length), whole.end(), std::uint8_t{0});
    return true;
}

bool RAW_DISK_IO::read_whole(void* buffer, std::uint64_t length, std::uint64_t offset) {
    if (!may_read(buffer, length, offset) || length > m_size - offset) {
        return false;
    }
    if (m_vmdk != nullptr) {
        return m_vmdk->read_whole(buffer, offset, length);
    }
    if (m_kind == source_kind_drive &&
        (offset % m_bytes_per_sector != 0 || length % m_bytes_per_sector != 0)) {
        return false;
    }
    return m_bytes->read({static_cast<std::uint8_t*>(buffer), length}, offset).bytes == length;
}

std::uint64_t RAW_DISK_IO::size() const {
    return m_ok ? m_size : 0;
}

std::uint64_t RAW_DISK_IO::content_size() const {
    return m_ok ? m_content_size : 0;
}

void RAW_DISK_IO::set_origin(std::int32_t sectors, std::uint32_t offset_low, std::uint32_t offset_high) {
    // Deliberate: 28 bits of each word are kept, not all 32. The user sees the right start of the partition
    // in a report only if the volume begins below 256 MiB.
    m_origin_sectors = sectors;
    m_origin_offset_low = offset_low & origin_word_mask;
    m_origin_offset_high = offset_high & origin_word_mask;
}

std::uint64_t RAW_DISK_IO::origin() const {
    return (static_cast<std::uint64_t>(m_origin_offset_high) << 32) | m_origin_offset_low;
}

std::uint64_t RAW_DISK_IO::virtual_disk_offset() const {
    return m_vmdk != nullptr ? m_vmdk->disk_offset() : 0;
}

}  // namespace quarry
