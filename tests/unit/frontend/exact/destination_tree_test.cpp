#include "frontend/exact/destination_tree.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using names = std::vector<std::u16string>;

class destination_tree : public testing::Test {
  protected:
    // The path of the directory that the names lead to below "out/", or why there is none.
    [[nodiscard]] std::string opened(const names& of_path) const {
        const auto directory = exact::open_tree(base(), of_path, m_guard);
        if (!directory) {
            return without_place(directory.error().text());
        }
        struct ::stat by_path {};
        struct ::stat by_descriptor {};
        EXPECT_EQ(::stat(directory->path().c_str(), &by_path), 0);
        EXPECT_EQ(::fstat(directory->fd(), &by_descriptor), 0);
        EXPECT_EQ(by_path.st_ino, by_descriptor.st_ino);
        return without_place(directory->path());
    }
    [[nodiscard]] std::string base() const { return (m_dir / "out/").string(); }
    [[nodiscard]] std::string without_place(std::string text) const {
        const std::size_t place = text.find(base());
        return place == std::string::npos ? text : text.erase(place, base().size());
    }
    void SetUp() override { fs::create_directory(m_dir / "out"); }

    temp_dir m_dir;
    output_guard m_guard;
};

TEST_F(destination_tree, is_made_down_to_the_last_name) {
    EXPECT_EQ(opened({u"Users", u"anna", u"Desktop"}), "Users/anna/Desktop/");
    EXPECT_TRUE(fs::is_directory(m_dir / "out/Users/anna/Desktop"));
}

TEST_F(destination_tree, without_names_is_the_destination_itself) {
    EXPECT_EQ(opened({}), "");
    EXPECT_TRUE(fs::is_empty(m_dir / "out"));
}

TEST_F(destination_tree, uses_directories_that_are_there) {
    fs::create_directories(m_dir / "out/Users/anna");
    write_file(m_dir / "out/Users/earlier", to_bytes("x"));
    EXPECT_EQ(opened({u"Users", u"anna"}), "Users/anna/");
    EXPECT_EQ(opened({u"Users", u"bert"}), "Users/bert/");
    EXPECT_EQ(read_file(m_dir / "out/Users/earlier"), to_bytes("x"));
}

TEST_F(destination_tree, follows_no_link_and_replaces_no_file) {
    fs::create_directory(m_dir / "elsewhere");
    fs::create_symlink("../elsewhere", m_dir / "out/link");
    fs::create_symlink("nowhere", m_dir / "out/dangling");
    write_file(m_dir / "out/file", to_bytes("x"));
    EXPECT_EQ(opened({u"link"}), "destination link: is a link");
    EXPECT_EQ(opened({u"link", u"below"}), "destination link: is a link");
    EXPECT_EQ(opened({u"dangling"}), "destination dangling: is a link");
    EXPECT_EQ(opened({u"file"}), "destination file: is no directory");
    EXPECT_EQ(opened({u"file", u"below"}), "destination file: is no directory");
    EXPECT_TRUE(fs::is_empty(m_dir / "elsewhere"));
    EXPECT_FALSE(fs::exists(m_dir / "out/nowhere"));
}

TEST_F(destination_tree, of_hostile_names_stays_below_the_destination) {
    EXPECT_EQ(opened({u".."}), "destination \"..\": is no name for a file; name the file with -dst");
    EXPECT_EQ(opened({u"."}), "destination \".\": is no name for a file; name the file with -dst");
    EXPECT_EQ(opened({u"docs", u"..", u"..", u"etc"}),
              "destination \"..\": is no name for a file; name the file with -dst");
    EXPECT_EQ(opened({u""}), "destination \"\": is no name for a file; name the file with -dst");
    EXPECT_EQ(opened({u"../x", u"/etc"}), "..\\u002Fx/\\u002Fetc/");
    EXPECT_EQ(opened({std::u16string(u"a\0b", 3), u"\x1B[2J", u"\xD800"}), "a\\u0000b/\\u001B[2J/\\uD800/");
}

TEST_F(destination_tree, has_names_of_255_bytes_at_most) {
    const std::u16string longest(255, u'x');
    EXPECT_EQ(opened({longest}), std::string(255, 'x') + "/");
    // Two bytes each.
    EXPECT_EQ(opened({std::u16string(128, u'\u00E4')}).substr(0, 20), "destination \u00E4\u00E4\u00E4\u00E4");
    EXPECT_FALSE(exact::open_tree(base(), {longest + u"x"}, m_guard));
}

TEST_F(destination_tree, may_be_deeper_than_a_path_of_the_host) {
    const auto directory = exact::open_tree(base(), names(30, std::u16string(200, u'x')), m_guard);
    ASSERT_TRUE(directory);
    EXPECT_GT(directory->path().size(), 6000u);
}

TEST_F(destination_tree, below_a_directory_that_is_missing_is_not_made) {
    const auto directory = exact::open_tree((m_dir / "none/").string(), {u"docs"}, m_guard);
    ASSERT_FALSE(directory);
    EXPECT_EQ(directory.error().why, "No such file or directory");
}

}  // namespace
}  // namespace quarry::test
