#include "namespace/path_resolution.h"

#include "foundation/ql_string.h"
#include "namespace/file_names.h"
#include "support/capturing_log.h"
#include "support/opened_volume.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using lines = std::vector<std::string>;

struct lookup {
    bool found = false;
    std::uint64_t entry = 1;
    std::uint64_t parent = 1;
    std::wstring canonical = L"stale";
    std::wstring path;
    lines log;
};

lookup resolve(CNtfs* ntfs, const wchar_t* path, bool follow_links = true) {
    lookup result;
    capturing_log log;
    result.path = path;
    result.found =
        resolve_path(result.entry, result.parent, result.canonical, ntfs, result.path, follow_links, log);
    result.log = log.lines;
    return result;
}

constexpr std::uint64_t none = ~std::uint64_t{0};

// Lets the cache know of the root directory that it has these children alone.
void know(CNtfs& ntfs, const std::vector<child_name_table::named_child>& children) {
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
    // The volume as it stands at the first lookup of a test.
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

TEST_F(path_resolution_test, finds_a_file_in_the_root) {
    m_volume.add_file("a.txt");
    const lookup result = find(LR"(\a.txt)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 24u);
    EXPECT_EQ(result.parent, 5u);
    EXPECT_EQ(result.canonical, LR"(\a.txt)");
    EXPECT_EQ(result.log, (lines{R"(anal: \a.txt)", "root dir", "seg: a.txt", "info: get children nodes",
                                 "info: # children [4]", "info: get children names",
                                 "info: inode found for seg: a.txt : 0x18"}));
}

TEST_F(path_resolution_test, finds_a_file_in_directories_and_reports_each_step) {
    const std::uint64_t outer = m_volume.add_directory("Outer").entry();
    const std::uint64_t inner = m_volume.add_directory("Inner", outer).entry();
    m_volume.add_file("a.txt", inner);
    m_volume.add_file("b.txt", inner);
    const lookup result = find(L"Outer/Inner/a.txt");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 26u);
    EXPECT_EQ(result.parent, 25u);
    EXPECT_EQ(result.canonical, LR"(Outer\Inner\a.txt)");
    EXPECT_EQ(result.log, (lines{"anal: Outer/Inner/a.txt", "seg: outer", "info: get children nodes",
                                 "info: # children [4]", "info: get children names",
                                 "info: inode found for seg: outer : 0x18", "seg: inner",
                                 "info: get children nodes", "info: # children [1]",
                                 "info: get children names", "info: inode found for seg: inner : 0x19",
                                 "seg: a.txt", "info: get children nodes", "info: # children [2]",
                                 "info: get children names", "info: inode found for seg: a.txt : 0x1a"}));
}

TEST_F(path_resolution_test, answers_a_later_lookup_from_the_cache) {
    const std::uint64_t outer = m_volume.add_directory("Outer").entry();
    m_volume.add_file("a.txt", outer);
    ASSERT_TRUE(find(LR"(\Outer\a.txt)").found);
    const lookup again = find(LR"(\outer\A.TXT)");
    EXPECT_TRUE(again.found);
    EXPECT_EQ(again.entry, 25u);
    EXPECT_EQ(again.canonical, LR"(\outer\A.TXT)") << "the case is the one that was typed";
    EXPECT_EQ(again.log, (lines{R"(anal: \outer\A.TXT)", "root dir", "seg: outer", "info: cache lookup",
                                "info: inode found for seg: outer : 0x18", "seg: a.txt", "info: cache lookup",
                                "info: inode found for seg: a.txt : 0x19"}));
}

TEST_F(path_resolution_test, answers_a_later_lookup_without_a_read_of_the_directory) {
    m_volume.add_file("a.txt");
    ASSERT_TRUE(find(LR"(\a.txt)").found);
    // What was learned stays, whatever becomes of the source.
    std::filesystem::resize_file(m_opened->path(), 0);
    EXPECT_TRUE(find(LR"(\a.txt)").found);
    EXPECT_FALSE(find(LR"(\b.txt)").found);
}

TEST_F(path_resolution_test, without_a_volume_or_a_path_fails_without_a_line) {
    for (const lookup& result : {resolve(nullptr, LR"(\a.txt)"), find(L"")}) {
        EXPECT_FALSE(result.found);
        EXPECT_EQ(result.entry, 0u);
        EXPECT_EQ(result.parent, none);
        EXPECT_EQ(result.canonical, L"");
        EXPECT_EQ(result.log, lines());
    }
}

TEST_F(path_resolution_test, of_one_backslash_is_the_root) {
    const lookup result = find(LR"(\)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 5u);
    EXPECT_EQ(result.parent, none);
    EXPECT_EQ(result.canonical, LR"(\)");
    EXPECT_EQ(result.log, (lines{R"(anal: \)", "root dir", "path empty"}));
}

TEST_F(path_resolution_test, of_one_slash_is_the_root_written_as_a_backslash) {
    const lookup result = find(L"//");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 5u);
    EXPECT_EQ(result.canonical, LR"(\)");
    EXPECT_EQ(result.log, (lines{"anal: //", "root dir", "path empty"}));
}

TEST_F(path_resolution_test, of_a_drive_letter_is_the_root_with_itself_as_parent) {
    const lookup result = find(LR"(c:\)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 5u);
    EXPECT_EQ(result.parent, 5u);
    EXPECT_EQ(result.canonical, L"c:");
    EXPECT_EQ(result.log, (lines{R"(anal: c:\)"}));
}

TEST_F(path_resolution_test, of_a_drive_letter_and_a_file_name_without_separator_is_the_root) {
    m_volume.add_file("file.txt");
    const lookup result = find(L"c:file.txt");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 5u);
    EXPECT_EQ(result.canonical, L"c:file.txt");
}

TEST_F(path_resolution_test, passes_over_any_drive_letter_and_keeps_it_in_the_canonical_path) {
    m_volume.add_file("a.txt");
    const lookup result = find(LR"(\7:\a.txt)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 24u);
    EXPECT_EQ(result.canonical, LR"(\7:\a.txt)");
}

TEST_F(path_resolution_test, cuts_a_stream_name_off_and_keeps_it_in_the_canonical_path) {
    m_volume.add_file("a.txt");
    const lookup result = find(LR"(\A.txt:Zone.Identifier:$DATA)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 24u);
    EXPECT_EQ(result.canonical, LR"(\A.txt:Zone.Identifier:$DATA)");
    EXPECT_EQ(result.log.at(2), "seg: a.txt");
}

TEST_F(path_resolution_test, cuts_a_stream_name_off_a_directory_on_the_way_too) {
    const std::uint64_t outer = m_volume.add_directory("Outer").entry();
    m_volume.add_file("a.txt", outer);
    EXPECT_EQ(entry_of(LR"(\Outer:$I30\a.txt)"), 25u);
}

TEST_F(path_resolution_test, folds_the_letters_a_to_z) {
    m_volume.add_file("MiXeD[`{@.TXT");
    EXPECT_EQ(entry_of(LR"(\mIxEd[`{@.txt)"), 24u);
}

TEST_F(path_resolution_test, does_not_fold_other_letters) {
    m_volume.add_file(u"\u00C4rger");
    EXPECT_EQ(entry_of(L"\\\u00C4RGER"), 24u);
    EXPECT_EQ(entry_of(L"\\\u00E4rger"), 0u);
}

TEST_F(path_resolution_test, finds_names_outside_of_the_basic_plane_and_damaged_ones) {
    m_volume.add_file(u"\U0001F600");
    const std::u16string damaged = {u'A', 0xD800, u'B'};
    m_volume.add_file(ntfs_name(damaged));
    EXPECT_EQ(entry_of(L"\\\U0001F600"), 24u);
    const std::wstring typed = {L'\\', L'a', wchar_t{0xD800}, L'b'};
    EXPECT_EQ(entry_of(typed.c_str()), 25u);
}

TEST_F(path_resolution_test, does_not_find_a_long_named_directory_by_its_short_name) {
    const std::uint64_t directory = m_volume.add_directory("Program Files").short_name("PROGRA~1").entry();
    m_volume.add_file("a.txt", directory);
    EXPECT_EQ(entry_of(LR"(\Program Files\a.txt)"), 25u);
    const lookup result = find(LR"(\PROGRA~1\a.txt)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log,
              (lines{R"(anal: \PROGRA~1\a.txt)", "root dir", "seg: progra~1", "info: cache lookup",
                     "err: no child nodes", R"(inode not found for \PROGRA~1\a.txt)"}));
}

TEST_F(path_resolution_test, finds_a_name_of_the_win32_and_dos_namespace) {
    m_volume.add_file("SHORT.TXT").name_space(win32_and_dos_namespace);
    EXPECT_EQ(entry_of(LR"(\short.txt)"), 24u);
}

TEST_F(path_resolution_test, gives_the_child_with_the_lower_number_for_a_name_in_two_cases) {
    m_volume.add_file_at(30, "readme").name_space(posix_namespace);
    m_volume.add_file_at(27, "README").name_space(posix_namespace);
    EXPECT_EQ(entry_of(LR"(\readme)"), 27u);
    EXPECT_EQ(entry_of(LR"(\README)"), 27u);
}

TEST_F(path_resolution_test, finds_a_file_by_each_of_its_hard_links) {
    const std::uint64_t directory = m_volume.add_directory("dir").entry();
    m_volume.add_file("one", directory).hard_link("two", 5);
    EXPECT_EQ(entry_of(LR"(\dir\one)"), 25u);
    EXPECT_EQ(entry_of(LR"(\two)"), 25u);
    // The names come from the record, whichever directory they stand in.
    EXPECT_EQ(entry_of(LR"(\dir\two)"), 25u);
    EXPECT_EQ(entry_of(LR"(\one)"), 25u);
}

TEST_F(path_resolution_test, does_not_find_a_segment_that_holds_the_other_separator) {
    const std::uint64_t a = m_volume.add_directory("a").entry();
    const std::uint64_t b = m_volume.add_directory("b", a).entry();
    m_volume.add_file("c", b);
    EXPECT_EQ(entry_of(LR"(a/b/c)"), 26u);
    const lookup result = find(LR"(a/b\c)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log, (lines{R"(anal: a/b\c)", "seg: a", "info: cache lookup",
                                 "info: inode found for seg: a : 0x18", R"(seg: b\c)", "info: cache lookup",
                                 "err: no child nodes", R"(inode not found for a/b\c)"}));
}

TEST_F(path_resolution_test, removes_blanks_and_tabs_around_a_segment) {
    const std::uint64_t a = m_volume.add_directory("a b").entry();
    m_volume.add_file("c", a);
    const lookup result = find(L"\\  \ta b\t \\c ");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(result.canonical, L"\\  \ta b\t \\c ");
}

TEST_F(path_resolution_test, does_not_find_a_segment_of_blanks_alone) {
    const lookup result = find(LR"(\   )");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log.at(2), "seg: ");
    EXPECT_EQ(result.log.at(6), "err: no child nodes");
}

TEST_F(path_resolution_test, does_not_find_a_name_that_does_not_exist) {
    const lookup result = find(L"nowhere");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log,
              (lines{"anal: nowhere", "seg: nowhere", "info: get children nodes", "info: # children [3]",
                     "info: get children names", "err: no child nodes", "inode not found for nowhere"}));
}

TEST_F(path_resolution_test, of_a_file_as_a_directory_fails_for_want_of_children) {
    m_volume.add_file("file");
    const lookup result = find(LR"(\file\below)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log,
              (lines{R"(anal: \file\below)", "root dir", "seg: file", "info: get children nodes",
                     "info: # children [4]", "info: get children names",
                     "info: inode found for seg: file : 0x18", "seg: below", "info: get children nodes",
                     "info: none found", R"(inode not found for \file\below)"}));
    EXPECT_EQ(ntfs().m_path_cache.find(24), nullptr);
}

TEST_F(path_resolution_test, finds_a_deleted_file_whose_entry_is_still_in_a_freed_block) {
    const std::uint64_t directory = m_volume.add_directory("dir").entry();
    m_volume.add_file("live", directory);
    file_builder& gone = m_volume.add_file("gone", directory).deleted();
    m_volume.file(directory).extra_index_block(
        index_block_builder().add(name_entry(gone.file_reference(), {.name = "gone"})).build());
    EXPECT_EQ(entry_of(LR"(\dir\gone)"), 26u);
}

TEST_F(path_resolution_test, does_not_look_at_the_sequence_number_of_a_child) {
    m_volume.root().extra_entry(name_entry(reference(24, 0x7777), {.name = "stale"}));
    m_volume.add_file("now").deleted();
    EXPECT_EQ(entry_of(LR"(\now)"), 24u);
    EXPECT_EQ(entry_of(LR"(\stale)"), 0u) << "the name of the index is not read";
}

TEST_F(path_resolution_test, finds_the_mft_by_name) {
    EXPECT_TRUE(find(LR"(\$mft)").found);
    EXPECT_EQ(find(LR"(\$MFT)").entry, 0u);
}

TEST_F(path_resolution_test, takes_the_device_of_a_shadow_copy_off_the_path) {
    m_volume.add_file("a.txt");
    const lookup result = find(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy3\a.txt)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.path, LR"(\a.txt)");
    EXPECT_EQ(result.canonical, LR"(\a.txt)");
    EXPECT_EQ(result.log.at(0), R"(anal: \a.txt)");
}

TEST_F(path_resolution_test, shows_the_shortened_path_when_it_fails) {
    const lookup result = find(LR"(\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy3\none)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log.back(), R"(inode not found for \none)");
}

// Children that cannot be used: each one is missing, and the rest is found.

TEST_F(path_resolution_test, passes_over_a_child_that_cannot_be_read) {
    m_volume.add_file("bad");
    m_volume.add_file("good");
    m_volume.force_record(24, 0, 4, 0);
    const lookup result = find(LR"(\good)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.log, (lines{R"(anal: \good)", "root dir", "seg: good", "info: get children nodes",
                                 "info: # children [5]", "info: get children names",
                                 "err: readFR: inode 0x18", "info: inode found for seg: good : 0x19"}));
    EXPECT_FALSE(find(LR"(\bad)").found);
}

TEST_F(path_resolution_test, passes_over_a_child_outside_of_the_mft) {
    m_volume.add_file("good");
    m_volume.root().extra_entry(name_entry(reference(0xABCDEF012345, 1), {.name = "far"}));
    const lookup result = find(LR"(\good)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.log.at(6), "err: readFR: inode 0xabcdef012345");
}

TEST_F(path_resolution_test, passes_over_a_child_whose_record_is_cut_by_the_end_of_the_source) {
    // $MFT lies behind everything else, and half of its last record is missing.
    volume_builder volume({.mft_entries = 26, .mft_runs = runs({{40, 7}})});
    volume.add_file("good");
    volume.add_file("cut");
    bytes image = volume.image();
    image.resize(volume.record_position(25) + 512);
    opened_volume opened(image);
    const lookup result = resolve(&opened.ntfs(), LR"(\good)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.log.at(6), "err: paramsFR: inode 0x19");
    EXPECT_EQ(result.log.size(), 8u);
}

TEST_F(path_resolution_test, passes_over_a_child_without_names) {
    m_volume.root().extra_entry(name_entry(reference(24, 1), {.name = "nameless"}));
    m_volume.add_file("nameless").without_names();
    m_volume.add_file("good");
    const lookup result = find(LR"(\good)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.log.at(6), "err: namelookup: inode 0x18");
    EXPECT_EQ(result.log.size(), 8u);
}

TEST_F(path_resolution_test, reports_of_bad_children_in_ascending_order) {
    for (const char* name : {"a", "b", "c", "good"}) {
        m_volume.add_file(name);
    }
    for (const std::uint64_t bad : {26u, 24u}) {
        m_volume.force_record(bad, 0, 4, 0);
    }
    const lookup result = find(LR"(\good)");
    EXPECT_EQ(lines(result.log.begin() + 6, result.log.end()),
              (lines{"err: readFR: inode 0x18", "err: readFR: inode 0x1a",
                     "info: inode found for seg: good : 0x1b"}));
}

TEST_F(path_resolution_test, fails_in_a_directory_of_which_no_child_has_a_name) {
    const std::uint64_t directory = m_volume.add_directory("dir").entry();
    m_volume.add_file("bad", directory);
    m_volume.force_record(25, 0, 4, 0);
    const lookup result = find(LR"(\dir\bad)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(
        lines(result.log.begin() + 7, result.log.end()),
        (lines{"seg: bad", "info: get children nodes", "info: # children [1]", "info: get children names",
               "err: readFR: inode 0x19", "err: no child names", R"(inode not found for \dir\bad)"}));
    // The children are known now and their names are tried again.
    const lookup again = find(LR"(\dir\bad)");
    EXPECT_EQ(lines(again.log.begin() + 5, again.log.end()),
              (lines{"seg: bad", "info: get children names", "err: readFR: inode 0x19", "err: no child names",
                     R"(inode not found for \dir\bad)"}));
}

// The states in which a directory can be in the cache.

TEST_F(path_resolution_test, in_a_directory_that_is_not_in_the_cache_and_has_no_index_finds_none) {
    m_volume.root().without_index();
    const lookup result = find(LR"(\a)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log, (lines{R"(anal: \a)", "root dir", "seg: a", "info: get children nodes",
                                 "info: none found", R"(inode not found for \a)"}));
    EXPECT_TRUE(ntfs().m_path_cache.directories().empty());
}

TEST_F(path_resolution_test, in_a_directory_that_is_not_in_the_cache_fails_when_its_index_fails_in_part) {
    // The root gives a child, and the allocation then fails the directory.
    m_volume.add_file("a");
    m_volume.root().without_index();
    m_volume.root().attribute(
        attribute_builder::resident(0x90, build_index_root({name_entry(reference(24, 1), {.name = "a"})}))
            .named("$I30"));
    m_volume.root().attribute(
        attribute_builder::non_resident(0xA0, runs({{40, 1}})).initialized(0).named("$I30"));
    EXPECT_EQ(find(LR"(\a)").log.at(4), "info: none found");
    // With an entry in the cache the result is not asked for.
    ntfs().m_path_cache.add(5, 5, false);
    EXPECT_TRUE(find(LR"(\a)").found);
}

TEST_F(path_resolution_test, in_a_directory_in_the_cache_without_children_finds_no_names_either) {
    m_volume.add_directory("dir").without_index();
    const lookup result = find(LR"(\dir\a)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(lines(result.log.begin() + 7, result.log.end()),
              (lines{"seg: a", "info: get children nodes", "info: # children [0]", "info: get children names",
                     "err: no child names", R"(inode not found for \dir\a)"}));
    const lookup again = find(LR"(\dir\a)");
    EXPECT_EQ(lines(again.log.begin() + 5, again.log.end()), lines(result.log.begin() + 7, result.log.end()))
        << "an empty directory has the same lines again";
}

TEST_F(path_resolution_test,
       in_a_directory_whose_children_have_no_names_reports_the_same_of_each_child_again) {
    m_volume.add_file("nameless").without_names();
    const std::uint64_t directory = m_volume.add_directory("dir").entry();
    const std::uint64_t child = m_volume.add_file("child", directory).without_names().entry();
    m_volume.file(directory).extra_entry(name_entry(reference(child, 1), {.name = "child"}));
    m_volume.file(directory).extra_entry(name_entry(reference(60, 1), {.name = "unused"}));
    const lines first = find(LR"(\dir\child)").log;
    EXPECT_EQ(lines(first.end() - 7, first.end()),
              (lines{"info: get children nodes", "info: # children [2]", "info: get children names",
                     "err: namelookup: inode 0x1a", "err: readFR: inode 0x3c", "err: no child names",
                     R"(inode not found for \dir\child)"}));
    for (int i = 0; i < 2; ++i) {
        const lines again = find(LR"(\dir\child)").log;
        EXPECT_EQ(again,
                  (lines{R"(anal: \dir\child)", "root dir", "seg: dir", "info: cache lookup",
                         "info: inode found for seg: dir : 0x19", "seg: child", "info: get children names",
                         "err: namelookup: inode 0x1a", "err: readFR: inode 0x3c", "err: no child names",
                         R"(inode not found for \dir\child)"}));
    }
}

// A volume whose records are gone after the first lookup: whatever is answered then was remembered.
TEST_F(path_resolution_test, reads_nothing_again_of_directories_that_yield_nothing) {
    m_volume.add_directory("empty").without_index();
    m_volume.add_file("file");
    std::vector<lines> first;
    const auto paths = {LR"(\empty\a)", LR"(\file\a)"};
    for (const wchar_t* path : paths) {
        EXPECT_FALSE(find(path).found);
        first.push_back(find(path).log);
    }
    write_file(m_opened->path(), bytes(m_volume.record_position(5)));
    std::size_t i = 0;
    for (const wchar_t* path : paths) {
        EXPECT_EQ(find(path).log, first[i++]);
    }
}

// Of each directory the names take more than half of what the cache may hold.
TEST_F(path_resolution_test,
       in_a_directory_that_was_dropped_from_the_cache_finds_the_same_with_the_same_lines) {
    const std::uint64_t one = m_volume.add_directory("one").entry();
    const std::uint64_t two = m_volume.add_directory("two").entry();
    m_volume.add_file("a", one);
    m_volume.add_file("b", two);
    const auto look_up_all = [this] {
        std::vector<lookup> found;
        for (const wchar_t* path : {LR"(\one\a)", LR"(\two\b)", LR"(\two\none)", LR"(\one\a)"}) {
            found.push_back(find(path));
        }
        return found;
    };
    const std::vector<lookup> kept = look_up_all();
    for (const std::uint64_t memory : {1000u, 1500u, 2000u}) {
        ntfs().m_path_cache.clear();
        ntfs().m_path_cache.set_limits(memory, budget::unlimited);
        const std::vector<lookup> dropped = look_up_all();
        for (std::size_t i = 0; i < kept.size(); ++i) {
            EXPECT_EQ(dropped[i].entry, kept[i].entry) << memory;
            EXPECT_EQ(dropped[i].log, kept[i].log) << memory;
        }
    }
}

// Looks at the memory of a cache with each line that it takes.
class memory_watching_log : public capturing_log {
  public:
    explicit memory_watching_log(const path_cache& cache) : m_cache(cache) {}
    std::uint64_t most = 0;

  protected:
    void write_log_line(const std::string& text) override {
        capturing_log::write_log_line(text);
        most = std::max(most, m_cache.memory());
    }

  private:
    const path_cache& m_cache;
};

// A file system of nothing but directories: their names cost little, what is remembered of each of them more.
TEST(path_resolution_in_little_memory, of_many_directories_keeps_no_more_than_the_cache_may_hold) {
    volume_builder volume({.mft_entries = 300});
    file_builder& many = volume.add_directory("many").index_in_blocks();
    for (int i = 0; i < 200; ++i) {
        volume.add_directory("d" + std::to_string(i), many.entry());
    }
    volume.add_file("file", volume.add_directory("d200", many.entry()).entry());
    // Its record cannot be read, which gives a line when all others have been read.
    many.extra_entry(name_entry(reference(299, 1), {.name = "unused"}));
    opened_volume opened(volume);
    const lookup kept = resolve(&opened.ntfs(), LR"(\many\d200\file)");
    ASSERT_TRUE(kept.found);
    EXPECT_GT(opened->m_path_cache.memory(), 12000U);
    opened->m_path_cache.clear();
    opened->m_path_cache.set_limits(12000, budget::unlimited);
    memory_watching_log log(opened->m_path_cache);
    std::uint64_t entry = 0;
    std::uint64_t parent = 0;
    std::wstring found_path;
    std::wstring path = LR"(\many\d200\file)";
    EXPECT_TRUE(resolve_path(entry, parent, found_path, &opened.ntfs(), path, true, log));
    EXPECT_EQ(entry, kept.entry);
    EXPECT_EQ(log.lines, kept.log);
    EXPECT_LE(log.most, 12000U);
}

TEST_F(path_resolution_test, keeps_in_the_cache_what_it_learned) {
    const std::uint64_t outer = m_volume.add_directory("Outer").entry();
    m_volume.add_directory("Gone").deleted_but_indexed();
    m_volume.add_file("File.txt", outer);
    ASSERT_TRUE(find(LR"(\Outer)").found);
    const std::map<std::uint64_t, dir_cache_entry>& cache = ntfs().m_path_cache.directories();
    ASSERT_EQ(cache.size(), 3u);
    const dir_cache_entry& root = cache.at(5);
    EXPECT_EQ(root.m_entry, 5u);
    EXPECT_EQ(root.m_parent, 5u);
    EXPECT_TRUE(root.m_is_dir);
    EXPECT_FALSE(root.m_deleted);
    ASSERT_NE(root.m_content, nullptr);
    const _inode_collection& children = root.m_content->m_children;
    EXPECT_EQ(std::vector<std::uint64_t>(children.begin(), children.end()),
              (std::vector<std::uint64_t>{0, 5, 6, 24, 25}));
    using names = std::vector<child_name_table::named_child>;
    EXPECT_EQ(root.m_content->m_child_names.names(),
              (names{{"$bitmap", 6}, {"$mft", 0}, {"gone", 25}, {"outer", 24}}))
        << "the root lists itself, and passes over itself";
    const dir_cache_entry& known = cache.at(24);
    EXPECT_EQ(known.m_entry, 24u);
    EXPECT_EQ(known.m_parent, 5u);
    EXPECT_TRUE(known.m_is_dir);
    EXPECT_FALSE(known.m_deleted);
    EXPECT_FALSE(known.m_entered);
    EXPECT_EQ(known.m_content, nullptr);
    EXPECT_TRUE(cache.at(25).m_deleted);
    ASSERT_TRUE(find(LR"(\Outer\file.txt)").found);
    ASSERT_NE(known.m_content, nullptr);
    EXPECT_EQ(known.m_content->m_child_names.names(), (names{{"file.txt", 26}}));
}

TEST_F(path_resolution_test, keeps_the_directory_through_which_another_was_first_reached) {
    const std::uint64_t one = m_volume.add_directory("one").entry();
    const std::uint64_t two = m_volume.add_directory("two").entry();
    m_volume.add_directory("shared", one).hard_link("shared", two);
    ASSERT_TRUE(find(LR"(\two\shared)").found);
    ASSERT_TRUE(find(LR"(\one\shared)").found);
    EXPECT_EQ(ntfs().m_path_cache.find(26)->m_parent, two);
}

TEST_F(path_resolution_test, of_a_child_that_is_its_own_directory_passes_over_it) {
    const std::uint64_t own = m_volume.add_directory("own").entry();
    m_volume.file(own).extra_entry(name_entry(reference(own, 1), {.name = "own"}));
    m_volume.add_file("a", own);
    EXPECT_EQ(entry_of(LR"(\own\a)"), 25u);
    EXPECT_EQ(entry_of(LR"(\own\own)"), 0u);
}

// links_test.

class links_test : public path_resolution_test {
  protected:
    links_test() {
        m_volume.add_file("file", m_volume.add_directory("Sub", m_target).entry());
        m_volume.add_file("top.txt");
    }
    file_builder& add_link(const char* name, const char* target, std::uint64_t parent = 5) {
        return m_volume.add_directory(name, parent)
            .reparse({.substitute_name = std::string(R"(\??\)") + target, .print_name = target});
    }
    std::uint64_t m_target =
        m_volume.add_directory("Target").entry();  // 24, with "Sub" 25, "file" 26; "top.txt" 27
};

TEST_F(links_test, in_the_middle_of_a_path_restart_from_the_root_with_the_rest_of_it) {
    add_link("link", R"(C:\Target)");
    const lookup result = find(LR"(\link\Sub\file:stream)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 26u);
    EXPECT_EQ(result.parent, 25u);
    EXPECT_EQ(result.canonical, LR"(\C:\Target\Sub\file:stream)");
    EXPECT_EQ(result.log, (lines{R"(anal: \link\Sub\file:stream)",
                                 "root dir",
                                 "seg: link",
                                 "info: get children nodes",
                                 "info: # children [6]",
                                 "info: get children names",
                                 "info: restart segments [link]",
                                 "seg: target",
                                 "info: cache lookup",
                                 "info: inode found for seg: target : 0x18",
                                 "seg: sub",
                                 "info: get children nodes",
                                 "info: # children [1]",
                                 "info: get children names",
                                 "info: inode found for seg: sub : 0x19",
                                 "seg: file",
                                 "info: get children nodes",
                                 "info: # children [1]",
                                 "info: get children names",
                                 "info: inode found for seg: file : 0x1a"}));
}

TEST_F(links_test, at_the_end_of_a_path_lead_to_their_target) {
    add_link("link", R"(C:\Target\Sub)");
    const lookup result = find(LR"(link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(result.parent, 24u);
    EXPECT_EQ(result.canonical, LR"(C:\Target\Sub)");
}

TEST_F(links_test, below_a_directory_restart_from_the_root) {
    add_link("link", R"(C:\Target\Sub)", m_target);
    EXPECT_EQ(entry_of(LR"(\Target\link\file)"), 26u);
}

TEST_F(links_test, to_another_volume_are_resolved_on_this_one) {
    add_link("link", R"(X:\Target)");
    EXPECT_EQ(entry_of(LR"(\link\Sub)"), 25u);
}

TEST_F(links_test, without_a_drive_letter_begin_at_their_first_segment) {
    add_link("link", R"(\Target)");
    const lookup result = find(LR"(\link\Sub)");
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(result.canonical, LR"(\Target\Sub)");
}

TEST_F(links_test, split_the_rest_of_the_path_at_backslashes_too) {
    add_link("link", R"(C:\Target)");
    EXPECT_EQ(entry_of(LR"(link/Sub\file)"), 26u);
}

TEST_F(links_test, drop_the_stream_name_of_the_link_itself) {
    add_link("link", R"(C:\Target)");
    EXPECT_EQ(find(LR"(\link:$I30)").canonical, LR"(\C:\Target)");
}

TEST_F(links_test, are_not_followed_unless_asked_for) {
    const std::uint64_t link = add_link("link", R"(C:\Target)").entry();
    const lookup result = find(LR"(\link)", false);
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link);
    EXPECT_EQ(result.canonical, LR"(\link)");
    EXPECT_EQ(result.log.back(), "info: inode found for seg: link : 0x1c");
}

TEST_F(links_test, may_lead_to_links) {
    add_link("one", R"(C:\two)");
    add_link("two", R"(C:\Target)");
    const lookup result = find(LR"(\one\Sub)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(std::count(result.log.begin(), result.log.end(), "info: restart segments [link]"), 2);
}

TEST_F(links_test, to_the_root_alone_lead_to_themselves_at_the_end_of_a_path) {
    const std::uint64_t link = add_link("link", R"(C:\)").entry();
    const lookup result = find(LR"(\link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link) << "no segment is left that would lead anywhere else";
    EXPECT_EQ(result.parent, 0u);
    EXPECT_EQ(result.canonical, LR"(\C:)");
    EXPECT_EQ(entry_of(LR"(\link\top.txt)"), 27u);
}

TEST_F(links_test, without_a_print_name_leave_the_rest_of_the_path) {
    m_volume.add_directory("link").reparse({.substitute_name = R"(\??\C:\Target)"});
    const lookup result = find(LR"(\link\top.txt)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 27u);
    EXPECT_EQ(result.canonical, LR"(\top.txt)");
}

TEST_F(links_test, that_are_broken_fail_with_the_path_that_was_asked) {
    add_link("link", R"(C:\Nowhere)");
    const lookup result = find(LR"(\link\x)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(lines(result.log.end() - 5, result.log.end()),
              (lines{"info: restart segments [link]", "seg: nowhere", "info: cache lookup",
                     "err: no child nodes", R"(inode not found for \link\x)"}));
}

TEST_F(links_test, to_themselves_fail_after_64_restarts) {
    add_link("link", R"(C:\link)");
    const lookup result = find(LR"(\link\Sub)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(std::count(result.log.begin(), result.log.end(), "info: restart segments [link]"), 64);
    EXPECT_EQ(lines(result.log.end() - 3, result.log.end()),
              (lines{"seg: link", "info: cache lookup", R"(inode not found for \link\Sub)"}));
}

TEST_F(links_test, to_each_other_fail) {
    add_link("one", R"(C:\two\x)");
    add_link("two", R"(C:\one\x)");
    EXPECT_FALSE(find(LR"(\one)").found);
}

TEST_F(links_test, in_a_row_of_64_are_followed) {
    volume_builder volume({.mft_entries = 128});
    for (int i = 0; i < 64; ++i) {
        const std::string target = R"(C:\link)" + std::to_string(i + 1);
        volume.add_directory("link" + std::to_string(i))
            .reparse({.substitute_name = target, .print_name = target});
    }
    const std::uint64_t end = volume.add_file("link64").entry();
    opened_volume opened(volume);
    const lookup result = resolve(&opened.ntfs(), LR"(\link0)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, end);
}

TEST_F(links_test, whose_record_can_no_longer_be_read_are_none) {
    const std::uint64_t link = add_link("link", R"(C:\Target)").entry();
    ASSERT_TRUE(find(LR"(\link)").found);
    bytes image = m_volume.image();
    image[m_volume.record_position(link)] = 0;
    write_file(m_opened->path(), image);
    const lookup result = find(LR"(\link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link);
}

TEST_F(links_test, whose_record_is_cut_by_the_end_of_the_source_are_none) {
    // $MFT lies behind everything else, and half of its last record is missing.
    volume_builder volume({.mft_entries = 26, .mft_runs = runs({{40, 7}})});
    volume.add_file("target");
    volume.add_directory("link").reparse(
        {.substitute_name = R"(\??\C:\target)", .print_name = R"(C:\target)"});
    bytes image = volume.image();
    const std::size_t half = volume.record_position(25) + 512;
    for (const bool cut : {false, true}) {
        image.resize(cut ? half : image.size());
        opened_volume opened(image);
        know(opened.ntfs(), {{"link", 25}, {"target", 24}});
        EXPECT_EQ(resolve(&opened.ntfs(), LR"(\link)").entry, cut ? 25u : 24u);
    }
}

// Damage: a lookup ends, and its last line tells how.

// 300 files whose lists are the same 512 KiB, of which every 24 bytes name another record: without a bound,
// six million reads.
TEST_F(path_resolution_test, ends_soon_where_the_lists_of_all_files_lie_over_each_other) {
    byte_writer list(512 * 1024);
    for (std::uint32_t at = 0; at + 24 < 512 * 1024; at += 24) {
        list.u32(at, 0x30).u16(at + 4, 24).u48(at + 16, 24 + at / 24 % 300);
    }
    volume_builder volume({.mft_entries = 340});
    volume.write_clusters(1000, list.take());
    for (int i = 0; i < 300; ++i) {
        volume.add_file("file" + std::to_string(i))
            .attribute(attribute_builder::non_resident(0x20, {{1000, 128}}));
    }
    opened_volume opened(volume);
    EXPECT_EQ(resolve(&opened.ntfs(), L"/file7").entry, 31u);
    EXPECT_EQ(resolve(&opened.ntfs(), L"/file299").entry, 323u);
    EXPECT_TRUE(opened->m_path_cache.reads().listed.spent()) << "no further list is followed";
}

// A root directory of so many times 24 files with 8 names each, which are the same records over and
// over because $MFT lies over itself, and behind them the file "last". Returns its entry number, 0 if it is
// not found.
std::uint64_t last_file_behind(std::size_t repeats) {
    constexpr std::uint64_t entries_of_first_run = 48;
    volume_builder volume({.mft_runs = {{4, 12}, {20, 4}}});
    volume.root().index_in_blocks();
    run_list mft;
    for (int i = 0; i < 24; ++i) {
        const std::string name = "f" + std::to_string(i);
        file_builder& file = volume.add_file(name).unindexed();
        for (int link = 1; link < 8; ++link) {
            file.hard_link(name + "_" + std::to_string(link), root_entry);
        }
    }
    volume.add_file_at(entries_of_first_run + 2, "last").unindexed();
    const auto name_child = [&volume](std::uint64_t entry) {
        volume.root().extra_entry({.file_reference = reference(entry, 1), .key = bytes(80)});
    };
    for (std::size_t cycle = 0; cycle < repeats; ++cycle) {
        mft.push_back({4, 12});
        for (std::uint64_t entry = first_user_entry; entry < entries_of_first_run; ++entry) {
            name_child(cycle * entries_of_first_run + entry);
        }
    }
    mft.push_back({20, 4});
    name_child(repeats * entries_of_first_run + 2);
    volume.file(0).attribute(attribute_builder::non_resident(0x80, mft).id(20));
    opened_volume opened(volume);
    EXPECT_EQ(opened->m_mft_info.data_runs.size(), repeats + 1);
    EXPECT_LT(opened->source_size(), 400'000u);
    const lookup found = resolve(&opened.ntfs(), L"/last");
    return found.found ? found.entry : 0;
}

// Each name counts 64 bytes and its own, which makes some 13,000 for the 8 names of 24 files.
TEST_F(path_resolution_test, passes_over_children_after_more_names_than_the_source_can_hold) {
    EXPECT_EQ(last_file_behind(3), 3u * 48 + 2);
    EXPECT_EQ(last_file_behind(40), 0u) << "the names of 40 times 24 files would take half a megabyte";
}

// Numbers of children may all lead to one record, of half a megabyte: each of them would be read and
// searched.
TEST_F(path_resolution_test, reads_no_more_children_where_their_records_have_cost_all_that_they_may) {
    volume_builder volume;
    const std::uint64_t directory = volume.add_directory("dir").entry();
    const std::uint64_t one = volume.add_file("one", directory).entry();
    const std::uint64_t two = volume.add_file("two", directory).entry();
    for (const std::uint64_t records : {1U, 2U}) {
        opened_volume opened(volume);
        know(opened.ntfs(), {{"dir", directory}});
        opened->m_path_cache.reads().records = budget(4096 * records - 1);
        EXPECT_EQ(resolve(&opened.ntfs(), L"/dir/one").entry, one);
        EXPECT_EQ(resolve(&opened.ntfs(), L"/dir/two").found, records == 2);
    }
    opened_volume opened(volume);
    EXPECT_EQ(resolve(&opened.ntfs(), L"/dir/two").entry, two);
    // Those of the two files, and of $MFT, $Bitmap and the directory in the root, each a page.
    EXPECT_EQ(opened->m_path_cache.reads().records.left(),
              0x4000000u + 32 * opened->source_size() - 5u * 4096);
}

TEST_F(links_test, on_a_damaged_volume_end_with_an_answer) {
    add_link("link", R"(C:\Target\Sub)");
    add_link("self", R"(C:\self\x)");
    m_volume.root().index_in_blocks();
    const bytes image = m_volume.image();
    const std::size_t records = m_volume.record_position(24);
    opened_volume opened(m_volume);
    std::mt19937 random(23);
    for (int round = 0; round < 150; ++round) {
        bytes damaged = image;
        for (int i = 0; i < 20; ++i) {
            // The records of a test's own entries, or anything behind $MFT, where the index of the root is.
            const std::size_t at = i % 2 == 0 ? records + random() % 8192
                                              : image.size() - 1 - random() % (image.size() - records);
            damaged[at] = static_cast<std::uint8_t>(random());
        }
        if (round % 5 == 0) {
            damaged.resize(records + random() % 8192);
        }
        write_file(opened.path(), damaged);
        opened->m_path_cache.clear();
        for (const wchar_t* path :
             {LR"(\link\file)", LR"(\self)", LR"(\Target\Sub\file)", LR"(\top.txt)", LR"(\top.txt\x)"}) {
            const lookup result = resolve(&opened.ntfs(), path);
            ASSERT_FALSE(result.log.empty());
            EXPECT_EQ(result.log.back() == "inode not found for " + narrow(path), !result.found);
        }
    }
}

}  // namespace
}  // namespace quarry::test
