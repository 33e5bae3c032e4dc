#include "disk/byte_source.h"

#include <algorithm>

namespace quarry {

read_outcome read_with_zeros(byte_source& source, std::span<std::uint8_t> buffer, std::uint64_t offset) {
    const read_outcome first = source.read(buffer, offset);
    read_outcome last = first;
    std::size_t done = first.bytes;
    // Each turn fills what is lost, at least one byte, or is the last.
    while (done < buffer.size()) {
        const std::span<std::uint8_t> rest = buffer.subspan(done);
        const std::span<std::uint8_t> lost =
            rest.first(last.lost == 0 ? rest.size() : std::min(last.lost, rest.size()));
        std::fill(lost.begin(), lost.end(), std::uint8_t{0});
        done += lost.size();
        if (done < buffer.size()) {
            last = source.read(buffer.subspan(done), offset + done);
            done += last.bytes;
        }
    }
    return first;
}

}  // namespace quarry
