#include "disk/positioned_read.h"

#include "foundation/descriptor_io.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <unistd.h>

namespace quarry {

namespace {

constexpr std::uint64_t highest_position = std::numeric_limits<off_t>::max();

// One read that no signal interrupts. A position that the system cannot express is an error like any other.
ssize_t read_once(int descriptor, std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset > highest_position) {
        errno = EINVAL;
        return -1;
    }
    return uninterrupted(
        [&] { return ::pread(descriptor, buffer.data(), buffer.size(), static_cast<off_t>(offset)); });
}

}  // namespace

read_outcome read_from_descriptor(int descriptor, std::span<std::uint8_t> buffer, std::uint64_t offset) {
    read_outcome outcome;
    // Each turn either adds bytes or is the last.
    while (outcome.bytes < buffer.size()) {
        const ssize_t count = read_once(descriptor, buffer.subspan(outcome.bytes), offset + outcome.bytes);
        if (count <= 0) {
            outcome.error = count < 0 ? errno : 0;
            break;
        }
        outcome.bytes += static_cast<std::size_t>(count);
    }
    return outcome;
}

std::int64_t read_at_position(int descriptor, std::span<std::uint8_t> buffer, std::uint64_t offset) {
    const read_outcome outcome = read_from_descriptor(descriptor, buffer, offset);
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(outcome.bytes), buffer.end(), std::uint8_t{0});
    if (outcome.error != 0 && outcome.bytes == 0) {
        errno = outcome.error;
        return -1;
    }
    return static_cast<std::int64_t>(outcome.bytes);
}

}  // namespace quarry
