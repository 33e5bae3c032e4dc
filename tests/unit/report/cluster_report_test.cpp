#include "report/cluster_report.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(ClusterReport, TheHeadTellsSourceOffsetsAndRange) {
    std::ostringstream out;
    write_cluster_report_head(out, "/cases/disk.dd", 0x100000, 0x100000, 512, 0x64, 16);
    EXPECT_EQ(out.str(),
              "drive/partition:       /cases/disk.dd\n"
              "volume_offset:         0x000000100000\n"
              "start of partition:    0x000000100000 bytes [0x800 sectors]\n"
              "starting LCN           0x000000000064\n"
              "num clusters           0x000000000010 [16]\n"
              "\n");
}

TEST(ClusterReport, TheSourceOfAVirtualDiskIsEmpty) {
    std::ostringstream out;
    write_cluster_report_head(out, "", 0, 0, 512, 0xFEDCBA9876543210, 0);
    EXPECT_EQ(out.str(),
              "drive/partition:       \n"
              "volume_offset:         0x000000000000\n"
              "start of partition:    0x000000000000 bytes [0x0 sectors]\n"
              "starting LCN           0xfedcba9876543210\n"
              "num clusters           0x000000000000 [0]\n"
              "\n");
}

TEST(ClusterReport, TheNameOfASourceDoesNotForgeALine) {
    std::ostringstream out;
    write_cluster_report_head(out, "/cases/a\nvolume_offset:         0x1", 0, 0, 512, 0, 0);
    EXPECT_EQ(out.str().substr(0, out.str().find('\n')),
              "drive/partition:       /cases/a\\u000Avolume_offset:         0x1");
}

TEST(ClusterReport, AClusterReadWholeIsOk) {
    std::ostringstream out;
    write_cluster_read_line(out, 0x64, 0x164000, true);
    EXPECT_EQ(out.str(),
              "cluster num            0x000000000064,   physical addr:  0x0000000000164000 [ok]\n");
}

TEST(ClusterReport, AShortReadLeavesTheWordOut) {
    std::ostringstream out;
    write_cluster_read_line(out, 0xABC, 0xABC000, false);
    EXPECT_EQ(out.str(), "cluster num            0x000000000abc,   physical addr:  0x0000000000abc000\n");
}

TEST(ClusterReport, AClusterThatCouldNotBeReadHasNoAddress) {
    std::ostringstream out;
    write_cluster_failed_line(out, 0xFFFF);
    EXPECT_EQ(out.str(), "clusters               0x00000000ffff [failed]\n");
}

}  // namespace
}  // namespace quarry
