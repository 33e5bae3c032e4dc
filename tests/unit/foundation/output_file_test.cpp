#include "foundation/output_file.h"

#include "foundation/ql_string.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace uni {
namespace {

namespace fs = std::filesystem;
using quarry::test::read_file;
using quarry::test::temp_dir;
using quarry::test::to_bytes;
using quarry::test::write_file;

bool write_output(const fs::path& path) {
    ofstream out;
    const bool opened = open_output(out, quarry::widen(path.string()));
    EXPECT_EQ(out.is_open(), opened);
    out << "report\n";
    return opened;
}

TEST(OutputFile, IsMadeOrEmptied) {
    const temp_dir dir;
    EXPECT_TRUE(write_output(dir / "new"));
    EXPECT_EQ(read_file(dir / "new"), to_bytes("report\n"));
    write_file(dir / "old", to_bytes("a longer report of an earlier run\n"));
    EXPECT_TRUE(write_output(dir / "old"));
    EXPECT_EQ(read_file(dir / "old"), to_bytes("report\n"));
}

TEST(OutputFile, MayHaveANameInAnyLanguage) {
    const temp_dir dir;
    EXPECT_TRUE(write_output(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"));
    EXPECT_EQ(read_file(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"), to_bytes("report\n"));
}

TEST(OutputFile, ThatCannotBeOpenedIsNone) {
    const temp_dir dir;
    EXPECT_FALSE(write_output(dir / "missing/report"));
    EXPECT_FALSE(write_output(dir.path()));
    EXPECT_FALSE(write_output(dir / std::string(256, 'x').c_str()));
    EXPECT_FALSE(write_output({}));
}

TEST(OutputFile, OnAPipeIsNoneWhetherOrNotSomebodyReads) {
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

}  // namespace
}  // namespace uni
