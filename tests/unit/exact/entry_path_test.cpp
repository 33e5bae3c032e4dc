#include "exact/entry_path.h"

#include "exact/volume_path.h"
#include "support/opened_exact_volume.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

// The path of an entry in canonical form, with "/?" ahead of it and the reason after it where it is lost.
std::string path_of(opened_exact_volume& opened, std::uint64_t entry) {
    notices told;
    const mft& table = opened.volume().table();
    const auto set = attribute_set::of(table, table.read_asked(entry, std::nullopt, told).value(), told);
    const entry_path path = path_upwards(table, set.value(), told);
    return path.lost ? "/?" + shown_path(path.names) + " " + std::string(code_text(path.lost->code)) + " " +
                           path.lost->where
                     : shown_path(path.names);
}

}  // namespace

TEST(entry_path, leads_up_to_the_root) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t inner = volume.add_directory("inner", docs).entry();
    const std::uint64_t file = volume.add_file("letter.txt", inner).entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/docs/inner/letter.txt");
    EXPECT_EQ(path_of(opened, docs), "/docs");
    EXPECT_EQ(path_of(opened, 5), "/");
}

TEST(entry_path, goes_by_long_names) {
    volume_builder volume;
    const std::uint64_t docs =
        volume.add_directory("DOCUME~1").name_space(2).hard_link("documents", 5).entry();
    const std::uint64_t file =
        volume.add_file("LETTER~1.TXT", docs).name_space(2).hard_link("letter.txt", docs).entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/documents/letter.txt");
}

TEST(entry_path, leads_under_the_name_that_is_asked_for) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t other = volume.add_directory("other").entry();
    const std::uint64_t file = volume.add_file("a.txt", docs).hard_link("b.txt", other, 0).entry();
    opened_exact_volume opened(volume);
    notices told;
    const mft& table = opened.volume().table();
    const auto set = attribute_set::of(table, table.read_asked(file, std::nullopt, told).value(), told);
    const auto names = names_of_file(set.value());
    EXPECT_EQ(shown_path(path_upwards(table, *name_to_show(names, u"b.txt"), false, told).names),
              "/other/b.txt");
}

TEST(entry_path, is_lost_where_the_sequence_number_of_a_directory_is_another) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t inner = volume.add_directory("inner", docs).entry();
    const std::uint64_t file = volume.add_file("letter.txt", inner).entry();
    // The sequence number of a record is at byte 16.
    volume.force_record(docs, 16, 2, 7);
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/inner/letter.txt sequence record 24");
}

TEST(entry_path, is_lost_where_the_root_has_another_sequence_number) {
    volume_builder volume;
    const std::uint64_t file = volume.add_file("letter.txt").entry();
    volume.force_record(root_entry, 16, 2, 6);
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/letter.txt sequence record 5");
}

TEST(entry_path, of_a_file_in_use_is_lost_in_a_deleted_directory) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t file = volume.add_file("letter.txt", docs).entry();
    volume.file(docs).deleted();
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/letter.txt unused record 24");
}

TEST(entry_path, of_a_deleted_file_leads_through_deleted_directories) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t file = volume.add_file("letter.txt", docs).entry();
    volume.file(docs).deleted();
    volume.file(file).deleted();
    {
        opened_exact_volume opened(volume);
        EXPECT_EQ(path_of(opened, file), "/docs/letter.txt");
    }
    // The system gives an entry its next number when the file is deleted.
    volume.force_record(docs, 16, 2, 2);
    {
        opened_exact_volume opened(volume);
        EXPECT_EQ(path_of(opened, file), "/docs/letter.txt");
    }
    volume.force_record(docs, 16, 2, 3);
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/letter.txt sequence record 24");
}

TEST(entry_path, of_a_deleted_file_is_lost_where_its_directory_was_given_away) {
    volume_builder volume;
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t file = volume.add_file("letter.txt", docs).deleted().entry();
    // One ahead, but in use: another directory.
    volume.force_record(docs, 16, 2, 2);
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/letter.txt sequence record 24");
}

TEST(entry_path, is_lost_where_the_parent_is_no_directory) {
    volume_builder volume;
    const std::uint64_t file = volume.add_file("a.txt").entry();
    const std::uint64_t below =
        volume.add_file("b.txt").without_names().hard_link("b.txt", file).unindexed().entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, below), "/?/b.txt not-directory record 24");
}

TEST(entry_path, ends_at_directories_that_lead_in_a_circle) {
    volume_builder volume;
    // Two directories, each in the other.
    const std::uint64_t one = volume.add_directory("one", 25).unindexed().entry();
    const std::uint64_t other = volume.add_directory("other", one).unindexed().entry();
    ASSERT_EQ(other, 25u);
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, one), "/?/one/other/one name record 25");
}

TEST(entry_path, of_a_file_without_a_name_is_lost_as_a_whole) {
    volume_builder volume;
    const std::uint64_t file = volume.add_file("a.txt").without_names().entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(path_of(opened, file), "/?/ name record 24");
}

}  // namespace quarry::test
