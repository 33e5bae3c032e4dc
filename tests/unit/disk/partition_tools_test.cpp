// Tables that other programs wrote: what their records hold, and the free space between them.
#include "disk/partition_reader.h"
#include "disk/partition_types.h"
#include "support/byte_writer.h"
#include "support/requirements.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using ::testing::ElementsAre;

constexpr std::uint64_t disk_size = std::uint64_t{32} << 20;  // 65,536 sectors of 512 bytes

class partition_tools : public ::testing::Test {
  protected:
    void SetUp() override {
        QUARRY_NEEDS_PROGRAM("sfdisk");
        QUARRY_NEEDS_PROGRAM("sgdisk");
        const std::ofstream made(m_image);
        std::filesystem::resize_file(m_image, disk_size);
    }

    void run(std::vector<std::string> arguments, const std::string& standard_input = {}) {
        arguments.push_back(m_image.string());
        const program_result result = run_program(arguments, {.standard_input = standard_input});
        ASSERT_TRUE(result.exited && result.status == 0) << arguments[0] << ": " << result.err << result.out;
    }

    partition_list read(bool with_gaps) {
        RAW_DISK_IO disk(m_image.wstring(), false, raw_kind_path);
        partition_list list;
        EXPECT_TRUE(read_partitions(&disk, list, false, with_gaps));
        return list;
    }

    // Name, start and length: "unalloc 1+2047"; the type in the place of a name that there is not.
    std::vector<std::string> told_with_gaps() {
        std::vector<std::string> texts;
        for (const partition_stats& record : read(true)) {
            texts.push_back(
                (record.m_name.empty() ? partition_type_name(record.m_partition_type) : record.m_name) + " " +
                std::to_string(record.m_start_sector) + "+" + std::to_string(record.m_num_sectors));
        }
        return texts;
    }

    temp_dir m_dir;
    std::filesystem::path m_image = m_dir / "disk.img";
};

TEST_F(partition_tools, free_space_of_an_mbr_is_between_its_partitions) {
    run({"sfdisk", "--quiet"},
        "label: dos\nstart=2048, size=2048, type=83\nstart=4096, size=1024, type=c\n"
        "start=8192, size=4096, type=7\n");
    EXPECT_THAT(told_with_gaps(),
                ElementsAre("mbr 0+1", "unalloc 1+2047", "linux 2048+2048", "fat32 4096+1024",
                            "unalloc 5120+3072", "ntfs or exfat 8192+4096", "unalloc 12288+53248"));
}

// The second copy of the table, in the last 33 sectors, is free space to a reader of the first.
TEST_F(partition_tools, free_space_of_a_gpt_is_between_its_table_and_its_partitions) {
    run({"sgdisk", "-n", "1:2048:+1M", "-c", "1:first", "-n", "2:10240:+2M", "-c", "2:second"});
    EXPECT_THAT(
        told_with_gaps(),
        ElementsAre("protective_mbr 0+1", "gpt header 1+1", "gpt partition entries 2+32", "unalloc 34+2014",
                    "first 2048+2048", "unalloc 4096+6144", "second 10240+4096", "unalloc 14336+51200"));
}

TEST_F(partition_tools, a_gpt_entry_has_the_name_the_guids_and_the_attributes_that_were_given_to_it) {
    run({"sgdisk", "-n", "1:2048:+1M", "-c", "1:evidence \xC3\xA4", "-t",
         "1:EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", "-u", "1:00112233-4455-6677-8899-AABBCCDDEEFF", "-A",
         "1:set:0", "-A", "1:set:2", "-A", "1:set:60"});
    const partition_list list = read(false);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].m_name, "evidence \xC3\xA4");
    // The first three groups of a GUID are numbers and lie with their low byte first.
    const auto bytes_of = [](const std::array<std::uint8_t, 16>& guid) {
        return bytes(guid.begin(), guid.end());
    };
    EXPECT_EQ(bytes_of(list[0].m_type_guid), from_hex("A2 A0 D0 EB E5 B9 33 44 87 C0 68 B6 B7 26 99 C7"));
    EXPECT_EQ(bytes_of(list[0].m_partition_guid),
              from_hex("33 22 11 00 55 44 77 66 88 99 AA BB CC DD EE FF"));
    EXPECT_EQ(list[0].m_flags, 5u) << "the lower half of the attributes";
    EXPECT_TRUE(list[0].m_is_gpt);
}

}  // namespace
}  // namespace quarry::test
