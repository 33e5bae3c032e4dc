#include "disk/raw_disk_io.h"

#include "disk/limits.h"

#include <algorithm>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint32_t default_bytes_per_sector = 512;
constexpr std::uint32_t origin_word_mask = 0x0FFFFFFF;

// `stored` is at most 2^63.
std::uint64_t with_left_out_zeros(std::uint64_t stored, std::uint64_t size) {
    return std::min(size, stored + limits::left_out_zeros);
}

// Whether a read is a failed one.
bool is_failure(const read_outcome& outcome, const read_rules& rules) {
    return outcome.bytes == 0 && (outcome.error == 0 ? rules.silence_fails : rules.error_fails);
}

}  // namespace

RAW_DISK_IO::RAW_DISK_IO(opened_bytes opened)
    : m_bytes(std::move(opened.bytes)),
      m_drive_number(opened.drive_number),
      m_writable(opened.writable),
      m_fd(opened.descriptor),
      m_path_utf8(std::move(opened.path_utf8)),
      m_path(std::move(opened.path)),
      m_kind(opened.kind),
      m_ok(opened.is_usable),
      m_rules(opened.rules),
      m_virtual_disk_offset(opened.first_partition) {
    if (m_bytes == nullptr) {
        return;
    }
    m_size = m_bytes->size();
    m_content_size = with_left_out_zeros(m_bytes->content_size(), m_size);
    // Deliberate: 512 for every source, not the sector size of the drive. Tables of disks with larger sectors
    // are found by trying.
    m_bytes_per_sector = default_bytes_per_sector;
}

RAW_DISK_IO::~RAW_DISK_IO() = default;

bool RAW_DISK_IO::may_read(const void* buffer, std::uint64_t length, std::uint64_t offset) const {
    constexpr std::uint64_t highest_offset = std::numeric_limits<std::uint64_t>::max();
    const bool is_locked = m_rules.heeds_lock && m_locked;
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
    if (m_rules.ends_with_source) {
        length = std::min(length, m_size - offset);
    }
    const std::span<std::uint8_t> covered = whole.first(length);
    try {
        if (is_failure(read_with_zeros(*m_bytes, covered, offset), m_rules)) {
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
    const std::uint64_t unit = m_rules.joined_unit;
    if (unit == 0 || offset % unit != 0 || length % unit != 0) {
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

}  // namespace quarry
