// The bytes of a volume: a source, and where the clusters of the volume lie on it.
#pragma once

#include "exact/boot.h"
#include "exact/exact_source.h"

#include <cstdint>
#include <span>

namespace quarry::exact {

class volume_bytes {
  public:
    // `source` must outlive the object.
    volume_bytes(const exact_source& source, const geometry& shape) : m_source(&source), m_shape(shape) {}

    [[nodiscard]] const geometry& shape() const { return m_shape; }
    [[nodiscard]] const exact_source& source() const { return *m_source; }

    // Fills the buffer with bytes of the volume, from byte `offset_in_cluster` of cluster `lcn` on. Fails as
    // exact_source::read does.
    [[nodiscard]] result<void> read(std::span<std::uint8_t> buffer, std::uint64_t lcn,
                                    std::uint64_t offset_in_cluster = 0) const {
        return m_source->read(buffer, m_shape.source_byte_of(lcn) + offset_in_cluster);
    }

    // Says that so many bytes from cluster `lcn` on will be read soon.
    void announce(std::uint64_t lcn, std::uint64_t length, std::uint64_t offset_in_cluster = 0) const {
        m_source->bytes().announce(m_shape.source_byte_of(lcn) + offset_in_cluster, length);
    }

  private:
    const exact_source* m_source;
    geometry m_shape;
};

}  // namespace quarry::exact
