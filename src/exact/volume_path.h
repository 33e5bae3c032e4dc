// The text that names a stream on the volume: "/Documents/letter.txt:draft".
//
// Two forms are taken. A text with a "/" in it is in canonical form: "/" separates, `\\` is a backslash, `\:`
// a colon, `\uXXXX` a UTF-16 unit. A text without one is in Windows form: `\` separates and nothing is
// escaped.
//
//     /Documents/letter.txt:draft:$DATA          C:\Documents\letter.txt:draft
//      names_____________  stream type           passed over, and logged
//
// Paths begin at the root of the volume. In the last name the first colon that is not escaped begins the
// stream. Text is UTF-8, taken unit by unit and not normalised.
#pragma once

#include "exact/failure.h"
#include "volume/attribute_layout.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::exact {

// One stream of an entry: its attribute type and its name, empty for the unnamed one.
struct stream_name {
    std::uint32_t type = attr_data;
    std::u16string name;

    bool operator==(const stream_name&) const = default;
};

struct volume_path {
    std::vector<std::u16string> names;  // from the root down; none for the root itself
    stream_name stream;
    std::string prefix;  // the drive letter that was passed over, such as "C:"; empty if there was none
};

// Takes a path apart. Fails with `name` for text that is no path: an empty name, ".", "..", an escape that is
// none, text that is not UTF-8, an unknown type.
[[nodiscard]] result<volume_path> parse_volume_path(std::string_view text);

// The same for a stream without a path, ":draft" or "::$INDEX_ROOT", in canonical form.
[[nodiscard]] result<stream_name> parse_stream_name(std::string_view text);

// A path that may name a directory as shells complete it, "/Users/", without the separator at its end. The
// root keeps it.
[[nodiscard]] std::string_view without_last_separator(std::string_view text);

// Names from the root in canonical form; "/" for the root.
[[nodiscard]] std::string shown_path(const std::vector<std::u16string>& names);

// The same with ":stream" and, for another type than $DATA, ":$TYPE".
[[nodiscard]] std::string shown_path(const volume_path& path);

}  // namespace quarry::exact
