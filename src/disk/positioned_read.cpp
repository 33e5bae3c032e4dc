#include "disk/positioned_read.h"

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
    ssize_t count = 0;
    do {
        count = ::pread(descriptor, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    } while (count == -1 && errno == EINTR);
    return count;
}

}  // namespace

std::int64_t read_at_position(int descriptor, std::span<std::uint8_t> buffer, std::uint64_t offset) {
    std::size_t done = 0;
    bool failed = false;
    // Each turn either adds bytes or is the last.
    while (done < buffer.size()) {
        const ssize_t count = read_once(descriptor, buffer.subspan(done), offset + done);
        if (count <= 0) {
            failed = count < 0;
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(done), buffer.end(), std::uint8_t{0});
    return failed && done == 0 ? -1 : static_cast<std::int64_t>(done);
}

}  // namespace quarry
