#include "disk/stored_size.h"

#include "disk/limits.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr std::uint64_t bytes_of_told_block = 512;
constexpr std::uint64_t highest_position = std::numeric_limits<off_t>::max();
// XFS has no name in the system's header.
constexpr std::uint32_t xfs_super_magic = 0x58465342;
// They give each byte that is written a place of its own.
constexpr std::array<std::uint32_t, 3> plain_file_systems = {EXT4_SUPER_MAGIC, TMPFS_MAGIC, xfs_super_magic};

bool may_compress(int descriptor) {
    struct ::statfs file_system {};
    if (::fstatfs(descriptor, &file_system) != 0) {
        return true;
    }
    const auto type = static_cast<std::uint32_t>(file_system.f_type);
    return std::find(plain_file_systems.begin(), plain_file_systems.end(), type) == plain_file_systems.end();
}

}  // namespace

std::uint64_t stored_bytes_of(std::uint64_t size, std::uint64_t allocated, bool may_compress) {
    // A view that is made as it is read, of another format say, has nothing allocated.
    if (allocated == 0 || allocated >= size) {
        return size;
    }
    if (!may_compress) {
        return allocated;
    }
    return allocated > size / limits::most_compression
               ? size
               : std::min(size, std::max(allocated * limits::most_compression, limits::always_stored));
}

std::uint64_t stored_bytes(int descriptor, std::uint64_t size) {
    struct ::stat64 status {};
    if (::fstat64(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return size;
    }
    const std::uint64_t allocated = static_cast<std::uint64_t>(status.st_blocks) * bytes_of_told_block;
    return stored_bytes_of(size, allocated, allocated < size && may_compress(descriptor));
}

std::optional<file_stretch> next_data(int descriptor, std::uint64_t position) {
    const file_stretch all{position, std::numeric_limits<std::uint64_t>::max()};
    if (position > highest_position) {
        return all;
    }
    const off_t begin = ::lseek(descriptor, static_cast<off_t>(position), SEEK_DATA);
    if (begin == -1) {
        return errno == ENXIO ? std::nullopt : std::optional(all);
    }
    const off_t end = ::lseek(descriptor, begin, SEEK_HOLE);
    if (end <= begin) {
        return all;
    }
    return file_stretch{static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(end)};
}

}  // namespace quarry
