#include "frontend/output/output_file.h"

#include "foundation/ql_string.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

// A file that is opened without a guard does not compile.
template <typename File>
concept opens_by_path = requires(File& file, const std::wstring& path) {
    file.open(path);
};
template <typename File>
concept opens_by_mode = requires(File& file, const std::string& path) {
    file.open(path, std::ios_base::out);
};
static_assert(opens_by_path<uni::ofstream>);
static_assert(!opens_by_path<output_file> && !opens_by_mode<output_file>);
static_assert(!std::is_constructible_v<output_file, std::wstring, std::ios_base::openmode>);

bool write_output(const fs::path& path) {
    output_guard guard;
    output_file out;
    const bool opened = out.open(guard, widen(path.string()), output_kind::copy);
    EXPECT_EQ(out.is_open(), opened);
    out << "report\n";
    return opened;
}

TEST(output_file_test, is_made_or_emptied) {
    const temp_dir dir;
    EXPECT_TRUE(write_output(dir / "new"));
    EXPECT_EQ(read_file(dir / "new"), to_bytes("report\n"));
    write_file(dir / "old", to_bytes("a longer report of an earlier run\n"));
    EXPECT_TRUE(write_output(dir / "old"));
    EXPECT_EQ(read_file(dir / "old"), to_bytes("report\n"));
}

TEST(output_file_test, may_have_a_name_in_any_language) {
    const temp_dir dir;
    EXPECT_TRUE(write_output(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"));
    EXPECT_EQ(read_file(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"), to_bytes("report\n"));
}

TEST(output_file_test, that_cannot_be_opened_is_none) {
    const temp_dir dir;
    EXPECT_FALSE(write_output(dir / "missing/report"));
    EXPECT_FALSE(write_output(dir.path()));
    EXPECT_FALSE(write_output(dir / std::string(256, 'x').c_str()));
    EXPECT_FALSE(write_output({}));
}

TEST(output_file_test, on_a_pipe_is_none_whether_or_not_somebody_reads) {
    const temp_dir dir;
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(write_output(dir / "pipe"));
    const int reader = ::open((dir / "pipe").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_FALSE(write_output(dir / "pipe"));
    char byte = 0;
    EXPECT_LE(::read(reader, &byte, 1), 0) << "nothing was written";
    ::close(reader);
}

TEST(output_file_test, that_the_guard_protects_is_none_and_stays_as_it_is) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("evidence"));
    output_guard guard;
    guard.add_source(dir / "image");
    output_file out;
    for (const output_kind kind : {output_kind::copy, output_kind::report, output_kind::log}) {
        EXPECT_FALSE(out.open(guard, (dir / "image").wstring(), kind));
    }
    EXPECT_FALSE(out.open_log_again(guard, dir / "image"));
    EXPECT_EQ(read_file(dir / "image"), to_bytes("evidence"));
}

TEST(output_file_test, takes_no_name_that_the_guard_protects) {
    const temp_dir dir;
    write_file(dir / "image", to_bytes("evidence"));
    write_file(dir / "copy", to_bytes("copy"));
    output_guard guard;
    guard.add_source(dir / "image");
    EXPECT_FALSE(rename_output(guard, dir / "copy", dir / "image", output_kind::copy));
    EXPECT_EQ(read_file(dir / "image"), to_bytes("evidence"));
    EXPECT_TRUE(rename_output(guard, dir / "copy", dir / "named", output_kind::copy));
    EXPECT_EQ(read_file(dir / "named"), to_bytes("copy"));
}

TEST(output_file_test, is_noted_as_what_it_was_opened_for) {
    const temp_dir dir;
    output_guard guard;
    guard.tell_reports_from_copies();
    output_file out;
    ASSERT_TRUE(out.open(guard, (dir / "a").wstring(), output_kind::report));
    out.close();
    EXPECT_FALSE(out.open(guard, (dir / "a").wstring(), output_kind::copy));
    EXPECT_TRUE(rename_output(guard, dir / "a", dir / "b", output_kind::report));
    EXPECT_TRUE(out.open(guard, (dir / "a").wstring(), output_kind::copy));
}

}  // namespace
}  // namespace quarry::test
