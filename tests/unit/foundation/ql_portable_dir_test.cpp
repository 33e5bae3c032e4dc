#include "foundation/ql_portable_dir.h"

#include "support/temp_dir.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;

// Makes a directory the current one until the end of the scope.
class working_directory {
  public:
    explicit working_directory(const fs::path& path) : m_before(fs::current_path()) {
        fs::current_path(path);
    }
    working_directory(const working_directory&) = delete;
    working_directory& operator=(const working_directory&) = delete;
    ~working_directory() {
        std::error_code ignored;
        fs::current_path(m_before, ignored);
    }

  private:
    fs::path m_before;
};

void write_text(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string text_of(const fs::path& path) {
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
}

struct parted {
    std::string m_directory;
    std::string m_name;
    bool operator==(const parted&) const = default;
};

// Both forms must give the same parts.
parted part(const std::string& path) {
    parted narrow_parts = {"old", "old"};
    EXPECT_EQ(split_path_narrow(narrow_parts.m_directory, narrow_parts.m_name, path), !path.empty());
    std::wstring directory = L"old";
    std::wstring name = L"old";
    EXPECT_EQ(split_path(directory, name, std::wstring(path.begin(), path.end())), !path.empty());
    EXPECT_EQ(std::string(directory.begin(), directory.end()), narrow_parts.m_directory);
    EXPECT_EQ(std::string(name.begin(), name.end()), narrow_parts.m_name);
    return narrow_parts;
}

TEST(split_path, a_path_is_parted_at_its_last_separator) {
    EXPECT_EQ(part("a/b/c"), (parted{"a/b", "c"}));
    EXPECT_EQ(part("/a/c"), (parted{"/a", "c"}));
    EXPECT_EQ(part("a\\b\\c"), (parted{"a\\b", "c"}));
    EXPECT_EQ(part("\\a\\c"), (parted{"\\a", "c"}));
    EXPECT_EQ(part("C:\\c"), (parted{"C:", "c"}));
}

TEST(split_path, an_empty_path_is_a_failure_with_empty_parts) {
    EXPECT_EQ(part(""), (parted{"", ""}));
}

TEST(split_path, the_last_backslash_parts_the_path_even_if_a_slash_is_after_it) {
    EXPECT_EQ(part("a\\b/c"), (parted{"a", "b/c"}));
    EXPECT_EQ(part("a/b\\c"), (parted{"a/b", "c"}));
    EXPECT_EQ(part("/a\\b/c/"), (parted{"/a", "b/c/"}));
}

TEST(split_path, a_separator_in_front_parts_nothing) {
    EXPECT_EQ(part("/c"), (parted{".", "/c"}));
    EXPECT_EQ(part("\\c"), (parted{".", "\\c"}));
    EXPECT_EQ(part("\\a/c"), (parted{".", "\\a/c"}));
    EXPECT_EQ(part("/"), (parted{".", "/"}));
    EXPECT_EQ(part("/.."), (parted{".", "/.."}));
}

TEST(split_path, a_bare_name_lies_in_the_current_directory) {
    EXPECT_EQ(part("name.txt"), (parted{".", "name.txt"}));
    EXPECT_EQ(part("."), (parted{".", "."}));
    EXPECT_EQ(part(".."), (parted{".", ".."}));
}

TEST(split_path, a_name_of_two_dots_goes_to_the_directory_and_leaves_one) {
    EXPECT_EQ(part("a\\.."), (parted{"a\\..", "."}));
    EXPECT_EQ(part("a\\b\\.."), (parted{"a\\b\\..", "."}));
    EXPECT_EQ(part("a/.."), (parted{"a//..", "."}));
    EXPECT_EQ(part("a/b/.."), (parted{"a/b//..", "."}));
    EXPECT_EQ(part("a/..."), (parted{"a", "..."}));
    EXPECT_EQ(part("a/."), (parted{"a", "."}));
}

TEST(split_path, a_separator_at_the_end_leaves_the_name_empty) {
    EXPECT_EQ(part("a/b/"), (parted{"a/b", ""}));
    EXPECT_EQ(part("a\\"), (parted{"a", ""}));
    EXPECT_EQ(part("//"), (parted{"/", ""}));
}

std::string canonical(std::string_view path, char separator = '/') {
    return canonical_path(path, separator);
}

TEST(canonical_path, quotes_become_blanks_which_go_at_the_ends_and_stay_inside) {
    EXPECT_EQ(canonical("\"/evidence/disk one.dd\""), "/evidence/disk one.dd");
    EXPECT_EQ(canonical("'/evidence/disk one.dd'"), "/evidence/disk one.dd");
    EXPECT_EQ(canonical("/a\"b"), "/a b");
    EXPECT_EQ(canonical(" \t/a b\r\n"), "/a b");
}

TEST(canonical_path, single_quotes_are_part_of_the_name_unless_there_are_two) {
    EXPECT_EQ(canonical("/it's"), "/it's");
    EXPECT_EQ(canonical("/'a'b'"), "/'a'b'");
    EXPECT_EQ(canonical("/'a'b"), "/ a b");
}

TEST(canonical_path, nothing_but_quotes_and_blanks_is_empty) {
    EXPECT_EQ(canonical(""), "");
    EXPECT_EQ(canonical("\" \""), "");
    EXPECT_EQ(canonical_path(std::wstring_view(L""), L'/'), L"");
}

TEST(canonical_path, a_path_that_begins_with_its_separator_stays_with_its_doubled_separators) {
    EXPECT_EQ(canonical("//a//b"), "//a//b");
    EXPECT_EQ(canonical("/a/../b/."), "/a/../b/.");
    EXPECT_EQ(canonical("\\\\server\\\\share"), "\\\\server\\\\share");
    EXPECT_EQ(canonical("/a\\b"), "/a\\b");
}

TEST(canonical_path, a_relative_path_is_put_after_the_current_directory) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    const std::string cwd = current_directory();
    EXPECT_EQ(canonical("d.dd"), cwd + "/d.dd");
    EXPECT_EQ(canonical("x"), cwd + "/x");
    EXPECT_EQ(canonical("./d.dd"), cwd + "/d.dd");
    EXPECT_EQ(canonical("sub/d.dd"), cwd + "/sub/d.dd");
    EXPECT_EQ(canonical("./sub/d.dd"), cwd + "/sub/d.dd");
    EXPECT_EQ(canonical("sub/"), cwd + "/sub/");
    EXPECT_EQ(canonical("."), cwd + "/.");
    EXPECT_EQ(canonical("a/./b"), cwd + "/a/./b");
}

TEST(canonical_path, dots_in_the_first_two_characters_of_a_name_are_part_of_it) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    const std::string cwd = current_directory();
    EXPECT_EQ(canonical(".hidden"), cwd + "/.hidden");
    EXPECT_EQ(canonical(".hidden/d.dd"), cwd + "/.hidden/d.dd");
    EXPECT_EQ(canonical("a.b"), cwd + "/a.b");
    EXPECT_EQ(canonical("a.b/d.dd"), cwd + "/a.b/d.dd");
    EXPECT_EQ(canonical("..d/d.dd"), cwd + "/..d/d.dd");
    EXPECT_EQ(canonical("...dd"), cwd + "/...dd");
}

TEST(canonical_path, the_wide_form_goes_through_the_narrow_one) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    const std::string cwd = current_directory();
    EXPECT_EQ(canonical_path(std::wstring_view(L"\x00C4/d.dd"), L'/'),
              std::wstring(cwd.begin(), cwd.end()) + L"/\x00C4/d.dd");
    EXPECT_EQ(canonical_path(std::wstring_view(L"'/a b'"), L'/'), L"/a b");
}

TEST(canonical_path, leading_steps_upwards_each_take_a_level_off_the_current_directory) {
    const test::temp_dir dir;
    fs::create_directories(dir / "one/two");
    const working_directory here(dir / "one/two");
    const std::string top = fs::canonical(dir.path()).string();
    EXPECT_EQ(canonical(".."), top + "/one");
    EXPECT_EQ(canonical("../"), top + "/one/");
    EXPECT_EQ(canonical("../d.dd"), top + "/one/d.dd");
    EXPECT_EQ(canonical("./../d.dd"), top + "/one/d.dd");
    EXPECT_EQ(canonical("../../d.dd"), top + "/d.dd");
    EXPECT_EQ(canonical(".././../sub/d.dd"), top + "/sub/d.dd");
    EXPECT_EQ(canonical("../..x/d.dd"), top + "/one/..x/d.dd");
}

TEST(canonical_path, more_steps_upwards_than_there_are_levels_end_at_the_root) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    std::string up;
    for (int i = 0; i < 40; ++i) {
        up += "../";
    }
    EXPECT_EQ(canonical(up + "d.dd"), "/d.dd");
    EXPECT_EQ(canonical(up.substr(0, up.size() - 1)), "/");
}

TEST(canonical_path, a_step_upwards_after_a_name_stays_for_the_system) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_EQ(canonical("sub/../d.dd"), current_directory() + "/sub/../d.dd");
    EXPECT_EQ(canonical("sub/.."), current_directory() + "/sub/..");
}

TEST(canonical_path, doubled_separators_become_one_in_a_relative_path) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_EQ(canonical("a//b////c"), current_directory() + "/a/b/c");
    const working_directory root("/");
    EXPECT_EQ(canonical("a"), "/a");
    EXPECT_EQ(canonical("../a"), "/a");
}

TEST(canonical_path, the_separator_is_the_paths_own_and_the_default_only_without_one) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    const std::string cwd = current_directory();
    EXPECT_EQ(canonical("d.dd", '\\'), cwd + "\\d.dd");
    EXPECT_EQ(canonical("a\\\\b"), cwd + "\\a\\b");
    EXPECT_EQ(canonical("a/b", '\\'), cwd + "/a/b");
    EXPECT_EQ(canonical("a\\b//c"), cwd + "/a\\b/c");
    EXPECT_EQ(canonical("\\a/b"), cwd + "/\\a/b");
}

TEST(canonical_path, with_backslashes_the_whole_current_directory_is_one_level) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_EQ(canonical("..\\d.dd"), "\\d.dd");
    EXPECT_EQ(canonical("..", '\\'), "\\");
}

TEST(canonical_path, a_drive_letter_leads_an_absolute_path) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_EQ(canonical("C:\\sub\\\\d.dd"), "C:\\sub\\d.dd");
    EXPECT_EQ(canonical("C:/sub"), "/C:/sub");
    EXPECT_EQ(canonical("C:d.dd"), current_directory() + "/C:d.dd");
}

TEST(canonical_path, a_relative_path_is_a_failure_where_the_current_directory_is_not_known) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    // Three names of 200 bytes: too long for the buffer of 512 bytes.
    for (int level = 0; level < 3; ++level) {
        const std::string name(200, 'd');
        fs::create_directory(name);
        fs::current_path(name);
    }
    EXPECT_EQ(current_directory(), "");
    EXPECT_EQ(canonical("d.dd"), "");
    EXPECT_EQ(canonical("/d.dd"), "/d.dd");
}

TEST(current_directory, it_is_the_systems_own_path_up_to_511_bytes) {
    const test::temp_dir dir;
    const std::string top = fs::canonical(dir.path()).string();
    const std::string outer = std::string(200, 'd') + "/" + std::string(200, 'e') + "/";
    const std::string inner = outer + std::string(511 - 1 - outer.size() - top.size(), 'f');
    fs::create_directories(dir / inner);
    const working_directory here(dir / inner);
    EXPECT_EQ(current_directory(), top + "/" + inner);
    EXPECT_EQ(current_directory().size(), 511u);
    fs::create_directory("g");
    fs::current_path("g");
    EXPECT_EQ(current_directory(), "");
}

TEST(shadow_prefix, the_two_flags_choose_case_and_root) {
    EXPECT_EQ(shadow_prefix(false, true), "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy");
    EXPECT_EQ(shadow_prefix(true, true), "\\\\?\\globalroot\\device\\harddiskvolumeshadowcopy");
    EXPECT_EQ(shadow_prefix(false, false), "\\Device\\HarddiskVolumeShadowCopy");
    EXPECT_EQ(shadow_prefix(true, false), "\\device\\harddiskvolumeshadowcopy");
}

TEST(make_directories, every_level_is_made) {
    const test::temp_dir dir;
    EXPECT_TRUE(make_directories((dir / "a/b/c").string()));
    EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
    EXPECT_TRUE(make_directories((dir / "a/b/c").string()));
    EXPECT_TRUE(make_directories((dir / "d//e/").string()));
    EXPECT_TRUE(fs::is_directory(dir / "d/e"));
    EXPECT_TRUE(make_directories("/"));
}

TEST(make_directories, a_relative_path_begins_in_the_current_directory) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_TRUE(make_directories("a/b"));
    EXPECT_TRUE(make_directories("c"));
    EXPECT_TRUE(fs::is_directory(dir / "a/b"));
    EXPECT_TRUE(fs::is_directory(dir / "c"));
}

TEST(make_directories, backslashes_separate_and_double_quotes_are_left_out) {
    const test::temp_dir dir;
    EXPECT_TRUE(make_directories("\"" + dir.path().string() + "\\a\\b\""));
    EXPECT_TRUE(fs::is_directory(dir / "a/b"));
}

TEST(make_directories, a_name_that_ends_in_a_colon_is_not_made_on_the_way) {
    const test::temp_dir dir;
    EXPECT_FALSE(make_directories((dir / "C:/a").string()));
    EXPECT_FALSE(fs::exists(dir / "C:"));
    fs::create_directory(dir / "C:");
    EXPECT_TRUE(make_directories((dir / "C:/a").string()));
    EXPECT_TRUE(fs::is_directory(dir / "C:/a"));
    EXPECT_TRUE(make_directories((dir / "D:").string()));
    EXPECT_TRUE(fs::is_directory(dir / "D:"));
}

TEST(make_directories, a_device_prefix_keeps_its_backslashes) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_TRUE(make_directories("\\\\?\\a\\b"));
    EXPECT_TRUE(fs::is_directory(dir / "\\\\?\\a/b"));
    EXPECT_TRUE(make_directories("\\\\.\\c"));
    EXPECT_TRUE(fs::is_directory(dir / "\\\\.\\c"));
}

TEST(make_directories, a_file_in_the_way_is_a_failure) {
    const test::temp_dir dir;
    write_text(dir / "file", "x");
    EXPECT_FALSE(make_directories((dir / "file").string()));
    EXPECT_FALSE(make_directories((dir / "file/sub").string()));
    EXPECT_EQ(text_of(dir / "file"), "x");
    EXPECT_FALSE(make_directories(""));
}

TEST(create_file, a_file_is_written_with_the_directories_above_it) {
    const test::temp_dir dir;
    const std::string path = (dir / "a/b/file").string();
    EXPECT_TRUE(create_file(path,
                            "12\0"
                            "45",
                            5));
    EXPECT_EQ(text_of(path), std::string("12\0"
                                         "45",
                                         5));
    EXPECT_TRUE(create_file(path, "x", 1));
    EXPECT_EQ(text_of(path), "x");
    EXPECT_TRUE(create_file(path, nullptr, 0));
    EXPECT_EQ(text_of(path), "");
}

TEST(create_file, a_bare_name_and_backslashes_are_understood) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    EXPECT_TRUE(create_file("file", "x", 1));
    EXPECT_EQ(text_of(dir / "file"), "x");
    EXPECT_TRUE(create_file("a\\file", "y", 1));
    EXPECT_EQ(text_of(dir / "a/file"), "y");
}

TEST(create_file, what_cannot_be_written_is_a_failure) {
    const test::temp_dir dir;
    write_text(dir / "file", "x");
    EXPECT_FALSE(create_file((dir / "file/below").string(), "y", 1));
    EXPECT_FALSE(create_file(dir.path().string(), "y", 1));
    EXPECT_FALSE(create_file((dir / "new").string(), nullptr, 1));
    EXPECT_FALSE(fs::exists(dir / "new"));
    EXPECT_FALSE(create_file("/dev/full", "y", 1));
}

struct listed {
    std::string m_path;
    std::string m_name;
    std::int32_t m_depth;
    bool m_is_dir;
    bool operator==(const listed&) const = default;
};

std::vector<listed> listing(const std::string& directory, bool directories_only, bool forward_slash = true) {
    qlportdir::_DIR_NODE_STL nodes;
    EXPECT_TRUE(qlportdir::list_directory(nodes, directory, 4, directories_only, forward_slash));
    std::vector<listed> out;
    for (const qlportdir::_DIR_NODE& node : nodes) {
        out.push_back({node.m_path, node.m_name, node.m_depth, node.is_dir()});
    }
    return out;
}

TEST(list_directory, entries_come_by_name_with_directories_marked_and_one_level_deeper) {
    const test::temp_dir dir;
    const std::string top = dir.path().string() + "/";
    fs::create_directories(dir / "sub/inner");
    write_text(dir / "b", "");
    write_text(dir / ".a", "");
    const std::vector<listed> expected = {
        {top + ".a", ".a", 4, false}, {top + "b", "b", 4, false}, {top + "sub/", "sub", 5, true}};
    EXPECT_EQ(listing(top, false), expected);
    EXPECT_EQ(listing(top, true), (std::vector<listed>{{top + "sub/", "sub", 5, true}}));
}

TEST(list_directory, a_link_counts_as_a_link_and_not_as_what_it_leads_to) {
    const test::temp_dir dir;
    const std::string top = dir.path().string() + "/";
    fs::create_directory(dir / "real");
    fs::create_directory_symlink(dir / "real", dir / "link");
    EXPECT_EQ(listing(top, true), (std::vector<listed>{{top + "real/", "real", 5, true}}));
    EXPECT_EQ(listing(top, false)[0], (listed{top + "link", "link", 4, false}));
}

TEST(list_directory, with_backslashes_the_directory_is_read_and_its_entries_are_written_with_them) {
    const test::temp_dir dir;
    fs::create_directories(dir / "sub/inner");
    const std::string top = dir.path().string() + "\\sub\\";
    EXPECT_EQ(listing(top, true, false), (std::vector<listed>{{top + "inner\\", "inner", 5, true}}));
}

TEST(list_directory, entries_are_added_to_those_that_the_list_has) {
    const test::temp_dir dir;
    write_text(dir / "a", "");
    qlportdir::_DIR_NODE_STL nodes(1);
    EXPECT_TRUE(qlportdir::list_directory(nodes, dir.path().string() + "/", 0, false, true));
    EXPECT_EQ(nodes.size(), 2u);
}

TEST(list_directory, a_directory_that_cannot_be_opened_is_a_failure) {
    const test::temp_dir dir;
    write_text(dir / "file", "");
    qlportdir::_DIR_NODE_STL nodes;
    EXPECT_FALSE(qlportdir::list_directory(nodes, (dir / "absent/").string(), 0, false, true));
    EXPECT_FALSE(qlportdir::list_directory(nodes, (dir / "file").string(), 0, false, true));
    EXPECT_TRUE(nodes.empty());
}

TEST(list_directory_death, a_node_that_was_not_filled_from_a_stat_mode_must_not_be_asked) {
    const qlportdir::_DIR_NODE node;
    EXPECT_DEATH((void)node.is_dir(), "m_using_st_mode_flags.*ql_portable_dir");
}

TEST(expand_wildcards, each_subdirectory_takes_the_place_of_the_star) {
    const test::temp_dir dir;
    const std::string top = dir.path().string();
    for (const char* name : {"b/x", "a/x", "c/y"}) {
        fs::create_directories(dir / name);
    }
    write_text(dir / "file", "");
    std::vector<std::string> paths = {top + "/*/x", "/other"};
    qlportdir::expand_wildcards(paths, true);
    EXPECT_EQ(paths, (std::vector<std::string>{top + "/a/x", "/other", top + "/b/x", top + "/c/x"}));
}

TEST(expand_wildcards, several_levels_are_replaced) {
    const test::temp_dir dir;
    const std::string top = dir.path().string();
    for (const char* name : {"a/1", "a/2", "b/3"}) {
        fs::create_directories(dir / name);
    }
    std::vector<std::string> paths = {top + "/*/*/f"};
    qlportdir::expand_wildcards(paths, true);
    EXPECT_EQ(paths, (std::vector<std::string>{top + "/a/1/f", top + "/b/3/f", top + "/a/2/f"}));
}

TEST(expand_wildcards, a_directory_that_is_called_star_is_put_in_and_not_taken_for_a_wildcard) {
    const test::temp_dir dir;
    const std::string top = dir.path().string();
    fs::create_directories(dir / "*");
    fs::create_directories(dir / "!");
    std::vector<std::string> paths = {top + "/*/f"};
    qlportdir::expand_wildcards(paths, true);
    EXPECT_EQ(paths, (std::vector<std::string>{top + "/!/f", top + "/*/f"}));
}

TEST(expand_wildcards, a_path_stays_where_there_is_no_subdirectory_or_no_wildcard) {
    const test::temp_dir dir;
    const std::string top = dir.path().string();
    const std::vector<std::string> before = {top + "/*/f", top + "/absent/*/f", top + "/*", top + "/*.*/f",
                                             "",           top + "\\*\\f"};
    std::vector<std::string> paths = before;
    qlportdir::expand_wildcards(paths, true);
    EXPECT_EQ(paths, before);
}

TEST(expand_wildcards, backslashes_around_the_star_count_without_the_forward_slash_flag) {
    const test::temp_dir dir;
    const std::string top = dir.path().string();
    fs::create_directories(dir / "a/b");
    std::vector<std::string> paths = {top + "\\*\\*\\f", top + "/*/f"};
    qlportdir::expand_wildcards(paths, false);
    EXPECT_EQ(paths, (std::vector<std::string>{top + "\\a\\b\\f", top + "/*/f"}));
}

TEST(delete_file, a_file_is_removed_by_an_absolute_and_a_relative_path) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    write_text(dir / "one", "");
    write_text(dir / "two", "");
    EXPECT_TRUE(delete_file((dir / "one").string()));
    EXPECT_TRUE(delete_file("./two"));
    EXPECT_TRUE(fs::is_empty(dir.path()));
    EXPECT_FALSE(delete_file("./two"));
    EXPECT_FALSE(delete_file(""));
}

TEST(delete_file, quotes_around_a_path_of_more_than_two_characters_are_taken_off) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    write_text(dir / "a b", "");
    EXPECT_TRUE(delete_file("\"a b\""));
    EXPECT_FALSE(fs::exists(dir / "a b"));
}

TEST(delete_file, a_short_path_and_one_with_a_drive_letter_stay_as_they_are) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    write_text(dir / " \"", "");
    write_text(dir / "x:'a'", "");
    EXPECT_TRUE(delete_file(" \""));
    EXPECT_TRUE(delete_file("x:'a'"));
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(rename_file, a_file_gets_its_new_name) {
    const test::temp_dir dir;
    write_text(dir / "old", "x");
    write_text(dir / "new", "y");
    EXPECT_TRUE(rename_file((dir / "old").string(), (dir / "new").string(), false));
    EXPECT_FALSE(fs::exists(dir / "old"));
    EXPECT_EQ(text_of(dir / "new"), "x");
    EXPECT_FALSE(rename_file((dir / "old").string(), (dir / "new").string(), false));
    EXPECT_EQ(text_of(dir / "new"), "x");
}

TEST(rename_file, only_the_flag_makes_paths_canonical) {
    const test::temp_dir dir;
    const working_directory here(dir.path());
    write_text(dir / "\"old\"", "quoted");
    write_text(dir / "old", "plain");
    EXPECT_TRUE(rename_file("\"old\"", "\"new\"", false));
    EXPECT_EQ(text_of(dir / "\"new\""), "quoted");
    EXPECT_TRUE(rename_file("\"old\"", "\"new\"", true));
    EXPECT_EQ(text_of(dir / "new"), "plain");
}

TEST(file_times, the_modification_time_is_a_filetime_of_whole_seconds) {
    const test::temp_dir dir;
    write_text(dir / "file", "");
    // 2001-09-09 01:46:40 UTC is unix second 1000000000.
    const struct ::timespec times[2] = {{0, 0}, {1000000000, 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "file").c_str(), times, 0), 0);
    std::uint64_t modified = 1;
    std::uint64_t created = 1;
    EXPECT_TRUE(file_times(modified, created, (dir / "file").string()));
    EXPECT_EQ(modified, 126444736000000000u);
}

TEST(file_times, the_creation_time_is_that_of_the_hosts_file_whatever_its_modification_time_says) {
    const test::temp_dir dir;
    const auto before = static_cast<std::uint64_t>(::time(nullptr));
    write_text(dir / "file", "");
    const struct ::timespec times[2] = {{0, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (dir / "file").c_str(), times, 0), 0);
    std::uint64_t modified = 0;
    std::uint64_t created = 0;
    EXPECT_TRUE(file_times(modified, created, (dir / "file").string()));
    // A file system may round its clock down to the last tick, hence a second on either side.
    EXPECT_GE(created, (before - 1) * 10000000 + 116444736000000000u);
    EXPECT_LE(created, (static_cast<std::uint64_t>(::time(nullptr)) + 1) * 10000000 + 116444736000000000u);
    EXPECT_EQ(created % 10000000, 0u);
}

TEST(file_times, a_path_that_cannot_be_read_gives_zeros) {
    const test::temp_dir dir;
    std::uint64_t modified = 1;
    std::uint64_t created = 1;
    EXPECT_FALSE(file_times(modified, created, (dir / "absent").string()));
    EXPECT_EQ(modified, 0u);
    EXPECT_EQ(created, 0u);
}

TEST(file_size, the_size_is_in_bytes_and_zero_for_a_path_that_cannot_be_read) {
    const test::temp_dir dir;
    write_text(dir / "file", "12345");
    std::uint64_t size = 1;
    EXPECT_TRUE(file_size(size, (dir / "file").string()));
    EXPECT_EQ(size, 5u);
    EXPECT_FALSE(file_size(size, (dir / "absent").string()));
    EXPECT_EQ(size, 0u);
}

TEST(file_size, a_size_above_32_bits_is_whole) {
    const test::temp_dir dir;
    write_text(dir / "file", "");
    fs::resize_file(dir / "file", 0x123456789);
    std::uint64_t size = 0;
    EXPECT_TRUE(file_size(size, (dir / "file").string()));
    EXPECT_EQ(size, 0x123456789u);
}

TEST(executable_path, it_is_the_path_of_the_running_program) {
    std::string path;
    ASSERT_TRUE(executable_path(path));
    EXPECT_EQ(path.front(), '/');
    EXPECT_TRUE(fs::equivalent(path, "/proc/self/exe"));
}

TEST(same_file, one_file_is_found_through_other_spellings_hard_links_and_links) {
    const test::temp_dir dir;
    write_text(dir / "file", "");
    fs::create_hard_link(dir / "file", dir / "hard");
    fs::create_symlink("file", dir / "soft");
    const std::string file = (dir / "file").string();
    EXPECT_TRUE(same_file(file, file));
    EXPECT_TRUE(same_file(file, (dir / "./file").string()));
    EXPECT_TRUE(same_file(file, (dir / "hard").string()));
    EXPECT_TRUE(same_file((dir / "soft").string(), file));
}

TEST(same_file, other_files_and_paths_without_a_file_are_not_the_same) {
    const test::temp_dir dir;
    write_text(dir / "file", "same text");
    write_text(dir / "other", "same text");
    const std::string absent = (dir / "absent").string();
    EXPECT_FALSE(same_file((dir / "file").string(), (dir / "other").string()));
    EXPECT_FALSE(same_file((dir / "file").string(), absent));
    EXPECT_FALSE(same_file(absent, (dir / "file").string()));
    EXPECT_FALSE(same_file(absent, absent));
}

}  // namespace
}  // namespace quarry
