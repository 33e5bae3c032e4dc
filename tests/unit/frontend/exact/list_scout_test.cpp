#include "frontend/exact/list_scout.h"

#include "support/opened_exact_volume.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

constexpr std::uint64_t files = 60;

// Files "f00", "f01" and so on, from entry 24 on; each has a cluster of its own: 300, 302, ...
class scouted_list {
  public:
    explicit scouted_list(std::string list)
        : m_opened(image()),
          m_lines([text = std::move(list), at = std::size_t{0}](std::span<char> buffer) mutable {
              const std::size_t count = std::min(buffer.size(), text.size() - at);
              std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), count, buffer.begin());
              at += count;
              return static_cast<std::ptrdiff_t>(count);
          }),
          m_scout((static_cast<void>(m_opened.volume()), m_opened.source()), m_opened.volume(), m_options) {
        EXPECT_TRUE(m_lines.begin().has_value());
    }
    [[nodiscard]] memory_source& source() { return m_opened.source(); }
    // The scout's work ahead of the next line.
    void next_line() {
        const auto line = m_lines.next().value();
        m_scout.look_ahead(line->number, m_lines);
    }
    [[nodiscard]] bool announced_cluster_of(std::uint64_t file) {
        const auto& all = source().announced();
        return std::any_of(all.begin(), all.end(),
                           [&](const auto& each) { return each.first == (300 + 2 * file) * 4096; });
    }

  private:
    static bytes image() {
        volume_builder volume({.mft_entries = 128, .system_files = true});
        for (std::uint64_t i = 0; i < files; ++i) {
            volume.add_file(name(i)).data(bytes(4096, 7), {{static_cast<std::int64_t>(300 + 2 * i), 1}});
        }
        return volume.image();
    }

  public:
    static std::string name(std::uint64_t file) { return (file < 10 ? "f0" : "f") + std::to_string(file); }

  private:
    opened_exact_volume m_opened;
    exact_options m_options;
    list_lines m_lines;
    list_scout m_scout;
};

std::string paths() {
    std::string list;
    for (std::uint64_t i = 0; i < files; ++i) {
        list += "/" + scouted_list::name(i) + "\n";
    }
    return list;
}

std::string entries() {
    std::string list;
    for (std::uint64_t i = 0; i < files; ++i) {
        list += std::to_string(24 + i) + "-1\n";
    }
    return list;
}

}  // namespace

TEST(list_scout, has_the_clusters_of_coming_lines_announced_and_never_reads_the_source) {
    for (const std::string& list : {paths(), entries()}) {
        scouted_list scouted(list);
        scouted.source().evict();
        const std::size_t reads = scouted.source().reads();
        // What the volume needs is fetched first, then a block of the index, then records.
        for (int line = 0; line < 40; ++line) {
            scouted.next_line();
        }
        for (std::uint64_t file = 40; file < 50; ++file) {
            EXPECT_TRUE(scouted.announced_cluster_of(file)) << list.substr(0, 8) << file;
        }
        EXPECT_EQ(scouted.source().reads(), reads);
    }
}

TEST(list_scout, looks_no_further_than_32_lines_ahead) {
    scouted_list scouted(entries());
    scouted.source().evict();
    for (int line = 0; line < 20; ++line) {
        scouted.next_line();
    }
    // Line 20 is file 19.
    EXPECT_FALSE(scouted.announced_cluster_of(19 + 33));
}

TEST(list_scout, announces_nothing_where_all_is_in_memory) {
    scouted_list scouted(paths());
    for (int line = 0; line < 60; ++line) {
        scouted.next_line();
    }
    EXPECT_TRUE(scouted.source().announced().empty());
}

TEST(list_scout, passes_over_lines_that_are_no_orders_or_name_nothing) {
    scouted_list scouted("/f00\n/none\n\xFF\n9999\n/f01/f02\n" + entries());
    scouted.source().evict();
    for (int line = 0; line < 40; ++line) {
        scouted.next_line();
    }
    EXPECT_TRUE(scouted.announced_cluster_of(40));
}

}  // namespace quarry::test
