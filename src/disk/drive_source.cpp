#include "disk/drive_source.h"

#include <algorithm>
#include <vector>

namespace quarry {

namespace {

constexpr std::int32_t drives_with_a_letter = 26;

}  // namespace

std::string& device_directory() {
    static std::string directory = "/dev";
    return directory;
}

std::string drive_device(std::int32_t drive) {
    if (drive < 0 || drive >= drives_with_a_letter) {
        return {};
    }
    return device_directory() + "/sd" + static_cast<char>('a' + drive);
}

read_outcome drive_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    const std::uint64_t sector = sector_size();
    const std::uint64_t head = offset % sector;
    if (offset >= size() || (head == 0 && buffer.size() % sector == 0)) {
        return m_device->read(buffer, offset);
    }
    // What is read in between need not reach further than the drive does.
    const std::uint64_t reach = std::min<std::uint64_t>(buffer.size(), size() - offset) + head;
    std::vector<std::uint8_t> sectors((reach + sector - 1) / sector * sector);
    read_outcome outcome = m_device->read(sectors, offset - head);
    outcome.bytes = static_cast<std::size_t>(std::clamp<std::uint64_t>(outcome.bytes, head, reach) - head);
    if (outcome.bytes == buffer.size()) {
        outcome.error = 0;  // of the rest of a sector that nobody asked for
    }
    std::copy_n(sectors.begin() + static_cast<std::ptrdiff_t>(head), outcome.bytes, buffer.begin());
    return outcome;
}

}  // namespace quarry
