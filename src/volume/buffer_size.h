// Buffers whose size comes from the source: memory that is not there is a failed read, not the end of the
// run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <vector>

namespace quarry {

// Gives a buffer a size in bytes. False, with the buffer as it was, if there is no memory for it.
[[nodiscard]] inline bool resized(std::vector<std::uint8_t>& buffer, std::uint64_t size) {
    try {
        buffer.resize(static_cast<std::size_t>(size));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

}  // namespace quarry
