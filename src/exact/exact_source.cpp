#include "exact/exact_source.h"

#include <cstring>

namespace quarry::exact {

exact_source::exact_source(byte_source& bytes, std::string shown_path)
    : m_bytes(&bytes), m_path(std::move(shown_path)) {}

result<void> exact_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) const {
    const read_outcome came = m_bytes->read(buffer, offset);
    if (came.error == 0 && came.bytes >= buffer.size()) {
        return {};
    }
    const std::uint64_t first_missing = offset + came.bytes;
    if (came.error == 0) {
        return fail(failure_code::source_end, where::source(m_path),
                    "ends at byte " + hex(size()) + ", byte " + hex(first_missing) + " is needed");
    }
    return fail(
        failure_code::source_read, where::source(m_path),
        std::to_string(buffer.size() - came.bytes) + " bytes cannot be read: " + std::strerror(came.error),
        first_missing);
}

}  // namespace quarry::exact
