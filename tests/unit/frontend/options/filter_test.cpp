#include "frontend/options/filter.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::temp_dir;
using test::to_bytes;
using test::write_file;

filter_list filter_of(std::string_view text) {
    filter_list list;
    EXPECT_TRUE(make_filter(list, text)) << text;
    return list;
}

bool passes(std::string_view filter, const std::wstring& path) {
    bool open_failed = true;
    const bool passed = filter_match(nullptr, open_failed, path, filter_of(filter), nullptr);
    EXPECT_FALSE(open_failed);
    return passed;
}

TEST(make_filter, parts_a_text_at_bars_and_at_commas) {
    const filter_list list = filter_of("A.txt|b.doc,c");
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0].name, L"a.txt");
    EXPECT_EQ(list[0].text, L"a.txt");
    EXPECT_EQ(list[1].name, L"b.doc");
    EXPECT_EQ(list[2].name, L"c");
}

TEST(make_filter, nothing_to_match_is_no_filter) {
    for (const char* text : {"", "|", ",", ",|,", "\xFF"}) {
        filter_list list(1);
        EXPECT_FALSE(make_filter(list, text));
        EXPECT_TRUE(list.empty());
    }
}

TEST(make_filter, a_single_star_drops_all_other_alternatives) {
    const filter_list list = filter_of("a.txt|*|b.txt");
    ASSERT_EQ(list.size(), 1U);
    EXPECT_TRUE(list[0].any_name);
    EXPECT_EQ(list[0].text, L"*");
    EXPECT_EQ(list[0].name, L"*");
}

TEST(make_filter, stars_at_the_ends_are_marks) {
    const filter_entry lead = filter_of("*.txt")[0];
    EXPECT_EQ(lead.name, L".txt");
    EXPECT_TRUE(lead.name_lead_star);
    EXPECT_FALSE(lead.name_trail_star);
    const filter_entry trail = filter_of("note*")[0];
    EXPECT_EQ(trail.name, L"note");
    EXPECT_FALSE(trail.name_lead_star);
    EXPECT_TRUE(trail.name_trail_star);
    const filter_entry both = filter_of("**")[0];
    EXPECT_EQ(both.name, L"");
    EXPECT_TRUE(both.name_lead_star);
    EXPECT_TRUE(both.name_trail_star);
    EXPECT_FALSE(both.any_name);
}

TEST(make_filter, a_star_inside_of_a_pattern_is_for_nothing) {
    const filter_entry entry = filter_of("*a*b*")[0];
    EXPECT_EQ(entry.text, L"*a*b*");
    EXPECT_EQ(entry.name, L"ab");
    EXPECT_TRUE(entry.name_lead_star);
    EXPECT_TRUE(entry.name_trail_star);
    const filter_entry inner = filter_of("a*b")[0];
    EXPECT_EQ(inner.name, L"ab");
    EXPECT_FALSE(inner.name_lead_star);
    EXPECT_FALSE(inner.name_trail_star);
}

TEST(make_filter, what_follows_the_first_colon_is_the_pattern_of_the_stream) {
    const filter_entry entry = filter_of("*.txt:*zone*id:x*")[0];
    EXPECT_EQ(entry.text, L"*.txt:*zone*id:x*");
    EXPECT_EQ(entry.name, L".txt");
    EXPECT_TRUE(entry.name_lead_star);
    EXPECT_TRUE(entry.has_stream);
    EXPECT_EQ(entry.stream, L"zoneid:x");
    EXPECT_TRUE(entry.stream_lead_star);
    EXPECT_TRUE(entry.stream_trail_star);
    EXPECT_FALSE(entry.any_stream);
    EXPECT_FALSE(filter_of("a.txt")[0].has_stream);
}

TEST(make_filter, any_stream_is_a_mark_of_the_whole_filter_and_is_on_its_first_alternative) {
    const filter_list list = filter_of("a.txt|b.txt:*");
    EXPECT_TRUE(list[0].any_stream);
    EXPECT_FALSE(list[0].has_stream);
    EXPECT_FALSE(list[1].any_stream);
    EXPECT_TRUE(list[1].has_stream);
    EXPECT_EQ(list[1].stream, L"*");
    EXPECT_EQ(list[1].name, L"b.txt");
}

TEST(make_filter, any_name_with_a_stream_is_one_alternative_among_others) {
    const filter_list list = filter_of("*:s|b.txt");
    ASSERT_EQ(list.size(), 2U);
    EXPECT_TRUE(list[0].any_name);
    EXPECT_EQ(list[0].stream, L"s");
    EXPECT_FALSE(list[1].any_name);
}

TEST(make_filter, a_name_that_begins_with_a_slash_is_a_directory) {
    EXPECT_TRUE(filter_of("/windows")[0].anchored);
    EXPECT_TRUE(filter_of("*/windows")[0].anchored);
    EXPECT_FALSE(filter_of("\\windows")[0].anchored);
}

TEST(filter_match, an_empty_path_never_passes_and_an_empty_list_always_does) {
    bool open_failed = true;
    EXPECT_FALSE(filter_match(nullptr, open_failed, L"", {}, nullptr));
    EXPECT_FALSE(open_failed);
    EXPECT_TRUE(filter_match(nullptr, open_failed, L"/a", {}, nullptr));
    EXPECT_FALSE(passes("*", L""));
}

TEST(filter_match, a_star_passes_all) {
    EXPECT_TRUE(passes("*", L"/a/b"));
    EXPECT_TRUE(passes("*", L"x"));
}

TEST(filter_match, letters_match_in_either_case) {
    EXPECT_TRUE(passes("*.TXT", L"C:\\a\\b.txt"));
    EXPECT_TRUE(passes("*.txt", L"C:\\a\\B.TXT"));
    EXPECT_FALSE(passes("\xC3\x84.txt", L"/\u00E4.txt"));
}

TEST(filter_match, one_alternative_that_matches_is_enough) {
    for (const char* filter : {"*.txt|*.doc", "*.txt,*.doc"}) {
        EXPECT_TRUE(passes(filter, L"/a.txt"));
        EXPECT_TRUE(passes(filter, L"/a/a.doc"));
        EXPECT_FALSE(passes(filter, L"/a.exe"));
    }
}

TEST(filter_match, a_pattern_with_both_stars_is_looked_for_in_the_file_name) {
    EXPECT_TRUE(passes("*part*", L"/dir/a_partial_b"));
    EXPECT_FALSE(passes("*part*", L"/part/b"));
    EXPECT_TRUE(passes("*a*b*", L"/xaby"));
    EXPECT_FALSE(passes("*a*b*", L"/xa-by"));
}

TEST(filter_match, the_first_place_of_the_ending_decides_so_star_txt_does_not_find_a_txt_txt) {
    EXPECT_TRUE(passes("*.txt", L"/a.txt"));
    EXPECT_FALSE(passes("*.txt", L"/a.txt.txt"));
    EXPECT_FALSE(passes("*.txt", L"/a.txt.bak"));
}

TEST(filter_match, a_trailing_star_passes_names_that_begin_so) {
    EXPECT_TRUE(passes("note*", L"/a/notes.txt"));
    EXPECT_FALSE(passes("note*", L"/a/my_notes.txt"));
}

TEST(filter_match, a_pattern_without_stars_is_the_whole_name) {
    EXPECT_TRUE(passes("a.txt", L"/d/a.txt"));
    EXPECT_TRUE(passes("a.txt", L"a.txt"));
    EXPECT_FALSE(passes("a.txt", L"/d/aa.txt"));
    EXPECT_FALSE(passes(":s", L"/d/"));
    // The name of a path holds its stream; a pattern's does not.
    EXPECT_FALSE(passes("a.txt:s", L"/d/a.txt:s"));
}

TEST(filter_match, a_file_in_the_root_keeps_its_separator_as_part_of_its_name) {
    EXPECT_FALSE(passes("a.txt", L"/a.txt"));
    EXPECT_TRUE(passes("*a.txt", L"/a.txt"));
    EXPECT_FALSE(passes("a*", L"/a.txt"));
    EXPECT_TRUE(passes("a.txt", L"c:/a.txt"));
}

TEST(filter_match, a_directory_passes_all_files_below_it_and_nothing_in_a_longer_name) {
    EXPECT_TRUE(passes("/windows", L"/windows/a.txt"));
    EXPECT_TRUE(passes("/windows", L"/Windows/x/a.txt"));
    EXPECT_TRUE(passes("/windows", L"/mnt/windows/x/y/a.txt"));
    EXPECT_FALSE(passes("/windows", L"/windowsold/a.txt"));
    EXPECT_FALSE(passes("/windows", L"/users/windows"));
}

TEST(filter_match, a_directory_is_found_in_a_path_with_the_other_slash) {
    EXPECT_TRUE(passes("/windows", L"c:\\windows\\a.txt"));
    EXPECT_TRUE(passes("/windows/x", L"c:\\Windows\\x\\y\\a.txt"));
    EXPECT_FALSE(passes("/windows", L"c:\\windowsold\\a.txt"));
}

TEST(filter_match, a_directory_may_end_at_a_slash_or_at_a_null_and_at_no_backslash_after_slashes) {
    EXPECT_TRUE(passes("/windows", std::wstring(L"/windows\0x/a.txt", 16)));
    EXPECT_FALSE(passes("/windows", L"/windows\\x\\a.txt"));
}

TEST(filter_match, only_the_first_place_of_a_directory_counts) {
    EXPECT_FALSE(passes("/windows", L"/windowsold/windows/a.txt"));
}

TEST(filter_match, a_directory_that_misses_goes_on_to_the_other_tests) {
    EXPECT_TRUE(passes("/windows", L"/windows"));
    EXPECT_TRUE(passes("*/win*", L"x\\a/windows"));
}

// A single star is a filter of its own; after a name of a star there may be a stream.
TEST(filter_match, any_name_passes_all_also_as_one_alternative_among_others) {
    EXPECT_TRUE(passes("b.txt|*:s", L"/d/other.doc"));
    EXPECT_TRUE(passes("*:s|b.txt", L"/d/other.doc"));
    EXPECT_FALSE(passes("b.txt|c:s", L"/d/other.doc"));
}

TEST(make_signature_filter, takes_pairs_of_digits_and_an_offset) {
    const filter_entry plain = make_signature_filter("4d5A");
    EXPECT_EQ(plain.signature, (std::vector<std::uint8_t>{0x4D, 0x5A}));
    EXPECT_EQ(plain.sig_offset, 0U);
    EXPECT_EQ(make_signature_filter("ff|0x10").sig_offset, 16U);
    EXPECT_EQ(make_signature_filter("ff,512").sig_offset, 512U);
    EXPECT_EQ(make_signature_filter("ff|").sig_offset, 0U);
}

TEST(make_signature_filter, a_pattern_that_is_none_matches_no_file) {
    for (const char* value : {"", "4", "4d5", "xx", "0x4d", "4d 5a", "|5", "g0|1", "4`", "@4"}) {
        EXPECT_TRUE(make_signature_filter(value).signature.empty()) << value;
    }
}

class signature_filter_test : public testing::Test {
  protected:
    void SetUp() override {
        write_file(dir / "a", to_bytes("0123456789"));
        write_file(dir / "empty", {});
    }
    bool fits(std::string_view signature, const char* name) {
        return filter_match(nullptr, open_failed, (dir / name).wstring(), {make_signature_filter(signature)},
                            nullptr);
    }
    temp_dir dir;
    bool open_failed = false;
};

TEST_F(signature_filter_test, the_bytes_of_the_hosts_file_at_that_path_are_compared_at_the_offset) {
    EXPECT_TRUE(fits("3031", "a"));
    EXPECT_TRUE(fits("3132|1", "a"));
    EXPECT_FALSE(fits("3132", "a"));
    EXPECT_TRUE(fits("3839|8", "a"));
    EXPECT_FALSE(open_failed);
}

TEST_F(signature_filter_test, one_that_ends_past_the_end_of_the_file_does_not_fit) {
    EXPECT_FALSE(fits("3839|9", "a"));
    EXPECT_FALSE(fits("39|0xffffffffffffffff", "a"));
    EXPECT_FALSE(fits("30", "empty"));
    EXPECT_FALSE(open_failed);
}

TEST_F(signature_filter_test, a_file_that_cannot_be_opened_is_reported) {
    EXPECT_FALSE(fits("30", "missing"));
    EXPECT_TRUE(open_failed);
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_FALSE(fits("30", "fifo"));
    EXPECT_TRUE(open_failed);
    EXPECT_FALSE(fits("30", "."));
}

// To open a device or a file of the kernel can have an effect. Both of these hold the bytes, or were read as
// if they might.
TEST_F(signature_filter_test, a_device_and_a_file_of_the_kernel_are_not_opened) {
    std::filesystem::create_symlink("/dev/zero", dir / "device");
    std::filesystem::create_symlink("/proc/self/status", dir / "kernel");
    for (const char* name : {"device", "kernel"}) {
        open_failed = false;
        EXPECT_FALSE(fits("4e616d65", name)) << "\"Name\", which the second begins with";
        EXPECT_TRUE(open_failed) << name;
    }
}

TEST_F(signature_filter_test, a_signature_beside_a_star_is_not_looked_for) {
    for (bool filter_entry::*const star : {&filter_entry::name_lead_star, &filter_entry::name_trail_star}) {
        filter_entry entry = make_signature_filter("3031");
        entry.name = L"other";
        entry.*star = true;
        EXPECT_FALSE(filter_match(nullptr, open_failed, (dir / "a").wstring(), {entry}, nullptr));
    }
}

TEST_F(signature_filter_test, a_pattern_that_is_none_opens_no_file) {
    EXPECT_FALSE(fits("zz", "missing"));
    EXPECT_FALSE(open_failed);
}

TEST_F(signature_filter_test, other_alternatives_are_tried_after_a_file_that_cannot_be_opened) {
    filter_list list = {make_signature_filter("30")};
    list.push_back(filter_of("missing")[0]);
    EXPECT_TRUE(filter_match(nullptr, open_failed, (dir / "missing").wstring(), list, nullptr));
    EXPECT_TRUE(open_failed);
}

class range_filter_test : public testing::Test {
  protected:
    void SetUp() override {
        write_file(dir / "a", {});
        path = (dir / "a").wstring();
    }
    bool in(const time_range& range) {
        bool open_failed = false;
        return filter_match(&range, open_failed, path, {}, &stats);
    }
    void set_modified(::time_t seconds) {
        const ::timespec times[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "a").c_str(), times, 0), 0);
    }
    static time_range starting(std::string_view value) {
        time_range range;
        EXPECT_EQ(range.set_start(value), range_result::set);
        return range;
    }
    temp_dir dir;
    std::wstring path;
    uni::fileio_stats stats;
};

TEST_F(range_filter_test, the_times_of_the_hosts_file_of_that_name_are_meant) {
    EXPECT_TRUE(in(starting("2020/01/01")));
    EXPECT_EQ(stats.m_time_kind, ql::type_time::unix_time);
    EXPECT_NE(stats.m_modified, 0U);
    stats.clear();
    EXPECT_FALSE(in(starting("2900/01/01")));
}

TEST_F(range_filter_test, a_file_changed_at_the_very_start_of_1970_is_outside_as_if_its_time_were_unknown) {
    set_modified(0);
    EXPECT_FALSE(in(starting("2000/01/01")));
    stats.clear();
    set_modified(1);
    EXPECT_TRUE(in(starting("2000/01/01")));  // by the time of its last change of status
}

TEST_F(range_filter_test, a_hosts_file_reports_its_times_in_whole_seconds_since_1970) {
    set_modified(1'577'923'200);  // 2020-01-02 00:00:00
    EXPECT_TRUE(in(starting("2000/01/01")));
    EXPECT_EQ(stats.m_modified, 1'577'923'200U);
    EXPECT_GT(stats.m_created, 1'577'923'200U);  // the file's last change of status was in this run
}

TEST_F(range_filter_test, a_path_that_the_host_does_not_have_is_outside) {
    path = L"/no/such/file";
    EXPECT_FALSE(in(starting("1970/01/02")));
}

TEST_F(range_filter_test, times_that_are_known_already_are_not_looked_up) {
    path = L"/no/such/file";
    stats.m_modified = 200'000'000'000'000'000;
    EXPECT_TRUE(in(starting("2020/01/01")));
}

TEST_F(range_filter_test, one_time_that_is_known_is_enough) {
    path = L"/no/such/file";
    stats.m_created = 200'000'000'000'000'000;
    EXPECT_TRUE(in(starting("2020/01/01")));
    EXPECT_EQ(stats.m_modified, 0U);
}

TEST_F(range_filter_test, a_range_that_is_off_or_without_statistics_is_not_looked_at) {
    path = L"/no/such/file";
    EXPECT_TRUE(in(time_range()));
    bool open_failed = false;
    const time_range range = starting("2900/01/01");
    EXPECT_TRUE(filter_match(&range, open_failed, path, {}, nullptr));
}

}  // namespace
}  // namespace quarry
