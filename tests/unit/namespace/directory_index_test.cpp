#include "namespace/directory_index.h"

#include "namespace/index_block.h"
#include "support/opened_volume.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using numbers = std::vector<std::uint64_t>;

struct listing {
    bool result;
    numbers children;
};

listing children_of(CNtfs& ntfs, std::uint64_t entry, bool keep_going = false) {
    _inode_collection found;
    const bool result = get_directory_children(ntfs, entry, found, keep_going);
    return {result, {found.begin(), found.end()}};
}

listing children_of(const volume_builder& volume, std::uint64_t entry, bool keep_going = false) {
    opened_volume opened(volume);
    return children_of(opened.ntfs(), entry, keep_going);
}

// An entry of 96 bytes for a child that need not exist.
index_entry child(std::uint64_t number) {
    return {.file_reference = reference(number, 1), .key = bytes(80)};
}

bytes block_of(std::uint64_t number) {
    return index_block_builder().add(child(number)).build();
}

attribute_builder root_with(std::vector<index_entry> entries) {
    return attribute_builder::resident(0x90, build_index_root(entries)).named("$I30");
}

attribute_builder allocation_at(std::uint64_t lcn, std::uint64_t clusters) {
    return attribute_builder::non_resident(0xA0, {{static_cast<std::int64_t>(lcn), clusters}}).named("$I30");
}

class directory_index_test : public ::testing::Test {
  protected:
    directory_index_test() : m_directory(m_volume.add_directory("dir")) {}
    [[nodiscard]] listing children(bool keep_going = false) {
        return children_of(m_volume, m_directory.entry(), keep_going);
    }
    // The directory's index is what the test adds to its record.
    file_builder& by_hand() { return m_directory.without_index(); }

    volume_builder m_volume;
    file_builder& m_directory;
};

TEST_F(directory_index_test, with_only_a_root_gives_all_children) {
    m_volume.add_file("a", m_directory.entry());
    m_volume.add_directory("b", m_directory.entry());
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{25, 26}));
}

TEST_F(directory_index_test, of_an_empty_directory_succeeds_without_children) {
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST_F(directory_index_test, of_the_root_directory_lists_the_mft_and_itself) {
    EXPECT_EQ(children_of(m_volume, 5).children, (numbers{0, 5, 6, 24}));
}

TEST_F(directory_index_test, in_blocks_gives_all_children) {
    volume_builder volume({.mft_entries = 500});
    const std::uint64_t directory = volume.add_directory("dir").index_in_blocks().entry();
    numbers expected;
    for (int i = 0; i < 400; ++i) {
        expected.push_back(volume.add_file("file " + std::to_string(i), directory).entry());
    }
    const listing found = children_of(volume, directory);
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, expected);
}

TEST_F(directory_index_test, adds_the_children_of_the_root_to_those_of_the_blocks) {
    m_volume.write_clusters(40, block_of(101));
    by_hand().attribute(root_with({child(100)})).attribute(allocation_at(40, 1));
    EXPECT_EQ(children().children, (numbers{100, 101}));
}

TEST_F(directory_index_test, with_an_allocation_of_less_than_4096_bytes_succeeds_and_adds_nothing_from_it) {
    volume_builder volume({.sectors_per_cluster = 1});
    bytes most = block_of(101);
    most.resize(7 * 512);
    volume.write_clusters(300, most);
    file_builder& directory = volume.add_directory("dir").without_index();
    directory.attribute(root_with({child(100)}).force(20, 4, 0)).attribute(allocation_at(300, 7));
    const listing found = children_of(volume, directory.entry());
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST_F(directory_index_test, skips_a_block_marked_baad_and_reads_its_neighbours) {
    const bytes baad = index_block_builder().signature("BAAD").add(child(101)).build();
    m_volume.write_clusters(40, concat({block_of(100), baad, block_of(102)}));
    by_hand().attribute(root_with({})).attribute(allocation_at(40, 3));
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{100, 102}));
}

TEST_F(directory_index_test, skips_a_block_that_is_refused) {
    const bytes refused = index_block_builder().add(child(101)).force(28, 4, 4097).build();
    m_volume.write_clusters(40, concat({refused, block_of(102)}));
    by_hand().attribute(root_with({})).attribute(allocation_at(40, 2));
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{102}));
}

TEST_F(directory_index_test,
       whose_blocks_name_themselves_and_each_other_as_their_sub_nodes_gives_each_child_once) {
    const auto leading_to = [](std::uint64_t vcn, std::uint64_t number) {
        index_entry inner = child(number);
        inner.sub_node = vcn;
        index_entry last = end_entry();
        last.flags = 3;
        last.sub_node = vcn;
        return index_block_builder().add(inner).add(last).build();
    };
    // Block 0 is that of the directory's own children, of which there are none.
    m_directory.index_in_blocks()
        .extra_index_block(leading_to(1, 70))
        .extra_index_block(leading_to(3, 71))
        .extra_index_block(leading_to(2, 72));
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{70, 71, 72}));
}

TEST_F(directory_index_test, reads_a_freed_block_as_if_live) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.index_in_blocks().extra_index_block(block_of(77));
    EXPECT_EQ(children().children, (numbers{25, 77}));
}

TEST_F(directory_index_test, reads_an_allocation_in_an_extension_record) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.index_allocation_in(m_directory.add_extension());
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{25}));
}

TEST_F(directory_index_test, reads_an_allocation_that_a_list_in_clusters_names) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.index_allocation_in(m_directory.add_extension()).list_in_clusters();
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{25}));
}

TEST_F(directory_index_test, reads_a_root_in_an_extension_record) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.index_root_in(m_directory.add_extension());
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{25}));
}

TEST_F(directory_index_test, reads_root_and_allocation_in_different_extension_records) {
    m_volume.write_clusters(40, block_of(101));
    const std::size_t first = m_directory.add_extension();
    const std::size_t second = m_directory.add_extension();
    by_hand().attribute(root_with({child(100)}), first).attribute(allocation_at(40, 1), second);
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{100, 101}));
}

TEST_F(directory_index_test, of_an_extension_record_is_that_of_its_base_record) {
    m_volume.add_file("a", m_directory.entry());
    const std::size_t place = m_directory.add_extension();
    m_directory.attribute(attribute_builder::resident(0x80, {1}).named("s"), place);
    const listing found = children_of(m_volume, m_directory.extension_entry(place));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{25}));
}

TEST_F(directory_index_test, of_records_that_are_each_others_base_fails) {
    file_builder& other = m_volume.add_directory("other");
    m_directory.record().base(reference(other.entry(), 1));
    other.record().base(reference(m_directory.entry(), 1));
    EXPECT_FALSE(children().result);
    m_directory.record().base(reference(m_directory.entry(), 1));
    EXPECT_FALSE(children().result) << "its own base";
}

TEST_F(directory_index_test, is_not_that_of_a_base_record_with_number_zero) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.record().base(reference(0, 1));
    EXPECT_EQ(children().children, (numbers{25}));
}

TEST_F(directory_index_test, of_a_base_record_that_cannot_be_read_fails) {
    m_directory.record().base(reference(60, 1));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, fails_for_a_record_that_cannot_be_read) {
    for (const std::uint64_t entry : {60ull, 1000ull, 0xFFFFFFFFFFFFull, 0xFFFFFFFFFFFFFFFFull}) {
        EXPECT_FALSE(children_of(m_volume, entry).result) << entry;
    }
}

TEST_F(directory_index_test, fails_for_a_record_longer_than_the_volumes_records) {
    opened_volume opened(m_volume);
    EXPECT_TRUE(children_of(opened.ntfs(), m_directory.entry()).result);
    opened->m_record_alloc = 1025;
    EXPECT_FALSE(children_of(opened.ntfs(), m_directory.entry()).result);
}

TEST_F(directory_index_test, fails_for_a_file) {
    const std::uint64_t file = m_volume.add_file("a").data("text").entry();
    EXPECT_FALSE(children_of(m_volume, file).result);
}

TEST_F(directory_index_test, is_read_from_an_index_block_in_the_place_of_a_record) {
    m_volume.add_file("a", m_directory.entry());
    m_directory.record().signature("INDX");
    EXPECT_EQ(children().children, (numbers{25}));
}

TEST_F(directory_index_test, survives_an_index_block_in_the_place_of_a_record_whose_numbers_mean_nothing) {
    m_volume.replace_record(30, index_block_builder(1024).add(child(100)).build());
    for (const std::uint64_t value : {0ull, 1ull, 1022ull, 1023ull, 1024ull, 4095ull, 65535ull}) {
        for (const std::size_t offset : {4u, 6u, 20u}) {
            m_volume.force_record(30, offset, 2, value);
            EXPECT_FALSE(children_of(m_volume, 30).result) << offset << " " << value;
        }
    }
}

TEST_F(directory_index_test, needs_the_name_i30_exactly) {
    for (const char* name : {"", "$I3", "$i30", "$I300", "$SII", "I30"}) {
        volume_builder volume;
        file_builder& directory = volume.add_directory("dir").without_index();
        directory.attribute(attribute_builder::resident(0x90, build_index_root({child(100)})).named(name));
        EXPECT_FALSE(children_of(volume, directory.entry()).result) << name;
    }
}

TEST_F(directory_index_test, needs_a_name_that_lies_inside_of_the_attribute) {
    // Name of 8 bytes at 24; the attribute's length is then what it must reach.
    by_hand().attribute(root_with({child(100)}).length(32));
    EXPECT_EQ(children().children, (numbers{100}));
    volume_builder volume;
    file_builder& directory = volume.add_directory("dir").without_index();
    directory.attribute(root_with({child(100)}).length(31));
    EXPECT_FALSE(children_of(volume, directory.entry()).result);
}

TEST_F(directory_index_test, needs_a_name_offset) {
    by_hand().attribute(root_with({child(100)}).force(10, 2, 0));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, takes_the_later_of_two_roots) {
    by_hand().attribute(root_with({child(100)})).attribute(root_with({child(101)}));
    EXPECT_EQ(children().children, (numbers{101}));
}

TEST_F(directory_index_test, takes_the_later_of_two_allocations) {
    m_volume.write_clusters(40, concat({block_of(101), block_of(102)}));
    by_hand().attribute(root_with({})).attribute(allocation_at(40, 1)).attribute(allocation_at(41, 1));
    EXPECT_EQ(children().children, (numbers{102}));
}

TEST_F(directory_index_test, ends_its_attributes_at_a_type_of_fffffffe_or_above) {
    by_hand().unsorted().attribute(attribute_builder::resident(0xFFFFFFFE, bytes(8)));
    m_directory.attribute(root_with({child(100)}));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, goes_on_after_a_type_below_fffffffe) {
    by_hand().unsorted().attribute(attribute_builder::resident(0xFFFFFFFD, bytes(8)));
    m_directory.attribute(root_with({child(100)}));
    EXPECT_EQ(children().children, (numbers{100}));
}

TEST_F(directory_index_test, ends_its_attributes_at_a_length_of_zero_or_above_the_records) {
    for (const std::uint32_t length : {0u, 1025u, 0xFFFFFFFFu}) {
        volume_builder volume;
        file_builder& directory = volume.add_directory("dir").without_index().unsorted();
        directory.attribute(attribute_builder::resident(0x80, bytes(8)).length(length));
        directory.attribute(root_with({child(100)}));
        EXPECT_FALSE(children_of(volume, directory.entry()).result) << length;
    }
}

TEST_F(directory_index_test, takes_a_root_longer_than_the_record_and_ends_after_it) {
    m_volume.write_clusters(40, block_of(101));
    by_hand().attribute(root_with({child(100)}).length(1025)).attribute(allocation_at(40, 1));
    EXPECT_EQ(children().children, (numbers{100}));
}

TEST_F(directory_index_test, has_the_result_of_the_allocation_whatever_the_root_gave) {
    m_volume.write_clusters(40, block_of(101));
    by_hand().attribute(root_with({child(100)}).force(32, 4, 0x80)).attribute(allocation_at(40, 1));
    listing found = children();
    EXPECT_TRUE(found.result) << "the root indexes $DATA";
    EXPECT_EQ(found.children, (numbers{101}));

    volume_builder volume;
    file_builder& directory = volume.add_directory("dir").without_index();
    directory.attribute(root_with({child(100)})).attribute(allocation_at(40, 1).initialized(0));
    found = children_of(volume, directory.entry());
    EXPECT_FALSE(found.result) << "the allocation is not initialized";
    EXPECT_EQ(found.children, (numbers{100})) << "the root's children stay";
}

TEST_F(directory_index_test, fails_with_an_allocation_that_has_no_clusters) {
    by_hand().attribute(root_with({child(100)}));
    m_directory.attribute(attribute_builder::with_pairs(0xA0, {0}).initialized(4096).named("$I30"));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, succeeds_with_a_list_that_is_not_initialized_whatever_the_root_gave) {
    by_hand().without_attribute_list().attribute(
        attribute_builder::non_resident(0x20, runs({{40, 1}})).initialized(0));
    listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST_F(directory_index_test, succeeds_with_a_list_that_cannot_be_read_whatever_the_root_gave) {
    by_hand().without_attribute_list();
    m_directory.attribute(attribute_builder::non_resident(0x20, runs({{100000, 1}})));
    m_directory.attribute(root_with({child(100)}).force(32, 4, 0x80));
    listing found = children();
    EXPECT_TRUE(found.result) << "clusters that are not on the volume";

    volume_builder volume;
    file_builder& directory = volume.add_directory("dir").without_index().without_attribute_list();
    directory.attribute(attribute_builder::with_pairs(0x20, {0}).initialized(4096));
    EXPECT_TRUE(children_of(volume, directory.entry()).result) << "no clusters";
}

TEST_F(directory_index_test, fails_with_a_resident_list_that_names_no_index) {
    by_hand().attribute_list(build_attribute_list({{.type = 0x10, .record = m_directory.entry()}}));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, passes_over_a_listed_allocation_that_is_in_its_own_record) {
    by_hand().attribute(root_with({child(100)}));
    m_directory.attribute_list(
        build_attribute_list({{.type = 0xA0, .record = m_directory.entry(), .name = "$I30"}}));
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{100}));
}

TEST_F(directory_index_test, passes_over_a_listed_root_that_is_in_its_own_record) {
    // The record's own attribute is named "$I300": not exactly enough for the record, but for a list.
    by_hand().attribute(attribute_builder::resident(0x90, build_index_root({child(100)})).named("$I300"));
    m_directory.attribute_list(
        build_attribute_list({{.type = 0x90, .record = m_directory.entry(), .name = "$I30"}}));
    const listing found = children();
    EXPECT_FALSE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST_F(directory_index_test, fails_when_the_listed_record_cannot_be_read) {
    for (const std::uint32_t type : {0x90u, 0xA0u}) {
        volume_builder volume;
        file_builder& directory = volume.add_directory("dir").without_index();
        if (type == 0xA0) {
            directory.attribute(root_with({child(100)}));
        }
        directory.attribute_list(build_attribute_list({{.type = type, .record = 60, .name = "$I30"}}));
        const listing found = children_of(volume, directory.entry());
        EXPECT_FALSE(found.result) << type;
        EXPECT_EQ(found.children.size(), type == 0xA0 ? 1u : 0u) << type;
    }
}

TEST_F(directory_index_test, keeps_the_result_of_its_root_when_the_listed_record_has_no_index) {
    const std::uint64_t other = m_volume.add_file("other").entry();
    by_hand().attribute(root_with({child(100)}));
    m_directory.attribute_list(build_attribute_list({{.type = 0xA0, .record = other, .name = "$I30"}}));
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{100}));
}

TEST_F(directory_index_test, looks_only_for_the_listed_name) {
    m_volume.write_clusters(40, block_of(101));
    const std::size_t place = m_directory.add_extension();
    by_hand().attribute(root_with({child(100)}));
    m_directory.attribute(attribute_builder::non_resident(0xA0, runs({{40, 1}})).named("$I30"), place);
    m_directory.attribute_list(
        build_attribute_list({{.type = 0xA0, .record = m_directory.extension_entry(place), .name = "$SII"}}));
    EXPECT_EQ(children().children, (numbers{100}));
}

TEST_F(directory_index_test, does_not_look_at_the_list_with_an_allocation_in_its_own_record) {
    m_volume.write_clusters(40, concat({block_of(101), block_of(102)}));
    const std::size_t place = m_directory.add_extension();
    by_hand().attribute(allocation_at(40, 1)).attribute(allocation_at(41, 1), place);
    const listing found = children();
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{101}));
}

TEST_F(directory_index_test, does_not_look_for_a_root_in_the_list_with_one_in_its_own_record) {
    const std::size_t place = m_directory.add_extension();
    by_hand().attribute(root_with({child(100)})).attribute(root_with({child(101)}), place);
    EXPECT_EQ(children().children, (numbers{100}));
}

TEST_F(directory_index_test, shows_the_slack_of_its_blocks_when_asked_to_keep_going) {
    const bytes block = index_block_builder().add(child(101)).add(end_entry()).add(child(102)).build();
    m_volume.write_clusters(40, block);
    const std::size_t place = m_directory.add_extension();
    m_directory.attribute(attribute_builder::resident(0x80, {1}).named("s"), place);
    by_hand().attribute(root_with({child(100), end_entry(), child(103)})).attribute(allocation_at(40, 1));
    EXPECT_EQ(children(false).children, (numbers{100, 101}));
    EXPECT_EQ(children(true).children, (numbers{100, 101, 102}));
    EXPECT_EQ(children_of(m_volume, m_directory.extension_entry(place), true).children, (numbers{100, 101}));
}

TEST_F(directory_index_test, with_a_root_value_of_sixteen_bytes_reads_what_the_record_holds_after_it) {
    by_hand().attribute(root_with({child(100)}).force(16, 4, 16));
    EXPECT_EQ(children().children, (numbers{100}));
}

TEST_F(directory_index_test, with_a_root_value_outside_of_the_record_fails) {
    by_hand().attribute(root_with({child(100)}).force(20, 2, 0xFFFF));
    EXPECT_FALSE(children().result);
}

TEST_F(directory_index_test, of_overlapping_entries_shows_no_more_children_than_the_source_has_room_for) {
    // Every word of a block is the length of an entry and a part of the references of others, so that an
    // entry begins every 34 bytes or so and most of them name different children.
    std::mt19937 random(19);
    bytes blocks;
    for (int i = 0; i < 256; ++i) {
        byte_writer block(4096);
        for (std::size_t at = 0; at < 4096; at += 2) {
            block.u16(at, 4 + 2 * (random() % 31));
        }
        blocks =
            concat({blocks, block.text(0, "INDX").u16(4, 40).u16(6, 0).u32(24, 16).u32(28, 4095).take()});
    }
    m_volume.write_clusters(40, blocks);
    by_hand().attribute(root_with({})).attribute(allocation_at(40, 256));
    opened_volume opened(m_volume);
    // What the blocks would show without a limit, one after the other.
    std::size_t most = 0;
    for (std::size_t at = 0; at < blocks.size(); at += 4096) {
        _inode_collection of_block;
        static_cast<void>(
            parse_index_block(of_block, index_block(byte_view(blocks).clipped(at, 4096)), true));
        most += of_block.size();
    }
    const std::size_t room = opened->source_size() / 84;
    ASSERT_GT(most, room + 4096);
    _inode_collection found;
    EXPECT_TRUE(get_directory_children(opened.ntfs(), m_directory.entry(), found, true));
    // Children that were met twice may count twice.
    EXPECT_GT(found.size(), room / 2);
    EXPECT_LE(found.size(), room + 4096);
}

TEST_F(directory_index_test, on_a_damaged_volume_ends_and_shows_no_more_than_the_source_has_room_for) {
    m_volume.add_file("a", m_directory.entry());
    m_volume.add_file("b", m_directory.entry());
    m_directory.index_allocation_in(m_directory.add_extension());
    opened_volume opened(m_volume);
    const bytes image = m_volume.image();
    const std::size_t position = m_volume.record_position(m_directory.entry());
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        bytes damaged = image;
        for (int i = 0; i < 12; ++i) {
            // The directory's record and the one of its extension lie near to each other.
            damaged[position + random() % 4096] = static_cast<std::uint8_t>(random());
        }
        write_file(opened.path(), damaged);
        for (const std::uint64_t entry : {24ull, 25ull, 26ull, 27ull}) {
            for (const bool keep_going : {false, true}) {
                EXPECT_LE(children_of(opened.ntfs(), entry, keep_going).children.size(),
                          opened->source_size() / 84 + 4096);
            }
        }
    }
}

}  // namespace
}  // namespace quarry::test
