#include "disk/vmdk_file.h"

#include "disk/partition_buffer_reader.h"
#include "disk/positioned_read.h"
#include "disk/stored_size.h"
#include "foundation/ql_string.h"
#include "foundation/uni_fileio.h"

#include <algorithm>
#include <fcntl.h>
#include <limits>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace quarry {

namespace {

constexpr std::uint32_t block_size = 4096;
constexpr std::uint64_t largest_number = std::numeric_limits<std::uint64_t>::max();

}  // namespace

vmdk_file::~vmdk_file() {
    if (m_fd != -1) {
        ::close(m_fd);
    }
}

bool vmdk_file::open(const std::wstring& path, bool writable) {
    m_path = path;
    m_path_utf8 = narrow(path);
    m_writable = writable;
    m_fd = writable ? uni::open_file(m_path_utf8, O_RDWR, 0606) : uni::open_file(m_path_utf8, O_RDONLY, 0404);
    return take_metadata();
}

bool vmdk_file::open_duplicate(const std::wstring& path, int descriptor) {
    m_path = path;
    m_path_utf8 = narrow(path);
    m_fd = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    return take_metadata();
}

bool vmdk_file::take_metadata() {
    try {
        m_ok = parse_metadata(m_fd);
    } catch (const std::bad_alloc&) {
        m_ok = false;
    } catch (const std::length_error&) {
        m_ok = false;
    }
    return m_ok;
}

bool vmdk_file::parse_metadata(int descriptor) {
    const off_t end = descriptor == -1 ? -1 : ::lseek(descriptor, 0, SEEK_END);
    // A device may take a seek, give no size, and wait for ever in a read.
    if (end <= 0) {
        return false;
    }
    m_file_size = static_cast<std::uint64_t>(end);
    m_stored_bytes = stored_bytes(descriptor, m_file_size);
    const metadata_source file = {
        .m_size = m_file_size,
        .m_read = [descriptor](std::span<std::uint8_t> out,
                               std::uint64_t offset) { return read_at_position(descriptor, out, offset); },
        .m_next_data = [descriptor](std::uint64_t position) { return next_data(descriptor, position); },
        .m_stored = m_stored_bytes};
    if (!read_header(file) || !read_descriptor(file) || !derive_sizes() || !read_tables(file) ||
        !read_first_sector(file)) {
        return false;
    }
    find_volumes();
    return true;
}

// Deliberate: the flags are not looked at; a file with compressed grains is not refused. The user sees its
// grains as they are in the file, compressed.
bool vmdk_file::read_header(const metadata_source& file) {
    return file.m_read(m_header, 0) != -1 && vmdk_header(byte_view(m_header)).has_magic_number();
}

bool vmdk_file::read_descriptor(const metadata_source& file) {
    const vmdk_header header{byte_view(m_header)};
    const std::optional<std::uint64_t> begin = vmdk_sectors_in_bytes(header.descriptor_offset());
    if (!begin) {
        return false;
    }
    const std::uint64_t claimed = header.descriptor_size() * vmdk_sector_size;
    const std::uint64_t existing = m_file_size - std::min(m_file_size, *begin);
    std::vector<std::uint8_t> text(std::min({claimed, existing, std::uint64_t{longest_descriptor_bytes}}));
    if (file.m_read(text, *begin) == -1) {
        return false;
    }
    parse(text);
    return true;
}

// False if a grain or a table has a size of 0, by which offsets could not be divided, or one of 2^64 bytes or
// more.
bool vmdk_file::derive_sizes() {
    const vmdk_header header{byte_view(m_header)};
    const std::optional<std::uint64_t> grain_bytes = vmdk_sectors_in_bytes(header.grain_size());
    const std::uint64_t entries = header.grain_entries_per_table();
    if (grain_bytes.value_or(0) == 0 || entries == 0 || *grain_bytes > largest_number / entries) {
        return false;
    }
    m_grain_bytes = *grain_bytes;
    m_table_span = m_grain_bytes * entries;
    m_block_size = block_size;
    m_blocks_per_grain = m_grain_bytes / block_size;
    return true;
}

bool vmdk_file::read_tables(const metadata_source& file) {
    const vmdk_header header{byte_view(m_header)};
    if (!read_grain_directory(m_grain_directory, header, file)) {
        return false;
    }
    if (!m_grain_directory.empty()) {
        m_first_table_offset = m_grain_directory.front() * vmdk_sector_size;
    }
    m_grain_tables.read(m_grain_directory, header.grain_entries_per_table(), file);
    return !m_grain_tables.empty();
}

// Deliberate: the position of the first grain is cut to 32 bits, not kept whole. The user sees no first
// partition for a disk whose first grain lies past 4 GiB in its file: another sector is taken for the disk's
// first.
bool vmdk_file::read_first_sector(const metadata_source& file) {
    m_first_grain_offset = low_32_bits(m_grain_tables.entry(m_grain_directory.front(), 0) * vmdk_sector_size);
    m_first_sector.resize(m_sector_size);
    return file.m_read(m_first_sector, m_first_grain_offset) != -1;
}

void vmdk_file::find_volumes() {
    partition_list partitions;
    if (!read_partitions_from_buffer(m_first_sector, partitions, false, false)) {
        // What a failed search leaves in the list counts as well.
        static_cast<void>(read_partitions_from_buffer(m_first_sector, partitions, true, false));
    }
    for (const partition_stats& partition : partitions) {
        m_volume_offsets.push_back(partition.byte_offset());
        m_volume_sector_sizes.push_back(partition.m_sector_size);
    }
}

std::uint64_t vmdk_file::capacity_bytes() const {
    const std::uint64_t sectors = vmdk_header(byte_view(m_header)).capacity();
    if (!m_ok) {
        return 0;
    }
    return sectors > largest_number / vmdk_sector_size ? largest_number : sectors * vmdk_sector_size;
}

std::uint64_t vmdk_file::bytes_to_grain_end(std::uint64_t offset) const {
    return m_grain_bytes - offset % m_grain_bytes;
}

// Deliberate: an entry of 1 is sector 1 of the file like any other number, not a grain of zeros as some
// programs mean it. The user sees what lies there, the descriptor, in place of such a grain.
bool vmdk_file::map_offset(std::uint64_t offset, std::uint64_t& file_offset) const {
    file_offset = 0;
    if (!m_ok) {
        return false;
    }
    const std::uint64_t table = offset / m_table_span;
    if (table >= m_grain_tables.size()) {
        return false;
    }
    const std::uint64_t grain = offset % m_table_span / m_grain_bytes;
    const std::uint64_t sector = m_grain_tables.entry(m_grain_directory[table], grain);
    if (sector == 0) {
        return false;
    }
    file_offset = sector * vmdk_sector_size + low_32_bits(offset % m_grain_bytes);
    return true;
}

grain_span vmdk_file::span_of(std::uint64_t offset) const {
    constexpr std::uint64_t low_half = 0xFFFFFFFF;
    // Within a grain of more than 4 GiB the position begins anew with each 4 GiB; see map_offset.
    const std::uint64_t in_row = (offset % m_grain_bytes) & low_half;
    const std::uint64_t rest = std::min(bytes_to_grain_end(offset), low_half + 1 - in_row);
    return {offset - in_row, rest > largest_number - offset ? largest_number : offset + rest};
}

bool vmdk_file::read_mapped(int descriptor, void* buffer, std::uint64_t offset, std::uint64_t& length) const {
    std::uint64_t position = 0;
    if (!m_ok || descriptor == -1 || buffer == nullptr || length == 0 || !map_offset(offset, position) ||
        position >= m_file_size) {
        return false;
    }
    const std::uint64_t wanted = std::min(length, m_file_size - position);
    const std::span<std::uint8_t> bytes(static_cast<std::uint8_t*>(buffer), wanted);
    // Each turn advances by a byte or more.
    for (std::uint64_t done = 0; done < wanted;) {
        const std::uint64_t chunk = std::min(wanted - done, bytes_to_grain_end(offset + done));
        if (read_at_position(descriptor, bytes.subspan(done, chunk), position) < 1) {
            return false;
        }
        done += chunk;
        if (done < wanted && !map_offset(offset + done, position)) {
            return false;
        }
    }
    length = wanted;
    return true;
}

}  // namespace quarry
