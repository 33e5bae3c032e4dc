#include "volume/file_record.h"

#include <algorithm>

namespace quarry {

namespace {

constexpr std::uint16_t array_offset_of_a_record = 0x30;
// One word for each of eight sectors, and the number ahead of them.
constexpr std::uint16_t most_words_of_a_record = 9;
constexpr std::uint16_t most_words_of_a_baad_record = 10;
constexpr std::uint16_t last_first_attribute_offset = 0x48;
constexpr std::uint32_t sector_size_of_a_header = 512;
constexpr std::size_t smallest_checked_block = 1024;

record_kind kind_of(const file_record& record) {
    if (record_header_ok(record.bytes())) {
        return record_kind::file;
    }
    if (record.is_indx()) {
        return record_kind::indx;
    }
    return record.is_baad() ? record_kind::baad : record_kind::unknown;
}

}  // namespace

bool record_header_ok(byte_view record) {
    const file_record header(record);
    // Deliberate: a record with its array elsewhere, as older systems put it at 0x2A, is refused, not read.
    // Files of a volume written by those systems cannot be copied.
    return header.is_file() && header.update_sequence_offset() == array_offset_of_a_record &&
           header.update_sequence_count() <= most_words_of_a_record &&
           header.first_attribute_offset() <= last_first_attribute_offset;
}

std::uint32_t record_size_from_header(byte_view record) {
    const std::uint32_t words = file_record(record).update_sequence_count();
    if (!record_header_ok(record) || words == 0) {
        return 0;
    }
    return (words - 1) * sector_size_of_a_header;
}

// Deliberate: the bytes at a sector's end are not compared with the update sequence number, and a record of
// which only a part was written is not refused. The saved words are restored whatever is there, and the user
// gets what there is of a torn record.
//
// Deliberate: each word belongs to a sector of the volume's own size, not to 512 bytes, which is what file
// systems write whatever the sector size. On sectors of 4096 bytes the first saved word goes to the end of
// the record, and the other sector ends keep the update sequence number.
void restore_sector_ends(std::span<std::uint8_t> record, std::uint32_t sector_size, std::uint64_t limit) {
    const byte_view bytes(record);
    const file_record header(bytes);
    const std::uint64_t array_offset = header.update_sequence_offset();
    const std::uint64_t end = std::min<std::uint64_t>(header.update_sequence_count(), limit);
    // Ends with the array at the latest, whose count is a 16-bit number.
    for (std::uint64_t word = 1; sector_size != 0 && word < end; ++word) {
        const std::optional<std::uint16_t> saved = bytes.u16(array_offset + 2 * word);
        const std::uint64_t sector_end = word * sector_size;
        if (saved && sector_end >= 2) {
            store_u16(record, sector_end - 2, *saved);
        }
    }
}

std::uint64_t sector_end_limit(std::uint64_t size, std::uint32_t sector_size) {
    return sector_size == 0 ? 0 : size / sector_size + 1;
}

bool apply_fixups_checked(record_kind& kind, std::span<std::uint8_t> record, std::uint32_t sector_size) {
    kind = record_kind::unknown;
    if (record.size() < smallest_checked_block) {
        return false;
    }
    const file_record header{byte_view(record)};
    kind = kind_of(header);
    const std::uint64_t words = header.update_sequence_count();
    if (kind == record_kind::unknown || (kind == record_kind::baad && words > most_words_of_a_baad_record)) {
        return false;
    }
    if (words < 2) {
        return true;
    }
    if ((words - 1) * sector_size > record.size()) {
        return false;
    }
    restore_sector_ends(record, sector_size, sector_end_limit(record.size(), sector_size));
    return true;
}

}  // namespace quarry
