#include "frontend/exact/manifest_line.h"

#include "exact/name_text.h"
#include "exact/reparse.h"
#include "exact/volume_path.h"
#include "foundation/md5.h"
#include "foundation/rfc3339.h"
#include "frontend/exact/json_writer.h"
#include "frontend/usage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace quarry::exact {

namespace {

// Null where a text is empty.
std::optional<std::string_view> text_or_null(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::string_view>(text);
}

std::string digits_of(const std::string& bytes) {
    std::string digits;
    hex_text(digits, bytes.data(), bytes.size(), false);
    return digits;
}

// A path of the host, and whatever else the user types, is bytes. Where they are no UTF-8, U+FFFD takes their
// place when the line is written, and a member "NAME_bytes" has them as hexadecimal digits.
void add_typed(json_writer& line, const std::string& name, const std::string& typed) {
    line.member(name, typed);
    if (!units_of_utf8(typed)) {
        line.member(name + "_bytes", digits_of(typed));
    }
}

void add_texts(json_writer& line, std::string_view name, const std::vector<std::string>& texts) {
    line.begin_array(name);
    for (const std::string& each : texts) {
        line.element(each);
    }
    line.end_array();
}

void add_arguments(json_writer& line, const std::vector<std::string>& arguments) {
    add_texts(line, "arguments", arguments);
    if (!std::all_of(arguments.begin(), arguments.end(),
                     [](const std::string& each) { return units_of_utf8(each).has_value(); })) {
        line.begin_array("arguments_bytes");
        for (const std::string& each : arguments) {
            line.element(digits_of(each));
        }
        line.end_array();
    }
}

// ---- times

void add_time(json_writer& line, std::string_view name, std::uint64_t filetime) {
    if (filetime == 0) {
        line.member(name, nullptr);
    } else if (const auto text = rfc3339_of_filetime(filetime)) {
        line.member(name, *text);
    } else {
        line.member(name, filetime);
    }
}

void add_times(json_writer& line, std::string_view name, const std::optional<four_times>& times) {
    const four_times values = times.value_or(four_times{});
    line.begin_object(name);
    add_time(line, "created", values.created);
    add_time(line, "modified", values.modified);
    add_time(line, "changed", values.changed);
    add_time(line, "accessed", values.accessed);
    line.end_object();
}

// ---- the run

void add_tool(json_writer& line) {
    line.begin_object("tool");
    line.member("name", "quarry");
    // "ver: 1.14"
    line.member("version", version_text.substr(version_text.rfind(' ') + 1));
    line.member("mode", "exact");
    line.end_object();
}

void add_run(json_writer& line, const manifest_entry& entry) {
    line.begin_object("run");
    line.member("started", rfc3339_of_seconds(entry.run.started));
    line.member("host", entry.run.host);
    if (entry.run.directory.empty()) {
        line.member("directory", nullptr);
    } else {
        add_typed(line, "directory", entry.run.directory);
    }
    add_arguments(line, entry.run.arguments);
    line.member("line", entry.line);
    line.end_object();
}

void add_error(json_writer& line, const failure* error) {
    if (error == nullptr) {
        line.member("error", nullptr);
        return;
    }
    line.begin_object("error");
    line.member("code", code_text(error->code));
    line.member("where", error->where);
    line.member("text", error->text());
    line.end_object();
}

void add_warnings(json_writer& line, const std::vector<notice>& warnings) {
    line.begin_array("warnings");
    for (const notice& each : warnings) {
        line.begin_object();
        line.member("code", each.code);
        line.member("text", each.text());
        line.end_object();
    }
    line.end_array();
}

// ---- source and volume

void add_source(json_writer& line, const manifest_entry& entry) {
    const source_facts& source = entry.source;
    line.begin_object("source");
    line.member("kind", source.kind);
    line.begin_array("files");
    const std::string nothing;
    bool is_first = true;
    for (const source_file& file : source.files) {
        line.begin_object();
        add_typed(line, "path", file.path);
        line.member("size", file.size);
        line.member("acquired_md5", text_or_null(is_first ? source.acquired_md5 : nothing));
        line.member("acquired_sha1", text_or_null(is_first ? source.acquired_sha1 : nothing));
        line.member("sha256_told", text_or_null(is_first ? source.sha256_told : nothing));
        line.end_object();
        is_first = false;
    }
    line.end_array();
    line.member("sector_size", source.sector_size);
    line.member("volume_offset",
                entry.volume == nullptr ? std::nullopt : std::optional(entry.volume->shape().volume_offset));
    line.member("mounted", source.mounted);
    line.end_object();
}

void add_volume(json_writer& line, const exact_volume* volume) {
    line.begin_object("volume");
    if (volume == nullptr) {
        for (const char* const name : {"serial", "label", "version", "cluster_size", "record_size",
                                       "clusters", "boot", "mft", "dirty", "journal"}) {
            line.member(name, nullptr);
        }
    } else {
        const geometry& shape = volume->shape();
        const volume_state& state = volume->state();
        line.member("serial", serial_text(shape.serial));
        line.member("label", shown_name(state.label));
        line.member("version", state.major_version ? std::optional(state.version_text()) : std::nullopt);
        line.member("cluster_size", shape.cluster_size);
        line.member("record_size", shape.record_size);
        line.member("clusters", shape.clusters);
        line.member("boot", shape.from_backup ? "backup" : "primary");
        line.member("mft", volume->table().from_mirror() ? "mirror" : "primary");
        line.member("dirty", state.dirty);
        line.member("journal", journal_text(state.journal));
    }
    line.end_object();
}

// ---- the object

void add_names(json_writer& line, const std::optional<entry_facts>& entry) {
    line.begin_array("names");
    if (entry) {
        for (const file_name& each : entry->names) {
            line.begin_object();
            line.member("name", shown_name(each.name));
            line.member("parent", each.parent.entry);
            line.member("parent_sequence", each.parent.sequence);
            line.member("space", name_space_text(each.name_space));
            line.end_object();
        }
    }
    line.end_array();
}

void add_compression(json_writer& line, const std::optional<stream_facts>& stream) {
    if (stream && stream->system_format) {
        line.begin_object("compression");
        line.member("kind", "wof");
        line.member("format", format_name(*stream->system_format));
        line.end_object();
    } else if (stream && stream->lznt1_unit) {
        line.begin_object("compression");
        line.member("kind", "lznt1");
        line.member("unit", *stream->lznt1_unit);
        line.end_object();
    } else {
        line.member("compression", nullptr);
    }
}

// A member of something that is perhaps not known; null then.
template <typename Known, typename Member>
auto if_known(const std::optional<Known>& known, Member member) {
    return known ? std::optional(member(*known)) : std::nullopt;
}

void add_object(json_writer& line, const object_facts& object) {
    const auto& [entry, stream] = std::tie(object.entry, object.stream);
    line.begin_object("object");
    if (object.asked) {
        add_typed(line, "asked", *object.asked);
    } else {
        line.member("asked", nullptr);
    }
    line.member("path", if_known(object.path, [](const auto& names) { return shown_path(names); }));
    add_texts(line, "links", object.links);
    line.member("entry", if_known(entry, [](const auto& known) { return known.self.entry; }));
    line.member("sequence", if_known(entry, [](const auto& known) { return known.self.sequence; }));
    line.member("in_use", if_known(entry, [](const auto& known) { return known.in_use; }));
    line.member("lcn", object.lcn);
    line.member("clusters", object.clusters);
    // Clusters are read as a stream that has neither type nor name.
    const bool named = stream && !object.lcn;
    line.member("type", named ? std::optional(type_name(stream->type)) : std::nullopt);
    line.member("stream", named ? std::optional(shown_name(stream->name)) : std::nullopt);
    add_names(line, entry);
    line.member("resident", if_known(stream, [](const auto& known) { return known.resident; }));
    line.member("raw", object.raw);
    add_compression(line, stream);
    line.member("encrypted", if_known(stream, [](const auto& known) { return known.encrypted; }));
    line.member("sparse", if_known(stream, [](const auto& known) { return known.sparse; }));
    line.member("reparse", entry ? if_known(entry->reparse_tag, tag_text) : std::nullopt);
    line.member("allocated", if_known(stream, [](const auto& known) { return known.allocated; }));
    line.member("size", if_known(stream, [](const auto& known) { return known.size; }));
    line.member("valid", if_known(stream, [](const auto& known) { return known.valid; }));
    line.member("runs", if_known(stream, [](const auto& known) { return known.runs; }));
    line.member("reused_clusters", object.reused_clusters);
    line.end_object();
}

void add_times(json_writer& line, const std::optional<entry_facts>& entry) {
    line.begin_object("times");
    add_times(line, "standard", entry ? entry->standard : std::nullopt);
    add_times(line, "name", entry && entry->used ? std::optional(entry->used->times) : std::nullopt);
    line.end_object();
}

// ---- the copy

void add_copy(json_writer& line, const std::optional<copy_facts>& copy) {
    if (!copy) {
        line.member("copy", nullptr);
        return;
    }
    line.begin_object("copy");
    add_typed(line, "path", copy->path);
    line.member("size", copy->size);
    line.member("md5", text_or_null(copy->md5));
    line.member("sha256", text_or_null(copy->sha256));
    line.member("sparse", copy->sparse);
    line.end_object();
}

void add_unread(json_writer& line, const std::vector<byte_range>& ranges) {
    line.begin_array("unread");
    for (const byte_range& each : ranges) {
        line.begin_object();
        line.member("offset", each.offset);
        line.member("length", each.length);
        line.end_object();
    }
    line.end_array();
}

}  // namespace

std::string serial_text(std::uint64_t serial) {
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llX", static_cast<unsigned long long>(serial));
    return text.data();
}

std::string manifest_line(const manifest_entry& entry) {
    json_writer line;
    line.begin_object();
    line.member("schema", manifest_schema);
    add_tool(line);
    add_run(line, entry);
    line.member("finished", rfc3339_of_seconds(entry.finished));
    line.member("result", entry.outcome);
    add_error(line, entry.error);
    add_warnings(line, entry.warnings);
    add_source(line, entry);
    add_volume(line, entry.volume);
    add_object(line, entry.object);
    add_times(line, entry.object.entry);
    add_copy(line, entry.copy);
    add_unread(line, entry.object.unread);
    line.end_object();
    return line.text() + "\n";
}

}  // namespace quarry::exact
