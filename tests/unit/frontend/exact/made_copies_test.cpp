#include "frontend/exact/made_copies.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using exact::host_file;
using exact::made_copies;

TEST(made_copies, know_the_line_of_each_file_and_of_no_other) {
    made_copies made;
    EXPECT_FALSE(made.line_of({1, 100}));
    made.add({1, 100}, 7);
    made.add({2, 100}, 8);
    EXPECT_EQ(made.line_of({1, 100}), 7u);
    EXPECT_EQ(made.line_of({2, 100}), 8u);
    EXPECT_FALSE(made.line_of({1, 101}));
    EXPECT_FALSE(made.line_of({3, 100}));
}

TEST(made_copies, know_a_hundred_thousand_files) {
    made_copies made;
    for (std::uint64_t file = 1; file <= 100000; ++file) {
        made.add({1, file * 4096}, file);
    }
    for (std::uint64_t file = 1; file <= 100000; ++file) {
        ASSERT_EQ(made.line_of({1, file * 4096}), file);
        ASSERT_FALSE(made.line_of({1, file * 4096 + 1}));
    }
}

TEST(made_copies, take_the_last_line_of_a_file_whose_inode_is_given_again) {
    made_copies made;
    made.add({1, 100}, 7);
    made.add({1, 100}, 9);
    EXPECT_EQ(made.line_of({1, 100}), 9u);
}

TEST(file_at, is_the_file_of_a_name_and_a_link_itself) {
    const temp_dir dir;
    write_file(dir / "a", to_bytes("x"));
    std::filesystem::create_hard_link(dir / "a", dir / "b");
    std::filesystem::create_symlink("a", dir / "link");
    const auto file = exact::file_at((dir / "a").string());
    const auto same = exact::file_at((dir / "b").string());
    const auto link = exact::file_at((dir / "link").string());
    ASSERT_TRUE(file && same && link);
    EXPECT_EQ(file->inode, same->inode);
    EXPECT_NE(file->inode, link->inode);
    EXPECT_FALSE(exact::file_at((dir / "none").string()));
}

}  // namespace
}  // namespace quarry::test
