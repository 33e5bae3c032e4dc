#include "exact/failure.h"

#include "volume/attribute_layout.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace quarry::exact {

namespace {

// In the order of failure_code.
constexpr auto code_texts = std::to_array<std::string_view>({
    "source-open",
    "source-read",
    "source-end",
    "vmdk",
    "table",
    "no-volume",
    "several-volumes",
    "no-such-volume",
    "enciphered",
    "boot",
    "mft",
    "signature",
    "array",
    "torn",
    "layout",
    "unused",
    "sequence",
    "base",
    "extension",
    "behind-mft",
    "list",
    "duplicate",
    "gap",
    "runs",
    "outside",
    "sizes",
    "flags",
    "no-stream",
    "directory",
    "ambiguous",
    "name",
    "not-directory",
    "index",
    "index-order",
    "upcase",
    "link",
    "tag",
    "encrypted",
    "unit",
    "wof",
    "exists",
    "create",
    "no-room",
    "write",
    "sync",
    "rename",
    "memory",
    "manifest",
    "fault",
});
static_assert(code_texts.size() == static_cast<std::size_t>(failure_code::fault) + 1);

std::string joined(std::string_view a, std::string_view b) {
    return std::string(a).append(b);
}

}  // namespace

std::string_view code_text(failure_code code) {
    return code_texts[static_cast<std::size_t>(code)];
}

std::string failure::text() const {
    std::string text = where + ": " + why;
    if (source_byte) {
        text += " (source byte " + hex(*source_byte) + ")";
    }
    return text;
}

void notices::add(notice added) {
    // What is no longer listed is not remembered either.
    std::size_t& count = m_of_code[added.code];
    if (count > most_of_one_code ||
        !m_known.insert(added.code + '\0' + added.where + '\0' + added.why).second) {
        return;
    }
    ++count;
    if (count == most_of_one_code + 1) {
        added.why = "there are more of this kind, which are not listed";
    }
    if (count <= most_of_one_code + 1) {
        m_all.push_back(std::move(added));
    }
}

void notices::warn(std::string code, std::string where, std::string why) {
    add({notice::weight::warning, std::move(code), std::move(where), std::move(why)});
}

void notices::doubt(std::string code, std::string where, std::string why) {
    add({notice::weight::doubt, std::move(code), std::move(where), std::move(why)});
}

bool notices::in_doubt() const {
    return std::any_of(m_all.begin(), m_all.end(),
                       [](const notice& told) { return told.weight == notice::weight::doubt; });
}

namespace where {

std::string source(std::string_view path) {
    return joined("source ", path);
}
std::string record(std::uint64_t entry) {
    return "record " + std::to_string(entry);
}
std::string record_of_mirror(std::uint64_t entry) {
    return record(entry) + " of the mirror";
}
std::string stream(std::uint64_t entry, std::uint32_t type, std::string_view name) {
    return record(entry) + ", " + type_name(type) + joined(" \"", name) + "\"";
}
std::string index_root(std::uint64_t entry) {
    return "index root of " + record(entry);
}
std::string index_block(std::uint64_t vcn, std::uint64_t entry) {
    return "index block " + std::to_string(vcn) + " of " + record(entry);
}
std::string path(std::string_view shown) {
    return joined("path \"", shown) + "\"";
}
std::string destination(std::string_view path) {
    return joined("destination ", path);
}
std::string unit(std::string_view of, std::uint64_t unit) {
    return joined(of, ": unit ") + std::to_string(unit);
}
std::string chunk(std::string_view of, std::uint64_t chunk) {
    return joined(of, ": chunk ") + std::to_string(chunk);
}
std::string vcn(std::string_view of, std::uint64_t vcn) {
    return joined(of, ": VCN ") + std::to_string(vcn);
}

}  // namespace where

std::string hex(std::uint64_t number) {
    std::array<char, 24> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "0x%llX", static_cast<unsigned long long>(number));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string type_name(std::uint32_t type) {
    switch (type) {
        case attr_standard_information:
            return "$STANDARD_INFORMATION";
        case attr_attribute_list:
            return "$ATTRIBUTE_LIST";
        case attr_file_name:
            return "$FILE_NAME";
        case attr_object_id:
            return "$OBJECT_ID";
        case attr_security_descriptor:
            return "$SECURITY_DESCRIPTOR";
        case attr_volume_name:
            return "$VOLUME_NAME";
        case attr_volume_information:
            return "$VOLUME_INFORMATION";
        case attr_data:
            return "$DATA";
        case attr_index_root:
            return "$INDEX_ROOT";
        case attr_index_allocation:
            return "$INDEX_ALLOCATION";
        case attr_bitmap:
            return "$BITMAP";
        case attr_reparse_point:
            return "$REPARSE_POINT";
        case attr_ea_information:
            return "$EA_INFORMATION";
        case attr_ea:
            return "$EA";
        case attr_property_set:
            return "$PROPERTY_SET";
        case attr_logged_utility_stream:
            return "$LOGGED_UTILITY_STREAM";
        default:
            return "type " + hex(type);
    }
}

}  // namespace quarry::exact
