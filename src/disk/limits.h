// How much of a source's claims is believed below the volume: sizes of sources, and metadata of virtual
// disks.
#pragma once

#include <algorithm>
#include <cstdint>

namespace quarry::limits {

// Zeros that a sound source may leave out of what is stored: more than a file system has in structures that
// are all zeros; 16 clusters of the largest size that formatters make fit as well.
inline constexpr std::uint64_t left_out_zeros = std::uint64_t{32} << 20;

// A file system that compresses allocates less than it stores. What it says is allocated counts so many
// times, and at least so much: a file that was just written may have nothing allocated yet.
inline constexpr std::uint64_t most_compression = 8;
inline constexpr std::uint64_t always_stored = std::uint64_t{64} << 20;

// Entries of a grain directory: as many as the bytes that the file stores, in any case those of 2 TiB in
// grains of the usual 64 KiB, where files of this format end. The absolute limit is that of 2 TiB in grains
// of 2 KiB.
[[nodiscard]] constexpr std::uint64_t directory_entries(std::uint64_t stored) {
    return std::clamp<std::uint64_t>(stored / 4, 65'536, 2'097'152);
}

// Bytes of grain tables that are looked at when a file is opened, and those of them that stay in memory. The
// tables of 2 TiB in grains of 64 KiB take 128 MiB. What is beyond is read when it is wanted.
inline constexpr std::uint64_t table_bytes_looked_at = std::uint64_t{4} << 30;
inline constexpr std::uint64_t table_memory = std::uint64_t{128} << 20;

}  // namespace quarry::limits
