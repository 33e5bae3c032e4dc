// The text in a sparse VMDK file that says who the file is and whose snapshot.
//
// Lines of the form key=value. Each file has a content ID ("CID"), and a snapshot names the content ID of the
// file that it was taken from ("parentCID") and where that file was ("parentFileNameHint"); a base disk names
// "ffffffff". Lines that list extents and settings are kept as text and not looked into.
//
// Values are taken as they are after the equals sign: quotes, case and a carriage return at the end stay. So
// a value of a file with CR LF line ends carries its carriage return, and then matches only another such
// value.
#pragma once

#include "foundation/byte_view.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// The most bytes that are read as a descriptor. Real ones have a few hundred, in a space of 10 KiB; a header
// may claim 2 TiB.
inline constexpr std::size_t longest_descriptor_bytes = 0x200000;

// The most lines that are kept. Real descriptors have a few dozen; one of nothing but short lines would take
// many times its size in memory. Neither are lines beyond so many bytes in all, which take four times as
// much.
inline constexpr std::size_t most_descriptor_lines = 0x4000;
inline constexpr std::size_t most_kept_descriptor_bytes = 0x40000;

struct vmdk_descriptor {
    // Every line that is not empty, up to so many, but for those that there is no room for. A line that is no
    // UTF-8 is kept as far as it is.
    std::vector<std::wstring> m_descriptor_lines;
    std::string m_encoding;
    std::string m_parent_cid;
    std::string m_cid;
    std::string m_parent_hint;

    // Reads the text up to its first zero byte, or all of it. Keys may be in any case. Of several lines with
    // one key the last counts, also if it is not among the lines that are kept.
    void parse(byte_view text);

  private:
    void keep(std::string_view line, std::size_t& room);
    void take_value(std::string_view line);
};

}  // namespace quarry
