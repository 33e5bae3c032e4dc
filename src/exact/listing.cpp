#include "exact/listing.h"

#include "exact/entry_path.h"
#include "exact/file_names.h"
#include "exact/index_budget.h"
#include "exact/index_walk.h"
#include "exact/list_budget.h"
#include "exact/name_text.h"
#include "exact/number_set.h"
#include "exact/record_ahead.h"
#include "exact/volume_path.h"
#include "volume/attribute_values.h"
#include "volume/well_known.h"

#include <algorithm>
#include <utility>

namespace quarry::exact {

namespace {

// Directories above the one that is listed that are kept open, so that most need not be read twice.
constexpr std::size_t most_kept_open = 16;
// Records of a directory that is kept open; one with more, in thousands of fragments, is read again.
constexpr std::size_t most_records_kept = 256;
// Units of the longest path that the system knows.
constexpr std::size_t longest_path = 32767;
// Directories that are gone through for the paths of deleted files: so many for each record of the table, and
// so many in any case. Most files lie less deep, and neighbours in the table share their directories. The
// deepest directories of a prepared volume have 16,383 above them, each.
constexpr std::uint64_t steps_for_a_record = 64;
constexpr std::uint64_t steps_in_any_case = 0x10000;
// Records that are read ahead of the one that is needed.
constexpr std::size_t most_read_ahead = 64;

// The attributes of a file, for what its attribute list may still cost. A listing ends when `budget` is
// spent.
result<attribute_set> read_attributes(const mft& table, record base, list_budget& budget, notices& told) {
    const auto list = find_attribute_list(base);
    if (!list || *list == nullptr) {
        return attribute_set::of(table, std::move(base), told);
    }
    const std::string where = base.place().where;
    const std::uint64_t list_bytes =
        std::min(longest_attribute_list,
                 (*list)->non_resident() ? (*list)->real_size() : std::uint64_t{(*list)->value().size()});
    budget.take(list_bytes, where);
    if (budget.spent()) {
        return tl::make_unexpected(*budget.spent());
    }
    auto file = attribute_set::of(table, std::move(base), told);
    // What was read of a file that failed is not known: as many records as its list has room to name.
    const std::uint64_t records = file ? file->records() - 1 : list_bytes / smallest_list_entry;
    budget.take(records * table.volume().shape().record_size, where);
    return file;
}

class tree_listing {
  public:
    tree_listing(exact_volume& volume, bool recurse, const listing_outputs& outputs, notices& told)
        : m_volume(volume),
          m_recurse(recurse),
          m_outputs(outputs),
          m_told(told),
          m_records(volume.table()),
          m_budget(volume.source().bytes().content_size()),
          m_lists(volume.source().bytes().content_size()) {}

    [[nodiscard]] result<void> run(walked_path start) {
        const listed_file file = read_listed_file(m_volume, start.file, m_outputs);
        const std::vector<std::u16string>& names = start.names;
        if (!file.has_children) {
            return write_file_lines(file, shown_path(names), m_outputs);
        }
        m_path = names.empty() ? "" : shown_path(names);
        for (const std::u16string& name : names) {
            m_units += 1 + name.size();
        }
        if (auto written = write_stream_lines(file, m_path.empty() ? "/" : m_path, m_outputs); !written) {
            return written;
        }
        enter(std::move(start.file), m_path.size(), m_units);
        // Ends because each turn takes a name of a directory, or leaves one for good.
        while (!m_open.empty()) {
            const index_key* const key = m_open.back().names.next(m_outputs.damage, m_told);
            if (m_budget.spent()) {
                return tl::make_unexpected(*m_budget.spent());
            }
            if (m_lists.spent()) {
                return tl::make_unexpected(*m_lists.spent());
            }
            if (key == nullptr) {
                leave();
            } else if (auto listed = list_key(*key); !listed) {
                return listed;
            }
        }
        return {};
    }

  private:
    struct open_directory {
        index_walk names;
        // Of the path of the directory above: what to go back to.
        std::size_t path_bytes;
        std::size_t path_units;
        // Of the sets in which the walks above note their blocks.
        std::size_t pages_above;
    };

    // A short name has no line of its own, unless the file has no other.
    [[nodiscard]] bool is_passed_over(const index_key& key) {
        if (key.name_space != dos_name_space) {
            return false;
        }
        // What is wrong with the record is said where its long name is, which has a key of its own.
        notices of_record;
        auto found = m_records.read_in_use(key.file, of_record);
        if (!found || has_long_name(found->attributes())) {
            return true;
        }
        const auto file = read_attributes(m_volume.table(), std::move(*found), m_lists, of_record);
        const std::vector<file_name> names = file ? names_of_file(*file) : std::vector<file_name>();
        return names.empty() || !std::all_of(names.begin(), names.end(),
                                             [](const file_name& each) { return each.is_short(); });
    }

    // Most files have their names in the base record.
    [[nodiscard]] static bool has_long_name(const std::vector<attribute>& attributes) {
        return std::any_of(attributes.begin(), attributes.end(), [](const attribute& each) {
            return each.type() == attr_file_name && !each.non_resident() &&
                   file_name_value(each.value()).name_space() != dos_name_space;
        });
    }

    [[nodiscard]] result<void> list_key(const index_key& key) {
        const attribute_set& directory = m_open.back().names.directory();
        const bool is_root_itself = key.file.entry == root_directory &&
                                    directory.base().entry() == root_directory && key.name == u".";
        if (is_root_itself) {
            return {};
        }
        read_ahead(key.file.entry);
        if (is_passed_over(key)) {
            return {};
        }
        const std::size_t path_bytes = m_path.size();
        const std::size_t path_units = m_units;
        m_path += "/" + shown_name(key.name);
        m_units += 1 + key.name.size();
        auto file = m_records.read_in_use(key.file, m_told).and_then([&](record found) {
            return read_attributes(m_volume.table(), std::move(found), m_lists, m_told);
        });
        if (m_lists.spent()) {
            return tl::make_unexpected(*m_lists.spent());
        }
        bool entered = false;
        result<void> written;
        if (!file) {
            tell_lost(file.error());
        } else {
            const auto agrees = expect_name(*file, directory.base().self(), key.name, m_told);
            if (!agrees) {
                m_outputs.damage(agrees.error());
            }
            const listed_file listed = read_listed_file(m_volume, *file, m_outputs);
            written = write_file_lines(listed, m_path, m_outputs);
            // A directory that is no child of this one is listed where it belongs.
            entered = written && m_recurse && listed.has_children && agrees &&
                      enter(std::move(*file), path_bytes, path_units);
        }
        if (!entered) {
            m_path.resize(path_bytes);
            m_units = path_units;
        }
        return written;
    }

    // There is no line for the file, so the message names it.
    void tell_lost(const failure& lost) {
        m_outputs.damage({lost.code, where::path(m_path), lost.where + ": " + lost.why, lost.source_byte});
    }

    // The records of the names that follow in the node, while they are not held.
    void read_ahead(std::uint64_t entry) {
        if (m_records.holds(entry)) {
            return;
        }
        std::vector<std::uint64_t> entries;
        const std::size_t most = std::min(most_read_ahead, m_records.room());
        m_open.back().names.for_each_at_hand([&](const index_key& key) {
            if (entries.size() < most) {
                entries.push_back(key.file.entry);
            }
        });
        m_records.fetch(std::move(entries));
    }

    // Begins with the names of a directory, whose path is m_path. False if it is not entered.
    bool enter(attribute_set directory, std::size_t path_bytes, std::size_t path_units) {
        const auto refused = [&](failure_code code, std::string why) {
            m_outputs.damage({code, where::path(m_path), std::move(why), std::nullopt});
            return false;
        };
        if (m_units > longest_path) {
            return refused(failure_code::name, "the path has " + std::to_string(m_units) +
                                                   " units, more than the system knows; what is in the "
                                                   "directory is not listed");
        }
        switch (m_entered.add(directory.base().entry())) {
            case number_set::answer::added:
                break;
            case number_set::answer::known:
                return refused(failure_code::index, "directory " + directory.base().self().text() +
                                                        " was listed before under another path");
            case number_set::answer::full:
                return refused(failure_code::memory,
                               "too many directories; what is in this one is not listed");
        }
        const std::size_t pages_above =
            m_open.empty() ? 0 : m_open.back().pages_above + m_open.back().names.met_pages();
        auto names = index_walk::begin(m_volume, std::move(directory), m_budget, m_outputs.damage, m_told,
                                       number_set::default_pages - pages_above);
        if (!names) {
            tell_lost(names.error());
            return false;
        }
        let_rest();
        m_open.push_back({std::move(*names), path_bytes, path_units, pages_above});
        return true;
    }

    // A directory with many extension records is large, and many open directories are.
    void let_rest() {
        if (!m_open.empty() && m_open.back().names.directory().records() > most_records_kept) {
            m_open.back().names.rest();
        }
        if (m_open.size() >= most_kept_open) {
            m_open[m_open.size() - most_kept_open].names.rest();
        }
    }

    void leave() {
        m_path.resize(m_open.back().path_bytes);
        m_units = m_open.back().path_units;
        m_open.pop_back();
        if (m_open.empty() || !m_open.back().names.rests()) {
            return;
        }
        if (auto awake = m_open.back().names.wake(m_told); !awake && !m_budget.spent()) {
            tell_lost(awake.error());
        }
    }

    exact_volume& m_volume;
    bool m_recurse;
    const listing_outputs& m_outputs;
    notices& m_told;
    record_ahead m_records;
    index_budget m_budget;
    list_budget m_lists;
    number_set m_entered;                // directories, by entry
    std::vector<open_directory> m_open;  // from the one where the listing began
    std::string m_path;                  // of the last of them; empty for the root
    std::size_t m_units = 0;             // its length as the system counts it
};

class deleted_listing {
  public:
    deleted_listing(exact_volume& volume, const listing_outputs& outputs, notices& told)
        : m_volume(volume),
          m_outputs(outputs),
          m_told(told),
          m_records(volume.table()),
          m_lists(volume.source().bytes().content_size()),
          m_steps_left(volume.table().entries() * steps_for_a_record + steps_in_any_case) {}

    [[nodiscard]] result<void> run() {
        // Ends with the table; what the table has no clusters for is passed over at once.
        for (std::uint64_t entry = mft::mirrored_entries; entry < m_volume.table().entries();) {
            if (const std::uint64_t stored = next_stored(entry); stored != entry) {
                entry = stored;
                continue;
            }
            hold(entry);
            if (auto listed = look_at(entry); !listed) {
                return listed;
            }
            ++entry;
        }
        return {};
    }

  private:
    // The entry itself if it is stored on the disk, else the first one after it that may be.
    [[nodiscard]] std::uint64_t next_stored(std::uint64_t entry) const {
        const stored_stream& table = m_volume.table().table();
        const std::uint64_t record_size = m_volume.shape().record_size;
        const std::uint64_t cluster_size = m_volume.shape().cluster_size;
        if (entry * record_size >= table.valid_size()) {
            return m_volume.table().entries();
        }
        const auto* const held = table.runs().find(entry * record_size / cluster_size);
        if (held == nullptr || !held->is_hole()) {
            return entry;
        }
        const std::uint64_t end = (held->vcn + held->length) * cluster_size;
        return std::max(entry + 1, end / record_size);
    }

    void hold(std::uint64_t entry) {
        if (entry < m_tried_to) {
            return;
        }
        const std::uint64_t count = std::max<std::uint64_t>(1, m_records.room() / 2);
        m_tried_to = std::min(entry + count, m_volume.table().entries());
        std::vector<std::uint64_t> entries;
        for (std::uint64_t each = entry; each < m_tried_to; ++each) {
            entries.push_back(each);
        }
        m_records.fetch(std::move(entries));
    }

    [[nodiscard]] result<void> look_at(std::uint64_t entry) {
        if (!m_records.holds(entry)) {
            // Part of what was read at once cannot be read. This record perhaps can.
            m_records.fetch({entry});
        }
        const auto stored = m_records.stored(entry);
        const file_record head(stored.value_or(byte_view()));
        // A record in use is no deleted one, and what was never written is no damaged one.
        if (stored && (head.is_file() ? head.in_use() : stored->u32_or_zero(0) == 0)) {
            return {};
        }
        auto base = m_records.read(entry, m_told);
        if (!base) {
            m_outputs.damage(base.error());
            return {};
        }
        if (base->in_use() || base->base() || base->attributes().empty()) {
            return {};
        }
        const auto file = read_attributes(m_volume.table(), std::move(*base), m_lists, m_told);
        if (m_lists.spent()) {
            return tl::make_unexpected(*m_lists.spent());
        }
        if (!file) {
            m_outputs.damage(file.error());
            return {};
        }
        return list_file(*file);
    }

    [[nodiscard]] result<void> list_file(const attribute_set& file) {
        const listed_file listed = read_listed_file(m_volume, file, m_outputs);
        std::vector<file_name> names = names_of_file(file);
        if (names.empty()) {
            return write_file_lines(listed, "/?/" + listed.entry, m_outputs);
        }
        if (!std::all_of(names.begin(), names.end(), [](const file_name& each) { return each.is_short(); })) {
            std::erase_if(names, [](const file_name& each) { return each.is_short(); });
        }
        for (const file_name& each : names) {
            const std::string path = directory_of(each) + "/" + shown_name(each.name);
            if (auto written = write_file_lines(listed, path, m_outputs); !written) {
                return written;
            }
        }
        return {};
    }

    // The path of the directory of a name. Neighbours in the table are often neighbours in a directory.
    [[nodiscard]] const std::string& directory_of(const file_name& name) {
        if (m_last_parent && *m_last_parent == name.parent) {
            return m_last_directory;
        }
        m_last_parent = name.parent;
        m_last_directory = "/?";
        if (m_steps_left == 0) {
            return m_last_directory;
        }
        const entry_path path = path_upwards(m_volume.table(), name, true, m_told);
        take_steps(path.names.size(), name.parent);
        std::size_t units = 0;
        m_last_directory = path.lost ? "/?" : "";
        for (auto each = path.names.begin(); each + 1 != path.names.end(); ++each) {
            units += 1 + each->size();
            m_last_directory += "/" + shown_name(*each);
        }
        if (units > longest_path) {
            m_last_directory = "/?";
        }
        return m_last_directory;
    }

    void take_steps(std::uint64_t steps, const reference& directory) {
        m_steps_left -= std::min(steps, m_steps_left);
        if (m_steps_left == 0) {
            m_outputs.damage({failure_code::name, where::record(directory.entry),
                              "the directories lie deeper than those of any sound volume; from here on the "
                              "paths of deleted files are not looked for",
                              std::nullopt});
        }
    }

    exact_volume& m_volume;
    const listing_outputs& m_outputs;
    notices& m_told;
    record_ahead m_records;
    list_budget m_lists;
    std::uint64_t m_steps_left;    // from a directory to the one above
    std::uint64_t m_tried_to = 0;  // entries before this one were fetched, if they can be
    std::optional<reference> m_last_parent;
    std::string m_last_directory;
};

}  // namespace

result<void> list_path(exact_volume& volume, walked_path start, bool recurse, const listing_outputs& outputs,
                       notices& told) {
    return tree_listing(volume, recurse, outputs, told).run(std::move(start));
}

result<void> list_deleted(exact_volume& volume, const listing_outputs& outputs, notices& told) {
    return deleted_listing(volume, outputs, told).run();
}

}  // namespace quarry::exact
