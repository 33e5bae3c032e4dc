#include "exact/path_walk.h"

#include "exact/file_names.h"
#include "exact/index_lookup.h"
#include "exact/name_text.h"
#include "exact/reparse.h"
#include "exact/volume_path.h"
#include "exact/warm_directories.h"
#include "volume/attribute_values.h"
#include "volume/well_known.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>

namespace quarry::exact {

namespace {

constexpr unsigned most_links = 64;
// More names than a path of the system has room for. The targets of links that follow each other could ask
// for hundreds of thousands.
constexpr std::size_t most_names = 16384;
// A reparse point has 16 KiB of data at most.
constexpr std::uint64_t largest_reparse_value = 8 + 16 + 16384;

bool same_ascii_letters(std::u16string_view a, std::u16string_view b) {
    const auto upper = [](char16_t unit) {
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - 0x20) : unit;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char16_t one, char16_t other) { return upper(one) == upper(other); });
}

result<attribute_set> attributes_of(const exact_volume& volume, reference file, notices& told) {
    return volume.table().read_in_use(file, told).and_then([&](record found) {
        return attribute_set::of(volume.table(), std::move(found), told);
    });
}

// The name that belongs to a key: a short one belongs to the Win32 name in the same directory, not to a hard
// link there, which is a POSIX name. Where there is no Win32 name, any long one there serves.
std::u16string long_name_of(const attribute_set& file, const index_key& key) {
    if (key.name_space != dos_name_space) {
        return key.name;
    }
    const std::vector<file_name> names = names_of_file(file);
    const auto long_one_of = [&](std::uint8_t name_space) {
        return std::find_if(names.begin(), names.end(), [&](const file_name& each) {
            return each.name_space == name_space && each.parent.entry == key.parent.entry;
        });
    };
    for (const std::uint8_t name_space : {win32_name_space, posix_name_space, win32_and_dos_name_space}) {
        if (const auto found = long_one_of(name_space); found != names.end()) {
            return found->name;
        }
    }
    return key.name;
}

class walk {
  public:
    walk(exact_volume& volume, const std::vector<std::u16string>& names, const walk_options& options,
         notices& told)
        : m_volume(volume),
          m_options(options),
          m_told(told),
          m_kept(options.directories == nullptr ? m_own : *options.directories),
          m_left(names.begin(), names.end()),
          m_names_asked(names.size()) {}

    [[nodiscard]] result<walked_path> run() {
        if (auto begun = go_to_end_of_way(); !begun) {
            return passed_on(begun);
        }
        while (!m_left.empty()) {
            const std::u16string name = std::move(m_left.front());
            m_left.pop_front();
            if (auto stepped = step(name); !stepped) {
                return passed_on(stepped);
            }
        }
        // A directory that is kept for other walks is read for this one.
        if (m_reached.use_count() > 1) {
            if (auto reached = read_end_of_way(m_told); !reached) {
                return passed_on(reached);
            }
        }
        return walked_path{std::move(m_reached->attributes), names_of_way(), std::move(m_links),
                           m_way.empty() ? std::nullopt : std::optional(m_way.back().key)};
    }

  private:
    [[nodiscard]] std::vector<std::u16string> names_of_way() const {
        std::vector<std::u16string> names;
        std::transform(m_way.begin(), m_way.end(), std::back_inserter(names),
                       [](const passed_name& passed) { return passed.name; });
        return names;
    }

    // The path to a name in the directory that was reached, in the words of a message. It is as long as the
    // way, so only a failure or a link asks for it.
    [[nodiscard]] std::string shown(std::u16string_view name) const {
        std::vector<std::u16string> names = names_of_way();
        if (!name.empty()) {
            names.emplace_back(name);
        }
        return shown_path(names);
    }

    // The directory that the way leads to is the one to look into.
    [[nodiscard]] result<void> go_to_end_of_way() {
        if (!m_way.empty()) {
            return read_end_of_way(m_told);
        }
        if (const warm_directories::root_directory* const root = m_kept.root()) {
            tell_again(root->told);
            m_reached = root->directory;
            return {};
        }
        notices told;
        auto read = read_end_of_way(told);
        tell_again(told);
        if (read) {
            m_kept.keep_root({m_reached, std::move(told)});
        }
        return read;
    }

    [[nodiscard]] result<void> read_end_of_way(notices& told) {
        auto directory = m_way.empty()
                             ? m_volume.table().read_system(root_directory, told).and_then([&](record found) {
                                   return attribute_set::of(m_volume.table(), std::move(found), told);
                               })
                             : attributes_of(m_volume, m_way.back().key.file, told);
        if (!directory) {
            return passed_on(directory);
        }
        m_reached = std::make_shared<reached_directory>(std::move(*directory));
        return {};
    }

    [[nodiscard]] result<void> step_up() {
        if (m_way.empty()) {
            return fail(failure_code::link, m_last_link,
                        "leads to " + m_links.back() + ", which is above the root");
        }
        m_way.pop_back();
        return go_to_end_of_way();
    }

    // One name from the directory that was reached on.
    [[nodiscard]] result<void> step(const std::u16string& name) {
        if (m_from_link && name == u".") {
            return {};
        }
        if (m_from_link && name == u"..") {
            return step_up();
        }
        const reference from = m_reached->attributes.base().self();
        const warm_directories::step* const known = m_left.empty() ? nullptr : m_kept.find(from, name);
        if (known != nullptr) {
            tell_again(known->told);
            m_options.tell(step_text(known->passed.key));
            m_way.push_back(known->passed);
            m_reached = known->directory;
            return {};
        }
        notices told;
        auto stepped = look_and_step(name, told);
        tell_again(told);
        // What is a link has gone elsewhere.
        if (stepped && *stepped && !m_left.empty() && is_plain_directory(m_reached->attributes)) {
            m_kept.keep(from, name, {m_way.back(), m_reached, std::move(told)});
        }
        return stepped.map([](bool) {});
    }

    void tell_again(const notices& told) {
        for (const notice& each : told.all()) {
            each.weight == notice::weight::doubt ? m_told.doubt(each.code, each.where, each.why)
                                                 : m_told.warn(each.code, each.where, each.why);
        }
    }

    [[nodiscard]] static std::string step_text(const index_key& key) {
        return "name \"" + shown_name(key.name) + "\" -> " + key.file.text();
    }

    [[nodiscard]] static bool is_plain_directory(const attribute_set& file) {
        return file.base().is_directory() && file.of_type(attr_reparse_point).empty();
    }

    // The index of the directory that was reached, opened once. It warns of what belongs to the volume alone.
    [[nodiscard]] result<const directory_index*> index_here() {
        if (!m_reached->index) {
            auto opened = directory_index::open(m_volume, m_reached->attributes, m_told);
            if (!opened) {
                return passed_on(opened);
            }
            m_reached->index = std::move(*opened);
        }
        return &*m_reached->index;
    }

    // Looks the name up and goes to its file. False if it is a link: its target is still to be walked.
    [[nodiscard]] result<bool> look_and_step(const std::u16string& name, notices& told) {
        const attribute_set& directory = m_reached->attributes;
        if (!directory.base().is_directory()) {
            return fail(failure_code::not_directory, where::path(shown({})), "is no directory");
        }
        const auto index = index_here();
        if (!index) {
            return passed_on(index);
        }
        auto key = look_up(**index, name, {}, told);
        if (!key) {
            // The lookup does not know the path.
            if (key.error().where == where::path({})) {
                key.error().where = where::path(shown(name));
            }
            return passed_on(key);
        }
        m_options.tell(step_text(*key));
        auto file = attributes_of(m_volume, key->file, told);
        if (!file) {
            return passed_on(file);
        }
        if (auto agrees = expect_name(*file, directory.base().self(), key->name, told); !agrees) {
            return passed_on(agrees);
        }
        if (!m_left.empty() || m_options.follow_last) {
            auto followed = follow(*file, key->name);
            if (!followed) {
                return passed_on(followed);
            }
            if (*followed) {
                return false;
            }
        }
        std::u16string long_name = long_name_of(*file, *key);
        m_way.push_back({std::move(*key), std::move(long_name)});
        m_reached = std::make_shared<reached_directory>(std::move(*file));
        return true;
    }

    // Goes on at the target if the file is a link. False if it is to be walked through or to be taken itself.
    [[nodiscard]] result<bool> follow(const attribute_set& file, const std::u16string& name) {
        const auto value = reparse_value_of(m_volume, file);
        if (!value) {
            return passed_on(value);
        }
        if (!*value) {
            return false;
        }
        const auto point = read_reparse_point(**value, where::record(file.base().entry()));
        if (!point) {
            return passed_on(point);
        }
        if (point->is_link()) {
            return go_to_target(*point, name);
        }
        return m_left.empty() ? result<bool>(false) : pass_through(*point, name);
    }

    [[nodiscard]] result<bool> pass_through(const reparse_point& point, const std::u16string& name) {
        if (!point.has_children_of_its_own()) {
            return fail(failure_code::tag, where::path(shown(name)),
                        "reparse tag " + tag_text(point.tag) + ": the names below are not in this directory");
        }
        m_options.tell("reparse tag " + tag_text(point.tag) + " of \"" + shown_name(name) +
                       "\" passed through");
        return false;
    }

    [[nodiscard]] result<bool> go_to_target(const reparse_point& link, const std::u16string& name) {
        const std::string place_text = where::path(shown(name));
        if (m_links.size() == most_links) {
            return fail(failure_code::link, place_text, "more than 64 links on the way");
        }
        auto target = read_link_target(link, place_text);
        if (!target) {
            return passed_on(target);
        }
        if (!target->relative) {
            const auto is_this_volume = [&](const std::u16string& known) {
                return same_ascii_letters(known, target->volume);
            };
            if (std::none_of(m_options.volume_names.begin(), m_options.volume_names.end(), is_this_volume)) {
                return fail(failure_code::link, place_text,
                            "leads to " + target->shown + "; say -letter " + shown_name(target->volume) +
                                " if that is this volume");
            }
        }
        m_names_asked += target->names.size();
        if (m_names_asked > most_names) {
            return fail(failure_code::link, place_text,
                        "more than " + std::to_string(most_names) + " names on the way");
        }
        m_options.tell("link " + target->shown);
        m_links.push_back(target->shown);
        m_last_link = place_text;
        if (!target->relative || target->from_root) {
            m_way.clear();
            if (auto begun = go_to_end_of_way(); !begun) {
                return passed_on(begun);
            }
        }
        m_left.insert(m_left.begin(), target->names.begin(), target->names.end());
        m_from_link = true;
        return true;
    }

    exact_volume& m_volume;
    const walk_options& m_options;
    notices& m_told;
    warm_directories m_own;
    warm_directories& m_kept;
    std::deque<std::u16string> m_left;
    std::size_t m_names_asked;  // by the path and by the links on it
    // The names from the root to where the walk is, and the file there.
    std::vector<passed_name> m_way;
    std::shared_ptr<reached_directory> m_reached;
    std::vector<std::string> m_links;
    std::string m_last_link;  // its path, in the words of a message
    // "." and ".." are names of directories only in links; a path that somebody typed has neither.
    bool m_from_link = false;
};

}  // namespace

result<walked_path> walk_path(exact_volume& volume, const std::vector<std::u16string>& names,
                              const walk_options& options, notices& told) {
    return walk(volume, names, options, told).run();
}

result<void> expect_name(const attribute_set& file, reference directory, std::u16string_view name,
                         notices& told) {
    bool without_sequence = false;
    for (const attribute_set::member* const member : file.of_type(attr_file_name)) {
        const file_name_value value(member->stored.bytes.value());
        const reference parent = reference::from(value.parent());
        if (member->stored.bytes.non_resident() || parent.entry != directory.entry ||
            units_of_bytes(value.name_bytes()) != name) {
            continue;
        }
        if (parent.sequence == directory.sequence) {
            return {};
        }
        without_sequence = without_sequence || parent.sequence == 0;
    }
    if (!without_sequence) {
        return fail(failure_code::index, where::record(file.base().entry()),
                    "has no $FILE_NAME \"" + shown_name(name) + "\" in directory " + directory.text());
    }
    told.warn("no-sequence", where::record(file.base().entry()),
              "its $FILE_NAME refers to directory " + std::to_string(directory.entry) +
                  " without a sequence number");
    return {};
}

namespace {

// A file without $REPARSE_POINT must not be one by its $STANDARD_INFORMATION either: one damaged bit in the
// type of an attribute would make a link a directory, and zeros of a file that the system compressed.
result<void> expect_no_reparse_flag(const attribute_set& file) {
    const auto value = file.only_value(attr_standard_information);
    const bool has_flag =
        value && *value &&
        (standard_information_value(**value).attributes() & file_attribute_reparse_point) != 0;
    if (has_flag) {
        return fail(failure_code::layout, where::record(file.base().entry()),
                    "has no $REPARSE_POINT, and $STANDARD_INFORMATION says that it has one");
    }
    return {};
}

}  // namespace

result<std::optional<std::vector<std::uint8_t>>> reparse_value_of(const exact_volume& volume,
                                                                  const attribute_set& file) {
    const std::vector<std::u16string> names = file.names(attr_reparse_point);
    if (names.empty()) {
        return expect_no_reparse_flag(file).map([] { return std::optional<std::vector<std::uint8_t>>(); });
    }
    // Passed over, it would make plain data of a file whose data is elsewhere.
    if (names.size() > 1 || !names.front().empty()) {
        return fail(failure_code::layout, where::record(file.base().entry()),
                    "has a $REPARSE_POINT with a name");
    }
    return file.stored(volume.shape(), attr_reparse_point, {})
        .and_then([&](const stored_stream& stored) {
            return stored.read_all(volume.bytes(), largest_reparse_value);
        })
        .map([](std::vector<std::uint8_t> value) { return std::optional(std::move(value)); });
}

}  // namespace quarry::exact
