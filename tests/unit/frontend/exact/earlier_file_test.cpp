#include "frontend/exact/earlier_file.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace exact;
namespace fs = std::filesystem;

// Of "hello\n", by sha256sum.
const std::string hello_sha256 = "5891b5b522d5df086d0ff0b110fbd9d21bb4fc7163af34d08286a2e846f6be03";

class earlier_file : public testing::Test {
  protected:
    [[nodiscard]] std::string path() const { return (m_dir / "copy").string(); }
    [[nodiscard]] std::string refusal() const {
        const auto same = expect_same_bytes(path(), hello_sha256);
        return same ? "" : same.error().why;
    }

    temp_dir m_dir;
};

TEST_F(earlier_file, is_the_copy_if_it_has_its_bytes) {
    write_file(path(), to_bytes("hello\n"));
    EXPECT_EQ(size_of_earlier_file(path()).value_or(0), 6u);
    EXPECT_EQ(refusal(), "");
    write_file(path(), to_bytes("hellO\n"));
    EXPECT_EQ(refusal(), "exists with other bytes; say -overwrite");
    write_file(path(), to_bytes("hello\n\n"));
    EXPECT_EQ(refusal(), "exists with other bytes; say -overwrite");
    EXPECT_EQ(read_file(path()), to_bytes("hello\n\n"));
}

TEST_F(earlier_file, is_a_regular_file_and_no_link) {
    write_file(m_dir / "other", to_bytes("hello\n"));
    fs::create_symlink("other", path());
    EXPECT_EQ(refusal(), "exists and cannot be read: Too many levels of symbolic links");
    EXPECT_FALSE(size_of_earlier_file(path()));
    fs::remove(path());
    EXPECT_EQ(refusal(), "exists and cannot be read: No such file or directory");
    const auto missing = size_of_earlier_file(path());
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().why, "No such file or directory");
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    const auto size = size_of_earlier_file(path());
    ASSERT_FALSE(size);
    EXPECT_EQ(size.error().why, "is no regular file");
    EXPECT_EQ(refusal(), "exists with other bytes; say -overwrite") << "a pipe must not be waited for";
}

}  // namespace
}  // namespace quarry::test
