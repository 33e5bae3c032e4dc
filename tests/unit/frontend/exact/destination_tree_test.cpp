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

// A path of the host has 4,095 bytes at most, before the zero byte.
TEST_F(destination_tree, is_not_begun_where_the_whole_path_is_too_long_for_the_host) {
    const std::size_t room = 4095 - base().size();
    // Each with its separator.
    names deep(room / 201, std::u16string(200, u'x'));
    const std::size_t rest = room - deep.size() * 201;
    ASSERT_TRUE(exact::open_tree(base(), deep, m_guard, rest));
    fs::remove_all(m_dir / "out");
    fs::create_directory(m_dir / "out");
    const auto longer = exact::open_tree(base(), deep, m_guard, rest + 1);
    ASSERT_FALSE(longer);
    EXPECT_EQ(longer.error().code, exact::failure_code::create);
    EXPECT_EQ(longer.error().why,
              "with the directories of the path the name has 4096 bytes, 4095 are possible; "
              "leave -tree out");
    EXPECT_TRUE(fs::is_empty(m_dir / "out"));
}

TEST_F(destination_tree, makes_nothing_where_one_of_the_names_is_impossible) {
    EXPECT_EQ(opened({u"docs", u".."}), "destination \"..\": is no name for a file; name the file with -dst");
    EXPECT_TRUE(fs::is_empty(m_dir / "out"));
}

TEST_F(destination_tree, that_is_made_for_nothing_is_removed_down_to_what_was_there) {
    fs::create_directory(m_dir / "out/Users");
    {
        const auto directory = exact::open_tree(base(), {u"Users", u"anna", u"Desktop"}, m_guard);
        ASSERT_TRUE(directory);
        EXPECT_EQ(directory->made(), (std::vector<std::string>{"anna", "Desktop"}));
        const exact::made_directories made(*directory);
        EXPECT_TRUE(fs::exists(m_dir / "out/Users/anna/Desktop"));
    }
    EXPECT_TRUE(fs::is_empty(m_dir / "out/Users"));
    // What somebody has put there stays, with all that is above it.
    {
        const auto directory = exact::open_tree(base(), {u"Users", u"anna", u"Desktop"}, m_guard);
        ASSERT_TRUE(directory);
        const exact::made_directories made(*directory);
        write_file(m_dir / "out/Users/anna/note", to_bytes("x"));
    }
    EXPECT_FALSE(fs::exists(m_dir / "out/Users/anna/Desktop"));
    EXPECT_TRUE(fs::exists(m_dir / "out/Users/anna/note"));
    {
        const auto directory = exact::open_tree(base(), {u"kept", u"too"}, m_guard);
        ASSERT_TRUE(directory);
        exact::made_directories made(*directory);
        made.keep();
    }
    EXPECT_TRUE(fs::exists(m_dir / "out/kept/too"));
    ASSERT_TRUE(exact::open_tree(base(), {u"kept", u"too"}, m_guard));
    EXPECT_TRUE(exact::open_tree(base(), {u"kept", u"too"}, m_guard)->made().empty());
}

TEST_F(destination_tree, ends_at_what_the_host_neither_opens_nor_makes) {
    const auto directory = exact::open_tree(base(), {u"gone"}, m_guard);
    ASSERT_TRUE(directory);
    const auto long_name = directory->child(std::string(256, 'a'), m_guard);
    ASSERT_FALSE(long_name);
    EXPECT_EQ(long_name.error().why, "File name too long");
    fs::remove(m_dir / "out/gone");
    const auto orphan = directory->child("a", m_guard);
    ASSERT_FALSE(orphan);
    EXPECT_EQ(orphan.error().why, "No such file or directory");
    EXPECT_TRUE(fs::is_empty(m_dir / "out"));
}

TEST_F(destination_tree, below_a_directory_that_is_missing_is_not_made) {
    const auto directory = exact::open_tree((m_dir / "none/").string(), {u"docs"}, m_guard);
    ASSERT_FALSE(directory);
    EXPECT_EQ(directory.error().why, "No such file or directory");
}

}  // namespace
}  // namespace quarry::test
