#include "exact/file_names.h"

#include "support/opened_exact_volume.h"
#include "support/volume_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

std::vector<exact::file_name> names_of(opened_exact_volume& opened, std::uint64_t entry) {
    notices told;
    const mft& table = opened.volume().table();
    const auto set = attribute_set::of(table, table.read_asked(entry, std::nullopt, told).value(), told);
    return names_of_file(set.value());
}

std::u16string shown_of(const std::vector<exact::file_name>& names, std::u16string_view looked_up = {}) {
    const exact::file_name* const shown = name_to_show(names, looked_up);
    return shown == nullptr ? u"(none)" : shown->name;
}

}  // namespace

TEST(file_names, are_all_names_with_their_directories_and_name_spaces) {
    volume_builder volume;
    const std::uint64_t directory = volume.add_directory("docs").entry();
    file_builder& file = volume.add_file("letter to anna.txt").short_name("LETTER~1.TXT");
    file.hard_link("copy.txt", directory, 0);
    opened_exact_volume opened(volume);
    const auto names = names_of(opened, file.entry());
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[0].name, u"letter to anna.txt");
    EXPECT_EQ(names[0].parent, (exact::reference{5, 5}));
    EXPECT_EQ(name_space_text(names[0].name_space), "win32");
    EXPECT_EQ(names[1].name, u"LETTER~1.TXT");
    EXPECT_EQ(name_space_text(names[1].name_space), "dos");
    EXPECT_TRUE(names[1].is_short());
    EXPECT_EQ(names[2].name, u"copy.txt");
    EXPECT_EQ(names[2].parent, (exact::reference{directory, 1}));
    EXPECT_EQ(name_space_text(names[2].name_space), "posix");
}

TEST(file_names, have_a_text_for_each_name_space) {
    EXPECT_EQ(name_space_text(3), "win32+dos");
    EXPECT_EQ(name_space_text(4), "4");
    EXPECT_EQ(name_space_text(255), "255");
}

TEST(file_names, show_the_name_that_was_looked_up_unless_it_is_a_short_one) {
    volume_builder volume;
    file_builder& file = volume.add_file("letter to anna.txt").short_name("LETTER~1.TXT");
    file.hard_link("copy.txt", root_entry, 0);
    opened_exact_volume opened(volume);
    const auto names = names_of(opened, file.entry());
    EXPECT_EQ(shown_of(names), u"letter to anna.txt");
    EXPECT_EQ(shown_of(names, u"copy.txt"), u"copy.txt");
    EXPECT_EQ(shown_of(names, u"LETTER~1.TXT"), u"letter to anna.txt");
    EXPECT_EQ(shown_of(names, u"other.txt"), u"letter to anna.txt");
}

TEST(file_names, show_a_short_name_where_there_is_no_other_and_nothing_where_there_is_none) {
    volume_builder volume;
    const std::uint64_t only_short = volume.add_file("ONLY~1.TXT").name_space(2).entry();
    const std::uint64_t none = volume.add_file("gone.txt").without_names().entry();
    opened_exact_volume opened(volume);
    EXPECT_EQ(shown_of(names_of(opened, only_short)), u"ONLY~1.TXT");
    EXPECT_EQ(shown_of(names_of(opened, none)), u"(none)");
}

}  // namespace quarry::test
