#include "exact/entry_path.h"

#include "volume/well_known.h"

#include <algorithm>
#include <set>
#include <utility>

namespace quarry::exact {

namespace {

// A path of the system has room for so many UTF-16 units, with a separator before each name.
constexpr std::size_t most_units = 32767;

// The name of a directory in the next one above.
result<file_name> name_of_directory(const mft& table, reference directory, bool of_deleted, notices& told) {
    auto found = table.read_parent(directory, of_deleted, told).and_then([&](record base) {
        return attribute_set::of(table, std::move(base), told);
    });
    if (!found) {
        return passed_on(found);
    }
    const std::vector<file_name> names = names_of_file(*found);
    const file_name* const shown = name_to_show(names);
    if (shown == nullptr) {
        return fail(failure_code::name, where::record(directory.entry), "has no name");
    }
    return *shown;
}

// The root ends every path, if the reference to it is good.
result<void> expect_root(const mft& table, reference root, notices& told) {
    return table.read_parent(root, false, told).map([](const record&) {});
}

}  // namespace

entry_path path_upwards(const mft& table, const file_name& name, bool deleted, notices& told) {
    entry_path path;
    path.names.push_back(name.name);
    std::set<std::uint64_t> met;
    reference directory = name.parent;
    std::size_t units = name.name.size() + 1;
    while (directory.entry != root_directory) {
        if (units > most_units || !met.insert(directory.entry).second) {
            path.lost = failure{failure_code::name, where::record(directory.entry),
                                "its directories lead in a circle or on without an end", std::nullopt};
            break;
        }
        auto above = name_of_directory(table, directory, deleted, told);
        if (!above) {
            path.lost = std::move(above.error());
            break;
        }
        units += above->name.size() + 1;
        path.names.push_back(std::move(above->name));
        directory = above->parent;
    }
    if (!path.lost) {
        if (auto root = expect_root(table, directory, told); !root) {
            path.lost = std::move(root.error());
        }
    }
    std::reverse(path.names.begin(), path.names.end());
    return path;
}

entry_path path_upwards(const mft& table, const attribute_set& file, notices& told) {
    if (file.base().entry() == root_directory) {
        return {};
    }
    const std::vector<file_name> names = names_of_file(file);
    const file_name* const shown = name_to_show(names);
    if (shown == nullptr) {
        return {{},
                failure{failure_code::name, where::record(file.base().entry()), "has no name", std::nullopt}};
    }
    return path_upwards(table, *shown, !file.base().in_use(), told);
}

}  // namespace quarry::exact
