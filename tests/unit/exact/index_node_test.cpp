#include "exact/index_node.h"

#include "support/index_builder.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

// Only A to Z have a lower case.
const upcase& letters() {
    static const upcase table = [] {
        byte_writer units(upcase::table_bytes);
        for (std::uint32_t unit = 0; unit < 0x10000; ++unit) {
            units.u16(std::size_t{2} * unit, unit >= 'a' && unit <= 'z' ? unit - 0x20 : unit);
        }
        return upcase::parse(byte_view(units.content())).value();
    }();
    return table;
}

block_place place_at(std::uint64_t source_byte) {
    return {"index root of record 5", {{0, source_byte}}};
}

file_name named(const std::u16string& name) {
    file_name key;
    key.name = name;
    return key;
}

result<index_node> read(const bytes& node, bool fills_block = false) {
    return read_index_node(node, 0, fills_block, letters(), place_at(0x1000));
}

std::string refusal(const bytes& node, bool fills_block = false) {
    const auto read_node = read(node, fills_block);
    EXPECT_FALSE(read_node.has_value());
    return read_node ? "" : read_node.error().text();
}

result<index_node> read_block(const index_block_builder& block) {
    const bytes built = block.build_restored();
    return read_index_node(built, 24, true, letters(), place_at(0x1000));
}

std::string refusal_of_block(const index_block_builder& block) {
    const auto read_node = read_block(block);
    EXPECT_FALSE(read_node.has_value());
    return read_node ? "" : read_node.error().text();
}

const std::vector<index_entry> two_names = {name_entry(0x0001000000000030, named(u"a.txt")),
                                            name_entry(0x0002000000000031, named(u"b.txt"))};
// Each of the two is 16 + 66 + 10 bytes, rounded up to 96.
constexpr std::size_t first_entry = 16;
constexpr std::size_t second_entry = 16 + 96;
constexpr std::size_t last_entry = 16 + 2 * 96;

index_block_builder two_names_in_a_block() {
    return index_block_builder().add(two_names[0]).add(two_names[1]);
}

}  // namespace

TEST(index_node, gives_its_entries_in_their_order) {
    const auto node = read(build_index_node(two_names));
    ASSERT_TRUE(node.has_value()) << node.error().text();
    ASSERT_EQ(node->entries.size(), 3u);
    EXPECT_EQ(node->entries[0].key->name, u"a.txt");
    EXPECT_EQ(node->entries[0].key->file, (exact::reference{0x30, 1}));
    EXPECT_EQ(node->entries[1].key->name, u"b.txt");
    EXPECT_FALSE(node->entries[2].key.has_value());
    EXPECT_FALSE(node->entries[2].child.has_value());
}

TEST(index_node, may_be_empty) {
    const auto node = read(build_index_node({}));
    ASSERT_TRUE(node.has_value());
    EXPECT_EQ(node->entries.size(), 1u);
}

TEST(index_node, may_have_children) {
    index_entry with_child = two_names[0];
    with_child.flags = 1;
    with_child.sub_node = 7;
    index_entry last = end_entry();
    last.flags = 3;
    last.sub_node = 9;
    const auto node = read(build_index_node({with_child, last}, 16, 0, true));
    ASSERT_TRUE(node.has_value()) << node.error().text();
    EXPECT_EQ(node->entries[0].child, 7u);
    EXPECT_EQ(node->entries[1].child, 9u);
    EXPECT_EQ(
        refusal(build_index_node({with_child, last}, 16, 0, false)),
        "index root of record 5: entry at 0x10: has a child in a node without children (source byte 0x1010)");
    EXPECT_EQ(
        refusal(build_index_node({two_names[0], last}, 16, 0, true)),
        "index root of record 5: entry at 0x10: has no child in a node with children (source byte 0x1010)");
    EXPECT_EQ(refusal(build_index_node({with_child, end_entry()}, 16, 0, true)).find("has no child") !=
                  std::string::npos,
              true);
}

TEST(index_node, cut_at_any_length_is_refused) {
    const bytes whole = build_index_node(two_names);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(
            read(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).has_value())
            << size;
    }
}

TEST(index_node, has_its_sizes_in_their_order) {
    const bytes whole = build_index_node(two_names);
    const auto with = [&](std::size_t offset, std::uint32_t value) {
        return byte_writer(whole).u32(offset, value).take();
    };
    EXPECT_EQ(refusal(with(0, 8)),
              "index root of record 5: the first entry of the node is at 0x8 (source byte 0x1000)");
    EXPECT_EQ(refusal(with(4, 16)),
              "index root of record 5: the node uses 16 of 224 bytes (source byte 0x1000)");
    EXPECT_EQ(refusal(with(4, 232)),
              "index root of record 5: the node uses 232 of 224 bytes (source byte 0x1000)");
    EXPECT_EQ(refusal(with(8, 232)),
              "index root of record 5: the node has 232 bytes, its place 224 (source byte 0x1000)");
    EXPECT_EQ(
        refusal(with(4, 208)),
        "index root of record 5: entry at 0xD0: the node ends without a last entry (source byte 0x10D0)");
}

TEST(index_node, of_a_block_has_all_of_it) {
    EXPECT_TRUE(read_block(two_names_in_a_block()).has_value());
    EXPECT_EQ(refusal_of_block(two_names_in_a_block().force(32, 4, 4064)),
              "index root of record 5: the node has 4064 bytes, its place 4072 (source byte 0x1018)");
    bytes in_root = build_index_node(two_names);
    in_root.resize(in_root.size() + 8);
    EXPECT_TRUE(read(in_root).has_value());
}

// The node begins at 24, the array of 9 numbers at 40. It ends at 58, so that the first entry is at 64, which
// is 40 from the node. The entry of a name takes 88 bytes at least.
TEST(index_node, hides_no_name_ahead_of_its_first_entry) {
    EXPECT_EQ(two_names_in_a_block().first_entry_position(), 64u);
    EXPECT_TRUE(refusal_of_block(two_names_in_a_block().force(24, 4, 127)).find("first entry") ==
                std::string::npos);
    for (const auto& [first, shown] :
         {std::pair(39u, "0x27"), std::pair(128u, "0x80"), std::pair(136u, "0x88")}) {
        EXPECT_EQ(refusal_of_block(two_names_in_a_block().force(24, 4, first)),
                  "index root of record 5: the first entry of the node is at " + std::string(shown) +
                      " (source byte 0x1018)");
    }
    EXPECT_EQ(refusal(byte_writer(build_index_node(two_names)).u32(0, second_entry).take()),
              "index root of record 5: the first entry of the node is at 0x70 (source byte 0x1000)");
}

TEST(index_node, has_no_entry_that_covers_the_next_one) {
    const bytes whole = build_index_node(two_names);
    const std::string place = "index root of record 5: entry at 0x10: ";
    const auto with_length = [&](std::uint32_t length) {
        return byte_writer(whole).u16(first_entry + 8, length);
    };
    EXPECT_EQ(refusal(with_length(192).take()),
              place + "has a length of 192, and a name of 5 units (source byte 0x1010)");
    EXPECT_EQ(refusal(with_length(192).u16(first_entry + 10, 176).take()),
              place + "has a length of 192, and a name of 5 units (source byte 0x1010)");
    EXPECT_EQ(refusal(with_length(104).take()),
              place + "has a length of 104, and a name of 5 units (source byte 0x1010)");
}

TEST(index_node, ends_where_its_last_entry_ends) {
    const bytes whole = build_index_node(two_names);
    // The second name becomes the last entry, with its length and with that of a last entry.
    EXPECT_EQ(refusal(byte_writer(whole).u16(second_entry + 12, 2).take()),
              "index root of record 5: entry at 0x70: is the last, with a length of 96 (source byte 0x1070)");
    const bytes early = byte_writer(whole).u16(second_entry + 12, 2).u16(second_entry + 8, 16).take();
    EXPECT_EQ(
        refusal(early),
        "index root of record 5: the node uses 224 bytes, its last entry ends at 0x80 (source byte 0x1000)");
    // What can be read is taken all the same.
    const auto damaged = read_damaged_index_node(early, 0, false, letters(), place_at(0x1000));
    ASSERT_TRUE(damaged.has_value());
    EXPECT_EQ(damaged->entries.size(), 2u);
    EXPECT_EQ(damaged->damage.size(), 1u);
}

TEST(index_node, has_entries_of_whole_eights_inside_of_it) {
    const bytes whole = build_index_node(two_names);
    for (const std::uint32_t length : {0u, 8u, 15u, 92u, 97u, 216u, 65535u}) {
        EXPECT_EQ(refusal(byte_writer(whole).u16(first_entry + 8, length).take()),
                  "index root of record 5: entry at 0x10: has a length of " + std::to_string(length) +
                      " (source byte 0x1010)");
    }
    EXPECT_TRUE(read(byte_writer(whole).u16(last_entry + 8, 16).take()).has_value());
}

TEST(index_node, has_keys_that_hold_their_names) {
    const bytes whole = build_index_node(two_names);
    const auto text = [](int key, int units) {
        return "index root of record 5: entry at 0x10: has a key of " + std::to_string(key) +
               " bytes with a name of " + std::to_string(units) + " units (source byte 0x1010)";
    };
    EXPECT_EQ(refusal(byte_writer(whole).u16(first_entry + 10, 75).take()), text(75, 5));
    EXPECT_EQ(refusal(byte_writer(whole).u16(first_entry + 10, 81).take()), text(81, 5));
    EXPECT_EQ(refusal(byte_writer(whole).u8(first_entry + 16 + 64, 6).take()), text(76, 6));
    EXPECT_EQ(refusal(byte_writer(whole).u8(first_entry + 16 + 64, 0).take()), text(76, 0));
    EXPECT_TRUE(read(byte_writer(whole).u16(first_entry + 10, 80).take()).has_value());
}

TEST(index_node, has_keys_that_rise) {
    const auto order = [](const std::u16string& a, const std::u16string& b) {
        return read(build_index_node({name_entry(1, named(a)), name_entry(2, named(b))})).has_value();
    };
    EXPECT_TRUE(order(u"a", u"b"));
    EXPECT_FALSE(order(u"b", u"a"));
    EXPECT_FALSE(order(u"a", u"a"));
    EXPECT_TRUE(order(u"A", u"a"));  // the same letters: as they are
    EXPECT_FALSE(order(u"a", u"A"));
    EXPECT_TRUE(order(u"a", u"AB"));  // a part of the other comes first
    EXPECT_TRUE(order(u"a_", u"b"));
    EXPECT_FALSE(order(u"_", u"a"));  // "_" comes after "A"
    const auto fallen =
        read(build_index_node({name_entry(1, named(u"b.txt")), name_entry(2, named(u"a.txt"))}));
    EXPECT_EQ(fallen.error().code, failure_code::index_order);
    EXPECT_EQ(fallen.error().text(), "index root of record 5: keys do not rise at 0x70 (source byte 0x1070)");
    static_assert(second_entry == 0x70);
}

TEST(collate, sorts_by_upper_case_then_by_length_then_by_the_units) {
    EXPECT_TRUE(collate(letters(), u"ab", u"ABC") < 0);
    EXPECT_TRUE(collate(letters(), u"b", u"abc") > 0);
    EXPECT_TRUE(collate(letters(), u"abc", u"ABC") > 0);
    EXPECT_TRUE(collate(letters(), u"abc", u"abc") == 0);
}

}  // namespace quarry::test
