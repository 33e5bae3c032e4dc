// File records: the header, a chain of attributes, and the update sequence that protects the sector ends.
#pragma once

#include "support/attribute_builder.h"
#include "support/byte_writer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::test {

class record_builder {
  public:
    // `stride`: distance in bytes of the protected sector ends.
    explicit record_builder(std::size_t record_size = 1024, std::size_t stride = 512);

    record_builder& signature(std::string_view four_characters);
    record_builder& entry(std::uint64_t number);
    record_builder& sequence(std::uint16_t value);
    record_builder& links(std::uint16_t value);
    record_builder& flags(std::uint16_t value);  // bit 0 in use, bit 1 directory
    record_builder& base(std::uint64_t file_reference);
    record_builder& allocated(std::uint32_t value);
    record_builder& first_attribute_offset(std::uint16_t value);
    record_builder& update_sequence_offset(std::uint16_t value);
    record_builder& update_sequence_count(std::uint16_t value);
    record_builder& update_sequence_number(std::uint16_t value);

    // Attributes are in the order in which they are added. One without an id gets the next free one.
    record_builder& add(attribute_builder attribute);
    // Bytes that go into the chain as they are.
    record_builder& add_bytes(bytes raw);
    record_builder& without_end_marker();
    // Over the record before the fixups are applied, and over the bytes as they are on disk.
    record_builder& force(std::size_t offset, unsigned width, std::uint64_t value);
    record_builder& force_on_disk(std::size_t offset, unsigned width, std::uint64_t value);

    [[nodiscard]] std::uint16_t flags() const { return m_flags; }
    [[nodiscard]] std::uint16_t sequence() const { return m_sequence; }
    // Offset of an attribute (or raw bytes) in the record, by its place in the chain from 0.
    [[nodiscard]] std::size_t attribute_offset(std::size_t index) const;

    // As it is on disk. Throws std::length_error if the attributes do not fit the record.
    [[nodiscard]] bytes build() const;
    // As a reader holds it once the sector ends are put back.
    [[nodiscard]] bytes build_restored() const;

  private:
    [[nodiscard]] std::uint16_t real_count() const;
    [[nodiscard]] std::size_t real_first_attribute() const;
    [[nodiscard]] bytes build_unprotected() const;

    std::size_t m_record_size;
    std::size_t m_stride;
    std::string m_signature = "FILE";
    std::uint64_t m_entry = 0;
    std::uint16_t m_sequence = 1;
    std::uint16_t m_links = 1;
    std::uint16_t m_flags = 1;
    std::uint64_t m_base = 0;
    std::optional<std::uint32_t> m_allocated;
    std::optional<std::uint16_t> m_first_attribute;
    std::uint16_t m_array_offset = 0x30;
    std::optional<std::uint16_t> m_count;
    std::uint16_t m_number = 0x0101;
    std::vector<bytes> m_chain;
    std::uint16_t m_next_id = 0;
    bool m_end_marker = true;
    std::vector<forced_number> m_forced;
    std::vector<forced_number> m_forced_on_disk;
};

}  // namespace quarry::test
