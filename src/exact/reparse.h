// Reparse points: files that lead to something else.
//
// The value of $REPARSE_POINT begins with a tag that says what it is, and the length of the data after the
// first eight bytes. Tags of other makers than the system's have a GUID before their data.
//
//     +-----+--------+----+   symbolic link   +----------+----------+-------+------...
//     | tag | length | 0  |  ---------------> | sub. name| print    | flags | text
//     +-----+--------+----+                   | off, len | off, len | 1=rel |
//     0     4        6    8                   8          12         16      20
//                             junction: the same without flags, text at 16
//
// Symbolic links and junctions are followed by their substitute name, the one that the system uses; the print
// name is for people and may say anything.
#pragma once

#include "exact/failure.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

inline constexpr std::uint32_t tag_mount_point = 0xA0000003;  // a junction
inline constexpr std::uint32_t tag_symlink = 0xA000000C;
inline constexpr std::uint32_t tag_wof = 0x80000017;
// The file leads to another name, which a path through it would have to follow.
inline constexpr std::uint32_t tag_bit_name_surrogate = 0x20000000;
// A directory that may hold children of its own.
inline constexpr std::uint32_t tag_bit_directory = 0x10000000;
// FILE_ATTRIBUTE_REPARSE_POINT of MS-FSCC 2.6, in the attributes that $STANDARD_INFORMATION keeps.
inline constexpr std::uint32_t file_attribute_reparse_point = 0x400;

struct reparse_point {
    std::uint32_t tag = 0;
    byte_view data;  // after the header, and after the GUID where there is one

    [[nodiscard]] bool is_link() const { return tag == tag_mount_point || tag == tag_symlink; }
    // The file leads to another name.
    [[nodiscard]] bool is_surrogate() const { return is_link() || (tag & tag_bit_name_surrogate) != 0; }
    // Of a directory: the names below it are in its own index.
    [[nodiscard]] bool has_children_of_its_own() const {
        return !is_surrogate() && (tag & tag_bit_directory) != 0;
    }
};

// Takes the value of $REPARSE_POINT apart; the data points into it. Fails with `tag` if the lengths do not
// agree. `where` names the entry.
[[nodiscard]] result<reparse_point> read_reparse_point(byte_view value, std::string_view where);

// "0x80000013 (DEDUP)", or only the number for a tag that has no name.
[[nodiscard]] std::string tag_text(std::uint32_t tag);

struct link_target {
    bool relative = false;              // from the directory of the link, unless `from_root`
    bool from_root = false;             // of this volume
    std::u16string volume;              // of an absolute target: "C" or "Volume{GUID}"
    std::vector<std::u16string> names;  // a relative target may hold "." and ".."
    std::string shown;                  // as a message has it, such as C:\Users
};

// The target of a link. Fails with `link` for a target that lies on another machine or device, and for names
// that are none; `where` names the path of the link.
[[nodiscard]] result<link_target> read_link_target(const reparse_point& link, std::string_view where);

}  // namespace quarry::exact
