// A reader of volumes that is short and easy to see through. It takes every structure at its word and
// compares none with another: what it gives for a damaged volume is what the volume says.
//
// It has one volume of whole 512-byte strides in mind, with a sound boot sector and a sound record of $MFT at
// the place that the boot sector names. It asks no index: a file is found by the names in the records.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quarry::test {

class plain_reader {
  public:
    // Opens the volume that the image is. `image` must outlive the reader. All members throw
    // std::out_of_range for what is not there.
    explicit plain_reader(const bytes& image);

    // The unnamed $DATA of an entry, or a named one: the bytes that a user of the file would see.
    [[nodiscard]] bytes stream(std::uint64_t entry, std::u16string_view name = {}) const;

    [[nodiscard]] bool has_attribute(std::uint64_t entry, std::uint32_t type) const;
    // The attributes in one record, whatever file they belong to; how many bytes of the record precede the
    // first.
    [[nodiscard]] std::vector<bytes> attributes(std::uint64_t entry) const;
    [[nodiscard]] std::size_t header_size(std::uint64_t entry) const;

    // Clusters in one row; no LCN for a hole.
    struct extent {
        std::optional<std::uint64_t> lcn;
        std::uint64_t clusters;
    };
    // Where a piece of a stream is stored; none for a value in the record.
    [[nodiscard]] static std::vector<extent> extents(const bytes& attribute);
    [[nodiscard]] std::uint64_t entries() const { return m_table.size() / m_record_size; }

  private:
    [[nodiscard]] bytes record(std::uint64_t entry) const;
    [[nodiscard]] std::vector<bytes> pieces(std::uint64_t entry, std::uint32_t type,
                                            std::u16string_view name) const;
    [[nodiscard]] bytes content(const std::vector<bytes>& pieces) const;
    [[nodiscard]] bytes decoded(const std::vector<extent>& clusters, std::uint64_t unit) const;
    [[nodiscard]] bytes stored(const extent& part) const;

    const bytes& m_image;
    std::uint64_t m_cluster_size = 0;
    std::uint64_t m_record_size = 0;
    bytes m_table;  // $MFT as far as it is known
};

}  // namespace quarry::test
