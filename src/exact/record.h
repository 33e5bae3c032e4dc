// A verified record of $MFT and its chain of attributes.
//
// Every file, directory and system structure has a record, a block of one fixed size. Nothing of it is used
// before all of it is sound:
//
//     | "FILE", update sequence, sequence number, flags, sizes | attribute | attribute | FF FF FF FF | unused
//     | 0                                       first attribute ^                              used size ^
//
// An attribute holds its value in the record (it is resident) or says in which clusters the value is stored.
// What one record has no room for is moved to further records, the extensions, each of which names its base.
// A reference to a record is 48 bits of entry number and 16 bits of sequence number, which changes when the
// entry is used for another file.
#pragma once

#include "exact/block_place.h"
#include "exact/exact_source.h"
#include "exact/failure.h"
#include "volume/attribute_layout.h"
#include "volume/record_layout.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct reference {
    std::uint64_t entry = 0;
    std::uint16_t sequence = 0;

    // From the 64 bits that the disk has.
    [[nodiscard]] static constexpr reference from(std::uint64_t stored) {
        return {reference_entry(stored), reference_sequence(stored)};
    }
    [[nodiscard]] constexpr bool operator==(const reference&) const = default;
    // "50-2"
    [[nodiscard]] std::string text() const;
};

class record {
  public:
    // Takes the bytes of entry `entry` as they are stored, restores the fixups and tests every length in the
    // record. Warns (own-number) if the record says that it is another entry. Fails with signature, array,
    // torn or layout.
    [[nodiscard]] static result<record> verify(std::vector<std::uint8_t> bytes, std::uint64_t entry,
                                               block_place place, notices& told);

    // The views into a record stay good when it is moved. The views of a copy would still lead into the
    // original.
    record(record&&) = default;
    record& operator=(record&&) = default;
    record(const record&) = delete;
    record& operator=(const record&) = delete;
    ~record() = default;

    [[nodiscard]] std::uint64_t entry() const { return m_entry; }
    [[nodiscard]] reference self() const { return {m_entry, header().sequence_number()}; }
    [[nodiscard]] bool in_use() const { return header().in_use(); }
    [[nodiscard]] bool is_directory() const { return header().is_directory(); }
    // The record that this one extends; nothing for a base record.
    [[nodiscard]] std::optional<reference> base() const;
    [[nodiscard]] file_record header() const { return file_record(byte_view(m_bytes)); }

    // The chain in the order of the record, without the end marker. Each view ends with its attribute.
    [[nodiscard]] const std::vector<attribute>& attributes() const { return m_attributes; }
    // The bytes with the fixups restored.
    [[nodiscard]] byte_view bytes() const { return byte_view(m_bytes); }
    [[nodiscard]] const block_place& place() const { return m_place; }
    // Bytes from the start of the record to a view into it.
    [[nodiscard]] std::uint64_t offset_of(byte_view inside) const {
        return static_cast<std::uint64_t>(inside.data() - m_bytes.data());
    }
    // The byte of the source at which a view into the record begins.
    [[nodiscard]] std::optional<std::uint64_t> source_byte(byte_view inside) const {
        return m_place.source_byte(offset_of(inside));
    }

  private:
    record() = default;
    [[nodiscard]] result<void> read_header(notices& told);
    [[nodiscard]] result<void> read_chain();

    std::uint64_t m_entry = 0;
    std::vector<std::uint8_t> m_bytes;
    block_place m_place;
    std::vector<attribute> m_attributes;
};

// The record at byte `source_byte` of the source, in one piece, such as entry 0 and those of the mirror.
[[nodiscard]] result<record> read_record_at(const exact_source& source, std::uint32_t record_size,
                                            std::uint64_t source_byte, std::uint64_t entry, std::string where,
                                            notices& told);

// The name of a verified attribute, in units; empty if it has none.
[[nodiscard]] std::u16string name_of(const attribute& verified);

}  // namespace quarry::exact
