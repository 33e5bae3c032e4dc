#include "frontend/exact/copy_object.h"

#include "exact/entry_facts.h"
#include "exact/entry_path.h"
#include "exact/file_names.h"
#include "exact/name_text.h"
#include "exact/path_walk.h"
#include "exact/reparse.h"
#include "exact/system_compression.h"
#include "exact/volume_path.h"
#include "frontend/exact/destination_path.h"
#include "volume/attribute_values.h"
#include "volume/well_known.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quarry::exact {

namespace {

// What a user may name, as overloads that std::visit chooses from.
template <typename... Cases>
struct overloaded : Cases... {
    using Cases::operator()...;
};
template <typename... Cases>
overloaded(Cases...) -> overloaded<Cases...>;

result<stream_name> stream_of(const object_by_entry& asked) {
    return asked.stream.empty() ? result<stream_name>(stream_name{}) : parse_stream_name(asked.stream);
}

// The name that a path of a listing has in place of directories that are not known any more.
const std::u16string lost_directories = u"?";

// The name of the file as messages and copies have it; empty if it has none.
std::u16string name_of_file(const attribute_set& set, std::u16string_view looked_up) {
    const std::vector<file_name> names = names_of_file(set);
    const file_name* const shown = name_to_show(names, looked_up);
    return shown == nullptr ? std::u16string() : shown->name;
}

// The unnamed data of a file with a reparse point is elsewhere: in the target of a link, in a stream that the
// system compressed, or wherever the filter that set the tag keeps it. Gives the format of the compressed
// stream and fails for all else; nothing for a file without a reparse point.
result<std::optional<wof_format>> compressed_by_system(const exact_volume& volume, const attribute_set& set,
                                                       const std::string& place) {
    auto value = reparse_value_of(volume, set);
    if (!value) {
        return passed_on(value);
    }
    if (!*value) {
        return std::nullopt;
    }
    const auto point = read_reparse_point(byte_view(**value), place);
    if (!point) {
        return tl::make_unexpected(point.error());
    }
    if (point->is_link()) {
        const auto target = read_link_target(*point, place);
        if (!target) {
            return tl::make_unexpected(target.error());
        }
        return fail(
            failure_code::link, place,
            "leads to " + target->shown + "; give its path to follow it, or -raw to copy its own data");
    }
    if (point->tag == tag_wof) {
        return read_wof_format(*point, place).map([](wof_format format) { return std::optional(format); });
    }
    return fail(failure_code::tag, place,
                "reparse tag " + tag_text(point->tag) + ": the data is not in this stream");
}

void log_stored(const stored_stream& stored, std::u16string_view name, std::uint32_t type,
                exact_messages& messages) {
    messages.info("stream \"" + shown_name(name) + "\" type " + type_name(type) + ", allocated " +
                  std::to_string(stored.allocated_size()) + ", size " + std::to_string(stored.size()) +
                  ", valid " + std::to_string(stored.valid_size()) + ", runs " +
                  std::to_string(stored.runs().runs().size()) + ", flags " + hex(stored.flags()));
}

void log_stream(const stream& content, exact_messages& messages) {
    log_stored(content.stored(), content.name(), content.type(), messages);
    if (const auto& packed = content.system_compressed()) {
        log_stored(packed->stored, system_compressed_name, attr_data, messages);
        messages.info("decoded from \"" + shown_name(system_compressed_name) + "\" as " +
                      std::string(format_name(packed->format)));
    }
}

// What the user named is not there: that is said of the name that the user gave.
failure as_asked(failure opening, const std::string& place) {
    switch (opening.code) {
        case failure_code::directory:
        case failure_code::no_stream:
        case failure_code::ambiguous:
            opening.where = place;
            break;
        default:
            break;
    }
    return opening;
}

// Opens the stream of a file that was found. `place` names the file in failures.
result<found_object> open_stream(exact_volume& volume, const exact_options& options, found_object found,
                                 const stream_name& wanted, const std::string& place, notices& told) {
    std::optional<wof_format> format;
    if (!options.raw && wanted == stream_name{}) {
        auto compressed = compressed_by_system(volume, *found.set, place);
        if (!compressed) {
            return passed_on(compressed);
        }
        format = *compressed;
    }
    auto opened = format ? stream::open_system_compressed(volume, *found.set, *format, told)
                         : stream::open(volume, *found.set, wanted.type, wanted.name, told);
    if (!opened) {
        return tl::make_unexpected(as_asked(std::move(opened.error()), place));
    }
    found.content = std::move(*opened);
    return found;
}

// The names of a path without the last one.
std::vector<std::u16string> above(std::vector<std::u16string> names) {
    if (!names.empty()) {
        names.pop_back();
    }
    return names;
}

result<found_object> find_path(exact_volume& volume, warm_directories& directories,
                               const exact_options& options, const object_by_path& asked,
                               exact_messages& messages, notices& told, object_facts* known) {
    auto path = parse_volume_path(asked.text);
    if (!path) {
        return passed_on(path);
    }
    messages.info("path " + shown_path(*path) +
                  (path->prefix.empty() ? "" : ", " + path->prefix + " is passed over"));
    walk_options walking;
    walking.follow_last = !options.raw;
    walking.directories = &directories;
    walking.tell = [&messages](const std::string& line) { messages.info(line); };
    for (const std::string& letter : options.letters) {
        walking.volume_names.push_back(units_of_utf8(letter).value_or(std::u16string()));
    }
    auto walked = walk_path(volume, path->names, walking, told);
    if (!walked) {
        return passed_on(walked);
    }
    found_object found;
    found.shown = shown_path({walked->names, path->stream, {}});
    found.set = std::make_unique<attribute_set>(std::move(walked->file));
    found.directories = above(walked->names);
    found.file_name =
        walked->names.empty() ? std::u16string(u".") : name_of_file(*found.set, walked->names.back());
    if (known != nullptr) {
        known->path = walked->names;
        known->links = walked->links;
        known->entry = facts_of(volume, *found.set, found.file_name);
    }
    return open_stream(volume, options, std::move(found), path->stream,
                       where::path(shown_path(walked->names)), told);
}

// The path of a file under one of its names as a listing has it.
std::vector<std::u16string> path_in_listing(const exact_volume& volume, const attribute_set& file,
                                            const file_name& name) {
    // What is odd about the directories was said of the listing.
    notices of_directories;
    entry_path path = path_upwards(volume.table(), name, !file.base().in_use(), of_directories);
    if (path.lost) {
        path.names.insert(path.names.begin(), lost_directories);
    }
    return std::move(path.names);
}

// The name that a file has at the path of a listing. Nothing if no name of the file is there: the line is of
// another volume, or somebody else has written it.
std::optional<std::u16string> name_at(const exact_volume& volume, const attribute_set& file,
                                      const std::vector<std::u16string>& listed) {
    if (listed.empty() || file.base().entry() == root_directory) {
        const bool is_root = listed.empty() && file.base().entry() == root_directory;
        return is_root ? std::optional<std::u16string>(u".") : std::nullopt;
    }
    const std::vector<file_name> names = names_of_file(file);
    if (names.empty()) {
        // A listing calls a file without a name by its entry.
        const std::u16string number = units_of_utf8(file.base().self().text()).value_or(std::u16string());
        return listed == std::vector<std::u16string>{lost_directories, number} ? std::optional(number)
                                                                               : std::nullopt;
    }
    const bool is_there = std::any_of(names.begin(), names.end(), [&](const file_name& each) {
        return each.name == listed.back() && path_in_listing(volume, file, each) == listed;
    });
    return is_there ? std::optional(listed.back()) : std::nullopt;
}

// A file that a listing names is found by its number and goes by its path.
result<void> go_by_listed_path(const exact_volume& volume, const std::vector<std::u16string>& listed,
                               const stream_name& wanted, found_object& found, exact_messages& messages,
                               object_facts* known) {
    found.shown = shown_path({listed, wanted, {}});
    messages.info("path " + found.shown);
    auto name = name_at(volume, *found.set, listed);
    if (!name) {
        return fail(failure_code::name, where::record(found.set->base().entry()),
                    "is not at \"" + shown_path(listed) + "\"; the list may be of another volume");
    }
    found.directories = above(listed);
    found.file_name = std::move(*name);
    if (known != nullptr) {
        known->path =
            listed.empty() || listed.front() != lost_directories ? std::optional(listed) : std::nullopt;
        known->entry = facts_of(volume, *found.set, found.file_name);
    }
    return {};
}

void go_by_own_path(const exact_volume& volume, const object_by_entry& asked, found_object& found,
                    object_facts* known) {
    found.shown = found.set->base().self().text() + shown_typed(asked.stream);
    found.file_name = name_of_file(*found.set, {});
    if (known != nullptr) {
        known->path = verified_path(volume, *found.set);
        known->entry = facts_of(volume, *found.set);
    }
}

result<found_object> find_entry(exact_volume& volume, const exact_options& options,
                                const object_by_entry& asked, exact_messages& messages, notices& told,
                                object_facts* known) {
    auto wanted = stream_of(asked);
    if (!wanted) {
        return passed_on(wanted);
    }
    auto base = volume.table().read_asked(asked.entry, asked.sequence, told);
    if (!base) {
        if (asked.listed && base.error().code == failure_code::behind_mft) {
            base.error().why += "; the list may be of another volume";
        }
        return passed_on(base);
    }
    auto set = attribute_set::of(volume.table(), std::move(*base), told);
    if (!set) {
        return passed_on(set);
    }
    found_object found;
    found.set = std::make_unique<attribute_set>(std::move(*set));
    if (!asked.listed) {
        go_by_own_path(volume, asked, found, known);
    } else if (auto gone = go_by_listed_path(volume, *asked.listed, *wanted, found, messages, known); !gone) {
        return passed_on(gone);
    }
    return open_stream(volume, options, std::move(found), *wanted, where::record(asked.entry), told);
}

result<found_object> find_clusters(exact_volume& volume, const object_by_clusters& asked,
                                   object_facts* known) {
    if (known != nullptr) {
        known->lcn = asked.lcn;
        known->clusters = asked.count;
    }
    auto opened = stream::of_clusters(volume, asked.lcn, asked.count);
    if (!opened) {
        // The reason says which clusters.
        opened.error().where = where::volume;
        return passed_on(opened);
    }
    found_object found;
    found.shown =
        "clusters " + std::to_string(asked.lcn) + " to " + std::to_string(asked.lcn + asked.count - 1);
    found.content = std::move(*opened);
    return found;
}

}  // namespace

result<void> check_object(const copy_object& asked) {
    const auto ignore_value = [](const auto&) {};
    return std::visit(
        overloaded{
            [&](const object_by_path& path) { return parse_volume_path(path.text).map(ignore_value); },
            [&](const object_by_entry& entry) { return stream_of(entry).map(ignore_value); },
            [](const object_by_clusters&) { return result<void>(); },
        },
        asked);
}

std::optional<std::string> name_as_asked(const copy_object& asked) {
    const auto* const by_path = std::get_if<object_by_path>(&asked);
    if (by_path == nullptr) {
        return std::nullopt;
    }
    const auto path = parse_volume_path(by_path->text);
    if (!path || path->names.empty()) {
        return std::nullopt;
    }
    // A name that no file can have is refused when the volume has said how it spells it.
    const auto name = name_on_host(path->names.back(), path->stream.name, path->stream.type);
    return name ? std::optional(*name) : std::nullopt;
}

result<found_object> find_object(exact_volume& volume, warm_directories& directories,
                                 const exact_options& options, const copy_object& asked,
                                 exact_messages& messages, notices& told, object_facts* known) {
    auto found = std::visit(
        overloaded{
            [&](const object_by_path& path) {
                return find_path(volume, directories, options, path, messages, told, known);
            },
            [&](const object_by_entry& entry) {
                return find_entry(volume, options, entry, messages, told, known);
            },
            [&](const object_by_clusters& clusters) { return find_clusters(volume, clusters, known); },
        },
        asked);
    if (found) {
        log_stream(*found->content, messages);
        if (known != nullptr) {
            known->stream = facts_of(*found->content);
        }
    }
    return found;
}

std::vector<std::u16string> directories_of(const exact_volume& volume, const found_object& found,
                                           notices& told) {
    if (found.directories || found.set == nullptr) {
        return found.directories.value_or(std::vector<std::u16string>());
    }
    const entry_path path = path_upwards(volume.table(), *found.set, told);
    std::vector<std::u16string> names = above(path.names);
    if (path.lost) {
        names.insert(names.begin(), lost_directories);
    }
    return names;
}

result<std::optional<stored_times>> times_of(const attribute_set& set) {
    return set.only_value(attr_standard_information).map([](const std::optional<byte_view>& value) {
        if (!value) {
            return std::optional<stored_times>();
        }
        const standard_information_value information(*value);
        return std::optional<stored_times>({information.modified(), information.accessed()});
    });
}

}  // namespace quarry::exact
