#include "exact/listing_line.h"

#include "exact/name_text.h"
#include "exact/path_walk.h"
#include "exact/reparse.h"
#include "foundation/rfc3339.h"
#include "volume/attribute_values.h"

#include <algorithm>
#include <optional>

namespace quarry::exact {

namespace {

constexpr char stream_letter = 's';
constexpr std::string_view unknown_time = "-";

char upper_if(bool deleted, char letter) {
    return deleted ? static_cast<char>(letter - 'a' + 'A') : letter;
}

// The sizes of a stream are those of its first piece. Where the clusters are is not looked at.
std::uint64_t size_of_stream(const attribute_set& file, std::u16string_view name,
                             const listing_outputs& outputs) {
    const std::vector<piece> pieces = file.pieces(attr_data, name);
    if (pieces.empty()) {
        return 0;
    }
    const auto first = std::find_if(pieces.begin(), pieces.end(), [](const piece& each) {
        return !each.bytes.non_resident() || each.bytes.lowest_vcn() == 0;
    });
    if (first == pieces.end()) {
        outputs.damage({failure_code::gap, where::stream(file.base().entry(), attr_data, shown_name(name)),
                        "piece at VCN " + std::to_string(pieces.front().bytes.lowest_vcn()) + ", expected 0",
                        pieces.front().source_byte()});
        return 0;
    }
    return first->bytes.non_resident() ? first->bytes.real_size() : first->bytes.value_length();
}

std::string text_of_time(std::uint64_t filetime) {
    return filetime == 0 ? std::string(unknown_time)
                         : rfc3339_of_filetime(filetime).value_or(std::to_string(filetime));
}

std::string modified_of(const attribute_set& file, const listing_outputs& outputs) {
    const auto value = file.only_value(attr_standard_information);
    if (!value) {
        outputs.damage(value.error());
    }
    return value && *value ? text_of_time(standard_information_value(**value).modified())
                           : std::string(unknown_time);
}

// Nothing if the file has no reparse point. A damaged one is told; it has the tag 0 then.
std::optional<reparse_point> reparse_point_of(const exact_volume& volume, const attribute_set& file,
                                              const listing_outputs& outputs) {
    const auto value = reparse_value_of(volume, file);
    if (value && !*value) {
        return std::nullopt;
    }
    const auto point =
        value ? read_reparse_point(**value, where::record(file.base().entry())) : passed_on(value);
    if (!point) {
        outputs.damage(point.error());
        return reparse_point{};
    }
    return reparse_point{point->tag, {}};
}

void append_line(std::string& text, const listed_file& file, char letter, std::uint64_t size) {
    text += file.entry;
    text += '\t';
    text += upper_if(file.deleted, letter);
    text += '\t';
    text += std::to_string(size);
    text += '\t';
    text += file.modified;
    text += '\t';
}

}  // namespace

listed_file read_listed_file(const exact_volume& volume, const attribute_set& file,
                             const listing_outputs& outputs) {
    listed_file listed;
    listed.entry = file.base().self().text();
    listed.deleted = !file.base().in_use();
    listed.size = size_of_stream(file, {}, outputs);
    listed.modified = modified_of(file, outputs);
    for (const std::u16string& name : file.names(attr_data)) {
        if (!name.empty()) {
            listed.streams.push_back({shown_name(name), size_of_stream(file, name, outputs)});
        }
    }
    const bool is_directory = file.base().is_directory();
    const auto point = reparse_point_of(volume, file, outputs);
    listed.has_children = is_directory && (!point || point->has_children_of_its_own());
    const bool is_link = point && (point->is_surrogate() || (is_directory && !listed.has_children));
    listed.letter = is_link ? 'l' : is_directory ? 'd' : 'f';
    return listed;
}

result<void> write_file_lines(const listed_file& file, const std::string& path,
                              const listing_outputs& outputs) {
    std::string text;
    append_line(text, file, file.letter, file.size);
    text += path;
    return outputs.line(text).and_then([&] { return write_stream_lines(file, path, outputs); });
}

result<void> write_stream_lines(const listed_file& file, const std::string& path,
                                const listing_outputs& outputs) {
    std::string text;
    for (const listed_file::stream& each : file.streams) {
        text.clear();
        append_line(text, file, stream_letter, each.size);
        text += path;
        text += ':';
        text += each.shown;
        if (auto written = outputs.line(text); !written) {
            return written;
        }
    }
    return {};
}

}  // namespace quarry::exact
