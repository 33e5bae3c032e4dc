#include "frontend/exact/manifest_line.h"

#include "exact/name_text.h"
#include "exact/reparse.h"
#include "exact/volume_path.h"
#include "foundation/md5.h"
#include "foundation/rfc3339.h"
#include "frontend/usage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace quarry::exact {

namespace {

// Members keep the order in which they are added, so that a line reads as the documents show it.
using json = nlohmann::ordered_json;

template <typename Value>
json or_null(const std::optional<Value>& value) {
    return value ? json(*value) : json(nullptr);
}

json text_or_null(const std::string& text) {
    return text.empty() ? json(nullptr) : json(text);
}

std::string digits_of(const std::string& bytes) {
    std::string digits;
    hex_text(digits, bytes.data(), bytes.size(), false);
    return digits;
}

// A path of the host, and whatever else the user types, is bytes. Where they are no UTF-8, U+FFFD takes their
// place when the line is written, and a member "NAME_bytes" has them as hexadecimal digits.
void add_typed(json& object, const std::string& name, const std::string& typed) {
    object[name] = typed;
    if (!units_of_utf8(typed)) {
        object[name + "_bytes"] = digits_of(typed);
    }
}

void add_arguments(json& object, const std::vector<std::string>& arguments) {
    object["arguments"] = arguments;
    if (!std::all_of(arguments.begin(), arguments.end(),
                     [](const std::string& each) { return units_of_utf8(each).has_value(); })) {
        json all = json::array();
        for (const std::string& each : arguments) {
            all.push_back(digits_of(each));
        }
        object["arguments_bytes"] = std::move(all);
    }
}

// ---- times

json time_of(std::uint64_t filetime) {
    if (filetime == 0) {
        return nullptr;
    }
    const auto text = rfc3339_of_filetime(filetime);
    return text ? json(*text) : json(filetime);
}

json times_of(const std::optional<four_times>& times) {
    const four_times values = times.value_or(four_times{});
    return {{"created", time_of(values.created)},
            {"modified", time_of(values.modified)},
            {"changed", time_of(values.changed)},
            {"accessed", time_of(values.accessed)}};
}

json time_of_host(std::int64_t seconds) {
    return or_null(rfc3339_of_seconds(seconds));
}

// ---- the run

json tool() {
    // "ver: 1.14"
    const std::string_view version = version_text.substr(version_text.rfind(' ') + 1);
    return {{"name", "quarry"}, {"version", version}, {"mode", "exact"}};
}

json run_of(const manifest_entry& entry) {
    json members = {{"started", time_of_host(entry.run.started)}, {"host", entry.run.host}};
    if (entry.run.directory.empty()) {
        members["directory"] = nullptr;
    } else {
        add_typed(members, "directory", entry.run.directory);
    }
    add_arguments(members, entry.run.arguments);
    members["line"] = or_null(entry.line);
    return members;
}

json error_of(const failure* error) {
    if (error == nullptr) {
        return nullptr;
    }
    return {{"code", code_text(error->code)}, {"where", error->where}, {"text", error->text()}};
}

json warnings_of(const std::vector<notice>& warnings) {
    json all = json::array();
    for (const notice& each : warnings) {
        all.push_back({{"code", each.code}, {"text", each.text()}});
    }
    return all;
}

// ---- source and volume

json source_of(const manifest_entry& entry) {
    const source_facts& source = entry.source;
    json files = json::array();
    for (const source_file& file : source.files) {
        json added = json::object();
        add_typed(added, "path", file.path);
        added["size"] = or_null(file.size);
        const bool is_first = files.empty();
        added["acquired_md5"] = is_first ? text_or_null(source.acquired_md5) : nullptr;
        added["acquired_sha1"] = is_first ? text_or_null(source.acquired_sha1) : nullptr;
        added["sha256_told"] = is_first ? text_or_null(source.sha256_told) : nullptr;
        files.push_back(std::move(added));
    }
    return {{"kind", source.kind},
            {"files", std::move(files)},
            {"sector_size", or_null(source.sector_size)},
            {"volume_offset",
             entry.volume == nullptr ? json(nullptr) : json(entry.volume->shape().volume_offset)},
            {"mounted", or_null(source.mounted)}};
}

json volume_of(const exact_volume* volume) {
    json members;
    for (const char* const name : {"serial", "label", "version", "cluster_size", "record_size", "clusters",
                                   "boot", "mft", "dirty", "journal"}) {
        members[name] = nullptr;
    }
    if (volume == nullptr) {
        return members;
    }
    const geometry& shape = volume->shape();
    const volume_state& state = volume->state();
    members["serial"] = serial_text(shape.serial);
    members["label"] = shown_name(state.label);
    members["version"] = state.major_version ? json(state.version_text()) : json(nullptr);
    members["cluster_size"] = shape.cluster_size;
    members["record_size"] = shape.record_size;
    members["clusters"] = shape.clusters;
    members["boot"] = shape.from_backup ? "backup" : "primary";
    members["mft"] = volume->table().from_mirror() ? "mirror" : "primary";
    members["dirty"] = or_null(state.dirty);
    members["journal"] = journal_text(state.journal);
    return members;
}

// ---- the object

json names_of(const std::optional<entry_facts>& entry) {
    json all = json::array();
    if (entry) {
        for (const file_name& each : entry->names) {
            all.push_back({{"name", shown_name(each.name)},
                           {"parent", each.parent.entry},
                           {"parent_sequence", each.parent.sequence},
                           {"space", name_space_text(each.name_space)}});
        }
    }
    return all;
}

json reparse_of(const std::optional<entry_facts>& entry) {
    return entry && entry->reparse_tag ? json(tag_text(*entry->reparse_tag)) : json(nullptr);
}

json compression_of(const stream_facts& stream) {
    if (stream.system_format) {
        return {{"kind", "wof"}, {"format", format_name(*stream.system_format)}};
    }
    if (stream.lznt1_unit) {
        return {{"kind", "lznt1"}, {"unit", *stream.lznt1_unit}};
    }
    return nullptr;
}

json object_of(const object_facts& object) {
    json members;
    if (object.asked) {
        add_typed(members, "asked", *object.asked);
    } else {
        members["asked"] = nullptr;
    }
    members["path"] = object.path ? json(shown_path(*object.path)) : json(nullptr);
    members["links"] = object.links;
    members["entry"] = object.entry ? json(object.entry->self.entry) : json(nullptr);
    members["sequence"] = object.entry ? json(object.entry->self.sequence) : json(nullptr);
    members["in_use"] = object.entry ? json(object.entry->in_use) : json(nullptr);
    members["lcn"] = or_null(object.lcn);
    members["clusters"] = or_null(object.clusters);
    // Clusters are read as a stream that has neither type nor name.
    const bool named = object.stream && !object.lcn;
    members["type"] = named ? json(type_name(object.stream->type)) : json(nullptr);
    members["stream"] = named ? json(shown_name(object.stream->name)) : json(nullptr);
    members["names"] = names_of(object.entry);
    members["resident"] = object.stream ? json(object.stream->resident) : json(nullptr);
    members["raw"] = object.raw;
    members["compression"] = object.stream ? compression_of(*object.stream) : json(nullptr);
    members["encrypted"] = object.stream ? json(object.stream->encrypted) : json(nullptr);
    members["sparse"] = object.stream ? json(object.stream->sparse) : json(nullptr);
    members["reparse"] = reparse_of(object.entry);
    members["allocated"] = object.stream ? json(object.stream->allocated) : json(nullptr);
    members["size"] = object.stream ? json(object.stream->size) : json(nullptr);
    members["valid"] = object.stream ? json(object.stream->valid) : json(nullptr);
    members["runs"] = object.stream ? json(object.stream->runs) : json(nullptr);
    members["reused_clusters"] = or_null(object.reused_clusters);
    return members;
}

json times_of(const std::optional<entry_facts>& entry) {
    const auto standard = entry ? entry->standard : std::nullopt;
    const auto name = entry && entry->used ? std::optional(entry->used->times) : std::nullopt;
    return {{"standard", times_of(standard)}, {"name", times_of(name)}};
}

// ---- the copy

json copy_of(const std::optional<copy_facts>& copy) {
    if (!copy) {
        return nullptr;
    }
    json members;
    add_typed(members, "path", copy->path);
    members["size"] = copy->size;
    members["md5"] = text_or_null(copy->md5);
    members["sha256"] = text_or_null(copy->sha256);
    members["sparse"] = copy->sparse;
    return members;
}

json unread_of(const std::vector<byte_range>& ranges) {
    json all = json::array();
    for (const byte_range& each : ranges) {
        all.push_back({{"offset", each.offset}, {"length", each.length}});
    }
    return all;
}

}  // namespace

std::string serial_text(std::uint64_t serial) {
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llX", static_cast<unsigned long long>(serial));
    return text.data();
}

std::string manifest_line(const manifest_entry& entry) {
    json line;
    line["schema"] = manifest_schema;
    line["tool"] = tool();
    line["run"] = run_of(entry);
    line["finished"] = time_of_host(entry.finished);
    line["result"] = entry.outcome;
    line["error"] = error_of(entry.error);
    line["warnings"] = warnings_of(entry.warnings);
    line["source"] = source_of(entry);
    line["volume"] = volume_of(entry.volume);
    line["object"] = object_of(entry.object);
    line["times"] = times_of(entry.object.entry);
    line["copy"] = copy_of(entry.copy);
    line["unread"] = unread_of(entry.object.unread);
    return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace quarry::exact
