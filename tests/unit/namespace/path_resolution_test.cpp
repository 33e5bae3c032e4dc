#include "namespace/path_resolution.h"

#include "foundation/ql_string.h"
#include "namespace/file_names.h"
#include "unit/namespace/path_lookup.h"

namespace quarry::test {
namespace {

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
    // The names come from the record, whichever directory they are in.
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
    // $MFT lies after everything else, and half of its last record is missing.
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

// Damage: a lookup ends, and its last line says how.

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
// over because $MFT lies over itself, and after them the file "last". Returns its entry number, 0 if it is
// not found.
std::uint64_t last_file_after(std::size_t repeats) {
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
    EXPECT_EQ(last_file_after(3), 3u * 48 + 2);
    EXPECT_EQ(last_file_after(40), 0u) << "the names of 40 times 24 files would take half a megabyte";
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

}  // namespace
}  // namespace quarry::test
