#include "frontend/copy/stdin_stream_ex.h"

#include "frontend/options/filter.h"
#include "support/standard_input.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>

#include <gtest/gtest.h>

namespace qlportdir {
namespace {

using quarry::test::temp_dir;
using quarry::test::write_file;

class walk_test : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"a.txt", "b.doc", "sub/c.txt", "sub/deep/d.txt", "sub/deep/deeper/e.txt"}) {
            std::filesystem::create_directories((dir / name).parent_path());
            write_file(dir / name, {});
        }
    }
    std::vector<std::string> walk(std::int32_t depth, std::string_view filter,
                                  const std::string& ending = "") {
        quarry::filter_list list;
        quarry::make_filter(list, filter);
        stdin_stream_ex paths(nullptr);
        EXPECT_TRUE(paths.open_enum(dir.path().wstring() + quarry_ending(ending), depth, list));
        EXPECT_TRUE(paths.is_open());
        std::vector<std::string> found;
        std::string line;
        while (paths.getline(line, true)) {
            found.push_back(line.substr(dir.path().string().size() + 1));
        }
        EXPECT_EQ(line, "");
        std::sort(found.begin(), found.end());
        return found;
    }
    static std::wstring quarry_ending(const std::string& text) { return {text.begin(), text.end()}; }
    using names = std::vector<std::string>;
    temp_dir dir;
};

TEST_F(walk_test, of_depth_0_gives_the_files_of_the_directory_itself) {
    EXPECT_EQ(walk(0, ""), (names{"a.txt", "b.doc"}));
    EXPECT_EQ(walk(0, "", "/"), (names{"a.txt", "b.doc"}));
}

TEST_F(walk_test, goes_as_many_levels_down_as_it_is_asked_to) {
    EXPECT_EQ(walk(1, ""), (names{"a.txt", "b.doc", "sub/c.txt"}));
    EXPECT_EQ(walk(2, ""), (names{"a.txt", "b.doc", "sub/c.txt", "sub/deep/d.txt"}));
    EXPECT_EQ(walk(100, ""),
              (names{"a.txt", "b.doc", "sub/c.txt", "sub/deep/d.txt", "sub/deep/deeper/e.txt"}));
    EXPECT_EQ(walk(-1, ""), names{});
}

TEST_F(walk_test, gives_files_that_pass_the_filter_and_looks_into_all_directories) {
    EXPECT_EQ(walk(1, "*.txt"), (names{"a.txt", "sub/c.txt"}));
}

TEST_F(walk_test, takes_links_to_directories_for_files_and_so_ends) {
    std::filesystem::create_directory_symlink(dir.path(), dir / "sub/loop");
    EXPECT_EQ(walk(100, "loop"), names{"sub/loop"});
}

TEST_F(walk_test, leaves_out_names_that_are_no_utf_8_and_never_takes_one_for_the_root) {
    std::filesystem::create_directories(dir / "\xFF/below");
    write_file(dir / "\xFF/below/f.txt", {});
    write_file(dir / "sub/\xFF.txt", {});
    EXPECT_EQ(walk(2, ""), (names{"a.txt", "b.doc", "sub/c.txt", "sub/deep/d.txt"}));
}

TEST_F(walk_test, of_a_directory_that_is_missing_finds_nothing) {
    EXPECT_EQ(walk(3, "", "/missing"), names{});
}

TEST_F(walk_test, hands_out_wide_paths_too) {
    stdin_stream_ex paths(nullptr);
    ASSERT_TRUE(paths.open_enum((dir / "sub").wstring(), 0, {}));
    std::wstring line;
    EXPECT_TRUE(paths.getline(line, true));
    EXPECT_EQ(line, (dir / "sub/c.txt").wstring());
    EXPECT_FALSE(paths.getline(line, true));
    EXPECT_EQ(line, L"");
}

TEST_F(walk_test, opening_again_forgets_the_walk_before) {
    stdin_stream_ex paths(nullptr);
    std::string line;
    ASSERT_TRUE(paths.open_enum(dir.path().wstring(), 5, {}));
    ASSERT_TRUE(paths.getline(line, true));
    ASSERT_TRUE(paths.open_enum((dir / "sub").wstring(), 0, {}));
    ASSERT_TRUE(paths.getline(line, true));
    EXPECT_EQ(line, dir / "sub/c.txt");
    EXPECT_FALSE(paths.getline(line, true));
    ASSERT_TRUE(paths.open_enum(dir.path().wstring(), 5, {}));
    ASSERT_TRUE(paths.open_stdin(true));
    const quarry::test::standard_input redirected(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(paths.getline(line, true));
}

TEST_F(walk_test, of_a_directory_whose_name_begins_with_two_backslashes_hands_out_cleaned_paths) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(dir.path());
    std::filesystem::create_directory("\\\\dir");
    write_file("\\\\dir/file", {});
    write_file("\\\\dir/" + std::string(41, 'x'), {});
    stdin_stream_ex paths(nullptr);
    ASSERT_TRUE(paths.open_enum(L"\\\\dir", 0, {}));
    std::string line;
    EXPECT_TRUE(paths.getline(line, true));
    EXPECT_EQ(line, "");
    EXPECT_TRUE(paths.getline(line, true));
    EXPECT_EQ(line, "r/" + std::string(41, 'x'));
    EXPECT_FALSE(paths.getline(line, true));
    std::filesystem::current_path(before);
}

TEST(stdin_stream_ex, an_empty_directory_name_cannot_be_opened) {
    stdin_stream_ex paths(nullptr);
    EXPECT_FALSE(paths.open_enum(L"", 1, {}));
    EXPECT_FALSE(paths.is_open());
}

TEST(stdin_stream_ex, opening_standard_input_reports_open) {
    stdin_stream_ex paths(nullptr);
    EXPECT_TRUE(paths.open_stdin(true));
    EXPECT_TRUE(paths.is_open());
}

std::wstring cleaned(std::wstring path) {
    clean_found_path(path);
    return path;
}

TEST(clean_found_path, leaves_paths_of_this_host_as_they_are) {
    EXPECT_EQ(cleaned(L"/a/b"), L"/a/b");
    EXPECT_EQ(cleaned(L"\\\\ab"), L"\\\\ab");  // four characters
    EXPECT_EQ(cleaned(std::wstring(60, L'a')), std::wstring(60, L'a'));
}

TEST(clean_found_path, a_long_device_path_loses_its_prefix_unless_it_names_a_global_object) {
    const std::wstring rest(50, L'x');
    EXPECT_EQ(cleaned(L"\\\\?\\" + rest), rest);
    EXPECT_EQ(cleaned(L"\\\\?\\GLOBALROOT" + rest), L"\\\\?\\GLOBALROOT" + rest);
    EXPECT_EQ(cleaned(L"\\\\?\\Global" + rest), L"\\\\?\\Global" + rest);
    // 47 characters lose their prefix, 46 all.
    EXPECT_EQ(cleaned(L"\\\\?\\" + std::wstring(43, L'x')), std::wstring(43, L'x'));
    EXPECT_EQ(cleaned(L"\\\\?\\" + std::wstring(42, L'x')), L"");
    EXPECT_EQ(cleaned(L"\\\\?\\GLOBALROOT"), L"");
}

}  // namespace
}  // namespace qlportdir
