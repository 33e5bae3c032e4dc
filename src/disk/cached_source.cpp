#include "disk/cached_source.h"

#include <algorithm>
#include <cerrno>

namespace quarry {

read_outcome cached_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset >= size()) {
        return {};
    }
    const auto inside = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), size() - offset));
    if (m_source->read_from_memory(buffer.first(inside), offset)) {
        return {inside};
    }
    m_source->announce(offset, inside);
    ++m_misses;
    return {0, EAGAIN};
}

}  // namespace quarry
