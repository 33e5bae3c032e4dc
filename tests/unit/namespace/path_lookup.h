// Lookups of paths on a volume of a test, and what each of them gave.
#pragma once

#include "namespace/path_resolution.h"
#include "support/capturing_log.h"
#include "support/opened_volume.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

using lines = std::vector<std::string>;

struct lookup {
    bool found = false;
    std::uint64_t entry = 1;
    std::uint64_t parent = 1;
    std::wstring canonical = L"stale";
    std::wstring path;
    lines log;
};

inline lookup resolve(CNtfs* ntfs, const wchar_t* path, bool follow_links = true) {
    lookup result;
    capturing_log log;
    result.path = path;
    result.found =
        resolve_path(result.entry, result.parent, result.canonical, ntfs, result.path, follow_links, log);
    result.log = log.lines;
    return result;
}

inline constexpr std::uint64_t none = ~std::uint64_t{0};

// Lets the cache know of the root directory that it has only these children.
inline void know(CNtfs& ntfs, const std::vector<child_name_table::named_child>& children) {
    auto content = std::make_unique<directory_content>();
    for (const auto& [name, child] : children) {
        content->m_children.insert(child);
        content->m_child_names.add(name, child);
    }
    content->m_child_names.put_in_order();
    ntfs.m_path_cache.set_limits(budget::unlimited, budget::unlimited);
    ntfs.m_path_cache.keep(ntfs.m_path_cache.add(5, 5, false), std::move(content));
}

// The root directory lists itself (5), $MFT (0) and $Bitmap (6) beside what a test adds from entry 24 on.
class path_resolution_test : public ::testing::Test {
  protected:
    // The volume as it is at the first lookup of a test.
    [[nodiscard]] CNtfs& ntfs() {
        if (!m_opened) {
            m_opened = std::make_unique<opened_volume>(m_volume);
        }
        return m_opened->ntfs();
    }
    [[nodiscard]] lookup find(const wchar_t* path, bool follow_links = true) {
        return resolve(&ntfs(), path, follow_links);
    }
    [[nodiscard]] std::uint64_t entry_of(const wchar_t* path) {
        const lookup result = find(path);
        return result.found ? result.entry : 0;
    }

    volume_builder m_volume;
    std::unique_ptr<opened_volume> m_opened;
};

}  // namespace quarry::test
