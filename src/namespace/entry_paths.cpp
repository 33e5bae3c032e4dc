#include "namespace/entry_paths.h"

#include "foundation/ql_string.h"
#include "namespace/file_names.h"
#include "volume/well_known.h"

#include <cstddef>
#include <map>
#include <set>

namespace quarry {

namespace {

constexpr std::uint64_t bytes_of_entry = 128;

// A walk from an entry up to the root, along each of its names and each name of its parents.
class upward_walk {
  public:
    upward_walk(CNtfs& ntfs, std::vector<std::wstring> components, std::vector<std::wstring>& results)
        : m_ntfs(ntfs),
          m_listed_reads(limits::lookup_bytes(ntfs.source_size())),
          m_record_reads(limits::lookup_bytes(ntfs.source_size())),
          m_components(std::move(components)),
          m_results(results) {}

    // False if the entry has no names.
    [[nodiscard]] bool run(std::uint64_t entry) {
        if (!enter(entry)) {
            return false;
        }
        // Ends because each level has finitely many names, no directory is on two levels at once, and the
        // number of levels entered is bounded.
        while (!m_levels.empty()) {
            if (m_levels.back().next == m_levels.back().names->size()) {
                m_entries_on_the_way.erase(m_levels.back().entry);
                m_levels.pop_back();
            } else {
                follow_next_name();
            }
        }
        return true;
    }

  private:
    struct level {
        std::uint64_t entry = 0;
        const file_name_list* names = nullptr;
        std::size_t next = 0;
        std::size_t components_below = 0;
    };

    // Goes up to an entry. False if its path ends here: it has no names, or the walk came through it already.
    [[nodiscard]] bool enter(std::uint64_t entry) {
        if (m_levels.size() >= limits::path_elements || m_levels_entered.spent() || m_characters.spent() ||
            m_name_memory.spent() || m_record_reads.spent() || m_entries_on_the_way.count(entry) != 0) {
            return false;
        }
        const file_name_list& names = names_of(entry);
        if (names.empty()) {
            return false;
        }
        m_levels_entered.take(1);
        m_entries_on_the_way.insert(entry);
        m_levels.push_back({entry, &names, 0, m_components.size()});
        return true;
    }

    // Each record is read once, however many ways lead through it.
    [[nodiscard]] const file_name_list& names_of(std::uint64_t entry) {
        const auto [known, is_new] = m_names.try_emplace(entry);
        if (is_new) {
            std::vector<std::uint8_t> record;
            std::uint64_t position = 0;
            std::uint64_t length = 0;
            if (m_ntfs.read_record(entry, record, position, length)) {
                // A record without names leaves the list empty.
                static_cast<void>(
                    get_file_names(known->second, m_ntfs, entry, record, false, any_parent, m_listed_reads));
            }
            m_record_reads.take(record.size());
            m_name_memory.take(bytes_of_entry);
            for (const file_name& each : known->second) {
                m_name_memory.take(sizeof(each) + each.name.size() * sizeof(wchar_t));
            }
        }
        return known->second;
    }

    void follow_next_name() {
        level& top = m_levels.back();
        const file_name& name = (*top.names)[top.next++];
        m_components.resize(top.components_below);
        // Deliberate: as long as the given component is the only one, any name that equals it adds nothing,
        // not only the entry's own. The user sees a directory that has the name of the file in it once.
        if (m_components.size() != 1 || m_components[0] != name.name) {
            m_components.push_back(name.name);
        }
        if (name.parent == root_directory) {
            add_path();
        } else {
            // A parent that cannot be entered gives no path.
            static_cast<void>(enter(name.parent));
        }
    }

    void add_path() {
        std::wstring path;
        for (auto element = m_components.rbegin(); element != m_components.rend(); ++element) {
            if (*element != L".") {
                path += *element + L'\\';
            }
        }
        if (m_characters.take(path.size()) == path.size()) {
            m_results.push_back(std::move(path));
        }
    }

    CNtfs& m_ntfs;
    // For all entries on the way together.
    budget m_listed_reads;
    budget m_record_reads;
    std::vector<std::wstring> m_components;
    std::vector<std::wstring>& m_results;
    std::vector<level> m_levels;
    std::set<std::uint64_t> m_entries_on_the_way;
    std::map<std::uint64_t, file_name_list> m_names;
    budget m_levels_entered{limits::path_levels_entered};
    budget m_characters{limits::path_characters};
    budget m_name_memory{limits::path_name_memory};
};

}  // namespace

bool paths_of_entry(CNtfs& ntfs, std::uint64_t entry, const std::vector<std::wstring>& components,
                    std::vector<std::wstring>& results) {
    return upward_walk(ntfs, components, results).run(entry);
}

bool narrow_paths_of_entry(CNtfs& ntfs, std::uint64_t entry, const std::string& leaf_name,
                           std::vector<std::string>& paths) {
    paths.clear();
    std::vector<std::wstring> components;
    std::vector<std::wstring> found;
    return widen_all(components, {leaf_name.empty() ? "." : leaf_name}) &&
           paths_of_entry(ntfs, entry, components, found) && narrow_all(paths, found);
}

}  // namespace quarry
