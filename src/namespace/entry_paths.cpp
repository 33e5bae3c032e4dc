#include "namespace/entry_paths.h"

#include "foundation/ql_string.h"
#include "namespace/file_names.h"

#include <cstddef>
#include <map>
#include <set>

namespace quarry {

namespace {

constexpr std::uint64_t root_directory = 5;
// A path that programs can name has at most 32,767 characters, so at most half as many elements.
constexpr std::size_t most_elements = 16384;
// What one call may try and give. A file has at most some tens of thousands of links; directories with
// several names each, which no file system makes, would multiply without end.
constexpr std::size_t most_levels_entered = 1000000;
constexpr std::size_t most_characters = 4000000;
// What the names of all entries on all ways may take in memory. NTFS gives a file at most 1,024 names.
constexpr std::size_t most_bytes_of_names = std::size_t{16} << 20;
constexpr std::size_t bytes_of_entry = 128;

// A walk from an entry up to the root, along each of its names and each name of its parents.
class upward_walk {
  public:
    upward_walk(CNtfs& ntfs, std::vector<std::wstring> components, std::vector<std::wstring>& results)
        : m_ntfs(ntfs),
          m_listed_reads(ntfs),
          m_record_reads(ntfs),
          m_components(std::move(components)),
          m_results(results) {}

    // False if the entry has no names.
    [[nodiscard]] bool run(std::uint64_t entry) {
        if (!enter(entry)) {
            return false;
        }
        // Ends because each level has finitely many names, no directory stands on two levels at once, and the
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
        if (m_levels.size() >= most_elements || m_levels_entered >= most_levels_entered ||
            m_characters >= most_characters || m_bytes_of_names >= most_bytes_of_names ||
            m_record_reads.bytes_left == 0 || m_entries_on_the_way.count(entry) != 0) {
            return false;
        }
        const file_name_list& names = names_of(entry);
        if (names.empty()) {
            return false;
        }
        ++m_levels_entered;
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
            m_bytes_of_names += bytes_of_entry;
            for (const file_name& each : known->second) {
                m_bytes_of_names += sizeof(each) + each.name.size() * sizeof(wchar_t);
            }
        }
        return known->second;
    }

    void follow_next_name() {
        level& top = m_levels.back();
        const file_name& name = (*top.names)[top.next++];
        m_components.resize(top.components_below);
        // Deliberate: one would expect only the entry itself to be named by the component given for it. As
        // long as that component stands alone it stands for any name that equals it, so a directory that
        // bears the name of the file in it shows once.
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
        m_characters += path.size();
        if (m_characters <= most_characters) {
            m_results.push_back(std::move(path));
        }
    }

    CNtfs& m_ntfs;
    // For all entries on the way together.
    read_budget m_listed_reads;
    read_budget m_record_reads;
    std::vector<std::wstring> m_components;
    std::vector<std::wstring>& m_results;
    std::vector<level> m_levels;
    std::set<std::uint64_t> m_entries_on_the_way;
    std::map<std::uint64_t, file_name_list> m_names;
    std::size_t m_levels_entered = 0;
    std::size_t m_characters = 0;
    std::size_t m_bytes_of_names = 0;
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
