// What a file really stores, as opposed to how long it says it is.
//
// A file system lets a file have holes: bytes that read as zeros and take no room. So a file of a few
// kilobytes can claim to be a terabyte long, and limits that follow the size of a source must not follow such
// a claim.
#pragma once

#include <cstdint>
#include <optional>

namespace quarry {

// Bytes of an open source of `size` bytes that can be something other than zeros left out by its file system.
// For a regular file they follow from the blocks that are allocated to it, generously where the file system
// may compress; where the system names none, and for a device, they are all of its bytes.
[[nodiscard]] std::uint64_t stored_bytes(int descriptor, std::uint64_t size);

// The same from what the system says: bytes that are allocated, and whether that can be less than what they
// store.
[[nodiscard]] std::uint64_t stored_bytes_of(std::uint64_t size, std::uint64_t allocated, bool may_compress);

// Part of a file, from byte `begin` up to byte `end`.
struct file_stretch {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

// The first stretch at or after a position that is no hole; nothing if only a hole follows. Where the system
// does not know, all that follows counts as one stretch without an end.
[[nodiscard]] std::optional<file_stretch> next_data(int descriptor, std::uint64_t position);

}  // namespace quarry
