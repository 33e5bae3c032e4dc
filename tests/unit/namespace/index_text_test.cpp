#include "namespace/index_text.h"

#include "support/index_builder.h"

#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct listing {
    bool result;
    std::string text;
};

listing list(std::string_view name, bytes block, bool first = false, std::uint32_t bytes_per_sector = 512,
             std::int32_t size = 4096) {
    std::ostringstream out;
    const bool result = list_index_block(name, block, size, bytes_per_sector, out, first);
    return {result, out.str()};
}

listing list(std::string_view name, const index_block_builder& block, bool first = false) {
    return list(name, block.build(), first);
}

const std::string four_times =
    "2020-01-02 03:04:05.000, 2020-01-02 03:04:05.000, 2020-01-02 03:04:05.000, 2020-01-02 03:04:05.000, ";

const std::string name_heading =
    "   MFT entry,    seq num, flags,      create time,         last modify time,         MFT changed,       "
    " "
    "last access time,     filename\n\n";

index_entry named(std::uint64_t number, ntfs_name name, std::uint16_t sequence = 1) {
    return name_entry(reference(number, sequence), {.name = std::move(name)});
}

// An entry of a view index. Its data follow the key, whose size decides where.
index_entry view(const char* key, const char* data) {
    return {.key = from_hex(key), .view_data = from_hex(data)};
}

TEST(name_index_text, prints_a_line_for_each_entry) {
    const listing found =
        list("$I30", index_block_builder().add(named(0x1E, "a.txt", 2)).add(named(0x1F, "b.txt", 0xABCD)));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.text, "0x00000000001e,  0x0002,  0x0000, " + four_times +
                              "a.txt\n"
                              "0x00000000001f,  0xabcd,  0x0000, " +
                              four_times + "b.txt\n");
}

TEST(name_index_text, puts_the_heading_and_an_empty_line_ahead_of_the_first_entry_only) {
    const listing found =
        list("$I30", index_block_builder().add(named(0x1E, "a")).add(named(0x1F, "b")), true);
    EXPECT_EQ(found.text, name_heading + "0x00000000001e,  0x0001,  0x0000, " + four_times +
                              "a\n"
                              "0x00000000001f,  0x0001,  0x0000, " +
                              four_times + "b\n");
}

TEST(name_index_text, of_a_block_without_entries_is_empty_even_as_the_first) {
    const listing found = list("$I30", index_block_builder(), true);
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.text, "");
}

TEST(name_index_text, is_chosen_by_the_name_in_any_case) {
    EXPECT_EQ(list("$i30", index_block_builder().add(named(0x1E, "a"))).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "a\n");
}

TEST(name_index_text, shows_the_four_times_in_the_order_in_which_the_key_has_them) {
    const file_name name = {.name = "a",
                            .times = {.created = default_filetime,
                                      .modified = default_filetime + 10000000,
                                      .mft_changed = default_filetime + 20000000,
                                      .accessed = default_filetime + 30001239}};
    EXPECT_EQ(list("$I30", index_block_builder().add(name_entry(reference(30, 1), name))).text,
              "0x00000000001e,  0x0001,  0x0000, 2020-01-02 03:04:05.000, 2020-01-02 03:04:06.000, "
              "2020-01-02 03:04:07.000, 2020-01-02 03:04:08.000, a\n");
}

TEST(name_index_text, shows_a_time_that_is_not_valid_as_a_blank) {
    const file_name name = {.name = "a",
                            .times = {.created = 0, .modified = 0, .mft_changed = 0, .accessed = 0}};
    EXPECT_EQ(list("$I30", index_block_builder().add(name_entry(reference(30, 1), name))).text,
              "0x00000000001e,  0x0001,  0x0000,  ,  ,  ,  , a\n");
}

TEST(name_index_text, shows_the_low_32_bits_of_an_entry_number) {
    EXPECT_EQ(list("$I30", index_block_builder().add(named(0x123456789ABC, "a"))).text,
              "0x000056789abc,  0x0001,  0x0000, " + four_times + "a\n");
}

TEST(name_index_text, leaves_times_and_name_out_where_the_key_is_as_long_as_the_entry) {
    index_entry entry = named(30, "a");
    entry.forced = {{10, 2, 88}};
    ASSERT_EQ(entry.build().size(), 88u);
    EXPECT_EQ(list("$I30", index_block_builder().add(entry)).text, "0x00000000001e,  0x0001,  0x0000, \n");
}

TEST(name_index_text, leaves_times_and_name_out_where_the_key_has_no_room_for_a_name) {
    index_entry entry = named(30, "a");
    entry.forced = {{10, 2, 66}};
    EXPECT_EQ(list("$I30", index_block_builder().add(entry)).text, "0x00000000001e,  0x0001,  0x0000, \n");
    entry.forced = {{10, 2, 67}};
    EXPECT_EQ(list("$I30", index_block_builder().add(entry)).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "a\n");
}

TEST(name_index_text, shows_names_as_utf8) {
    EXPECT_EQ(list("$I30", index_block_builder().add(named(30, u"\u00C4\U0001F600"))).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "\xC3\x84\xF0\x9F\x98\x80\n");
}

TEST(name_index_text, shows_a_damaged_name_as_far_as_it_is_good) {
    const std::u16string damaged = {u'a', u'b', 0xD800, u'c'};
    EXPECT_EQ(list("$I30", index_block_builder().add(named(30, ntfs_name(damaged)))).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "ab\n");
}

TEST(name_index_text, ends_at_a_reference_of_eight_zero_bytes) {
    const listing found =
        list("$I30", index_block_builder().add(named(30, "a")).add(named(0, "z", 0)).add(named(31, "b")));
    EXPECT_EQ(found.text, "0x00000000001e,  0x0001,  0x0000, " + four_times + "a\n");
}

TEST(name_index_text, shows_the_mft_which_is_entry_zero) {
    EXPECT_EQ(list("$I30", index_block_builder().add(named(0, "$MFT"))).text,
              "0x000000000000,  0x0001,  0x0000, " + four_times + "$MFT\n");
}

TEST(name_index_text, ends_at_the_flags_2) {
    index_entry last = named(31, "b");
    last.flags = 2;
    EXPECT_EQ(list("$I30", index_block_builder().add(named(30, "a")).add(last).add(named(32, "c"))).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "a\n");
}

TEST(name_index_text, goes_on_after_a_last_entry_of_an_inner_node_until_it_meets_zeros_or_a_2) {
    index_entry last = named(31, "b");
    last.flags = 3;
    const std::string up_to_c = "0x00000000001e,  0x0001,  0x0000, " + four_times +
                                "a\n"
                                "0x00000000001f,  0x0001,  0x0003, " +
                                four_times +
                                "b\n"
                                "0x000000000020,  0x0001,  0x0000, " +
                                four_times + "c\n";
    index_block_builder block;
    block.add(named(30, "a")).add(last).add(named(32, "c"));
    EXPECT_EQ(list("$I30", block).text, up_to_c) << "zeros after the last";
    index_entry end = named(33, "d");
    end.flags = 2;
    block.add(end).add(named(34, "e"));
    EXPECT_EQ(list("$I30", block).text, up_to_c) << "a 2 after the last";
}

TEST(name_index_text, ends_after_an_entry_that_leads_nowhere) {
    index_entry odd = named(30, "a");
    odd.forced = {{8, 2, 0}, {10, 2, 0}};
    EXPECT_EQ(list("$I30", index_block_builder().add(odd).add(named(31, "b"))).text,
              "0x00000000001e,  0x0001,  0x0000, \n");
}

TEST(name_index_text, ends_with_the_block) {
    for (const std::uint64_t offset : {4064ull, 4072ull, 0x7FFFFFFFull, 0xFFFFFFFFull}) {
        const listing found = list("$I30", index_block_builder().add(named(30, "a")).force(24, 4, offset));
        EXPECT_TRUE(found.result);
        EXPECT_EQ(found.text, "") << offset;
    }
}

TEST(view_index_text, object_ids) {
    const listing found = list("$O",
                               index_block_builder().add(view("00112233445566778899aabbccddeeff",
                                                              "1e0000000100 0200"
                                                              "0102030405060708090a0b0c0d0e0f10"
                                                              "1112131415161718191a1b1c1d1e1f20"
                                                              "2122232425262728292a2b2c2d2e2f30")),
                               true);
    EXPECT_TRUE(found.result);
    EXPECT_EQ(
        found.text,
        "           Object ID,                   MFT entry,   Seq Num,            Birth Vol ID,            "
        "            Birth Obj ID,                        Domain ID\n\n"
        "33221100-5544-7766-8899-aabbccddeeff, 0x00010000001e, 0x0002, "
        "04030201-0605-0807-090a-0b0c0d0e0f10, 14131211-1615-1817-191a-1b1c1d1e1f20, "
        "24232221-2625-2827-292a-2b2c2d2e2f30, \n");
}

TEST(view_index_text, security_descriptors_by_hash) {
    // Hash and id as key; hash, id, place and size in $SDS as data, and "II" as padding.
    const index_entry padded =
        view("efbeadde 00010000", "78563412 01010000 8877665544332211 90000000 49004900");
    const listing found = list("$SDH", index_block_builder().add(padded), true);
    // The data begin at 24, so that hash and id are at 24 and 28, the place at 32, the size at 40.
    EXPECT_EQ(found.text,
              "SD hash (key), SD ID (key), SD hash (data), SD ID (data),    $SDS offset,     $SDS size, II "
              "present\n\n"
              "0xdeadbeef,    0x00000100,  0x12345678,     0x00000101,   0x1122334455667788, 0x00000090, "
              "   yes\n");
}

TEST(view_index_text, security_descriptors_by_hash_without_their_padding) {
    for (const char* padding : {"00000000", "49004a00", "49490000"}) {
        const std::string data = std::string("78563412 01010000 8877665544332211 90000000") + padding;
        EXPECT_EQ(list("$SDH", index_block_builder().add(view("efbeadde 00010000", data.c_str()))).text,
                  "0xdeadbeef,    0x00000100,  0x12345678,     0x00000101,   0x1122334455667788, 0x00000090, "
                  "    no\n")
            << padding;
    }
}

TEST(view_index_text, security_descriptors_by_id) {
    const listing found = list(
        "$SII", index_block_builder().add(view("00010000", "78563412 01010000 8877665544332211 90000000")),
        true);
    EXPECT_EQ(found.text,
              "SD ID (key), SD hash (key), SD ID (data),    $SDS offset,     $SDS size\n\n"
              "0x00000100,  0x12345678,    0x00000101,   0x1122334455667788, 0x00000090, \n");
}

TEST(view_index_text, reparse_points) {
    const listing found = list("$R",
                               index_block_builder().add({.key = from_hex("030000a0 1e0000000100 0200"),
                                                          .view_data = from_hex("00000000")}),
                               true);
    EXPECT_EQ(found.text,
              "    Tag,     MFT entry,    Seq num\n\n"
              "0xa0000003, 0x00010000001e, 0x0002, \n");
}

TEST(view_index_text, is_chosen_by_the_name_in_any_case) {
    const index_entry entry = {.key = from_hex("030000a0 1e0000000000 0200"), .view_data = from_hex("00")};
    EXPECT_EQ(list("$r", index_block_builder().add(entry)).text, "0xa0000003, 0x00000000001e, 0x0002, \n");
}

TEST(view_index_text, of_an_index_that_is_not_known_is_empty) {
    for (const char* name : {"$Q", "", "$I3", "$I300", "$SD", "I30"}) {
        const listing found = list(name, index_block_builder().add(named(30, "a")), true);
        EXPECT_TRUE(found.result) << name;
        EXPECT_EQ(found.text, "") << name;
    }
}

TEST(view_index_text, an_entry_without_data_prints_nothing) {
    index_entry empty = view("01000000", "00000000");
    empty.forced = {{0, 2, 0}};
    const index_entry good = {.key = from_hex("030000a0 1e0000000000 0200"), .view_data = from_hex("00")};
    EXPECT_EQ(list("$R", index_block_builder().add(empty).add(good)).text,
              "0xa0000003, 0x00000000001e, 0x0002, \n");
    // The heading belongs to the first entry, whether or not that has a line.
    EXPECT_EQ(list("$R", index_block_builder().add(empty).add(good), true).text,
              "0xa0000003, 0x00000000001e, 0x0002, \n");
}

TEST(view_index_text, ends_at_a_length_of_zero) {
    index_entry stop = view("01000000", "00000000");
    stop.forced = {{8, 2, 0}};
    EXPECT_EQ(list("$SII", index_block_builder().add(stop)).text, "");
}

TEST(view_index_text, leaves_out_an_entry_that_begins_within_the_last_24_bytes_of_the_node) {
    // First entry at 64 of the block, 40 bytes long; the second one at 104 ends the node at 64 - 24 + 80.
    const index_entry entry = {.key = from_hex("030000a0 1e0000000000 0200"), .view_data = bytes(12)};
    ASSERT_EQ(entry.build().size(), 40u);
    index_block_builder block;
    ASSERT_EQ(block.first_entry_position(), 64u);
    block.add(entry).add(entry);
    const std::string line = "0xa0000003, 0x00000000001e, 0x0002, \n";
    EXPECT_EQ(list("$R", index_block_builder(block).force(28, 4, 105)).text, line + line);
    EXPECT_EQ(list("$R", index_block_builder(block).force(28, 4, 104)).text, line);
    EXPECT_EQ(list("$R", index_block_builder(block).force(28, 4, 64)).text, "");
}

TEST(view_index_text, ends_with_the_block) {
    const listing found = list("$R", index_block_builder().force(24, 4, 0xFFFFFFF0).force(28, 4, 0xFFFFFFFF));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.text, "");
}

TEST(index_text, needs_a_block_that_begins_with_indx) {
    EXPECT_FALSE(list("$I30", index_block_builder().signature("BAAD").add(named(30, "a")), true).result);
    EXPECT_FALSE(list("$I30", index_block_builder().signature("FILE").add(named(30, "a")), true).result);
    EXPECT_EQ(list("$I30", index_block_builder().signature("INDY").add(named(30, "a")), true).text, "");
}

TEST(index_text, needs_a_block) {
    const listing found = list("$I30", bytes{}, true);
    EXPECT_FALSE(found.result);
    EXPECT_EQ(found.text, "");
}

TEST(index_text, needs_a_size_of_at_least_4096_as_a_signed_number) {
    const bytes block = index_block_builder().add(named(30, "a")).build();
    for (const std::int32_t size : {4095, 0, -1, -2147483647 - 1}) {
        EXPECT_FALSE(list("$I30", block, true, 512, size).result) << size;
    }
    EXPECT_TRUE(list("$I30", block, true, 512, 4096).result);
}

TEST(index_text, takes_no_more_than_the_bytes_that_there_are) {
    bytes block = index_block_builder().add(named(30, "a")).build();
    EXPECT_EQ(list("$I30", block, false, 512, 0x7FFFFFFF).text,
              "0x00000000001e,  0x0001,  0x0000, " + four_times + "a\n");
}

// Six entries of 88 bytes from 64 on: the sequence number of the last lies over the end of the first sector.
index_block_builder block_over_a_sector_end() {
    index_block_builder block;
    for (std::uint64_t i = 0; i < 6; ++i) {
        block.add(named(30 + i, "a"));
    }
    return block;
}

TEST(index_text, puts_the_sector_ends_back) {
    bytes block = block_over_a_sector_end().build();
    std::ostringstream out;
    ASSERT_TRUE(list_index_block("$I30", block, 4096, 512, out, false));
    EXPECT_EQ(block, block_over_a_sector_end().build_restored());
    EXPECT_NE(out.str().find("0x000000000023,  0x0001,  0x0000, "), std::string::npos) << out.str();
}

TEST(index_text, leaves_the_sector_ends_without_a_sector_size) {
    bytes block = block_over_a_sector_end().build();
    const bytes before = block;
    std::ostringstream out;
    ASSERT_TRUE(list_index_block("$I30", block, 4096, 0, out, false));
    EXPECT_EQ(block, before);
    EXPECT_NE(out.str().find("0x000000000023,  0x0202,  0x0000, "), std::string::npos) << out.str();
}

TEST(index_text, survives_an_array_outside_of_the_block) {
    for (const std::uint64_t offset : {4093ull, 4094ull, 4095ull, 4096ull, 65535ull}) {
        bytes block = index_block_builder().add(named(30, "a")).force_on_disk(4, 2, offset).build();
        EXPECT_TRUE(list("$I30", block).result) << offset;
        block = index_block_builder()
                    .add(named(30, "a"))
                    .force_on_disk(4, 2, offset)
                    .force_on_disk(6, 2, 65535)
                    .build();
        EXPECT_TRUE(list("$I30", block, false, 1).result) << offset;
        EXPECT_TRUE(list("$I30", block, false, 65535).result) << offset;
    }
}

TEST(index_text, survives_damage_of_any_kind) {
    std::mt19937 random(20);
    for (int round = 0; round < 500; ++round) {
        bytes block = index_block_builder()
                          .add(named(30, "a"))
                          .add(view("01000000", "78563412 01010000 8877665544332211 90000000"))
                          .build();
        for (int i = 0; i < 20; ++i) {
            block[4 + random() % 300] = static_cast<std::uint8_t>(random());
        }
        for (const char* name : {"$I30", "$O", "$SDH", "$SII", "$R"}) {
            EXPECT_TRUE(list(name, block, true).result);
        }
    }
}

}  // namespace
}  // namespace quarry::test
