#include "volume/path_cache.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using names = std::vector<child_name_table::named_child>;

child_name_table table_of(const names& children) {
    child_name_table table;
    for (const auto& [name, child] : children) {
        table.add(name, child);
    }
    table.put_in_order();
    return table;
}

TEST(child_name_table, finds_each_name) {
    const child_name_table table = table_of({{"b", 7}, {"a", 9}, {"", 3}});
    EXPECT_EQ(table.find("a"), 9u);
    EXPECT_EQ(table.find("b"), 7u);
    EXPECT_EQ(table.find(""), 3u);
}

TEST(child_name_table, finds_no_other_name) {
    const child_name_table table = table_of({{"b", 7}, {"d", 9}});
    for (const char* name : {"", "a", "B", "c", "bb", "e"}) {
        EXPECT_EQ(table.find(name), std::nullopt) << name;
    }
    EXPECT_EQ(child_name_table().find("a"), std::nullopt);
}

TEST(child_name_table, gives_a_name_to_the_child_with_the_lowest_number) {
    const child_name_table table = table_of({{"b", 9}, {"a", 8}, {"b", 7}, {"b", 8}});
    EXPECT_EQ(table.find("b"), 7u);
    EXPECT_EQ(table.names(), (names{{"a", 8}, {"b", 7}}));
}

TEST(child_name_table, holds_names_of_any_length_and_number) {
    names wanted;
    for (std::uint64_t i = 0; i < 3000; ++i) {
        wanted.emplace_back(std::string(i % 800, 'x') + std::to_string(10000 + i), i);
    }
    const child_name_table table = table_of(wanted);
    for (const auto& [name, child] : wanted) {
        ASSERT_EQ(table.find(name), child) << name;
    }
    EXPECT_EQ(table.names().size(), 3000u);
    EXPECT_EQ(table_of({{std::string(70000, 'y'), 1}}).find(std::string(65535, 'y')), 1u);
}

TEST(child_name_table, takes_little_more_memory_than_its_names) {
    EXPECT_TRUE(child_name_table().empty());
    EXPECT_EQ(child_name_table().memory(), 0u);
    EXPECT_EQ(table_of({{"a", 1}}).memory(), 16u + 256u);
    names many;
    std::uint64_t text = 0;
    for (std::uint64_t i = 0; i < 100000; ++i) {
        many.emplace_back("file " + std::to_string(i) + ".txt", i);
        text += many.back().first.size();
    }
    const std::uint64_t memory = table_of(many).memory();
    EXPECT_GE(memory, 16u * 100000 + text);
    EXPECT_LE(memory, 16u * 100000 + text + 0x11000);
}

TEST(child_name_table, compares_bytes_so_that_utf8_and_its_damage_are_found) {
    const child_name_table table = table_of({{"\xC3\x84", 1}, {"z", 2}, {"\xED\xA0\x80", 3}});
    EXPECT_EQ(table.find("\xC3\x84"), 1u);
    EXPECT_EQ(table.find("\xED\xA0\x80"), 3u);
    EXPECT_EQ(table.find("z"), 2u);
}

// Content of a directory that takes some 100,000 bytes.
std::unique_ptr<const directory_content> content_of(std::uint64_t child) {
    auto content = std::make_unique<directory_content>();
    for (std::uint64_t i = 0; i < 1000; ++i) {
        content->m_child_names.add(std::string(84, 'x') + std::to_string(1000 + i), child);
    }
    content->m_child_names.put_in_order();
    return content;
}

TEST(path_cache, keeps_all_directories_that_its_memory_holds) {
    path_cache cache;
    cache.set_limits(1'000'000, 0);
    for (std::uint64_t directory = 1; directory <= 5; ++directory) {
        cache.keep(cache.add(directory, 5, false), content_of(directory));
    }
    for (std::uint64_t directory = 1; directory <= 5; ++directory) {
        ASSERT_NE(cache.find(directory)->m_content, nullptr) << directory;
        EXPECT_TRUE(cache.find(directory)->m_entered);
    }
    EXPECT_GT(cache.memory(), 500'000u);
    EXPECT_LT(cache.memory(), 1'000'000u);
}

TEST(path_cache, drops_what_was_read_of_other_directories_and_remembers_that_it_was) {
    path_cache cache;
    cache.set_limits(250'000, 0);
    cache.add(9, 5, false);
    cache.add_without_children(77);
    for (std::uint64_t directory = 1; directory <= 7; ++directory) {
        cache.keep(cache.add(directory, 5, false), content_of(directory));
        EXPECT_LE(cache.memory(), 250'000u);
        EXPECT_NE(cache.find(directory)->m_content, nullptr);
    }
    EXPECT_EQ(cache.find(1)->m_content, nullptr);
    EXPECT_TRUE(cache.find(1)->m_entered);
    EXPECT_FALSE(cache.find(9)->m_entered);
    EXPECT_TRUE(cache.is_without_children(77));
}

TEST(path_cache, forgets_directories_when_even_their_numbers_fill_its_memory) {
    path_cache cache;
    cache.set_limits(200'000, 0);
    for (std::uint64_t directory = 1; directory <= 5000; ++directory) {
        cache.add(directory, 5, false);
        cache.add_without_children(10000 + directory);
    }
    dir_cache_entry& entered = cache.add(6000, 5, false);
    cache.keep(entered, content_of(1));
    EXPECT_EQ(cache.directories().size(), 1u);
    EXPECT_NE(cache.find(6000)->m_content, nullptr);
    EXPECT_FALSE(cache.is_without_children(10001));
    EXPECT_LE(cache.memory(), 200'000u);
}

TEST(path_cache, remembers_directories_as_long_as_there_is_memory_for_them) {
    path_cache cache;
    cache.set_limits(200'000, 0);
    for (std::uint64_t directory = 1; directory <= 5000; ++directory) {
        cache.remember(directory, 5, directory % 2 == 0);
        ASSERT_LE(cache.memory(), 200'000U);
    }
    // An entry takes 50 to 200 bytes.
    EXPECT_GT(cache.directories().size(), 1000U);
    EXPECT_LT(cache.directories().size(), 4000U);
    EXPECT_TRUE(cache.find(2)->m_deleted);
    EXPECT_EQ(cache.find(5000), nullptr);
}

TEST(path_cache, drops_what_was_read_before_it_stops_remembering_directories) {
    path_cache cache;
    cache.set_limits(200'000, 0);
    cache.keep(cache.add(1, 5, false), content_of(1));
    ASSERT_NE(cache.find(1)->m_content, nullptr);
    // What was read leaves less than 100,000 bytes, and each entry takes more than 50.
    for (std::uint64_t directory = 10; directory < 2010; ++directory) {
        cache.remember(directory, 5, false);
        ASSERT_LE(cache.memory(), 200'000U);
    }
    EXPECT_NE(cache.find(2009), nullptr);
    EXPECT_EQ(cache.find(1)->m_content, nullptr);
    EXPECT_TRUE(cache.find(1)->m_entered);
}

TEST(path_cache, remembers_a_directory_as_it_was_first_met) {
    path_cache cache;
    cache.remember(24, 5, true);
    cache.remember(24, 7, false);
    EXPECT_EQ(cache.find(24)->m_parent, 5U);
    EXPECT_TRUE(cache.find(24)->m_deleted);
}

TEST(path_cache, adds_a_directory_once) {
    path_cache cache;
    cache.add(24, 5, true);
    cache.add(24, 7, false);
    EXPECT_EQ(cache.find(24)->m_entry, 24u);
    EXPECT_EQ(cache.find(24)->m_parent, 5u);
    EXPECT_TRUE(cache.find(24)->m_deleted);
    EXPECT_EQ(cache.find(25), nullptr);
    cache.clear();
    EXPECT_EQ(cache.find(24), nullptr);
    EXPECT_EQ(cache.memory(), 0u);
    EXPECT_FALSE(cache.has_limits());
}

}  // namespace
}  // namespace quarry::test
