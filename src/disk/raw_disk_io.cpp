#include "disk/raw_disk_io.h"

#include "disk/limits.h"
#include "disk/positioned_read.h"
#include "disk/stored_size.h"
#include "disk/vmdk_disk.h"
#include "foundation/ql_string.h"
#include "foundation/uni_fileio.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <span>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint32_t default_bytes_per_sector = 512;
constexpr std::uint32_t highest_path_kind = 3;
// Drive numbers above this one are no numbers of drives at all ...
constexpr std::int32_t highest_drive_number = 24;
// ... and those from this one on have no device: the last is /dev/sdt.
constexpr std::int32_t drives_with_a_name = 20;
constexpr std::uint32_t kind_not_opened = 5;
constexpr std::uint32_t origin_word_mask = 0x0FFFFFFF;

// `stored` is at most half of what 64 bits can tell.
std::uint64_t with_left_out_zeros(std::uint64_t stored, std::uint64_t size) {
    return std::min(size, stored + limits::left_out_zeros);
}

// Bytes up to the end of a descriptor, whose position is then at its start again; nothing if it cannot seek.
std::int64_t descriptor_size(int descriptor) {
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    static_cast<void>(::lseek(descriptor, 0, SEEK_SET));
    return end;
}

}  // namespace

std::string& device_directory() {
    static std::string directory = "/dev";
    return directory;
}

RAW_DISK_IO::RAW_DISK_IO(const std::wstring& path, bool writable, std::uint32_t requested_kind) {
    if (path.empty() || requested_kind > highest_path_kind) {
        return;
    }
    m_kind = source_kind_path;
    m_path = path;
    m_path_utf8 = narrow(path);
    m_writable = writable;
    // Deliberate: one would expect a path that cannot be opened to make the object unusable. It counts as an
    // empty source instead, so the user hears of a missing image in the words for a disk without partitions.
    static_cast<void>(open_descriptor());
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
    m_vmdk = std::move(disk);
    m_path_utf8 = m_vmdk->m_base->m_path_utf8;
    m_fd = m_vmdk->m_base->m_fd;
    m_size = m_vmdk->m_base->capacity_bytes();
    m_content_size = with_left_out_zeros(m_vmdk->stored_bytes(), m_size);
    m_bytes_per_sector = default_bytes_per_sector;
    m_ok = true;
}

RAW_DISK_IO::~RAW_DISK_IO() {
    // The descriptor of a virtual disk belongs to its base file.
    if (m_fd != -1 && !m_vmdk) {
        ::close(m_fd);
    }
}

// Opens what m_path_utf8 names. True: the descriptor, the size and the sector size are set.
bool RAW_DISK_IO::open_descriptor() {
    m_fd =
        m_writable ? uni::open_file(m_path_utf8, O_RDWR, 0606) : uni::open_file(m_path_utf8, O_RDONLY, 0404);
    if (m_fd == -1) {
        return false;
    }
    const std::int64_t end = descriptor_size(m_fd);
    m_bytes_per_sector = default_bytes_per_sector;
    if (end < 0) {
        return false;
    }
    m_size = static_cast<std::uint64_t>(end);
    m_content_size = with_left_out_zeros(stored_bytes(m_fd, m_size), m_size);
    return true;
}

bool RAW_DISK_IO::open_drive(std::int32_t drive_number) {
    if (drive_number >= drives_with_a_name) {
        return false;
    }
    m_path_utf8 = device_directory() + "/sd" + static_cast<char>('a' + drive_number);
    errno = 0;
    const bool opened = open_descriptor();
    if (m_fd == -1) {
        std::fprintf(stderr, "prob opening %s, error %d\n", m_path_utf8.c_str(), errno);
        return false;
    }
    m_drive_number = drive_number;
    return opened;
}

bool RAW_DISK_IO::read(void* buffer, std::uint64_t& length, std::uint64_t offset) {
    if (buffer == nullptr || !m_ok || m_fd == -1) {
        return false;
    }
    if (length == 0 || offset >= m_size) {
        return false;
    }
    auto* const bytes = static_cast<std::uint8_t*>(buffer);
    switch (m_kind) {
        case source_kind_path:
            return read_plain(bytes, length, offset);
        case 1:
        case 2:
        case source_kind_drive:
            return read_in_sectors(bytes, length, offset);
        case source_kind_virtual_disk:
            return m_vmdk && m_vmdk->read(buffer, offset, length);
        default:
            return false;
    }
}

bool RAW_DISK_IO::read_whole(void* buffer, std::uint64_t length, std::uint64_t offset) {
    if (buffer == nullptr || !m_ok || m_fd == -1 || length == 0 || offset >= m_size ||
        length > m_size - offset) {
        return false;
    }
    if (m_kind == source_kind_virtual_disk) {
        return m_vmdk && m_vmdk->read_whole(buffer, offset, length);
    }
    const bool is_drive = m_kind == source_kind_drive;
    if (m_kind != source_kind_path && !is_drive) {
        return false;
    }
    if (is_drive && (m_locked || m_bytes_per_sector == 0 || offset % m_bytes_per_sector != 0 ||
                     length % m_bytes_per_sector != 0)) {
        return false;
    }
    const std::span<std::uint8_t> bytes(static_cast<std::uint8_t*>(buffer), length);
    return read_at_position(m_fd, bytes, offset) == static_cast<std::int64_t>(length);
}

bool RAW_DISK_IO::read_plain(std::uint8_t* buffer, std::uint64_t& length, std::uint64_t offset) {
    const std::span<std::uint8_t> whole(buffer, length);
    length = std::min(length, m_size - offset);
    const std::span<std::uint8_t> covered = whole.first(length);
    // Deliberate: one would expect the length to tell how much was read. It tells how much of the source was
    // asked for, so a file that has shrunk, or one that fails in the middle, reads as zeros from there on.
    if (read_at_position(m_fd, covered, offset) == -1) {
        return false;
    }
    std::fill(whole.begin() + static_cast<std::ptrdiff_t>(length), whole.end(), std::uint8_t{0});
    return true;
}

// Whole sectors of a drive: those that hold the asked-for bytes, through a buffer of their own unless the
// request begins and ends at the edge of a sector.
bool RAW_DISK_IO::read_in_sectors(std::uint8_t* buffer, std::uint64_t length, std::uint64_t offset) {
    if (m_locked || m_bytes_per_sector == 0) {
        return false;
    }
    const std::span<std::uint8_t> wanted(buffer, length);
    const std::uint64_t sector = m_bytes_per_sector;
    const std::uint64_t head = offset % sector;
    const std::uint64_t first = offset - head;
    // Deliberate: one would expect a drive that reports an error to fail the read. Only a drive that has
    // nothing to give does; an error reads as zeros, so that one bad sector does not end the work on a whole
    // drive.
    if (head == 0 && length % sector == 0) {
        return read_at_position(m_fd, wanted, first) != 0;
    }
    // Beyond the end there are only zeros, so what is read in between need not reach further than the drive
    // does.
    const std::uint64_t reach = std::min(length, m_size - offset) + head;
    const std::uint64_t total = (reach + sector - 1) / sector * sector;
    try {
        std::vector<std::uint8_t> sectors(total);
        if (read_at_position(m_fd, sectors, first) == 0) {
            return false;
        }
        const std::span<const std::uint8_t> answer(sectors.data() + head, reach - head);
        std::fill(std::copy(answer.begin(), answer.end(), wanted.begin()), wanted.end(), std::uint8_t{0});
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    return true;
}

std::uint64_t RAW_DISK_IO::size() const {
    return m_ok ? m_size : 0;
}

std::uint64_t RAW_DISK_IO::content_size() const {
    return m_ok ? m_content_size : 0;
}

void RAW_DISK_IO::set_origin(std::int32_t sectors, std::uint32_t offset_low, std::uint32_t offset_high) {
    // Deliberate: one would expect all 32 bits of each word to be kept. Four are dropped from each, so the
    // start of the partition in a report is right only for volumes that begin below 256 MiB.
    m_origin_sectors = sectors;
    m_origin_offset_low = offset_low & origin_word_mask;
    m_origin_offset_high = offset_high & origin_word_mask;
}

std::uint64_t RAW_DISK_IO::origin() const {
    return (static_cast<std::uint64_t>(m_origin_offset_high) << 32) | m_origin_offset_low;
}

std::uint64_t RAW_DISK_IO::virtual_disk_offset() const {
    return m_vmdk ? m_vmdk->disk_offset() : 0;
}

}  // namespace quarry
