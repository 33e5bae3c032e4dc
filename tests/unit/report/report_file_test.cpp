#include "report/report_file.h"

#include "foundation/ql_string.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::read_file;
using test::temp_dir;
using test::to_bytes;
using test::write_file;

bool write_report(const fs::path& path) {
    uni::ofstream report;
    const bool opened = open_report(report, widen(path.string()));
    EXPECT_EQ(report.is_open(), opened);
    report << "report\n";
    return opened;
}

TEST(ReportFile, IsMadeOrEmptied) {
    const temp_dir dir;
    EXPECT_TRUE(write_report(dir / "new"));
    EXPECT_EQ(read_file(dir / "new"), to_bytes("report\n"));
    write_file(dir / "old", to_bytes("a longer report of an earlier run\n"));
    EXPECT_TRUE(write_report(dir / "old"));
    EXPECT_EQ(read_file(dir / "old"), to_bytes("report\n"));
}

TEST(ReportFile, MayHaveANameInAnyLanguage) {
    const temp_dir dir;
    EXPECT_TRUE(write_report(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"));
    EXPECT_EQ(read_file(dir / "\xC3\xA9\xF0\x9F\x98\x80.txt"), to_bytes("report\n"));
}

TEST(ReportFile, ThatCannotBeOpenedIsNone) {
    const temp_dir dir;
    EXPECT_FALSE(write_report(dir / "missing/report"));
    EXPECT_FALSE(write_report(dir.path()));
    EXPECT_FALSE(write_report(dir / std::string(256, 'x').c_str()));
    EXPECT_FALSE(write_report({}));
}

TEST(ReportFile, OnAPipeIsNoneWhetherOrNotSomebodyReads) {
    const temp_dir dir;
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(write_report(dir / "pipe"));
    const int reader = ::open((dir / "pipe").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    EXPECT_FALSE(write_report(dir / "pipe"));
    char byte = 0;
    EXPECT_LE(::read(reader, &byte, 1), 0) << "nothing was written";
    ::close(reader);
}

}  // namespace
}  // namespace quarry
