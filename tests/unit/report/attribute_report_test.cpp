#include "report/attribute_report.h"

#include "support/capturing_log.h"
#include "support/opened_volume.h"
#include "support/security_builder.h"
#include "support/volume_builder.h"
#include "volume/attribute.h"
#include "volume/mft_entries.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::bytes;
using test::from_hex;

// 2019-03-07 18:22:41.0934567, and the next three seconds
constexpr std::uint64_t second_41 = 131964565610934567;
constexpr std::uint64_t second_42 = second_41 + 10000000;
constexpr std::uint64_t second_43 = second_41 + 20000000;
constexpr std::uint64_t second_44 = second_41 + 30000000;

std::string block_of(const attr_item& item) {
    std::ostringstream out;
    write_item(out, item);
    return out.str();
}

attr_item item_of(std::uint32_t type) {
    attr_item item;
    item.type = type;
    return item;
}

attr_item resident(std::uint32_t type, const bytes& value) {
    attr_item item = item_of(type);
    item.value = value;
    item.value_size = static_cast<std::uint32_t>(value.size());
    return item;
}

attr_item header_item() {
    attr_item item = item_of(attr_file_record);
    item.reference = 0x0003000000000042;
    item.bits = 0x04 | 1 << 3;
    return item;
}

TEST(file_record_block, a_usual_file_shows_entry_sequence_type_and_links) {
    EXPECT_EQ(block_of(header_item()),
              "File Record: \n"
              "  MFT entry: 0x00000042 [66]\n"
              "  Seq Num:   0x0003 [3]\n"
              "  Type:      file\n"
              "  Ref Count: 1\n");
}

TEST(file_record_block, an_entry_number_has_48_bits_and_a_sequence_number_16) {
    attr_item item = header_item();
    item.reference = 0xFFFFFEDCBA987654;
    EXPECT_EQ(block_of(item),
              "File Record: \n"
              "  MFT entry: 0xfedcba987654 [280223976814164]\n"
              "  Seq Num:   0xffff [65535]\n"
              "  Type:      file\n"
              "  Ref Count: 1\n");
}

TEST(file_record_block, a_directory_is_known_by_its_bit) {
    attr_item item = header_item();
    item.bits |= 0x02;
    EXPECT_NE(block_of(item).find("  Type:      directory\n  Ref Count: 1\n"), std::string::npos);
}

TEST(file_record_block, a_deleted_file_has_the_word_after_its_type) {
    attr_item item = header_item();
    item.bits |= 0x01;
    EXPECT_NE(block_of(item).find("  Type:      file\n  deleted\n  Ref Count: 1\n"), std::string::npos);
}

TEST(file_record_block, an_extension_record_shows_the_whole_reference_to_its_base) {
    attr_item item = header_item();
    item.bits |= 0x80 | 0x01;
    item.base = 0x0005000000001234;
    EXPECT_NE(block_of(item).find("  deleted\n  references mft entry: 0x5000000001234\n  Ref Count: 1\n"),
              std::string::npos);
    item.base = 0x1234;
    EXPECT_NE(block_of(item).find("  references mft entry: 0x000000001234\n"), std::string::npos);
}

TEST(file_record_block, a_base_without_its_bit_is_not_shown) {
    attr_item item = header_item();
    item.base = 0x1234;
    EXPECT_EQ(block_of(item).find("references"), std::string::npos);
}

TEST(file_record_block, a_link_count_of_15_prints_minus_one_not_the_count) {
    for (unsigned links = 0; links < 15; ++links) {
        attr_item item = header_item();
        item.bits = static_cast<std::uint8_t>(0x04 | links << 3);
        EXPECT_NE(block_of(item).find("  Ref Count: " + std::to_string(links) + "\n"), std::string::npos);
    }
    attr_item item = header_item();
    item.bits = 0x04 | 15 << 3;
    EXPECT_NE(block_of(item).find("  Ref Count: -1\n"), std::string::npos);
}

TEST(file_record_block, an_attribute_on_disk_that_claims_the_type_of_the_header_has_no_text) {
    attr_item item = resident(attr_file_record, {1, 2, 3});
    item.name = "named";
    EXPECT_EQ(block_of(item), "");
}

attr_item standard_information_item() {
    attr_item item = item_of(attr_standard_information);
    item.attributes = 0x26;
    item.created = second_41;
    item.modified = second_42;
    item.mft_changed = second_43;
    item.accessed = second_44;
    item.security_id = 0x107;
    return item;
}

TEST(standard_information_block, words_times_and_security_id_are_shown) {
    EXPECT_EQ(block_of(standard_information_item()),
              "Standard Info Attrib: (HIDDEN, SYSTEM, ARCHIVE)\n"
              "  modified:  2019-03-07 18:22:42.093\n"
              "  accessed:  2019-03-07 18:22:44.093\n"
              "  created:   2019-03-07 18:22:41.093\n"
              "  mft mod:   2019-03-07 18:22:43.093\n"
              "  secure id: 0x00000107\n");
}

TEST(standard_information_block, times_that_cannot_be_shown_leave_a_blank) {
    attr_item item = standard_information_item();
    item.attributes = 0;
    item.created = 0;
    item.modified = 0x8000000000000000;
    item.mft_changed = 116444736000000000;  // the first second of 1970
    item.accessed = 1;                      // 1601
    item.security_id = 0;
    EXPECT_EQ(block_of(item),
              "Standard Info Attrib: (none set)\n"
              "  modified:   \n"
              "  accessed:   \n"
              "  created:    \n"
              "  mft mod:    \n"
              "  secure id: 0x00000000\n");
}

attr_item file_name_item() {
    attr_item item = item_of(attr_file_name);
    item.text = "terraces.png";
    item.name_space = 1;
    item.parent = 0x0005000000000041;
    item.created = second_41;
    item.modified = second_42;
    item.mft_changed = second_43;
    item.accessed = second_44;
    return item;
}

TEST(file_name_block, name_parent_and_times_are_shown) {
    EXPECT_EQ(block_of(file_name_item()),
              "Filename Attrib: terraces.png, (indexed)\n"
              "  parnt mft: 0x00000041 [65]\n"
              "  modified:  2019-03-07 18:22:42.093\n"
              "  accessed:  2019-03-07 18:22:44.093\n"
              "  created:   2019-03-07 18:22:41.093\n"
              "  mft mod:   2019-03-07 18:22:43.093\n");
}

TEST(file_name_block, the_word_indexed_is_shown_for_win32_names_whether_indexed_or_not) {
    attr_item item = file_name_item();
    const auto first_line = [&item](std::uint8_t name_space) {
        item.name_space = name_space;
        const std::string block = block_of(item);
        return block.substr(0, block.find('\n'));
    };
    EXPECT_EQ(first_line(0), "Filename Attrib: terraces.png");             // POSIX
    EXPECT_EQ(first_line(1), "Filename Attrib: terraces.png, (indexed)");  // Win32
    EXPECT_EQ(first_line(2), "Filename Attrib: terraces.png");             // DOS
    EXPECT_EQ(first_line(3), "Filename Attrib: terraces.png, (indexed)");  // Win32 and DOS
}

TEST(file_name_block, a_time_of_zero_is_its_label_and_one_blank) {
    attr_item item = file_name_item();
    item.accessed = 0;
    EXPECT_NE(block_of(item).find("\n  accessed:   \n  created:"), std::string::npos);
}

TEST(file_name_block, a_parent_entry_has_48_bits) {
    attr_item item = file_name_item();
    item.parent = 0xFFFF0123456789AB;
    EXPECT_NE(block_of(item).find("  parnt mft: 0x123456789ab [1250999896491]\n"), std::string::npos);
}

TEST(file_name_block, a_posix_name_with_line_feeds_forges_no_block) {
    attr_item item = item_of(attr_file_name);
    item.text = "a\n\nStandard Info Attrib: (HIDDEN)";
    const std::string block = block_of(item);
    EXPECT_EQ(block.substr(0, block.find('\n')),
              "Filename Attrib: a\\u000A\\u000AStandard Info Attrib: (HIDDEN)");
}

TEST(object_id_block, an_id_of_16_bytes_is_shown_in_braces) {
    attr_item item = resident(attr_object_id, from_hex("33221100 5544 7766 8899aabbccddeeff"));
    std::copy(item.value.begin(), item.value.end(), item.object_id.begin());
    EXPECT_EQ(block_of(item), "Object ID Attrib: { 00112233-4455-6677-8899-aabbccddeeff }\n");
}

TEST(object_id_block, a_longer_value_shows_its_size_not_the_id) {
    EXPECT_EQ(block_of(resident(attr_object_id, bytes(64, 0xEE))),
              "Object ID Attrib: { 00000040-0000-0000-0000-000000000000 }\n");
    EXPECT_EQ(block_of(resident(attr_object_id, bytes(17, 0xEE))),
              "Object ID Attrib: { 00000011-0000-0000-0000-000000000000 }\n");
    EXPECT_EQ(block_of(resident(attr_object_id, {})),
              "Object ID Attrib: { 00000000-0000-0000-0000-000000000000 }\n");
    attr_item item = item_of(attr_object_id);
    item.value_size = 0x12345678;
    EXPECT_EQ(block_of(item), "Object ID Attrib: { 12345678-0000-0000-0000-000000000000 }\n");
}

TEST(security_descriptor_block, the_descriptor_is_printed_with_two_blanks_in_front) {
    const bytes value =
        test::security_descriptor{.owner = test::sid(5, {18}),
                                  .dacl = test::acl({test::ace(0, 0x00010000, test::sid(1, {0}))})}
            .build();
    EXPECT_EQ(block_of(resident(attr_security_descriptor, value)),
              "Security Descriptor Attrib: \n"
              "  Security Identifiers\n"
              "  owner sid [S-1-5-18]\n"
              "\n"
              "  Discretionary Access Control List\n"
              "  access allowed  World           DELETE\n");
}

TEST(security_descriptor_block, without_bytes_there_is_only_the_label) {
    EXPECT_EQ(block_of(item_of(attr_security_descriptor)), "Security Descriptor Attrib: \n");
    attr_item in_clusters = item_of(attr_security_descriptor);
    in_clusters.non_resident = true;
    in_clusters.runs = {{100, 0, false, 1}};
    EXPECT_EQ(block_of(in_clusters), "Security Descriptor Attrib: \n");
}

TEST(volume_name_block, the_bytes_of_the_name_are_shown_not_text) {
    attr_item item = resident(attr_volume_name, from_hex("41004200"));
    item.name = "AB";
    EXPECT_EQ(block_of(item),
              "Volume Name Attrib: 0000 0000:  41 00 42 00 " + std::string(37, ' ') + " A.B.\n");
}

TEST(volume_name_block, a_long_name_goes_on_in_further_lines) {
    const bytes value = test::ntfs_name("Sample disk").on_disk();
    EXPECT_EQ(block_of(resident(attr_volume_name, value)),
              "Volume Name Attrib: "
              "0000 0000:  53 00 61 00 6d 00 70 00  6c 00 65 00 20 00 64 00  S.a.m.p.l.e. .d.\n"
              "0000 0010:  69 00 73 00 6b 00 " +
                  std::string(31, ' ') + " i.s.k.\n");
}

TEST(volume_name_block, text_is_shown_as_it_is) {
    attr_item item = resident(attr_volume_name, from_hex("41004200"));
    item.text = "text";
    EXPECT_EQ(block_of(item), "Volume Name Attrib: text\n");
}

TEST(volume_name_block, control_characters_are_shown_by_their_numbers) {
    attr_item name = item_of(attr_volume_name);
    name.text = "a\x1b[2Jb";
    EXPECT_EQ(block_of(name), "Volume Name Attrib: a\\u001B[2Jb\n");
}

TEST(volume_name_block, without_bytes_there_is_none_specified) {
    attr_item item = item_of(attr_volume_name);
    item.name = "not read";
    EXPECT_EQ(block_of(item), "Volume Name Attrib: none specified\n");
}

TEST(volume_information_block, the_version_chooses_the_word) {
    const auto block = [](std::uint8_t major, std::uint8_t minor) {
        return block_of(resident(attr_volume_information, test::volume_information(major, minor)));
    };
    EXPECT_EQ(block(1, 2), "Volume Info Attrib: major:minor ver = 1:2 (WinNT)\n");
    EXPECT_EQ(block(3, 0), "Volume Info Attrib: major:minor ver = 3:0 (Win2k)\n");
    EXPECT_EQ(block(3, 1), "Volume Info Attrib: major:minor ver = 3:1 (WinXP)\n");
    EXPECT_EQ(block(3, 2), "Volume Info Attrib: major:minor ver = 3:2 (unk version)\n");
    EXPECT_EQ(block(1, 1), "Volume Info Attrib: major:minor ver = 1:1 (unk version)\n");
    EXPECT_EQ(block(0, 0), "Volume Info Attrib: major:minor ver = 0:0 (unk version)\n");
    EXPECT_EQ(block(255, 255), "Volume Info Attrib: major:minor ver = 255:255 (unk version)\n");
}

TEST(volume_information_block, a_short_value_reads_as_zero) {
    const bytes whole = test::volume_information(3, 1);
    EXPECT_EQ(block_of(resident(attr_volume_information, bytes(whole.begin(), whole.begin() + 9))),
              "Volume Info Attrib: major:minor ver = 3:0 (Win2k)\n");
    EXPECT_EQ(block_of(resident(attr_volume_information, {})),
              "Volume Info Attrib: major:minor ver = 0:0 (unk version)\n");
}

TEST(reparse_point_block, an_ordinary_one_is_only_its_label) {
    EXPECT_EQ(block_of(resident(attr_reparse_point, bytes(32, 1))), "Reparse Point Attrib: \n");
}

TEST(reparse_point_block, text_comes_before_the_name) {
    attr_item item = item_of(attr_reparse_point);
    item.name = "name";
    EXPECT_EQ(block_of(item), "Reparse Point Attrib: name\n");
    item.text = "text";
    EXPECT_EQ(block_of(item), "Reparse Point Attrib: text\n");
}

TEST(reparse_point_block, control_characters_are_shown_by_their_numbers) {
    attr_item item = item_of(attr_reparse_point);
    item.name = "a\nb";
    EXPECT_EQ(block_of(item), "Reparse Point Attrib: a\\u000Ab\n");
    item.text = "C:\\\xC2\x85";
    EXPECT_EQ(block_of(item), "Reparse Point Attrib: C:\\\\u0085\n");
}

TEST(stream_block, each_of_the_five_types_has_its_label) {
    const auto label = [](std::uint32_t type) {
        const std::string block = block_of(item_of(type));
        return block.substr(0, block.find('\n'));
    };
    EXPECT_EQ(label(0x80), "Data Attrib: (unnamed)");
    EXPECT_EQ(label(0x90), "Index Root Attrib: (unnamed)");
    EXPECT_EQ(label(0xA0), "Index Allocation Attrib: (unnamed)");
    EXPECT_EQ(label(0xB0), "Bitmap Attrib: (unnamed)");
    EXPECT_EQ(label(0x100), "Logged Utility Stream Attrib: (unnamed)");
}

TEST(stream_block, other_types_have_no_text) {
    for (const std::uint32_t type : {0x00u, 0x20u, 0xD0u, 0xE0u, 0xF0u, 0x111u, 0x1000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(block_of(resident(type, bytes(8, 1))), "") << type;
    }
}

TEST(stream_block, a_name_is_in_the_place_of_unnamed) {
    attr_item item = resident(attr_data, bytes());
    item.name = "Zone.Identifier";
    EXPECT_EQ(block_of(item), "Data Attrib: Zone.Identifier\n  valid size:  0x0000 [0]\n");
}

TEST(stream_block, the_name_of_a_stream_forges_no_line_and_turns_no_text) {
    attr_item item = item_of(attr_data);
    item.name = "a\n  allocated:  0x1\xE2\x80\xAE";
    EXPECT_EQ(block_of(item),
              "Data Attrib: a\\u000A  allocated:  0x1\\u202E\n"
              "  valid size:  0x0000 [0]\n");
}

TEST(stream_block, flags_are_shown_after_the_name_and_compression_hides_encryption) {
    const auto first_line = [](std::uint16_t flags) {
        attr_item item = item_of(attr_data);
        item.flags = flags;
        const std::string block = block_of(item);
        return block.substr(0, block.find('\n'));
    };
    EXPECT_EQ(first_line(0x0001), "Data Attrib: (unnamed), data compressed");
    EXPECT_EQ(first_line(0x4000), "Data Attrib: (unnamed), data encrypted");
    EXPECT_EQ(first_line(0x4001), "Data Attrib: (unnamed), data compressed");
    EXPECT_EQ(first_line(0x8000), "Data Attrib: (unnamed), sparse clusters");
    EXPECT_EQ(first_line(0x8001), "Data Attrib: (unnamed), data compressed, sparse clusters");
    EXPECT_EQ(first_line(0xC000), "Data Attrib: (unnamed), data encrypted, sparse clusters");
    EXPECT_EQ(first_line(0x3FFE), "Data Attrib: (unnamed)");
}

TEST(stream_block, a_resident_value_of_0_bytes_is_the_size_line_only) {
    EXPECT_EQ(block_of(resident(attr_data, {})), "Data Attrib: (unnamed)\n  valid size:  0x0000 [0]\n");
}

TEST(stream_block, a_resident_value_is_shown_in_lines_of_16_bytes) {
    EXPECT_EQ(block_of(resident(attr_data, from_hex("00 0f a0 ff"))),
              "Data Attrib: (unnamed)\n"
              "  valid size:  0x0004 [4]\n"
              "  00 0f a0 ff \n");
    EXPECT_EQ(block_of(resident(attr_data, bytes(15, 0x41))),
              "Data Attrib: (unnamed)\n"
              "  valid size:  0x000f [15]\n"
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 \n");
    EXPECT_EQ(block_of(resident(attr_data, bytes(17, 0x41))),
              "Data Attrib: (unnamed)\n"
              "  valid size:  0x0011 [17]\n"
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 \n"
              "  41 \n");
}

TEST(stream_block, a_resident_value_of_16_bytes_ends_in_a_line_of_two_blanks) {
    EXPECT_EQ(block_of(resident(attr_data, bytes(16, 0x41))),
              "Data Attrib: (unnamed)\n"
              "  valid size:  0x0010 [16]\n"
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 \n"
              "  \n");
    EXPECT_EQ(block_of(resident(attr_data, bytes(32, 0x41))),
              "Data Attrib: (unnamed)\n"
              "  valid size:  0x0020 [32]\n"
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 \n"
              "  41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 41 \n"
              "  \n");
}

TEST(stream_block, a_value_that_was_not_kept_shows_only_its_size) {
    attr_item item = item_of(attr_data);
    item.value_size = 0x12345;
    EXPECT_EQ(block_of(item), "Data Attrib: (unnamed)\n  valid size:  0x12345 [74565]\n");
}

attr_item in_clusters(const cluster_run_list& runs) {
    attr_item item = item_of(attr_data);
    item.non_resident = true;
    item.allocated = 0x3000;
    item.real = 0x2D78;
    item.initialized = 0x2000;
    item.runs = runs;
    return item;
}

TEST(stream_block, a_stream_in_clusters_shows_its_sizes_and_runs) {
    EXPECT_EQ(block_of(in_clusters({{0x64, 0, false, 2}, {0x1234567890, 2, false, 1}})),
              "Data Attrib: (unnamed)\n"
              "  allocated:  0x000000003000 [12288]\n"
              "  file size:  0x000000002d78 [11640]\n"
              "  valid data: 0x000000002000 [8192]\n"
              "  cluster runs\n"
              "    0000000000000064 : 0000000000000065\n"
              "    0000001234567890 : 0000001234567890\n");
}

TEST(stream_block, a_stream_without_runs_has_no_line_for_them) {
    EXPECT_EQ(block_of(in_clusters({})),
              "Data Attrib: (unnamed)\n"
              "  allocated:  0x000000003000 [12288]\n"
              "  file size:  0x000000002d78 [11640]\n"
              "  valid data: 0x000000002000 [8192]\n");
}

TEST(stream_block, a_sparse_run_is_marked_and_prints_whatever_its_lcn_holds) {
    const std::string block = block_of(in_clusters({{0, 0, true, 16}, {0xFFFFFFFFFFFFFFFF, 16, true, 2}}));
    EXPECT_NE(block.find("  cluster runs\n"
                         "    0000000000000000 : 000000000000000f [sparsed]\n"
                         "    ffffffffffffffff : 0000000000000000 [sparsed]\n"),
              std::string::npos);
}

TEST(stream_block, a_run_of_0_clusters_ends_ahead_of_itself) {
    const std::string block = block_of(in_clusters({{0x64, 0, false, 0}}));
    EXPECT_NE(block.find("    0000000000000064 : 0000000000000063\n"), std::string::npos);
}

TEST(stream_block, the_compressed_size_needs_a_unit_and_a_size) {
    attr_item item = in_clusters({{0x64, 0, false, 1}});
    item.unit = 4;
    EXPECT_EQ(block_of(item).find("compressed size"), std::string::npos);
    item.compressed = 0x1000;
    EXPECT_NE(block_of(item).find("  valid data: 0x000000002000 [8192]\n"
                                  "  compressed size: 0x000000001000\n"
                                  "  cluster runs\n"),
              std::string::npos);
    item.unit = 0;
    EXPECT_EQ(block_of(item).find("compressed size"), std::string::npos);
}

TEST(item_block, numbers_stay_as_they_are_whatever_the_stream_is_set_to) {
    std::ostringstream out;
    out << std::hex << std::showbase << std::uppercase << std::left << std::setfill('*');
    write_item(out, header_item());
    EXPECT_EQ(out.str(), block_of(header_item()));
}

std::string report_of(CNtfs& ntfs, std::uint64_t entry, const std::wstring& path) {
    attr_item_list items;
    test::capturing_log log;
    EXPECT_TRUE(categorize_entry(ntfs, entry, items, log));
    std::ostringstream out;
    write_attribute_report(out, ntfs, entry, path, items);
    return out.str();
}

TEST(attribute_report, a_file_with_two_names_and_two_streams_is_reported_whole) {
    test::volume_builder volume;
    volume.add_file("letter to all.txt")
        .times({.created = second_41, .modified = second_42, .mft_changed = second_43, .accessed = second_44})
        .attributes(0x21)
        .short_name("LETTER~1.TXT")
        .resident_data(test::to_bytes("abc"))
        .stream("draft", test::runs({{100, 8}, {test::hole, 16}}), {.real = 0x17FFF, .flags = 0x8000});
    test::opened_volume opened(volume);
    // Entry 24 lies 24 * 1024 bytes after the start of $MFT: 6 clusters of 4096 bytes.
    const std::uint64_t lcn = volume.mft_lcn() + 6;
    ASSERT_LT(lcn, 16u);
    const std::string digit(1, "0123456789abcdef"[lcn]);
    EXPECT_EQ(report_of(opened.ntfs(), 24, L"/letter to all.txt"),
              "/letter to all.txt\n"
              "\n"
              "Misc stats:\n"
              "  cluster size:         0x00001000\n"
              "  sectors/cluster:      0x00000008\n"
              "  MFT entry LCN:offset: 0x0000000" +
                  digit + ":0x0000 [" + std::to_string(lcn) +
                  ":0]\n"
                  "  start of partition:   0x000000000000 bytes [0x0 sectors]\n"
                  "\n"
                  "File Record: \n"
                  "  MFT entry: 0x00000018 [24]\n"
                  "  Seq Num:   0x0001 [1]\n"
                  "  Type:      file\n"
                  "  Ref Count: 2\n"
                  "\n"
                  "Standard Info Attrib: (READ_ONLY, ARCHIVE)\n"
                  "  modified:  2019-03-07 18:22:42.093\n"
                  "  accessed:  2019-03-07 18:22:44.093\n"
                  "  created:   2019-03-07 18:22:41.093\n"
                  "  mft mod:   2019-03-07 18:22:43.093\n"
                  "  secure id: 0x00000000\n"
                  "\n"
                  "Filename Attrib: LETTER~1.TXT\n"
                  "  parnt mft: 0x00000005 [5]\n"
                  "  modified:  2019-03-07 18:22:42.093\n"
                  "  accessed:  2019-03-07 18:22:44.093\n"
                  "  created:   2019-03-07 18:22:41.093\n"
                  "  mft mod:   2019-03-07 18:22:43.093\n"
                  "\n"
                  "Filename Attrib: letter to all.txt, (indexed)\n"
                  "  parnt mft: 0x00000005 [5]\n"
                  "  modified:  2019-03-07 18:22:42.093\n"
                  "  accessed:  2019-03-07 18:22:44.093\n"
                  "  created:   2019-03-07 18:22:41.093\n"
                  "  mft mod:   2019-03-07 18:22:43.093\n"
                  "\n"
                  "Data Attrib: (unnamed)\n"
                  "  valid size:  0x0003 [3]\n"
                  "  61 62 63 \n"
                  "\n"
                  "Data Attrib: draft, sparse clusters\n"
                  "  allocated:  0x000000018000 [98304]\n"
                  "  file size:  0x000000017fff [98303]\n"
                  "  valid data: 0x000000017fff [98303]\n"
                  "  cluster runs\n"
                  "    0000000000000064 : 000000000000006b\n"
                  "    0000000000000000 : 000000000000000f [sparsed]\n"
                  "\n");
}

TEST(attribute_report, an_attribute_without_a_block_costs_its_empty_line) {
    test::volume_builder volume;
    volume.add_file("a.txt")
        .attribute(test::attribute_builder::resident(0xE0, bytes(8, 1)))
        .without_standard_information()
        .without_names();
    test::opened_volume opened(volume);
    const std::string report = report_of(opened.ntfs(), 24, L"/a.txt");
    EXPECT_EQ(report.substr(report.find("File Record")),
              "File Record: \n"
              "  MFT entry: 0x00000018 [24]\n"
              "  Seq Num:   0x0001 [1]\n"
              "  Type:      file\n"
              "  Ref Count: 1\n"
              "\n"
              "\n");
}

TEST(attribute_report, a_directory_shows_its_type_and_its_index_in_the_layout_of_streams) {
    test::volume_builder volume;
    const std::uint64_t directory = volume.add_directory("folder").index_in_blocks().entry();
    volume.add_file("child", directory);
    test::opened_volume opened(volume);
    const std::string report = report_of(opened.ntfs(), directory, L"/folder");
    EXPECT_NE(report.find("  Type:      directory\n"), std::string::npos);
    const std::size_t root =
        report.find("\nIndex Root Attrib: $I30\n  valid size:  0x0038 [56]\n  30 00 00 00 ");
    const std::size_t allocation =
        report.find("\nIndex Allocation Attrib: $I30\n  allocated:  0x000000001000 [4096]\n");
    const std::size_t bitmap =
        report.find("\nBitmap Attrib: $I30\n  valid size:  0x0008 [8]\n  01 00 00 00 ");
    EXPECT_NE(root, std::string::npos) << report;
    EXPECT_NE(allocation, std::string::npos) << report;
    EXPECT_NE(bitmap, std::string::npos) << report;
}

TEST(attribute_report, a_resident_value_as_long_as_a_record_shows_only_its_size) {
    test::volume_builder volume;
    volume.add_file("a.txt").attribute(
        test::attribute_builder::resident(0x80, bytes(8, 0x41)).force(16, 4, 1024));
    test::opened_volume opened(volume);
    const std::string report = report_of(opened.ntfs(), 24, L"/a.txt");
    EXPECT_NE(report.find("\n\nData Attrib: (unnamed)\n  valid size:  0x0400 [1024]\n\n"), std::string::npos)
        << report;
}

TEST(attribute_report, the_path_is_written_as_utf8) {
    test::volume_builder volume;
    volume.add_file("a.txt");
    test::opened_volume opened(volume);
    EXPECT_EQ(report_of(opened.ntfs(), 24, L"/\u00E9\U0001F600").substr(0, 8), "/\xC3\xA9\xF0\x9F\x98\x80\n");
    EXPECT_EQ(report_of(opened.ntfs(), 24, L"").substr(0, 13), "\n\nMisc stats:");
}

TEST(attribute_report, the_path_forges_no_block) {
    test::volume_builder volume;
    volume.add_file("a").data("text");
    test::opened_volume opened(volume);
    std::ostringstream out;
    write_attribute_report(out, opened.ntfs(), 24, L"\\a\n\nMisc stats:\x2066", {header_item()});
    EXPECT_EQ(out.str().substr(0, out.str().find('\n')), "\\a\\u000A\\u000AMisc stats:\\u2066");
}

TEST(attribute_report, the_entrys_place_is_shown_by_cluster_and_byte) {
    test::volume_builder volume;
    test::opened_volume opened(volume);
    // Entry 5 lies 5 * 1024 bytes after the start of $MFT.
    const std::string lcn = std::to_string(volume.mft_lcn() + 1);
    EXPECT_NE(report_of(opened.ntfs(), 5, L"/").find(":0x0400 [" + lcn + ":1024]\n"), std::string::npos);
}

TEST(attribute_report, an_entry_outside_of_the_runs_of_the_mft_loses_two_lines) {
    test::volume_builder volume;
    test::opened_volume opened(volume);
    std::ostringstream out;
    write_attribute_report(out, opened.ntfs(), 1 << 20, L"/x", {item_of(attr_reparse_point)});
    EXPECT_EQ(out.str(),
              "/x\n"
              "\n"
              "Misc stats:\n"
              "  cluster size:         0x00001000\n"
              "  sectors/cluster:      0x00000008\n"
              "\n"
              "Reparse Point Attrib: \n"
              "\n");
}

TEST(attribute_report, an_empty_list_gives_no_report) {
    test::volume_builder volume;
    test::opened_volume opened(volume);
    std::ostringstream out;
    write_attribute_report(out, opened.ntfs(), 5, L"/", {});
    EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace quarry
