#include "volume/record_reader.h"

#include "volume/buffer_size.h"
#include "volume/well_known.h"

#include <algorithm>

namespace quarry {

// Deliberate: records have two lengths, not one. Entry 0 has the boot sector's, the others have that in the
// header of record 0. Where the two differ, a reader with a buffer for the one does not get the others.
std::uint32_t record_reader::size_of(std::uint64_t entry) const {
    return std::min(entry == mft_entry ? m_geometry.size_by_boot : m_geometry.step, longest_record);
}

// Reads as many bytes as the buffer holds from the start of a record. Deliberate: a record that begins at the
// end of a piece of $MFT does not go on in the next piece. Its end is whatever follows on the disk.
bool record_reader::read_at_its_place(std::uint64_t entry, std::span<std::uint8_t> buffer,
                                      std::uint64_t& position, std::uint64_t& length) const {
    if (entry != mft_entry && m_map == nullptr) {
        return false;
    }
    position = entry == mft_entry ? m_geometry.mft_position : m_map->position(entry);
    length = buffer.size();
    return m_clusters.read(position, buffer.data(), length);
}

bool record_reader::read_raw(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                             std::uint64_t& length) const {
    position = 0;
    length = 0;
    if (resized(record, size_of(entry)) && read_at_its_place(entry, record, position, length)) {
        return true;
    }
    record.clear();
    return false;
}

bool record_reader::read_raw(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                             std::uint64_t& length) const {
    position = 0;
    length = size_of(entry);
    return buffer.size() >= length && read_at_its_place(entry, buffer.first(length), position, length);
}

bool record_reader::accept(std::span<std::uint8_t> record) const {
    const byte_view bytes(record);
    // Deliberate: an index block in the place of a record is accepted, not refused. What its bytes say as a
    // record is used.
    if (!record_header_ok(bytes) && !file_record(bytes).is_indx()) {
        return false;
    }
    restore_sector_ends(record, m_geometry.bytes_per_sector,
                        sector_end_limit(record.size(), m_geometry.bytes_per_sector));
    return true;
}

bool record_reader::read(std::uint64_t entry, std::vector<std::uint8_t>& record, std::uint64_t& position,
                         std::uint64_t& length) const {
    if (!read_raw(entry, record, position, length)) {
        return false;
    }
    if (!accept(std::span(record).first(length))) {
        record.clear();
        return false;
    }
    return true;
}

bool record_reader::read(std::uint64_t entry, std::span<std::uint8_t> buffer, std::uint64_t& position,
                         std::uint64_t& length) const {
    return read_raw(entry, buffer, position, length) && accept(buffer.first(length));
}

bool record_reader::read_vector(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                std::uint64_t entry) const {
    position = 0;
    std::uint64_t length = 0;
    return m_map != nullptr && resized(record, common_size()) &&
           read_at_its_place(entry, record, position, length);
}

bool record_reader::read_checked(std::vector<std::uint8_t>& record, std::uint64_t& position,
                                 record_kind& kind, std::uint64_t entry) const {
    kind = record_kind::unknown;
    return read_vector(record, position, entry) &&
           apply_fixups_checked(kind, record, m_geometry.bytes_per_sector);
}

}  // namespace quarry
