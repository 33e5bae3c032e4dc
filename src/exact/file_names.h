// The names of one file, as its record has them.
//
// A file has a $FILE_NAME for each of its names. Each says in which directory the name is, under which rules
// it was made, and has times of its own, which the system sets when the file is made or renamed:
//
//     letter to anna.txt   in 5-5   Win32       a long name
//     LETTER~1.TXT         in 5-5   DOS         the short name that belongs to it
//     copy.txt             in 40-1  POSIX       another long name, a hard link
#pragma once

#include "exact/attribute_set.h"
#include "exact/record.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

// Four times of a file: FILETIMEs, 0 for one that was never set.
struct four_times {
    std::uint64_t created = 0;
    std::uint64_t modified = 0;
    std::uint64_t changed = 0;  // the record itself
    std::uint64_t accessed = 0;
};

inline constexpr std::uint8_t posix_name_space = 0;
inline constexpr std::uint8_t win32_name_space = 1;
inline constexpr std::uint8_t dos_name_space = 2;
inline constexpr std::uint8_t win32_and_dos_name_space = 3;

struct file_name {
    std::u16string name;
    reference parent;  // the directory
    std::uint8_t name_space = posix_name_space;
    four_times times;

    // A name that was made for programs that know 8 letters and an extension of 3.
    [[nodiscard]] bool is_short() const { return name_space == dos_name_space; }
};

// "posix", "win32", "dos", "win32+dos"; the number for any other.
[[nodiscard]] std::string name_space_text(std::uint8_t name_space);

// All names, in the order of the attributes. A $FILE_NAME that is not in the record, and one without a
// letter, is none.
[[nodiscard]] std::vector<file_name> names_of_file(const attribute_set& file);

// The one that a user knows the file by: `looked_up`, unless it is a short one; else the first long one; else
// the first. Null if there are none.
[[nodiscard]] const file_name* name_to_show(const std::vector<file_name>& names,
                                            std::u16string_view looked_up = {});

}  // namespace quarry::exact
