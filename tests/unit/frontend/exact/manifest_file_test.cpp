#include "frontend/exact/manifest_file.h"

#include "frontend/exact/manifest_line.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace exact;
namespace fs = std::filesystem;

const std::string head = R"({"schema":"quarry-manifest/1")";
const std::string line = head + "}\n";
constexpr std::chrono::milliseconds no_patience{0};

class manifest_file_test : public testing::Test {
  protected:
    [[nodiscard]] std::string path() const { return (m_dir / "m.jsonl").string(); }
    [[nodiscard]] std::string text() const {
        const bytes content = read_file(path());
        return {content.begin(), content.end()};
    }
    [[nodiscard]] std::string refusal() const {
        output_guard guard;
        const auto opened = manifest_file::open(path(), guard, no_patience);
        return opened ? "" : opened.error().why;
    }

    temp_dir m_dir;
    output_guard m_guard;
};

// The lock of another program.
class foreign_lock {
  public:
    explicit foreign_lock(const std::string& path) : m_fd(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        EXPECT_EQ(::flock(m_fd, LOCK_EX | LOCK_NB), 0);
    }
    foreign_lock(const foreign_lock&) = delete;
    foreign_lock& operator=(const foreign_lock&) = delete;
    ~foreign_lock() { ::close(m_fd); }

  private:
    int m_fd;
};

}  // namespace

TEST_F(manifest_file_test, takes_one_line_after_another_and_those_of_a_later_run) {
    {
        auto file = manifest_file::open(path(), m_guard);
        ASSERT_TRUE(file);
        EXPECT_EQ((*file)->where(), "manifest " + path());
        ASSERT_TRUE((*file)->append(line));
        EXPECT_EQ(text(), line);
        ASSERT_TRUE((*file)->append(line));
    }
    output_guard later;
    auto file = manifest_file::open(path(), later);
    ASSERT_TRUE(file);
    ASSERT_TRUE((*file)->append(line));
    EXPECT_EQ(text(), line + line + line);
}

TEST_F(manifest_file_test, is_no_output_of_its_own_run) {
    ASSERT_TRUE(manifest_file::open(path(), m_guard));
    EXPECT_EQ(m_guard.look_at(path(), output_kind::copy), output_verdict::taken);
}

TEST_F(manifest_file_test, refuses_what_is_no_manifest_of_whole_lines) {
    for (const std::string content : {"x", "{\"schema\":\"quarry-manifest", "\n"}) {
        write_file(path(), to_bytes(content));
        EXPECT_EQ(refusal(), "exists and is no manifest");
        EXPECT_EQ(text(), content);
    }
    write_file(path(), to_bytes(line + head));
    EXPECT_EQ(refusal(), "does not end with a line feed: its last line is not whole");
    fs::remove(path());
    fs::create_symlink("elsewhere", path());
    EXPECT_EQ(refusal(), "is a link; links are not followed, name a file");
    fs::remove(path());
    fs::create_directory(path());
    EXPECT_EQ(refusal(), "is no regular file");
}

TEST_F(manifest_file_test, takes_the_longest_line_that_is_read_and_none_that_is_longer) {
    auto file = manifest_file::open(path(), m_guard);
    ASSERT_TRUE(file);
    ASSERT_EQ(longest_manifest_line, 16777216u);
    const auto longer = (*file)->append(std::string(16777217, 'x') + "\n");
    ASSERT_FALSE(longer);
    EXPECT_EQ(longer.error().code, failure_code::manifest);
    EXPECT_EQ(longer.error().why, "it has 16777217 bytes, 16777216 are possible");
    EXPECT_EQ(text(), "");
    EXPECT_TRUE((*file)->append(std::string(16777216, 'x') + "\n"));
    EXPECT_EQ(fs::file_size(path()), 16777217u);
}

TEST_F(manifest_file_test, that_another_program_keeps_locked_is_waited_for_and_then_refused) {
    auto file = manifest_file::open(path(), m_guard, no_patience);
    ASSERT_TRUE(file);
    {
        const foreign_lock lock(path());
        const auto appended = (*file)->append(line);
        ASSERT_FALSE(appended);
        EXPECT_EQ(appended.error().code, failure_code::manifest);
        EXPECT_EQ(appended.error().why, "another program keeps it locked");
        EXPECT_EQ(refusal(), "another program keeps it locked");
    }
    EXPECT_EQ(text(), "");
    EXPECT_TRUE((*file)->append(line));
    EXPECT_EQ(refusal(), "");
}

TEST_F(manifest_file_test, whose_name_is_gone_takes_no_line) {
    auto file = manifest_file::open(path(), m_guard);
    ASSERT_TRUE(file);
    fs::remove(path());
    const auto appended = (*file)->append(line);
    ASSERT_FALSE(appended);
    EXPECT_EQ(appended.error().why, "No such file or directory");
}

}  // namespace quarry::test
