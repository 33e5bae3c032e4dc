#include "exact/reparse.h"

#include "exact/name_text.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace quarry::exact {

namespace {

constexpr std::uint64_t header_size = 8;
constexpr std::uint64_t guid_size = 16;
constexpr std::uint32_t tag_bit_system = 0x80000000;
constexpr std::uint32_t symlink_flag_relative = 1;

// MS-FSCC 2.1.2.1.
constexpr auto tag_names = std::to_array<std::pair<std::uint32_t, const char*>>({
    {0x80000005, "DRIVE_EXTENDER"},
    {0x80000006, "HSM2"},
    {0x80000007, "SIS"},
    {0x80000008, "WIM"},
    {0x80000009, "CSV"},
    {0x8000000A, "DFS"},
    {0x8000000B, "FILTER_MANAGER"},
    {0x80000012, "DFSR"},
    {0x80000013, "DEDUP"},
    {0x80000014, "NFS"},
    {0x80000015, "FILE_PLACEHOLDER"},
    {0x80000016, "DFM"},
    {0x80000017, "WOF"},
    {0x80000018, "WCI"},
    {0x8000001B, "APPEXECLINK"},
    {0x8000001E, "STORAGE_SYNC"},
    {0x80000020, "UNHANDLED"},
    {0x80000021, "ONEDRIVE"},
    {0x80000023, "AF_UNIX"},
    {0x80000024, "LX_FIFO"},
    {0x80000025, "LX_CHR"},
    {0x80000026, "LX_BLK"},
    {0x90001018, "WCI_1"},
    {0x9000001A, "CLOUD"},
    {0x9000001C, "PROJFS"},
    {0x90000027, "STORAGE_SYNC_FOLDER"},
    {0xA0000003, "MOUNT_POINT"},
    {0xA000000C, "SYMLINK"},
    {0xA0000010, "IIS_CACHE"},
    {0xA0000019, "GLOBAL_REPARSE"},
    {0xA000001D, "LX_SYMLINK"},
    {0xA000001F, "WCI_TOMBSTONE"},
    {0xA0000022, "PROJFS_TOMBSTONE"},
    {0xA0000027, "WCI_LINK"},
    {0xA0001027, "WCI_LINK_1"},
    {0xC0000004, "HSM"},
    {0xC0000014, "APPXSTRM"},
});

using words = std::vector<std::u16string>;

words split(std::u16string_view text) {
    words out;
    while (true) {
        const std::size_t end = text.find(u'\\');
        out.emplace_back(text.substr(0, end));
        if (end == std::u16string_view::npos) {
            return out;
        }
        text.remove_prefix(end + 1);
    }
}

// A target as a message shows it: backslashes as they are, all else as in names.
std::string shown_target(std::u16string_view text) {
    std::string shown;
    for (const std::u16string& word : split(text)) {
        std::string one = shown_name(word);
        for (std::size_t at = one.find("\\:"); at != std::string::npos; at = one.find("\\:", at)) {
            one.erase(at, 1);
        }
        shown += "\\" + one;
    }
    return shown.substr(1);
}

tl::unexpected<failure> bad_link(std::string_view where, std::string why) {
    return fail(failure_code::link, std::string(where), std::move(why));
}

result<std::u16string> substitute_name(const reparse_point& link, std::string_view where) {
    const std::uint64_t text_offset = link.tag == tag_symlink ? 12 : 8;
    const std::uint64_t offset = link.data.u16_or_zero(0);
    const std::uint64_t length = link.data.u16_or_zero(2);
    const auto name = link.data.sub(text_offset + offset, length);
    if (link.data.size() < text_offset || !name || length % 2 != 0 || length == 0) {
        return bad_link(where, "the link's target lies outside of it");
    }
    return units_of_bytes(*name);
}

bool is_letter(char16_t unit) {
    const char16_t small = unit | 0x20;
    return small >= u'a' && small <= u'z';
}

// The volume that the first word of an absolute target names: "C:" or "Volume{...}".
std::optional<std::u16string> volume_of(std::u16string_view word) {
    if (word.size() == 2 && is_letter(word[0]) && word[1] == u':') {
        return std::u16string(word.substr(0, 1));
    }
    constexpr std::u16string_view volume = u"VOLUME{";
    const auto same = [](char16_t a, char16_t b) { return (is_letter(a) ? a & 0xDF : a) == b; };
    const bool is_volume = word.size() > volume.size() && word.back() == u'}' &&
                           std::equal(volume.begin(), volume.end(), word.begin(),
                                      [&](char16_t b, char16_t a) { return same(a, b); });
    return is_volume ? std::optional<std::u16string>(word) : std::nullopt;
}

}  // namespace

result<reparse_point> read_reparse_point(byte_view value, std::string_view where) {
    const auto broken = [&](std::string why) {
        return fail(failure_code::tag, std::string(where), std::move(why));
    };
    if (value.size() < header_size) {
        return broken("reparse point of " + std::to_string(value.size()) + " bytes");
    }
    reparse_point point;
    point.tag = value.u32_or_zero(0);
    const std::uint64_t length = value.u16_or_zero(4);
    const std::uint64_t start = header_size + ((point.tag & tag_bit_system) == 0 ? guid_size : 0);
    const auto data = value.sub(start, length);
    if (!data) {
        return broken("reparse tag " + tag_text(point.tag) + ": " + std::to_string(length) +
                      " bytes of data in a value of " + std::to_string(value.size()));
    }
    point.data = *data;
    return point;
}

std::string tag_text(std::uint32_t tag) {
    // The versions of this tag differ in four bits.
    constexpr std::uint32_t cloud_version_bits = 0x0000F000;
    if (tag != 0x9000001A && (tag & ~cloud_version_bits) == 0x9000001A) {
        return hex(tag) + " (CLOUD_" + hex((tag & cloud_version_bits) >> 12).substr(2) + ")";
    }
    const auto* known = std::find_if(tag_names.begin(), tag_names.end(),
                                     [&](const auto& named) { return named.first == tag; });
    return known == tag_names.end() ? hex(tag) : hex(tag) + " (" + known->second + ")";
}

result<link_target> read_link_target(const reparse_point& link, std::string_view where) {
    const auto name = substitute_name(link, where);
    if (!name) {
        return tl::make_unexpected(name.error());
    }
    link_target target;
    target.relative = link.tag == tag_symlink && (link.data.u32_or_zero(8) & symlink_flag_relative) != 0;
    std::u16string_view text = *name;
    target.shown = shown_target(text);
    if (target.relative) {
        if (text.front() == u'\\') {
            target.from_root = true;
            text.remove_prefix(1);
        }
        target.names = split(text);
    } else {
        constexpr std::u16string_view here = u"\\??\\";
        if (text.substr(0, here.size()) != here) {
            return bad_link(where, "leads to " + target.shown + ", which is no path of a volume");
        }
        text.remove_prefix(here.size());
        target.shown = shown_target(text);
        target.names = split(text);
        const auto volume = volume_of(target.names.front());
        if (!volume) {
            return bad_link(where, "leads to " + target.shown + ", which is no path of a volume");
        }
        target.volume = *volume;
        target.names.erase(target.names.begin());
    }
    if (!target.names.empty() && target.names.back().empty()) {
        target.names.pop_back();  // "C:\Users\" is "C:\Users"
    }
    for (const std::u16string& word : target.names) {
        if (word.empty() || (!target.relative && (word == u"." || word == u".."))) {
            return bad_link(where, "leads to " + target.shown + ", in which a name is empty or dots");
        }
    }
    return target;
}

}  // namespace quarry::exact
