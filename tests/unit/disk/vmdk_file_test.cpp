#include "disk/vmdk_file.h"

#include "support/disk_builder.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <limits>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t far_away = std::numeric_limits<std::uint64_t>::max();

// A file with grains 0, 1 and 40 out of 64, of 4,096 bytes each.
vmdk_builder three_grains() {
    vmdk_builder file;
    file.put(0, pattern(4096, 10)).put(40, pattern(4096, 11)).put(1, pattern(4096, 12));
    return file;
}

class vmdk_file_test : public ::testing::Test {
  protected:
    // Writes the file and opens it.
    bool open(const vmdk_builder& builder) { return open(builder.build()); }
    bool open(const bytes& content) {
        write_file(m_dir / "disk.vmdk", content);
        m_file = std::make_unique<vmdk_file>();
        const bool opened = m_file->open((m_dir / "disk.vmdk").wstring(), false);
        EXPECT_EQ(m_file->m_ok, opened);
        return opened;
    }

    // What read_mapped gives; the bytes that it reports, or nothing.
    std::optional<bytes> read(std::uint64_t offset, std::uint64_t length) {
        bytes buffer(length, 0xEE);
        if (!m_file->read_mapped(m_file->m_fd, buffer.data(), offset, length)) {
            return std::nullopt;
        }
        EXPECT_LE(length, buffer.size());
        buffer.resize(length);
        return buffer;
    }

    std::optional<std::uint64_t> position(std::uint64_t offset) {
        std::uint64_t out = 77;
        return m_file->map_offset(offset, out) ? std::optional(out) : std::nullopt;
    }

    temp_dir m_dir;
    std::unique_ptr<vmdk_file> m_file;
};

TEST_F(vmdk_file_test, opening_reads_the_header_the_descriptor_and_the_tables) {
    vmdk_builder file = three_grains();
    file.cid = "1234abcd";
    file.encoding = "\"windows-1252\"";
    file.parent_hint = "\"base.vmdk\"";
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_cid, "1234abcd");
    EXPECT_EQ(m_file->m_parent_cid, "ffffffff");
    EXPECT_EQ(m_file->m_encoding, "\"windows-1252\"");
    EXPECT_EQ(m_file->m_parent_hint, "\"base.vmdk\"");
    EXPECT_EQ(m_file->m_grain_bytes, 4096u);
    EXPECT_EQ(m_file->m_table_span, 65536u);
    EXPECT_EQ(m_file->m_blocks_per_grain, 1u);
    EXPECT_EQ(m_file->m_block_size, 4096u);
    EXPECT_EQ(m_file->m_sector_size, 512u);
    EXPECT_EQ(m_file->m_grain_directory.size(), 128u);
    EXPECT_EQ(m_file->m_grain_directory[0], 4u);
    EXPECT_EQ(m_file->m_first_table_offset, 2048u);
    EXPECT_EQ(m_file->m_first_grain_offset, 4096u);
    EXPECT_EQ(m_file->m_first_sector.size(), 512u);
    EXPECT_EQ(m_file->m_file_size, file.build().size());
    EXPECT_EQ(m_file->capacity_bytes(), 262144u);
    EXPECT_EQ(m_file->m_path, (m_dir / "disk.vmdk").wstring());
    EXPECT_EQ(m_file->m_path_utf8, (m_dir / "disk.vmdk").string());
    EXPECT_FALSE(m_file->m_writable);
}

TEST_F(vmdk_file_test, a_file_that_was_not_opened_answers_no) {
    vmdk_file file;
    std::uint64_t out = 77;
    std::uint64_t length = 1;
    std::uint8_t byte = 0;
    EXPECT_EQ(file.capacity_bytes(), 0u);
    EXPECT_FALSE(file.map_offset(0, out));
    EXPECT_FALSE(file.read_mapped(0, &byte, 0, length));
    EXPECT_EQ(file.m_fd, -1);
    EXPECT_EQ(file.m_sector_size, 512u);
}

TEST_F(vmdk_file_test, what_is_not_there_or_is_no_regular_file_is_refused) {
    vmdk_file absent;
    EXPECT_FALSE(absent.open((m_dir / "absent").wstring(), false));
    vmdk_file directory;
    EXPECT_FALSE(directory.open(m_dir.path().wstring(), false));
    vmdk_file device;
    EXPECT_FALSE(device.open(L"/dev/zero", false));
    ASSERT_EQ(::mkfifo((m_dir / "fifo").c_str(), 0600), 0);
    vmdk_file fifo;
    EXPECT_FALSE(fifo.open((m_dir / "fifo").wstring(), false));
    vmdk_file nothing;
    EXPECT_FALSE(nothing.open(L"", false));
}

TEST_F(vmdk_file_test, a_text_descriptor_without_the_magic_number_is_refused) {
    EXPECT_FALSE(open(to_bytes("# Disk DescriptorFile\nversion=1\nCID=12\nparentCID=ffffffff\n")));
    EXPECT_FALSE(open(bytes()));
    EXPECT_FALSE(open(three_grains().force(0, 1, 'k')));
    EXPECT_FALSE(open(three_grains().force(3, 1, 'v')));
}

TEST_F(vmdk_file_test, a_file_cut_at_any_length_opens_only_with_a_first_table_or_not_at_all) {
    const bytes whole = three_grains().build();
    // The directory is in sector 3 and its first table in sector 4.
    for (const std::size_t length : {0u, 1u, 3u, 4u, 79u, 511u, 512u, 513u, 1536u, 1539u}) {
        EXPECT_FALSE(open(byte_view(whole).clipped(0, length).to_vector())) << length;
    }
    for (const std::size_t length : {1540u, 2047u, 2048u, 2051u, 2052u, 4095u, 4096u, 4097u}) {
        EXPECT_TRUE(open(byte_view(whole).clipped(0, length).to_vector())) << length;
        EXPECT_EQ(position(0).has_value(), length > 2049u) << length;
        EXPECT_EQ(read(0, 1).has_value(), length > 4096u) << length;
    }
}

TEST_F(vmdk_file_test, a_line_of_the_descriptor_may_have_its_key_in_capitals) {
    vmdk_builder file = three_grains();
    file.descriptor = "CID=AbCdEf\nPARENTCID=FfFf\n";
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_cid, "AbCdEf");
    EXPECT_EQ(m_file->m_parent_cid, "FfFf");
}

TEST_F(vmdk_file_test, with_carriage_returns_in_the_line_ends_the_values_end_in_one) {
    vmdk_builder file = three_grains();
    file.line_end = "\r\n";
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_cid, "c0000000\r");
    EXPECT_EQ(m_file->m_parent_cid, "ffffffff\r");
}

TEST_F(vmdk_file_test, a_descriptor_of_no_sectors_leaves_the_content_id_empty) {
    ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_descriptor_size, 8, 0)));
    EXPECT_EQ(m_file->m_cid, "");
    EXPECT_EQ(m_file->m_parent_cid, "");
    EXPECT_TRUE(m_file->m_descriptor_lines.empty());
}

TEST_F(vmdk_file_test, a_descriptor_that_fills_its_sectors_has_no_zero_byte_and_is_read_to_its_end) {
    vmdk_builder file = three_grains();
    file.descriptor = std::string(1017, 'x') + "\nCID=12";
    file.descriptor->resize(1024, '3');
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_cid, "12");
}

TEST_F(vmdk_file_test, a_descriptor_that_claims_to_be_larger_than_the_file_is_read_as_far_as_it_is_there) {
    for (const std::uint64_t sectors : {0xFFFFFFFFull, 0x800000ull, 0x100000002ull}) {
        ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_descriptor_size, 8, sectors)));
        EXPECT_EQ(m_file->m_cid, "c0000000");
    }
}

TEST_F(vmdk_file_test, a_descriptor_past_the_end_of_the_file_is_empty_and_one_at_no_position_is_refused) {
    ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_descriptor_offset, 8, 1000000)));
    EXPECT_EQ(m_file->m_cid, "");
    EXPECT_TRUE(open(three_grains().force(vmdk_builder::at_descriptor_offset, 8, 0x3FFFFFFFFFFFFF)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_descriptor_offset, 8, 0x40000000000000)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_descriptor_offset, 8, far_away)));
}

// Version, flags (compressed grains and markers among them), the second directory, unclean shutdown, the four
// characters that show a broken transfer, the compression, the pad.
TEST_F(vmdk_file_test, a_file_with_compressed_grains_is_opened_and_its_grains_come_as_they_lie) {
    vmdk_builder file = three_grains();
    file.force(4, 4, 0xFFFFFFFF).force(8, 4, 0x00030003).force(48, 8, far_away).force(72, 1, 1);
    file.force(73, 4, 0).force(77, 2, 1);
    for (std::size_t at = 79; at < 512; ++at) {
        file.force(at, 1, 0xFF);
    }
    ASSERT_TRUE(open(file));
    EXPECT_EQ(read(0, 4096), pattern(4096, 10));
    EXPECT_EQ(read(40 * 4096, 4096), pattern(4096, 11));
    EXPECT_EQ(m_file->m_cid, "c0000000");
}

TEST_F(vmdk_file_test, grains_or_tables_without_a_size_are_refused) {
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_grain_size, 8, 0)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_entries_per_table, 4, 0)));
}

TEST_F(vmdk_file_test, grains_and_tables_whose_size_leaves_64_bits_are_refused) {
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_grain_size, 8, far_away)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_grain_size, 8, 0x80000000000000)));
    // 16 entries of 2^60 bytes are 2^64; of one sector less they are not.
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_grain_size, 8, 0x8000000000000)));
    EXPECT_TRUE(open(three_grains().force(vmdk_builder::at_grain_size, 8, 0x7FFFFFFFFFFFF)));
    EXPECT_EQ(m_file->m_table_span, 0xFFFFFFFFFFFFE000u);
}

TEST_F(vmdk_file_test, any_number_of_table_entries_is_survived_without_memory_for_them) {
    // What other tests of the same process have used counts too.
    struct ::rusage before {};
    ASSERT_EQ(::getrusage(RUSAGE_SELF, &before), 0);
    for (const std::uint32_t entries : {1u, 513u, 0x80000000u, 0xFFFFFFFFu}) {
        ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_entries_per_table, 4, entries))) << entries;
        EXPECT_EQ(position(0), 4096u);
    }
    struct ::rusage after {};
    ASSERT_EQ(::getrusage(RUSAGE_SELF, &after), 0);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1024 * 1024) << "kibibytes";
}

TEST_F(vmdk_file_test, metadata_that_cannot_be_where_the_header_says_is_refused) {
    const std::uint64_t overhead = three_grains().overhead_sectors();
    EXPECT_EQ(overhead, 8u);
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_overhead, 8, 0)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_overhead, 8, 0xFFFFFFFF)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_overhead, 8, 3)));
    EXPECT_TRUE(open(three_grains().force(vmdk_builder::at_overhead, 8, 4)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_directory_offset, 8, overhead)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_directory_offset, 8, far_away)));
    // The header begins with a magic number that no table can lie at, descriptors with text.
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_directory_offset, 8, 0)));
    EXPECT_FALSE(open(three_grains().force(vmdk_builder::at_directory_offset, 8, 1)));
    const std::uint64_t directory = three_grains().directory_offset();
    EXPECT_FALSE(open(three_grains().force(directory, 4, 3))) << "a first table where the directory is";
    EXPECT_FALSE(open(three_grains().force(directory, 4, 0)));
    EXPECT_FALSE(open(three_grains().force(directory, 4, 9)));
}

TEST_F(vmdk_file_test, tables_outside_of_the_metadata_are_read_too) {
    vmdk_builder file = three_grains();
    // The second table is in the first sector of grain 40, after the overhead.
    file.force(file.directory_offset() + 4, 4, file.grain_offset(40) / 512);
    file.force(file.grain_offset(40) + 4 * 3, 4, 5);
    ASSERT_TRUE(open(file));
    EXPECT_EQ(position(65536 + 3 * 4096 + 17), 5u * 512u + 17u);
}

TEST_F(vmdk_file_test, a_directory_entry_of_zero_takes_its_table_from_the_start_of_the_file) {
    vmdk_builder file = three_grains();
    file.force(file.directory_offset() + 4, 4, 0);
    ASSERT_TRUE(open(file));
    // The second number of the header is the version, 1; the third the flags, 3.
    EXPECT_EQ(position(65536 + 4096), 512u);
    EXPECT_EQ(position(65536 + 2 * 4096 + 1), 3u * 512u + 1u);
}

TEST_F(vmdk_file_test, tables_after_four_gibibytes_are_read_where_they_are) {
    vmdk_builder file = three_grains();
    file.force(file.directory_offset() + 4, 4, 0x800004);
    write_file(m_dir / "large.vmdk", file.build());
    std::filesystem::resize_file(m_dir / "large.vmdk", 0x100001000);
    vmdk_file large;
    ASSERT_TRUE(large.open((m_dir / "large.vmdk").wstring(), false));
    std::uint64_t out = 0;
    EXPECT_FALSE(large.map_offset(65536, out)) << "at sector 4, where 32 bits lead, is a table with an entry";
    EXPECT_TRUE(large.map_offset(0, out));
}

TEST_F(vmdk_file_test, the_position_of_the_first_grain_is_cut_to_32_bits) {
    vmdk_builder file = three_grains();
    file.table_entry(0, 0x800001);
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_first_grain_offset, 512u);
    EXPECT_EQ(position(0), 0x100000200u);
}

TEST_F(vmdk_file_test, an_offset_is_mapped_by_its_table_its_grain_and_its_place_in_the_grain) {
    const vmdk_builder file = three_grains();
    ASSERT_TRUE(open(file));
    EXPECT_EQ(position(0), 4096u);
    EXPECT_EQ(position(4095), 8191u);
    EXPECT_EQ(position(40 * 4096 + 1), 8193u);
    EXPECT_EQ(position(4096), 12288u);
}

TEST_F(vmdk_file_test, a_grain_with_a_table_entry_of_zero_is_not_held) {
    ASSERT_TRUE(open(three_grains().table_entry(1, 0)));
    EXPECT_EQ(position(4096), std::nullopt);
    EXPECT_EQ(position(2 * 4096), std::nullopt);
    EXPECT_EQ(read(4096, 1), std::nullopt);
    std::uint64_t out = 77;
    EXPECT_FALSE(m_file->map_offset(4096, out));
    EXPECT_EQ(out, 0u);
}

TEST_F(vmdk_file_test, a_table_entry_of_one_is_sector_one_of_the_file) {
    ASSERT_TRUE(open(three_grains().table_entry(1, 1)));
    EXPECT_EQ(position(4096), 512u);
    EXPECT_EQ(read(4096, 21), to_bytes("# Disk DescriptorFile"));
}

TEST_F(vmdk_file_test, an_offset_after_the_last_table_is_not_held) {
    ASSERT_TRUE(open(three_grains()));
    // The sector of the directory has room for 128 tables of 65,536 bytes.
    EXPECT_EQ(position(128 * 65536), std::nullopt);
    EXPECT_EQ(position(far_away), std::nullopt);
}

TEST_F(vmdk_file_test, the_last_byte_of_a_grain_is_one_byte_from_its_end) {
    ASSERT_TRUE(open(three_grains()));
    EXPECT_EQ(m_file->bytes_to_grain_end(0), 4096u);
    EXPECT_EQ(m_file->bytes_to_grain_end(1), 4095u);
    EXPECT_EQ(m_file->bytes_to_grain_end(4095), 1u);
    EXPECT_EQ(m_file->bytes_to_grain_end(4096), 4096u);
}

TEST_F(vmdk_file_test, grains_that_are_no_power_of_two_are_measured_and_mapped_too) {
    vmdk_builder file;
    file.grain_sectors = 3;
    file.entries_per_table = 5;
    file.put(7, pattern(1536, 3));
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_blocks_per_grain, 0u);
    EXPECT_EQ(m_file->bytes_to_grain_end(7 * 1536 + 1535), 1u);
    EXPECT_EQ(read(7 * 1536, 1536), pattern(1536, 3));
    EXPECT_EQ(position(6 * 1536 + 1535), std::nullopt);
    EXPECT_EQ(position(8 * 1536), std::nullopt);
}

TEST_F(vmdk_file_test, the_span_of_an_offset_is_its_grain) {
    ASSERT_TRUE(open(three_grains()));
    EXPECT_EQ(m_file->span_of(4095).m_begin, 0u);
    EXPECT_EQ(m_file->span_of(4095).m_end, 4096u);
    EXPECT_EQ(m_file->span_of(far_away).m_begin, 0xFFFFFFFFFFFFF000u);
    EXPECT_EQ(m_file->span_of(far_away).m_end, far_away);
}

TEST_F(vmdk_file_test, the_place_in_a_grain_of_more_than_four_gibibytes_keeps_its_low_32_bits) {
    vmdk_builder file = three_grains();
    file.force(vmdk_builder::at_grain_size, 8, 0x1000000);  // 8 GiB
    ASSERT_TRUE(open(file));
    EXPECT_EQ(position(0x1FFFFFFFF), 0x100000FFFu);
    EXPECT_EQ(position(0x100000005), 4101u);
    EXPECT_EQ(m_file->bytes_to_grain_end(0x100000005), 0xFFFFFFFBu);
    EXPECT_EQ(m_file->span_of(0x100000005).m_begin, 0x100000000u);
    EXPECT_EQ(m_file->span_of(0x100000005).m_end, 0x200000000u);
    EXPECT_EQ(m_file->span_of(5).m_end, 0x100000000u);
}

TEST_F(vmdk_file_test, a_capacity_that_leaves_64_bits_is_the_largest_number) {
    ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_capacity, 8, far_away)));
    EXPECT_EQ(m_file->capacity_bytes(), far_away);
    ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_capacity, 8, 0x7FFFFFFFFFFFFF)));
    EXPECT_EQ(m_file->capacity_bytes(), 0xFFFFFFFFFFFFFE00u);
    ASSERT_TRUE(open(three_grains().force(vmdk_builder::at_capacity, 8, 0)));
    EXPECT_EQ(m_file->capacity_bytes(), 0u);
}

TEST_F(vmdk_file_test, a_read_crosses_grains_that_the_file_holds) {
    ASSERT_TRUE(open(three_grains()));
    const bytes both = concat({pattern(4096, 10), pattern(4096, 12)});
    EXPECT_EQ(read(0, 8192), both);
    EXPECT_EQ(read(4000, 200), bytes(both.begin() + 4000, both.begin() + 4200));
}

TEST_F(vmdk_file_test, a_read_that_reaches_a_grain_that_is_not_held_fails) {
    ASSERT_TRUE(open(three_grains()));
    EXPECT_EQ(read(40 * 4096, 4096), pattern(4096, 11));
    EXPECT_EQ(read(40 * 4096, 4097), std::nullopt);
    EXPECT_EQ(read(2 * 4096, 1), std::nullopt);
}

TEST_F(vmdk_file_test, a_length_of_zero_a_null_buffer_and_no_descriptor_are_refused) {
    ASSERT_TRUE(open(three_grains()));
    std::uint64_t length = 0;
    std::uint8_t byte = 0;
    EXPECT_FALSE(m_file->read_mapped(m_file->m_fd, &byte, 0, length));
    length = 1;
    EXPECT_FALSE(m_file->read_mapped(m_file->m_fd, nullptr, 0, length));
    EXPECT_FALSE(m_file->read_mapped(-1, &byte, 0, length));
    EXPECT_TRUE(m_file->read_mapped(m_file->m_fd, &byte, 0, length));
}

TEST_F(vmdk_file_test, a_grain_that_lies_past_the_end_of_the_file_cannot_be_read) {
    vmdk_builder file = three_grains();
    const std::size_t size = file.build().size();
    file.table_entry(2, static_cast<std::uint32_t>(size / 512)).table_entry(3, 0xFFFFFFFF);
    ASSERT_TRUE(open(file));
    EXPECT_EQ(position(2 * 4096), size);
    EXPECT_EQ(read(2 * 4096, 1), std::nullopt);
    EXPECT_EQ(read(3 * 4096, 1), std::nullopt);
}

TEST_F(vmdk_file_test, a_read_over_the_end_of_the_file_is_cut_there) {
    vmdk_builder file = three_grains();
    const std::size_t size = file.build().size();
    ASSERT_TRUE(open(file.cut(size - 4000)));
    const bytes last = pattern(4096, 12);
    EXPECT_EQ(read(4096, 4096), bytes(last.begin(), last.begin() + 96));
    EXPECT_EQ(read(4096 + 95, 10), bytes(last.begin() + 95, last.begin() + 96));
    EXPECT_EQ(read(4096 + 96, 1), std::nullopt);
}

TEST_F(vmdk_file_test, a_file_that_has_shrunk_gives_zeros_past_its_new_end_and_fails_where_it_gives_nothing) {
    const vmdk_builder file = three_grains();
    ASSERT_TRUE(open(file));
    std::filesystem::resize_file(m_dir / "disk.vmdk", file.grain_offset(1) + 96);
    bytes expected = pattern(4096, 12);
    std::fill(expected.begin() + 96, expected.end(), std::uint8_t{0});
    EXPECT_EQ(read(4096, 4096), expected);
    EXPECT_EQ(read(4096 + 96, 1), std::nullopt);
}

bytes table_sector(const std::vector<table_slot>& slots) {
    return disk_builder(1).table(0, slots).image();
}

TEST_F(vmdk_file_test, the_partitions_of_the_first_sector_are_known_by_their_byte_offsets) {
    vmdk_builder file;
    file.put(0, table_sector({{7, 63, 100}, {0x0C, 2048, 100}}));
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_volume_offsets, (std::vector<std::uint64_t>{63 * 512, 2048 * 512}));
    EXPECT_EQ(m_file->m_volume_sector_sizes, (std::vector<std::uint32_t>{512, 512}));
    EXPECT_EQ(m_file->m_first_sector, table_sector({{7, 63, 100}, {0x0C, 2048, 100}}));
}

TEST_F(vmdk_file_test, a_bare_volume_is_found_by_the_search_that_follows_a_failure) {
    vmdk_builder file;
    file.put(0, ntfs_boot_sector(1000));
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_volume_offsets, (std::vector<std::uint64_t>{0}));
}

TEST_F(vmdk_file_test, without_a_first_grain_the_files_own_header_is_taken_for_the_first_sector) {
    vmdk_builder file;
    file.put(1, table_sector({{7, 63, 100}}));
    ASSERT_TRUE(open(file));
    EXPECT_EQ(m_file->m_first_grain_offset, 0u);
    EXPECT_EQ(byte_view(m_file->m_first_sector).text_at(0, "KDMV"), true);
    EXPECT_TRUE(m_file->m_volume_offsets.empty());
}

TEST_F(vmdk_file_test,
       an_extended_partition_whose_tables_are_not_in_the_first_sector_is_listed_and_not_followed) {
    for (const std::uint32_t first : {1u, 63u, 511u, 512u, 0xFFFFFFFFu}) {
        vmdk_builder file;
        file.put(0, table_sector({{7, 63, 100}, {5, first, 100}}));
        ASSERT_TRUE(open(file));
        EXPECT_EQ(m_file->m_volume_offsets,
                  (std::vector<std::uint64_t>{63 * 512, first * std::uint64_t{512}}));
    }
}

TEST_F(vmdk_file_test, a_file_for_writing_is_opened_so) {
    three_grains().write(m_dir / "disk.vmdk");
    vmdk_file file;
    ASSERT_TRUE(file.open((m_dir / "disk.vmdk").wstring(), true));
    EXPECT_TRUE(file.m_writable);
    EXPECT_EQ(::pwrite(file.m_fd, "x", 1, 600), 1);
}

TEST_F(vmdk_file_test, a_byte_of_damage_anywhere_in_the_metadata_is_survived) {
    const bytes whole = three_grains().build();
    write_file(m_dir / "disk.vmdk", whole);
    const int descriptor = ::open((m_dir / "disk.vmdk").c_str(), O_WRONLY);
    ASSERT_NE(descriptor, -1);
    std::size_t opened = 0;
    for (std::size_t at = 0; at < 4096; ++at) {
        for (const int value : {0x00, 0x01, 0xFF}) {
            ASSERT_EQ(::pwrite(descriptor, &value, 1, static_cast<off_t>(at)), 1);
            m_file = std::make_unique<vmdk_file>();
            if (m_file->open((m_dir / "disk.vmdk").wstring(), false)) {
                ++opened;
                static_cast<void>(read(0, 4096));
                static_cast<void>(read(40 * 4096 + 4000, 8192));
            }
        }
        ASSERT_EQ(::pwrite(descriptor, &whole[at], 1, static_cast<off_t>(at)), 1);
    }
    ::close(descriptor);
    EXPECT_GT(opened, 8000u);
}

}  // namespace
}  // namespace quarry::test
