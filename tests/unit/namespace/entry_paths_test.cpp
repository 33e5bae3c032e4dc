#include "namespace/entry_paths.h"

#include "support/opened_volume.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using texts = std::vector<std::wstring>;

struct answer {
    bool result;
    texts paths;
};

answer paths_of(const volume_builder& volume, std::uint64_t entry, const texts& components = {}) {
    opened_volume opened(volume);
    answer found;
    found.result = paths_of_entry(opened.ntfs(), entry, components, found.paths);
    return found;
}

class entry_paths_test : public ::testing::Test {
  protected:
    volume_builder m_volume;
    std::uint64_t m_users = m_volume.add_directory("Users").entry();
    std::uint64_t m_anna = m_volume.add_directory("Anna", m_users).entry();
    file_builder& m_file = m_volume.add_file("Notes.txt", m_anna);
};

TEST_F(entry_paths_test, go_up_to_the_root_and_end_in_a_backslash) {
    const answer found = paths_of(m_volume, m_file.entry());
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.paths, (texts{LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, of_an_entry_in_the_root_have_one_element) {
    EXPECT_EQ(paths_of(m_volume, m_users).paths, (texts{LR"(Users\)"}));
}

TEST_F(entry_paths_test, of_the_root_are_empty_text) {
    EXPECT_EQ(paths_of(m_volume, 5).paths, (texts{L""}));
}

TEST_F(entry_paths_test, are_added_to_the_results) {
    opened_volume opened(m_volume);
    texts results = {L"before"};
    EXPECT_TRUE(paths_of_entry(opened.ntfs(), m_users, {}, results));
    EXPECT_EQ(results, (texts{L"before", LR"(Users\)"}));
}

TEST_F(entry_paths_test, show_no_element_that_is_a_dot) {
    EXPECT_EQ(paths_of(m_volume, m_file.entry(), {L"."}).paths, (texts{LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, end_in_the_components_below_the_entry) {
    EXPECT_EQ(paths_of(m_volume, m_anna, {L"below", L"Notes.txt"}).paths,
              (texts{LR"(Users\Anna\Notes.txt\below\)"}));
}

TEST_F(entry_paths_test, show_a_sole_component_that_equals_the_name_once) {
    EXPECT_EQ(paths_of(m_volume, m_file.entry(), {L"Notes.txt"}).paths, (texts{LR"(Users\Anna\Notes.txt\)"}));
    EXPECT_EQ(paths_of(m_volume, m_file.entry(), {L"notes.txt"}).paths,
              (texts{LR"(Users\Anna\Notes.txt\notes.txt\)"}))
        << "the case decides";
    EXPECT_EQ(paths_of(m_volume, m_file.entry(), {L"x", L"Notes.txt"}).paths,
              (texts{LR"(Users\Anna\Notes.txt\Notes.txt\x\)"}))
        << "not with a second component";
}

TEST_F(entry_paths_test, show_a_directory_that_bears_the_name_of_the_file_in_it_once_with_a_sole_component) {
    const std::uint64_t outer = m_volume.add_directory("same").entry();
    const std::uint64_t inner = m_volume.add_file("same", outer).entry();
    EXPECT_EQ(paths_of(m_volume, inner, {L"same"}).paths, (texts{LR"(same\)"}));
    EXPECT_EQ(paths_of(m_volume, inner).paths, (texts{LR"(same\)"}))
        << "the file's name is then the component";
    EXPECT_EQ(paths_of(m_volume, inner, {L"."}).paths, (texts{LR"(same\same\)"}));
}

TEST_F(entry_paths_test, are_one_for_each_hard_link_in_the_order_of_the_names) {
    m_file.hard_link("Link.txt", m_users).hard_link("Another.txt", 5).hard_link("Link.txt", m_anna);
    // "Link.txt" is in two directories, of which "Users" has the lower number.
    EXPECT_EQ(paths_of(m_volume, m_file.entry()).paths,
              (texts{LR"(Another.txt\)", LR"(Users\Link.txt\)", LR"(Users\Anna\Link.txt\)",
                     LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, show_a_sole_component_below_a_hard_link_of_another_name) {
    m_file.hard_link("Link.txt", m_users);
    EXPECT_EQ(paths_of(m_volume, m_file.entry(), {L"Notes.txt"}).paths,
              (texts{LR"(Users\Link.txt\Notes.txt\)", LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, leave_short_names_out) {
    m_file.short_name("NOTES~1.TXT");
    EXPECT_EQ(paths_of(m_volume, m_file.entry()).paths, (texts{LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, do_not_look_at_sequence_numbers) {
    m_volume.file(m_anna).sequence(1);
    const bytes image = m_volume.image();
    volume_builder& volume = m_volume;
    volume.force_record(m_anna, 16, 2, 0x7777);
    ASSERT_NE(volume.image(), image);
    EXPECT_EQ(paths_of(volume, m_file.entry()).paths, (texts{LR"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, fail_for_a_record_that_cannot_be_read) {
    const answer found = paths_of(m_volume, 60);
    EXPECT_FALSE(found.result);
    EXPECT_TRUE(found.paths.empty());
}

TEST_F(entry_paths_test, fail_for_a_record_without_names) {
    EXPECT_FALSE(paths_of(m_volume, m_volume.add_file("gone").without_names().entry()).result);
    EXPECT_FALSE(paths_of(m_volume, m_volume.add_file("SHORT").name_space(dos_namespace).entry()).result);
}

TEST_F(entry_paths_test, end_at_a_parent_that_cannot_be_read) {
    m_file.hard_link("lost", 60).unindexed().hard_link("kept", m_users);
    const answer found = paths_of(m_volume, m_file.entry());
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.paths, (texts{LR"(Users\Anna\Notes.txt\)", LR"(Users\kept\)"}));
}

TEST_F(entry_paths_test, are_none_and_no_failure_when_the_only_parent_cannot_be_read) {
    const answer found = paths_of(m_volume, m_volume.add_file("lost", 60).entry());
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.paths.empty());
}

TEST_F(entry_paths_test, end_at_a_cycle_of_parents) {
    const std::uint64_t first = m_volume.add_directory("first", 40).entry();
    const std::uint64_t second = m_volume.add_directory("second", first).entry();
    file_builder& cyclic = m_volume.add_file_at(40, "third", second);
    const answer found = paths_of(m_volume, second);
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.paths.empty());
    // Another name of a directory on the way still leads out.
    cyclic.hard_link("way out", 5);
    EXPECT_EQ(paths_of(m_volume, second).paths, (texts{LR"(way out\first\second\)"}));
}

TEST_F(entry_paths_test, end_at_a_directory_that_is_its_own_parent) {
    const std::uint64_t own = m_volume.add_directory("own", 27).entry();
    ASSERT_EQ(own, 27u);
    const answer found = paths_of(m_volume, own);
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.paths.empty());
}

TEST_F(entry_paths_test, may_reach_a_directory_twice_on_different_ways) {
    file_builder& shared = m_volume.add_file("shared", m_anna);
    shared.hard_link("shared", m_users);
    EXPECT_EQ(paths_of(m_volume, shared.entry()).paths,
              (texts{LR"(Users\shared\)", LR"(Users\Anna\shared\)"}));
}

TEST_F(entry_paths_test, of_directories_with_many_names_each_are_bounded) {
    volume_builder volume({.mft_entries = 64});
    // Each directory is in the next one under two names, so that the ways up double with every level.
    std::uint64_t parent = 5;
    for (int level = 0; level < 24; ++level) {
        parent = volume.add_directory("a", parent).hard_link("b", parent).entry();
    }
    const answer found = paths_of(volume, parent, {L"."});
    EXPECT_TRUE(found.result);
    ASSERT_FALSE(found.paths.empty());
    std::size_t characters = 0;
    for (const std::wstring& path : found.paths) {
        characters += path.size();
    }
    EXPECT_LE(characters, 4000000u);
    EXPECT_EQ(found.paths.front(), [] {
        std::wstring text;
        for (int level = 0; level < 24; ++level) {
            text += LR"(a\)";
        }
        return text;
    }());
}

// Records of 512 KiB have room for thousands of names. Here all numbers lead to one such record, whose names
// lead to all numbers: 2,000 lists of 2,000 names would take 200 MB.
TEST_F(entry_paths_test, of_entries_with_thousands_of_names_each_are_bounded) {
    constexpr std::uint64_t names = 2000;
    constexpr std::int64_t clusters = 128;
    run_list places = {{4, 10 * clusters}};
    places.insert(places.end(), names, {2000, clusters});
    volume_builder volume(
        {.record_size = 512 * 1024, .mft_entries = 10, .stride = 65536, .mft_runs = places});
    volume.force_boot(64, 1, 0xED);  // 2 to the power of 19 bytes for a record
    volume.file(0).record().update_sequence_count(0);
    volume.root().record().update_sequence_count(0);
    record_builder record = volume.new_record(10);
    record.update_sequence_count(0);
    for (std::uint64_t i = 0; i < names; ++i) {
        const file_name name = {.parent = reference(i == 0 ? 5 : 10 + i, 1), .name = "d"};
        record.add(attribute_builder::resident(0x30, name.build()));
    }
    volume.clusters().write_at(std::uint64_t{2000} * 4096, record.build());
    opened_volume opened(volume);
    texts results;
    EXPECT_TRUE(paths_of_entry(opened.ntfs(), 10, {L"."}, results));
    // A list takes 128 bytes and 52 for each of its names, so 162 lists are more than 16 MiB.
    EXPECT_EQ(results.size(), 162u);
}

TEST_F(entry_paths_test, of_a_directory_deeper_than_any_path_can_name_are_none) {
    // Entry 100 is in the root and each one after it in the one before.
    constexpr std::uint64_t levels = 16385;
    volume_builder volume({.mft_runs = runs({{4, (100 + levels) / 4 + 1}})});
    for (std::uint64_t entry = 100; entry < 100 + levels; ++entry) {
        const std::uint64_t parent = entry == 100 ? 5 : entry - 1;
        const file_name name = {.parent = reference(parent, 1), .name = "d"};
        volume.clusters().write_at(
            volume.record_position(entry),
            volume.new_record(entry).add(attribute_builder::resident(0x30, name.build())).build());
    }
    opened_volume opened(volume);
    texts results;
    EXPECT_TRUE(paths_of_entry(opened.ntfs(), 100 + levels - 1, {L"."}, results));
    EXPECT_TRUE(results.empty());
    EXPECT_TRUE(paths_of_entry(opened.ntfs(), 100 + levels - 2, {L"."}, results));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].size(), 2u * 16384);
}

TEST_F(entry_paths_test, in_narrow_text_begin_at_the_leaf) {
    opened_volume opened(m_volume);
    std::vector<std::string> paths = {"stale"};
    EXPECT_TRUE(narrow_paths_of_entry(opened.ntfs(), m_file.entry(), "Notes.txt", paths));
    EXPECT_EQ(paths, (std::vector<std::string>{R"(Users\Anna\Notes.txt\)"}));
    EXPECT_TRUE(narrow_paths_of_entry(opened.ntfs(), m_file.entry(), "", paths));
    EXPECT_EQ(paths, (std::vector<std::string>{R"(Users\Anna\Notes.txt\)"}));
}

TEST_F(entry_paths_test, in_narrow_text_are_utf8) {
    const std::uint64_t entry = m_volume.add_file(u"\u00C4\U0001F600").entry();
    opened_volume opened(m_volume);
    std::vector<std::string> paths;
    EXPECT_TRUE(narrow_paths_of_entry(opened.ntfs(), entry, "\xC3\x84\xF0\x9F\x98\x80", paths));
    EXPECT_EQ(paths, (std::vector<std::string>{"\xC3\x84\xF0\x9F\x98\x80\\"}));
}

TEST_F(entry_paths_test, in_narrow_text_fail_without_a_path) {
    opened_volume opened(m_volume);
    std::vector<std::string> paths = {"stale"};
    EXPECT_FALSE(narrow_paths_of_entry(opened.ntfs(), 60, "", paths));
    EXPECT_TRUE(paths.empty());
}

TEST_F(entry_paths_test, on_a_damaged_volume_end_in_a_backslash) {
    m_file.hard_link("Link", m_users);
    opened_volume opened(m_volume);
    const bytes image = m_volume.image();
    const std::size_t position = m_volume.record_position(m_users);
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        bytes damaged = image;
        for (int i = 0; i < 15; ++i) {
            damaged[position + random() % 3072] = static_cast<std::uint8_t>(random());
        }
        write_file(opened.path(), damaged);
        texts paths;
        const bool found = paths_of_entry(opened.ntfs(), m_file.entry(), {L"x"}, paths);
        EXPECT_TRUE(found || paths.empty());
        for (const std::wstring& path : paths) {
            EXPECT_EQ(path.back(), L'\\');
        }
    }
}

}  // namespace
}  // namespace quarry::test
