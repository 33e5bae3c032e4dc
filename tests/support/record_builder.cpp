#include "support/record_builder.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

record_builder::record_builder(std::size_t record_size, std::size_t stride)
    : m_record_size(record_size), m_stride(stride) {}

record_builder& record_builder::signature(std::string_view four_characters) {
    m_signature = four_characters;
    return *this;
}

record_builder& record_builder::entry(std::uint64_t number) {
    m_entry = number;
    return *this;
}

record_builder& record_builder::sequence(std::uint16_t value) {
    m_sequence = value;
    return *this;
}

record_builder& record_builder::links(std::uint16_t value) {
    m_links = value;
    return *this;
}

record_builder& record_builder::flags(std::uint16_t value) {
    m_flags = value;
    return *this;
}

record_builder& record_builder::base(std::uint64_t file_reference) {
    m_base = file_reference;
    return *this;
}

record_builder& record_builder::allocated(std::uint32_t value) {
    m_allocated = value;
    return *this;
}

record_builder& record_builder::first_attribute_offset(std::uint16_t value) {
    m_first_attribute = value;
    return *this;
}

record_builder& record_builder::update_sequence_offset(std::uint16_t value) {
    m_array_offset = value;
    return *this;
}

record_builder& record_builder::update_sequence_count(std::uint16_t value) {
    m_count = value;
    return *this;
}

record_builder& record_builder::update_sequence_number(std::uint16_t value) {
    m_number = value;
    return *this;
}

record_builder& record_builder::add(attribute_builder attribute) {
    if (!attribute.id()) {
        attribute.id(m_next_id);
    }
    m_next_id = std::max(m_next_id, static_cast<std::uint16_t>(*attribute.id() + 1));
    return add_bytes(attribute.build());
}

record_builder& record_builder::add_bytes(bytes raw) {
    m_chain.push_back(std::move(raw));
    return *this;
}

record_builder& record_builder::without_end_marker() {
    m_end_marker = false;
    return *this;
}

record_builder& record_builder::force(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced.push_back({offset, width, value});
    return *this;
}

record_builder& record_builder::force_on_disk(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced_on_disk.push_back({offset, width, value});
    return *this;
}

std::uint16_t record_builder::real_count() const {
    return static_cast<std::uint16_t>(m_stride == 0 ? 1 : m_record_size / m_stride + 1);
}

std::size_t record_builder::real_first_attribute() const {
    return (m_array_offset + std::size_t{2} * real_count() + 7) / 8 * 8;
}

std::size_t record_builder::attribute_offset(std::size_t index) const {
    std::size_t offset = real_first_attribute();
    for (std::size_t i = 0; i < index && i < m_chain.size(); ++i) {
        offset += m_chain[i].size();
    }
    return offset;
}

bytes record_builder::build_unprotected() const {
    byte_writer out(real_first_attribute());
    out.text(0, m_signature).u16(4, m_array_offset).u16(6, m_count.value_or(real_count()));
    out.u16(16, m_sequence).u16(18, m_links);
    out.u16(20, m_first_attribute ? *m_first_attribute : real_first_attribute());
    out.u16(22, m_flags).u32(28, m_allocated.value_or(static_cast<std::uint32_t>(m_record_size)));
    out.u64(32, m_base).u16(40, m_next_id).u32(44, m_entry);
    for (const bytes& attribute : m_chain) {
        out.raw(out.size(), attribute);
    }
    if (m_end_marker) {
        out.u64(out.size(), 0xFFFFFFFF);
    }
    out.u32(24, out.size());
    bytes record = out.take();
    apply(record, m_forced);
    if (record.size() > m_record_size) {
        throw std::length_error("the attributes need " + std::to_string(record.size()) +
                                " bytes, the record has " + std::to_string(m_record_size));
    }
    record.resize(m_record_size);
    return record;
}

bytes record_builder::build() const {
    bytes record = build_unprotected();
    protect_sector_ends(record, m_array_offset, real_count(), m_number, m_stride);
    apply(record, m_forced_on_disk);
    record.resize(m_record_size);
    return record;
}

bytes record_builder::build_restored() const {
    bytes record = build_unprotected();
    bytes on_disk = record;
    protect_sector_ends(on_disk, m_array_offset, real_count(), m_number, m_stride);
    // The array itself is the one thing that both forms share.
    const std::size_t array_end =
        std::min<std::size_t>(record.size(), m_array_offset + std::size_t{2} * real_count());
    for (std::size_t i = m_array_offset; i < array_end; ++i) {
        record[i] = on_disk[i];
    }
    return record;
}

}  // namespace quarry::test
