// Attributes, resident and not, with every header field forcible.
#pragma once

#include "support/byte_writer.h"
#include "support/mapping_pairs.h"

#include <cstdint>
#include <optional>

namespace quarry::test {

class attribute_builder {
  public:
    [[nodiscard]] static attribute_builder resident(std::uint32_t type, bytes value);
    // Sizes follow from the runs and the cluster size unless they are given.
    [[nodiscard]] static attribute_builder non_resident(std::uint32_t type, const run_list& runs);
    // The same with mapping pairs as they are to be in the attribute (no zero is appended).
    [[nodiscard]] static attribute_builder with_pairs(std::uint32_t type, bytes pairs);

    attribute_builder& named(ntfs_name name);
    attribute_builder& flags(std::uint16_t value);
    attribute_builder& id(std::uint16_t value);
    attribute_builder& indexed();

    // Non-resident only. Sizes are bytes. The compressed size makes the header 72 bytes long.
    attribute_builder& cluster_size(std::uint64_t value);
    attribute_builder& lowest_vcn(std::uint64_t value);
    attribute_builder& highest_vcn(std::uint64_t value);
    attribute_builder& unit(std::uint8_t value);
    attribute_builder& allocated(std::uint64_t value);
    attribute_builder& real(std::uint64_t value);
    attribute_builder& initialized(std::uint64_t value);
    attribute_builder& compressed(std::uint64_t value);

    // Any number over the finished attribute, last of all; may lie past its end, which then grows.
    attribute_builder& force(std::size_t offset, unsigned width, std::uint64_t value);
    // Only the length field (attribute offset 4), whatever the bytes are.
    attribute_builder& length(std::uint32_t value) { return force(4, 4, value); }

    [[nodiscard]] std::uint32_t type() const { return m_type; }
    [[nodiscard]] const ntfs_name& name() const { return m_name; }
    [[nodiscard]] std::optional<std::uint16_t> id() const { return m_id; }
    [[nodiscard]] std::uint64_t lowest_vcn() const { return m_lowest_vcn.value_or(0); }
    [[nodiscard]] bytes build() const;

  private:
    [[nodiscard]] bytes build_resident() const;
    [[nodiscard]] bytes build_non_resident() const;
    void write_common(byte_writer& out, std::size_t name_offset) const;

    std::uint32_t m_type = 0;
    bool m_non_resident = false;
    bool m_indexed = false;
    ntfs_name m_name;
    std::uint16_t m_flags = 0;
    std::optional<std::uint16_t> m_id;
    bytes m_value;
    bytes m_pairs;
    std::uint64_t m_clusters = 0;
    std::uint64_t m_cluster_size = 4096;
    std::optional<std::uint64_t> m_lowest_vcn;
    std::optional<std::uint64_t> m_highest_vcn;
    std::optional<std::uint64_t> m_allocated;
    std::optional<std::uint64_t> m_real;
    std::optional<std::uint64_t> m_initialized;
    std::optional<std::uint64_t> m_compressed;
    std::uint8_t m_unit = 0;
    std::vector<forced_number> m_forced;
};

}  // namespace quarry::test
