#include "frontend/output/creation_check.h"

#include "support/requirements.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::temp_dir;
using test::to_bytes;
using test::write_file;
namespace fs = std::filesystem;

bool can_be_made(const std::string& path, bool append) {
    return can_be_created(output_guard(), path, output_kind::trial, append);
}

TEST(creation_check, leaves_no_file_behind) {
    const temp_dir dir;
    EXPECT_TRUE(can_be_made(dir / "new", false));
    EXPECT_TRUE(can_be_made(dir / "new", true));
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(creation_check, an_ordinary_file_that_was_there_before_is_gone_afterwards) {
    for (const bool append : {false, true}) {
        const temp_dir dir;
        write_file(dir / "old", to_bytes("old"));
        EXPECT_TRUE(can_be_made(dir / "old", append));
        EXPECT_FALSE(fs::exists(dir / "old"));
    }
}

TEST(creation_check, a_link_and_what_it_leads_to_stay) {
    const temp_dir dir;
    write_file(dir / "old", to_bytes("old"));
    fs::create_symlink(dir / "old", dir / "link");
    EXPECT_TRUE(can_be_made(dir / "link", false));
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_EQ(test::read_file(dir / "old"), to_bytes("old"));
}

TEST(creation_check, a_link_to_nothing_leads_to_nothing_afterwards) {
    const temp_dir dir;
    fs::create_symlink("missing", dir / "link");
    EXPECT_TRUE(can_be_made(dir / "link", false));
    EXPECT_TRUE(fs::is_symlink(dir / "link"));
    EXPECT_FALSE(fs::exists(dir / "missing"));
}

TEST(creation_check, directories_and_names_that_cannot_be_are_refused) {
    const temp_dir dir;
    EXPECT_FALSE(can_be_made(dir.path(), false));
    EXPECT_FALSE(can_be_made(dir.path().string() + "/", false));
    EXPECT_FALSE(can_be_made(dir / "no/such/dir", false));
    EXPECT_FALSE(can_be_made(dir / std::string(4096, 'x'), false));
    EXPECT_FALSE(can_be_made("", false));
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(creation_check, devices_pass_and_stay) {
    EXPECT_TRUE(can_be_made("/dev/null", false));
    EXPECT_TRUE(fs::exists("/dev/null"));
    EXPECT_TRUE(can_be_made("/dev/full", false));
    EXPECT_TRUE(fs::exists("/dev/full"));
}

TEST(creation_check, what_the_guard_protects_is_refused_and_stays) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("evidence"));
    output_guard guard;
    guard.add_source(dir / "image");
    EXPECT_FALSE(can_be_created(guard, dir / "image", output_kind::trial, false));
    EXPECT_EQ(test::read_file(dir / "image"), to_bytes("evidence"));
}

TEST(creation_check, a_fifo_is_refused_without_waiting_for_its_reader) {
    const temp_dir dir;
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_FALSE(can_be_made(dir / "fifo", false));
    EXPECT_TRUE(fs::exists(dir / "fifo"));
}

}  // namespace
}  // namespace quarry
