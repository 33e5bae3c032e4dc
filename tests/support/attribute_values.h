// The values of the attributes that have a structure of their own.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>

namespace quarry::test {

// 2020-01-02 03:04:05 UTC as a FILETIME: the time of everything that a test gives no time.
inline constexpr std::uint64_t default_filetime = 132224078450000000;

struct file_times {
    std::uint64_t created = default_filetime;
    std::uint64_t modified = default_filetime;
    std::uint64_t mft_changed = default_filetime;
    std::uint64_t accessed = default_filetime;
};

struct standard_information {
    file_times times = {};
    std::uint32_t attributes = 0x20;
    std::uint32_t owner_id = 0;
    std::uint32_t security_id = 0;
    std::size_t size = 72;  // 48 in the older form, which has no security id
    [[nodiscard]] bytes build() const;
};

inline constexpr std::uint8_t posix_namespace = 0;
inline constexpr std::uint8_t win32_namespace = 1;
inline constexpr std::uint8_t dos_namespace = 2;
inline constexpr std::uint8_t win32_and_dos_namespace = 3;

struct file_name {
    std::uint64_t parent = reference(5, 5);
    ntfs_name name = {};
    std::uint8_t name_space = win32_namespace;
    file_times times = {};
    std::uint64_t allocated = 0;
    std::uint64_t real = 0;
    std::uint32_t attributes = 0x20;
    std::uint32_t reparse_tag = 0;
    [[nodiscard]] bytes build() const;
};

// Junction or symbolic link. Both names are in the path buffer, one after the other, each followed by a zero
// unit, as the system writes them.
struct reparse_point {
    std::uint32_t tag = 0xA0000003;
    ntfs_name substitute_name = {};
    ntfs_name print_name = {};
    bool with_flags_word = false;  // the four bytes that a symbolic link has ahead of its path buffer
    std::uint32_t flags_word = 0;
    [[nodiscard]] bytes build() const;
};

[[nodiscard]] bytes volume_information(std::uint8_t major, std::uint8_t minor);

}  // namespace quarry::test
