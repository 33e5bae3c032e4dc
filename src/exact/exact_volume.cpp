#include "exact/exact_volume.h"

namespace quarry::exact {

result<std::unique_ptr<exact_volume>> exact_volume::open(byte_source& bytes, std::string shown_path,
                                                         std::uint64_t volume_offset,
                                                         std::uint64_t length_available, notices& told) {
    auto volume = std::make_unique<exact_volume>(bytes, std::move(shown_path), only_by_open{});
    result<geometry> shape = read_geometry(volume->m_source, volume_offset, length_available, told);
    if (!shape) {
        return passed_on(shape);
    }
    volume->m_bytes = volume_bytes(volume->m_source, *shape);
    const std::uint64_t end = volume_offset + shape->volume_bytes();
    if (end > bytes.size()) {
        told.warn("source-short", where::source(volume->m_source.path()),
                  "ends at byte " + hex(bytes.size()) + ", the volume at byte " + hex(end));
    }
    result<mft> table = mft::open(volume->m_bytes, told);
    if (!table) {
        return passed_on(table);
    }
    volume->m_table = std::move(*table);
    volume->m_state = read_volume_state(*volume->m_table, told);
    return volume;
}

const result<upcase>& exact_volume::upper_case(notices& told) {
    if (!m_upcase) {
        m_upcase = upcase::load(*m_table, told);
    }
    return *m_upcase;
}

const result<allocation>& exact_volume::bitmap(notices& told) {
    if (!m_bitmap) {
        m_bitmap = allocation::open(*m_table, told);
    }
    return *m_bitmap;
}

}  // namespace quarry::exact
