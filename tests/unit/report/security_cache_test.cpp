#include "report/security_cache.h"

#include "support/lznt1_encoder.h"
#include "support/opened_volume.h"
#include "support/security_builder.h"
#include "support/volume_builder.h"

#include <cstdint>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::ace;
using test::acl;
using test::byte_writer;
using test::bytes;
using test::opened_volume;
using test::sds_record;
using test::sds_stream;
using test::security_descriptor;
using test::sid;
using test::volume_builder;

const bytes local_system = sid(5, {18});
const bytes admins = sid(5, {32, 544});
const bytes system_owner = security_descriptor{.owner = local_system}.build();
const bytes admins_owner = security_descriptor{.owner = admins}.build();

security_map map_of(volume_builder& volume) {
    opened_volume opened(volume);
    security_map map;
    map[0x999];
    read_sds(opened.ntfs(), map);
    return map;
}

security_map map_of(const bytes& sds) {
    volume_builder volume;
    volume.add_secure(sds);
    return map_of(volume);
}

// The ids of a map with their owners: "100 S-1-5-18, 101 S-1-5-32-544".
std::string owners_of(const security_map& map) {
    std::string text;
    for (const auto& [id, entry] : map) {
        EXPECT_EQ(id, entry.security_id);
        text += (text.empty() ? "" : ", ") + std::to_string(id) + " " + entry.owner;
    }
    return text;
}

TEST(security_record, offset_id_owner_group_and_lists_are_taken) {
    const bytes descriptor =
        security_descriptor{.owner = local_system,
                            .group = admins,
                            .sacl = acl({ace(2, 0x00010000, sid(1, {0}))}),
                            .dacl = acl({ace(1, 0x00010000, admins), ace(0, 0x001F01FF, admins)})}
            .build();
    security_entry entry;
    ASSERT_TRUE(parse_security_record(entry, byte_view(sds_record(0x107, 0x40, descriptor))));
    EXPECT_EQ(entry.stream_offset, 0x40u);
    EXPECT_EQ(entry.security_id, 0x107u);
    EXPECT_EQ(entry.owner, "S-1-5-18");
    EXPECT_EQ(entry.group, "S-1-5-32-544");
    EXPECT_EQ(sacl_lines(entry), std::vector<std::string>{"system audit    World           DELETE"});
    EXPECT_EQ(
        dacl_lines(entry),
        (std::vector<std::string>{
            "access allowed  Admins          DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | SYNCHRONIZE",
            "access denied   Admins          DELETE"}));
}

TEST(security_record, an_owner_or_a_group_is_enough_whatever_the_lists_say) {
    security_entry entry;
    EXPECT_TRUE(parse_security_record(entry, byte_view(sds_record(1, 0, system_owner))));
    EXPECT_EQ(entry.group, "");
    const bytes group_only = security_descriptor{.group = admins}.build();
    EXPECT_TRUE(parse_security_record(entry, byte_view(sds_record(1, 0, group_only))));
    EXPECT_EQ(entry.owner, "");
    EXPECT_EQ(entry.group, "S-1-5-32-544");
    const bytes list_only = security_descriptor{.dacl = acl({ace(0, 1, admins)})}.build();
    EXPECT_FALSE(parse_security_record(entry, byte_view(sds_record(1, 0, list_only))));
}

TEST(security_record, an_owner_that_cannot_be_read_counts_as_one) {
    byte_writer descriptor(20);
    descriptor.u32(4, 0xFFFFFFF0);
    security_entry entry;
    EXPECT_TRUE(parse_security_record(entry, byte_view(sds_record(1, 0, descriptor.content()))));
    EXPECT_EQ(entry.owner, "");
}

// A record of `size` bytes with a descriptor whose head is its own SID: parts may be anywhere.
bytes record_of(std::size_t size, const byte_writer& descriptor) {
    byte_writer record(size);
    record.u32(16, size).raw(20, descriptor.content());
    bytes content = record.take();
    content.resize(size);
    return content;
}

TEST(security_record, an_owner_has_all_bytes_left_but_24) {
    // A SID of 20 bytes at offset 2 of the descriptor, over the control word and the offsets.
    byte_writer descriptor(24);
    descriptor.u8(2, 1).u8(3, 3).u32(4, 2).u32(10, 0x11).u32(14, 0x22).u32(18, 0x33);
    security_entry entry;
    EXPECT_TRUE(parse_security_record(entry, byte_view(record_of(44, descriptor))));
    EXPECT_EQ(entry.owner, "S-1-0-17-34-51");
    EXPECT_TRUE(parse_security_record(entry, byte_view(record_of(43, descriptor))));
    EXPECT_EQ(entry.owner, "");
}

TEST(security_record, a_group_has_all_bytes_left_but_32) {
    // A SID of 20 bytes at offset 4 of the descriptor, over the offsets of all parts.
    byte_writer descriptor(24);
    descriptor.u32(4, 0x0301).u32(8, 4).u32(12, 0x11).u32(16, 0x22).u32(20, 0x33);
    security_entry entry;
    EXPECT_TRUE(parse_security_record(entry, byte_view(record_of(52, descriptor))));
    EXPECT_EQ(entry.group, "S-1-0-17-34-51");
    EXPECT_EQ(entry.owner, "");  // at 0x301, outside
    EXPECT_TRUE(parse_security_record(entry, byte_view(record_of(51, descriptor))));
    EXPECT_EQ(entry.group, "");
}

TEST(security_record, a_record_longer_than_the_bytes_left_is_none) {
    bytes record = sds_record(1, 0, system_owner);
    security_entry entry;
    entry.owner = "before";
    record.pop_back();
    EXPECT_FALSE(parse_security_record(entry, byte_view(record)));
    EXPECT_EQ(entry.owner, "");
    EXPECT_FALSE(parse_security_record(entry, byte_view()));
}

TEST(security_record, a_record_cut_at_any_length_is_none) {
    const bytes whole = sds_record(1, 0, system_owner);
    for (std::size_t length = 20; length < whole.size(); ++length) {
        security_entry entry;
        EXPECT_FALSE(parse_security_record(entry, byte_view(whole.data(), length))) << length;
    }
}

TEST(read_sds, every_record_is_entered_under_its_id) {
    EXPECT_EQ(owners_of(map_of(sds_stream({system_owner, admins_owner, system_owner}))),
              "256 S-1-5-18, 257 S-1-5-32-544, 258 S-1-5-18");
}

TEST(read_sds, the_map_is_cleared_first) {
    EXPECT_EQ(owners_of(map_of(bytes(4096))), "");
    CNtfs not_opened;
    security_map map;
    map[1];
    read_sds(not_opened, map);
    EXPECT_TRUE(map.empty());
}

TEST(read_sds, a_bad_record_at_0_x_10_is_walked_on_from_0_x_20) {
    byte_writer sds(0x20);
    // Its own position is right; its size is the hash of the record after it.
    sds.u32(0x14, 0x111).u64(0x18, 0x10).raw(0x20, sds_record(0x100, 0x20, system_owner));
    EXPECT_EQ(owners_of(map_of(sds.content())), "256 S-1-5-18");
}

TEST(read_sds, of_two_records_with_one_id_the_first_counts) {
    byte_writer sds;
    sds.raw(0, sds_record(0x100, 0, system_owner)).pad_to_multiple(16);
    sds.raw(sds.size(), sds_record(0x100, sds.size(), admins_owner));
    EXPECT_EQ(owners_of(map_of(sds.content())), "256 S-1-5-18");
}

TEST(read_sds, the_second_copy_is_known_by_the_position_of_the_first) {
    byte_writer sds(0x40000);
    sds.raw(0, sds_record(0x100, 0, system_owner));
    sds.raw(0x40000, sds_record(0x100, 0, admins_owner)).pad_to_multiple(16);
    sds.raw(sds.size(), sds_record(0x101, 0x40, admins_owner));
    EXPECT_EQ(owners_of(map_of(sds.content())), "256 S-1-5-18");
}

TEST(read_sds, a_position_above_32_bits_is_none) {
    bytes sds = sds_record(0x100, 0, system_owner);
    sds[12] = 1;
    EXPECT_EQ(owners_of(map_of(sds)), "");
}

TEST(read_sds, a_record_of_40_bytes_is_none_and_one_of_41_is) {
    const auto sds_of = [](std::uint32_t size) {
        byte_writer record(48);
        record.u32(4, 0x100).u32(16, size).u32(24, 20);
        return record.take();
    };
    EXPECT_EQ(owners_of(map_of(sds_of(0))), "");
    EXPECT_EQ(owners_of(map_of(sds_of(40))), "");
    EXPECT_EQ(owners_of(map_of(sds_of(41))), "256 S-0-0");  // eight zeros, the last seven after the record
}

TEST(read_sds, a_sid_may_run_on_after_its_record_not_it_to_end_with_it) {
    // The owner begins in the last eight bytes of a record of 48. Its three sub-authorities are the hash, the
    // id and the position of the record after that. At 0x3FFD0 a transfer of the copy, of 256 KiB, ends
    // between the two.
    for (const std::uint32_t position : {0u, 0x3FFD0u}) {
        byte_writer sds(position + 48);
        sds.u32(position + 4, 0x100).u64(position + 8, position).u32(position + 16, 48);
        sds.u32(position + 24, 20).u8(position + 40, 1).u8(position + 41, 3).u8(position + 47, 5);
        sds.raw(sds.size(), sds_record(0x101, sds.size(), admins_owner));
        EXPECT_EQ(owners_of(map_of(sds.take())),
                  "256 S-1-5-305419896-257-" + std::to_string(position + 48) + ", 257 S-1-5-32-544");
    }
}

TEST(read_sds, a_record_that_ends_after_the_stream_is_none) {
    const auto sds_of = [](std::uint32_t size) {
        byte_writer sds;
        sds.raw(0, sds_record(0x100, 0, system_owner)).u32(16, size).pad_to_multiple(16);
        return sds.raw(0x40, sds_record(0x101, 0x40, admins_owner)).pad_to_multiple(16).take();
    };
    ASSERT_EQ(sds_of(52).size(), 0x80u);
    EXPECT_EQ(owners_of(map_of(sds_of(52))), "256 S-1-5-18, 257 S-1-5-32-544");
    // If it is as long as the stream, it takes in what is stored there.
    EXPECT_EQ(owners_of(map_of(sds_of(0x80))), "256 S-1-5-18");
    EXPECT_EQ(owners_of(map_of(sds_of(0x81))), "257 S-1-5-32-544");
    EXPECT_EQ(owners_of(map_of(sds_of(0xFFFFFFFF))), "257 S-1-5-32-544");
}

TEST(read_sds, a_record_longer_than_a_block_of_the_stream_is_none) {
    const auto sds_of = [](std::uint32_t size) {
        byte_writer sds(0x50000);
        return sds.raw(0, sds_record(0x100, 0, system_owner))
            .u32(16, size)
            .raw(0x40, sds_record(0x101, 0x40, admins_owner))
            .take();
    };
    EXPECT_EQ(owners_of(map_of(sds_of(0x40000))), "256 S-1-5-18");
    EXPECT_EQ(owners_of(map_of(sds_of(0x40001))), "257 S-1-5-32-544");
}

TEST(read_sds, a_record_without_owner_and_group_is_passed_over_whole) {
    const bytes inner = sds_record(0x101, 0x40, admins_owner);
    byte_writer descriptor(0x40 - 20);
    descriptor.raw(0x40 - 20, inner);
    byte_writer sds;
    sds.raw(0, sds_record(0x100, 0, descriptor.content())).pad_to_multiple(16);
    sds.raw(sds.size(), sds_record(0x102, sds.size(), system_owner));
    EXPECT_EQ(owners_of(map_of(sds.content())), "258 S-1-5-18");
}

TEST(read_sds, the_next_record_is_at_the_next_multiple_of_16) {
    // Sizes from 52 to 84 bytes, so that each rest of a division by 16 comes up.
    std::vector<bytes> descriptors;
    std::string expected;
    for (std::size_t extra = 0; extra <= 32; ++extra) {
        bytes descriptor = system_owner;
        descriptor.resize(descriptor.size() + extra);
        descriptors.push_back(descriptor);
        expected += (extra == 0 ? "" : ", ") + std::to_string(0x100 + extra) + " S-1-5-18";
    }
    EXPECT_EQ(owners_of(map_of(sds_stream(descriptors))), expected);
}

// A record of 100 bytes is stepped over to 112, one of 97 too: what is at 80 or at 96 is part of it.
TEST(read_sds, the_last_bytes_of_a_record_are_no_beginning_of_another) {
    const auto sds_of = [](std::size_t size, std::size_t inner_position) {
        bytes descriptor = system_owner;
        descriptor.resize(size - 20);
        byte_writer sds(sds_record(0x100, 0, descriptor));
        return sds.raw(inner_position, sds_record(0x101, inner_position, admins_owner)).take();
    };
    EXPECT_EQ(owners_of(map_of(sds_of(100, 80))), "256 S-1-5-18");
    EXPECT_EQ(owners_of(map_of(sds_of(97, 96))), "256 S-1-5-18");
    EXPECT_EQ(owners_of(map_of(sds_of(96, 96))), "256 S-1-5-18, 257 S-1-5-32-544");
}

TEST(read_sds, a_hole_between_records_keeps_the_places_of_those_after_it) {
    volume_builder volume;
    const test::run where = volume.clusters().allocate(2);
    volume.clusters().write({{where.lcn, 1}}, sds_stream({system_owner}));
    volume.clusters().write({{where.lcn + 1, 1}}, sds_record(0x101, 0x2000, admins_owner));
    volume.add_file_at(9, "$Secure")
        .stream("$SDS", {{where.lcn, 1}, {test::hole, 1}, {where.lcn + 1, 1}}, {.real = 0x3000});
    EXPECT_EQ(owners_of(map_of(volume)), "256 S-1-5-18, 257 S-1-5-32-544");
}

TEST(read_sds, a_compressed_stream_is_made_plain) {
    bytes plain = sds_stream({system_owner, admins_owner});
    plain.resize(4096);
    bytes cluster = test::lznt1_chunks(plain);
    ASSERT_LT(cluster.size(), 1000u);
    cluster.resize(4096);
    volume_builder volume;
    const test::run where = volume.clusters().allocate(1);
    volume.add_file_at(9, "$Secure")
        .stream("$SDS", cluster, {{where.lcn, 1}, {test::hole, 15}},
                {.real = 4096, .initialized = 4096, .compressed = 4096, .unit = 4, .flags = 1});
    EXPECT_EQ(owners_of(map_of(volume)), "256 S-1-5-18, 257 S-1-5-32-544");
}

TEST(read_sds, records_across_the_transfers_of_a_long_stream_are_whole) {
    std::vector<bytes> descriptors;
    std::string expected;
    for (std::uint32_t i = 0; i < 6000; ++i) {
        bytes descriptor = security_descriptor{.owner = sid(5, {21, i})}.build();
        descriptor.resize(descriptor.size() + i % 300);
        descriptors.push_back(descriptor);
        expected += (i == 0 ? "" : ", ") + std::to_string(0x100 + i) + " S-1-5-21-" + std::to_string(i);
    }
    const bytes sds = sds_stream(descriptors);
    ASSERT_GT(sds.size(), 1u << 20);
    EXPECT_EQ(owners_of(map_of(sds)), expected);
}

TEST(read_sds, only_a_stream_of_exactly_this_name_is_read) {
    const bytes content = sds_stream({system_owner});
    volume_builder volume;
    volume.add_file_at(9, "$Secure")
        .data(content)
        .stream("$sds", content)
        .stream("$SDS2", content)
        .stream("SDS", content);
    EXPECT_EQ(owners_of(map_of(volume)), "");
    volume.file(9).stream("$SDS", sds_stream({admins_owner}));
    EXPECT_EQ(owners_of(map_of(volume)), "256 S-1-5-32-544");
}

TEST(read_sds, a_volume_without_entry_9_gives_nothing) {
    volume_builder volume;
    EXPECT_EQ(owners_of(map_of(volume)), "");
}

TEST(read_sds, a_stream_that_cannot_be_read_gives_nothing) {
    volume_builder volume;
    volume.add_file_at(9, "$Secure").stream("$SDS", test::runs({{std::int64_t{1} << 40, 8}}));
    EXPECT_EQ(owners_of(map_of(volume)), "");
}

TEST(read_sds, a_stream_that_ends_early_gives_what_came) {
    bytes sds = sds_stream({system_owner});
    sds.resize(4096);
    volume_builder volume;
    const test::run where = volume.clusters().allocate(1);
    volume.add_file_at(9, "$Secure").stream("$SDS", sds, {{where.lcn, 1}}, {.real = 3 * 4096});
    EXPECT_EQ(owners_of(map_of(volume)), "256 S-1-5-18");
}

// Memory in use at its peak, in KiB.
long peak_memory() {
    rusage usage = {};
    EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    return usage.ru_maxrss;
}

TEST(read_sds, a_stream_of_a_tebibyte_of_holes_costs_no_more) {
    volume_builder volume;
    const test::run where = volume.clusters().allocate(1);
    const std::uint64_t hole_clusters = 0xFFFFFFF;  // of 4096 bytes: a tebibyte but for one
    bytes cluster = sds_stream({system_owner});
    cluster.resize(4096);
    volume.add_file_at(9, "$Secure")
        .stream("$SDS", cluster, {{where.lcn, 1}, {test::hole, hole_clusters}},
                {.real = hole_clusters * 4096});
    opened_volume opened(volume);
    const long before = peak_memory();
    security_map map;
    read_sds(opened.ntfs(), map);
    EXPECT_EQ(owners_of(map), "256 S-1-5-18");
    EXPECT_LT(peak_memory() - before, 16 * 1024);
}

// Records of 48 bytes, whose owner and group both begin in their last eight bytes and take in the next 1,020.
bytes sds_of_greedy_records(std::size_t count) {
    byte_writer sds(count * 48 + 2048);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = i * 48;
        sds.u32(at, 0xFFFFFFFF).u32(at + 4, 0xF0000000 + i).u64(at + 8, at).u32(at + 16, 48);
        sds.u32(at + 24, 20).u32(at + 28, 20).u8(at + 40, 1).u8(at + 41, 255).u8(at + 47, 5);
    }
    return sds.take();
}

TEST(read_sds, sids_that_take_in_the_records_after_them_cost_no_more_than_the_source_allows) {
    const std::size_t count = 100000;
    volume_builder volume;
    volume.add_secure(sds_of_greedy_records(count));
    opened_volume opened(volume);
    security_map map;
    read_sds(opened.ntfs(), map);
    ASSERT_GT(map.size(), 1000u);
    EXPECT_LT(map.size(), count);
    std::size_t held = 0;
    for (const auto& [id, entry] : map) {
        held += entry.owner.size() + entry.group.size() + entry.descriptor.size();
    }
    EXPECT_LT(held, (32u << 20) + opened->source_size() / 2)
        << "all of them would take hundreds of megabytes";
    EXPECT_EQ(map.begin()->first, 0xF0000000u);
    EXPECT_GT(map.begin()->second.owner.size(), 1000u);
    EXPECT_EQ(map.rbegin()->first, 0xF0000000u + map.size() - 1) << "the first records are the ones kept";
}

TEST(read_sds, a_stream_is_read_no_further_than_the_source_is_long) {
    // After a hole of a gibibyte comes a record that knows its place. A source of less than a megabyte has no
    // such place.
    volume_builder volume;
    const test::run where = volume.clusters().allocate(2);
    volume.clusters().write({{where.lcn, 1}}, sds_stream({system_owner}));
    volume.clusters().write({{where.lcn + 1, 1}}, sds_record(0x101, 0x40001000, admins_owner));
    volume.add_file_at(9, "$Secure")
        .stream("$SDS", {{where.lcn, 1}, {test::hole, 0x40000}, {where.lcn + 1, 1}}, {.real = 0x40002000});
    EXPECT_EQ(owners_of(map_of(volume)), "256 S-1-5-18");
}

TEST(security_cache, it_is_filled_on_first_need_and_only_then) {
    volume_builder volume;
    volume.add_secure(sds_stream({system_owner}));
    opened_volume opened(volume);
    EXPECT_TRUE(opened->m_sd_cache.empty());
    EXPECT_TRUE(load_security_cache(opened.ntfs()));
    EXPECT_EQ(owners_of(opened->m_sd_cache), "256 S-1-5-18");
    opened->m_sd_cache[7].security_id = 7;
    EXPECT_TRUE(load_security_cache(opened.ntfs()));
    EXPECT_EQ(owners_of(opened->m_sd_cache), "7 , 256 S-1-5-18");
}

TEST(security_cache, an_empty_one_counts_as_not_loaded) {
    volume_builder volume;
    opened_volume opened(volume);
    EXPECT_FALSE(load_security_cache(opened.ntfs()));
    EXPECT_TRUE(opened->m_sd_cache.empty());
}

TEST(security_cache, an_invalid_volume_has_none) {
    CNtfs not_opened;
    not_opened.m_sd_cache[1];
    EXPECT_FALSE(load_security_cache(not_opened));
}

TEST(security_cache, opening_a_volume_fills_it_for_the_security_id_of_its_bitmap) {
    volume_builder volume;
    volume.add_secure(sds_stream({system_owner, admins_owner}));
    {
        opened_volume opened(volume, load_security_cache);
        EXPECT_TRUE(opened->m_sd_cache.empty());  // $Bitmap has no security id
    }
    volume.file(6).security_id(0x101);
    opened_volume opened(volume, load_security_cache);
    EXPECT_EQ(owners_of(opened->m_sd_cache), "256 S-1-5-18, 257 S-1-5-32-544");
    INODE_STATS stats;
    std::vector<std::uint8_t> record;
    std::uint64_t position = 0;
    std::uint64_t length = 1024;
    ASSERT_TRUE(opened->read_record(6, record, position, length));
    opened->parse_record(byte_view(record), stats, 6, false);
    EXPECT_EQ(stats.security_text, "S-1-5-32-544");
}

}  // namespace
}  // namespace quarry
