// The last step of a volume under construction: records, indexes and bitmaps become bytes.
#pragma once

#include "support/volume_builder.h"

#include <cstdint>
#include <map>
#include <vector>

namespace quarry::test {

class volume_image {
  public:
    explicit volume_image(const volume_builder& volume);
    [[nodiscard]] bytes build();

  private:
    using placed_attribute = file_builder::placed_attribute;

    void build_file(const file_builder& file);
    void build_records(const file_builder& file, std::vector<placed_attribute> attributes);
    [[nodiscard]] std::vector<placed_attribute> names_and_information(const file_builder& file) const;
    [[nodiscard]] attribute_builder attribute_list(const file_builder& file,
                                                   const std::vector<placed_attribute>& attributes);
    [[nodiscard]] file_name key_of(const file_builder& file, std::size_t name) const;
    [[nodiscard]] std::vector<index_entry> children(const file_builder& directory) const;
    [[nodiscard]] std::vector<placed_attribute> index_in_root(const file_builder& directory) const;
    [[nodiscard]] std::vector<placed_attribute> index_in_blocks(const file_builder& directory);
    [[nodiscard]] attribute_builder in_clusters(std::uint32_t type, const bytes& content);
    [[nodiscard]] attribute_builder in_record_or_clusters(std::uint32_t type, const bytes& content);
    void build_volume_bitmap();
    [[nodiscard]] bytes mft_bitmap() const;
    [[nodiscard]] bytes boot_sector() const;
    void write_mft();

    const volume_builder& m_volume;
    cluster_store m_clusters;
    std::map<std::uint64_t, bytes> m_records;
    std::uint64_t m_total_clusters = 0;
};

}  // namespace quarry::test
