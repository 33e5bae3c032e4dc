#include "report/cluster_report.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace quarry {
namespace {

TEST(cluster_report, the_head_reports_source_offsets_and_range) {
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

TEST(cluster_report, the_source_of_a_virtual_disk_is_empty) {
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

TEST(cluster_report, the_name_of_a_source_does_not_forge_a_line) {
    std::ostringstream out;
    write_cluster_report_head(out, "/cases/a\nvolume_offset:         0x1", 0, 0, 512, 0, 0);
    EXPECT_EQ(out.str().substr(0, out.str().find('\n')),
              "drive/partition:       /cases/a\\u000Avolume_offset:         0x1");
}

TEST(cluster_report, a_cluster_read_whole_is_ok) {
    std::ostringstream out;
    write_cluster_read_line(out, 0x64, 0x164000, true);
    EXPECT_EQ(out.str(),
              "cluster num            0x000000000064,   physical addr:  0x0000000000164000 [ok]\n");
}

TEST(cluster_report, a_short_read_leaves_the_word_out) {
    std::ostringstream out;
    write_cluster_read_line(out, 0xABC, 0xABC000, false);
    EXPECT_EQ(out.str(), "cluster num            0x000000000abc,   physical addr:  0x0000000000abc000\n");
}

TEST(cluster_report, a_cluster_that_could_not_be_read_has_no_address) {
    std::ostringstream out;
    write_cluster_failed_line(out, 0xFFFF);
    EXPECT_EQ(out.str(), "clusters               0x00000000ffff [failed]\n");
}

}  // namespace
}  // namespace quarry
