#include "support/attribute_builder.h"

namespace quarry::test {

namespace {

constexpr std::size_t resident_header = 24;
constexpr std::size_t non_resident_header = 64;

std::size_t next_multiple_of_8(std::size_t value) {
    return (value + 7) / 8 * 8;
}

}  // namespace

attribute_builder attribute_builder::resident(std::uint32_t type, bytes value) {
    attribute_builder result;
    result.m_type = type;
    result.m_value = std::move(value);
    return result;
}

attribute_builder attribute_builder::non_resident(std::uint32_t type, const run_list& runs) {
    attribute_builder result = with_pairs(type, encode_mapping_pairs(runs));
    result.m_clusters = clusters_of(runs);
    return result;
}

attribute_builder attribute_builder::with_pairs(std::uint32_t type, bytes pairs) {
    attribute_builder result;
    result.m_type = type;
    result.m_non_resident = true;
    result.m_pairs = std::move(pairs);
    return result;
}

attribute_builder& attribute_builder::named(ntfs_name name) {
    m_name = std::move(name);
    return *this;
}

attribute_builder& attribute_builder::flags(std::uint16_t value) {
    m_flags = value;
    return *this;
}

attribute_builder& attribute_builder::id(std::uint16_t value) {
    m_id = value;
    return *this;
}

attribute_builder& attribute_builder::indexed() {
    m_indexed = true;
    return *this;
}

attribute_builder& attribute_builder::cluster_size(std::uint64_t value) {
    m_cluster_size = value;
    return *this;
}

attribute_builder& attribute_builder::lowest_vcn(std::uint64_t value) {
    m_lowest_vcn = value;
    return *this;
}

attribute_builder& attribute_builder::highest_vcn(std::uint64_t value) {
    m_highest_vcn = value;
    return *this;
}

attribute_builder& attribute_builder::unit(std::uint8_t value) {
    m_unit = value;
    return *this;
}

attribute_builder& attribute_builder::allocated(std::uint64_t value) {
    m_allocated = value;
    return *this;
}

attribute_builder& attribute_builder::real(std::uint64_t value) {
    m_real = value;
    return *this;
}

attribute_builder& attribute_builder::initialized(std::uint64_t value) {
    m_initialized = value;
    return *this;
}

attribute_builder& attribute_builder::compressed(std::uint64_t value) {
    m_compressed = value;
    return *this;
}

attribute_builder& attribute_builder::force(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced.push_back({offset, width, value});
    return *this;
}

void attribute_builder::write_common(byte_writer& out, std::size_t name_offset) const {
    out.u32(0, m_type).u8(8, m_non_resident ? 1 : 0).u8(9, m_name.units.size()).u16(10, name_offset);
    out.u16(12, m_flags).u16(14, m_id.value_or(0));
    out.raw(name_offset, m_name.on_disk());
}

bytes attribute_builder::build_resident() const {
    byte_writer out(resident_header);
    write_common(out, resident_header);
    const std::size_t value_offset = next_multiple_of_8(out.size());
    out.u32(16, m_value.size()).u16(20, value_offset).u8(22, m_indexed ? 1 : 0);
    out.raw(value_offset, m_value).pad_to_multiple(8);
    out.u32(4, out.size());
    return out.take();
}

bytes attribute_builder::build_non_resident() const {
    const std::size_t header = non_resident_header + (m_compressed ? 8 : 0);
    byte_writer out(header);
    write_common(out, header);
    const std::size_t pairs_offset = next_multiple_of_8(out.size());
    const std::uint64_t lowest = m_lowest_vcn.value_or(0);
    const std::uint64_t allocated = m_allocated.value_or(m_clusters * m_cluster_size);
    const std::uint64_t real = m_real.value_or(allocated);
    out.u64(16, lowest).u64(24, m_highest_vcn.value_or(lowest + m_clusters - 1));
    out.u16(32, pairs_offset).u8(34, m_unit);
    out.u64(40, allocated).u64(48, real).u64(56, m_initialized.value_or(real));
    if (m_compressed) {
        out.u64(64, *m_compressed);
    }
    out.raw(pairs_offset, m_pairs).pad_to_multiple(8);
    out.u32(4, out.size());
    return out.take();
}

bytes attribute_builder::build() const {
    bytes result = m_non_resident ? build_non_resident() : build_resident();
    apply(result, m_forced);
    return result;
}

}  // namespace quarry::test
