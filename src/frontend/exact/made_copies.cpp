#include "frontend/exact/made_copies.h"

#include <algorithm>
#include <limits>
#include <sys/stat.h>
#include <utility>

namespace quarry::exact {

namespace {

constexpr std::size_t first_slots = 64;
// 2^64 divided by the golden ratio: neighbouring inodes get slots far from each other.
constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;

}  // namespace

std::optional<host_file> file_at(const std::string& path) {
    struct ::stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return host_file{status.st_dev, status.st_ino};
}

// The slot that holds the file, or the empty one that would. A quarter of the slots is empty, so it ends.
std::size_t made_copies::place_of(std::uint64_t inode, std::uint32_t device_number) const {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t place = static_cast<std::size_t>(((inode ^ device_number) * spread) >> 32) & mask;
    while (m_slots[place].line != 0 &&
           (m_slots[place].inode != inode || m_slots[place].device_number != device_number)) {
        place = (place + 1) & mask;
    }
    return place;
}

void made_copies::grow() {
    const std::vector<slot> old =
        std::exchange(m_slots, std::vector<slot>(std::max(first_slots, m_slots.size() * 2)));
    for (const slot& each : old) {
        if (each.line != 0) {
            m_slots[place_of(each.inode, each.device_number)] = each;
        }
    }
}

void made_copies::make_room(::dev_t device) {
    if (m_used >= m_slots.size() / 4 * 3) {
        grow();
    }
    if (std::find(m_devices.begin(), m_devices.end(), device) == m_devices.end()) {
        m_devices.push_back(device);
    }
}

void made_copies::add(const host_file& file, std::uint64_t line) {
    make_room(file.device);
    const auto device = std::find(m_devices.begin(), m_devices.end(), file.device);
    const auto device_number = static_cast<std::uint32_t>(device - m_devices.begin());
    slot& target = m_slots[place_of(file.inode, device_number)];
    m_used += target.line == 0 ? 1 : 0;
    target = {file.inode, device_number,
              static_cast<std::uint32_t>(
                  std::clamp<std::uint64_t>(line, 1, std::numeric_limits<std::uint32_t>::max()))};
}

std::optional<std::uint64_t> made_copies::line_of(const host_file& file) const {
    const auto device = std::find(m_devices.begin(), m_devices.end(), file.device);
    if (device == m_devices.end()) {
        return std::nullopt;
    }
    const slot& found = m_slots[place_of(file.inode, static_cast<std::uint32_t>(device - m_devices.begin()))];
    return found.line == 0 ? std::nullopt : std::optional<std::uint64_t>(found.line);
}

}  // namespace quarry::exact
