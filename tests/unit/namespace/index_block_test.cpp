#include "namespace/index_block.h"

#include "support/index_builder.h"

#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using numbers = std::vector<std::uint64_t>;

struct walk {
    bool result;
    numbers children;
};

// An entry of exactly `length` bytes for a child: its key is what remains after the 16 bytes of its head.
index_entry child(std::uint64_t number, std::size_t length = 96, std::uint16_t sequence = 1) {
    return {.file_reference = reference(number, sequence), .key = bytes(length - 16)};
}

walk node(const bytes& header, bool keep_going = false) {
    _inode_collection found;
    const bool result = parse_index_node(found, node_header(byte_view(header)), keep_going);
    return {result, {found.begin(), found.end()}};
}

walk root(const bytes& value) {
    _inode_collection found;
    const bool result = parse_index_root(found, index_root(byte_view(value)));
    return {result, {found.begin(), found.end()}};
}

bytes with(bytes content, std::size_t offset, unsigned width, std::uint64_t value) {
    return byte_writer(std::move(content)).number(offset, width, value).take();
}

constexpr std::size_t first_offset_field = 0;
constexpr std::size_t total_field = 4;

TEST(index_node, gives_each_child_once_in_ascending_order) {
    const walk found = node(build_index_node({child(40), child(31), child(40), child(0x123456789ABC)}));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{31, 40, 0x123456789ABC}));
}

TEST(index_node, adds_to_what_the_collection_holds) {
    _inode_collection found = {7};
    const bytes content = build_index_node({child(30)});
    ASSERT_TRUE(parse_index_node(found, node_header(byte_view(content)), false));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{7, 30}));
}

TEST(index_node, without_children_succeeds) {
    const walk found = node(build_index_node({}));
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST(index_node, takes_children_with_a_sub_node) {
    index_entry inner = child(33);
    inner.sub_node = 5;
    EXPECT_EQ(node(build_index_node({inner, child(34)})).children, (numbers{33, 34}));
}

TEST(index_node, ignores_the_sequence_number_of_a_child) {
    EXPECT_EQ(node(build_index_node({child(30, 96, 0xFFFF)})).children, (numbers{30}));
}

TEST(index_node, begins_where_the_first_entry_offset_says) {
    const bytes content = build_index_node({child(30), child(31)}, 16);
    EXPECT_EQ(node(with(content, first_offset_field, 4, 16 + 96)).children, (numbers{31}));
}

TEST(index_node, a_first_entry_outside_of_the_bytes_gives_no_child) {
    const bytes content = build_index_node({child(30)});
    for (const std::uint64_t offset :
         {std::uint64_t{content.size()}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}}) {
        const walk found = node(with(content, first_offset_field, 4, offset));
        EXPECT_TRUE(found.result) << offset;
        EXPECT_TRUE(found.children.empty()) << offset;
    }
}

TEST(index_node, a_total_size_of_zero_fails) {
    EXPECT_FALSE(node(with(build_index_node({child(30)}), total_field, 4, 0)).result);
}

TEST(index_node, a_total_size_above_4096_fails) {
    for (const std::uint64_t size :
         {std::uint64_t{4097}, std::uint64_t{0x80000000}, std::uint64_t{0xFFFFFFFF}}) {
        const walk found = node(with(build_index_node({child(30)}), total_field, 4, size));
        EXPECT_FALSE(found.result) << size;
        EXPECT_TRUE(found.children.empty()) << size;
    }
}

TEST(index_node, a_node_of_exactly_4096_bytes_yields_no_child_and_no_error) {
    const bytes content = build_index_node({child(30)});
    const walk full = node(with(content, total_field, 4, 4096));
    EXPECT_TRUE(full.result);
    EXPECT_TRUE(full.children.empty());
    EXPECT_EQ(node(with(content, total_field, 4, 4095)).children, (numbers{30}));
}

TEST(index_node, stops_when_the_total_size_is_used_up) {
    const bytes content = build_index_node({child(30), child(31), child(32)});
    // Both entries fit two times 96 bytes exactly, or the second one begins within them.
    EXPECT_EQ(node(with(content, total_field, 4, 192)).children, (numbers{30, 31}));
    EXPECT_EQ(node(with(content, total_field, 4, 97)).children, (numbers{30, 31}));
    EXPECT_EQ(node(with(content, total_field, 4, 96)).children, (numbers{30}));
}

TEST(index_node, an_entry_longer_than_the_total_size_ends_the_node) {
    const bytes content = build_index_node({child(30), child(31)});
    EXPECT_TRUE(node(with(content, total_field, 4, 95)).children.empty());
}

TEST(index_node, a_key_longer_than_the_total_size_ends_the_node_even_in_the_slack) {
    index_entry odd = child(31);
    odd.forced = {{10, 2, 400}};
    const bytes content = build_index_node({child(30), odd, child(32)});
    ASSERT_EQ(content.size(), 16u + 3 * 96 + 16);
    EXPECT_EQ(node(content, true).children, (numbers{30}));
}

TEST(index_node, a_key_longer_than_its_entry_ends_the_node) {
    index_entry odd = child(31);
    odd.forced = {{10, 2, 97}};
    const bytes content = build_index_node({child(30), odd, child(32)});
    EXPECT_EQ(node(content).children, (numbers{30}));
    EXPECT_EQ(node(content, true).children, (numbers{30, 31, 32}));
    odd.forced = {{10, 2, 96}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30, 31, 32}));
}

TEST(index_node, a_reference_of_eight_zero_bytes_ends_the_node) {
    index_entry nothing = child(0, 96, 0);
    const bytes content = build_index_node({child(30), nothing, child(31)});
    EXPECT_EQ(node(content).children, (numbers{30}));
    EXPECT_EQ(node(content, true).children, (numbers{30, 31}));
}

TEST(index_node, the_whole_reference_decides_so_the_mft_is_a_child_like_any_other) {
    EXPECT_EQ(node(build_index_node({child(30), child(0, 96, 1), child(31)})).children, (numbers{0, 30, 31}));
}

TEST(index_node, entries_after_the_last_one_are_in_the_slack_and_not_seen) {
    for (const std::uint16_t last : std::vector<std::uint16_t>{2, 3}) {
        index_entry end = child(31);
        end.flags = last;
        bytes content = build_index_node({child(30), end, child(32)});
        EXPECT_EQ(node(content).children, (numbers{30})) << last;
        EXPECT_EQ(node(content, true).children, (numbers{30, 32})) << last;
    }
}

TEST(index_node, only_the_flags_2_and_3_mark_the_last_entry) {
    for (const std::uint16_t flags : std::vector<std::uint16_t>{1, 4, 6, 7, 0xFFFF}) {
        index_entry odd = child(31);
        odd.flags = flags;
        // Flags with bit 1 would make the builder leave its own end entry out.
        EXPECT_EQ(node(build_index_node({child(30), odd, child(32), end_entry()})).children,
                  (numbers{30, 31, 32}))
            << flags;
    }
}

TEST(index_node, an_entry_longer_than_768_bytes_ends_the_node) {
    EXPECT_EQ(node(build_index_node({child(30), child(31, 768), child(32)})).children, (numbers{30, 31, 32}));
    EXPECT_EQ(node(build_index_node({child(30), child(31, 776), child(32)})).children, (numbers{30}));
    index_entry odd = child(31, 776);
    odd.forced = {{8, 2, 769}, {10, 2, 80}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30}));
}

TEST(index_node, the_first_entry_may_be_longer_than_768_bytes) {
    EXPECT_EQ(node(build_index_node({child(30, 1000), child(31)})).children, (numbers{30, 31}));
}

TEST(index_node, an_entry_of_length_zero_ends_the_node) {
    index_entry odd = child(31);
    odd.forced = {{8, 2, 0}, {10, 2, 0}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30}));
    // As the first entry it is still taken, and ends the node as the entry after itself.
    EXPECT_EQ(node(build_index_node({odd, child(32)})).children, (numbers{31}));
    EXPECT_EQ(node(build_index_node({odd, child(32)}), true).children, (numbers{31}));
}

TEST(index_node, entries_shorter_than_their_head_end_with_the_node) {
    for (std::uint64_t length = 1; length < 16; ++length) {
        index_entry odd = child(31);
        odd.forced = {{8, 2, length}, {10, 2, 0}};
        const bytes content = build_index_node({odd, child(32)});
        for (const bool keep_going : {false, true}) {
            const walk found = node(content, keep_going);
            EXPECT_TRUE(found.result) << length;
            ASSERT_FALSE(found.children.empty()) << length;
            EXPECT_LE(found.children.size(), content.size()) << length;
        }
    }
}

TEST(index_node, cut_at_every_length_gives_only_children_that_are_there) {
    const bytes content = build_index_node({child(30), child(31), child(32)});
    for (std::size_t length = 0; length <= content.size(); ++length) {
        const walk found =
            node(bytes(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(found.result, length >= 8) << length;
        // The entries begin at 16, 112 and 208. The first needs its eight bytes of reference, the others are
        // gone on to once their length is there, two bytes at 8.
        const std::size_t expected = length < 24 ? 0 : length < 122 ? 1 : length < 218 ? 2 : 3;
        EXPECT_EQ(found.children.size(), expected) << length;
    }
}

TEST(index_root, gives_the_children_of_its_node) {
    const walk found = root(build_index_root({child(30), child(31)}));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{30, 31}));
}

TEST(index_root, must_index_file_names) {
    for (const std::uint64_t type : {0u, 0x2Fu, 0x31u, 0xFFFFFFFFu}) {
        const walk found = root(with(build_index_root({child(30)}), 0, 4, type));
        EXPECT_FALSE(found.result) << type;
        EXPECT_TRUE(found.children.empty()) << type;
    }
}

TEST(index_root, needs_a_block_size_other_than_zero_whatever_it_is) {
    EXPECT_FALSE(root(with(build_index_root({child(30)}), 8, 4, 0)).result);
    for (const std::uint64_t size : {1u, 4095u, 0xFFFFFFFFu}) {
        EXPECT_EQ(root(with(build_index_root({child(30)}), 8, 4, size)).children, (numbers{30})) << size;
    }
}

TEST(index_root, ignores_its_collation_rule_and_its_clusters_per_block) {
    EXPECT_EQ(root(with(with(build_index_root({child(30)}), 4, 4, 0xFFFFFFFF), 12, 4, 0xFFFFFFFF)).children,
              (numbers{30}));
}

TEST(index_root, fails_with_a_node_that_is_refused) {
    EXPECT_FALSE(root(with(build_index_root({child(30)}), 20, 4, 4097)).result);
}

TEST(index_root, of_sixteen_bytes_has_no_node_and_fails) {
    bytes value = build_index_root({child(30)});
    value.resize(16);
    EXPECT_FALSE(root(value).result);
    EXPECT_FALSE(root({}).result);
}

TEST(index_block, gives_the_children_of_its_node) {
    const bytes block = index_block_builder().add(child(30)).add(child(31)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), false));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{30, 31}));
}

TEST(index_block, of_any_signature_is_parsed) {
    const bytes block = index_block_builder().signature("BAAD").add(child(30)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), false));
    EXPECT_EQ(found.size(), 1u);
}

TEST(index_block, shows_its_slack_when_asked_to_keep_going) {
    const bytes block = index_block_builder().add(child(30)).add(end_entry()).add(child(31)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), true));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{30, 31}));
}

TEST(index_block, a_null_block_fails) {
    _inode_collection found;
    EXPECT_FALSE(parse_index_block(found, index_block(byte_view()), false));
}

}  // namespace
}  // namespace quarry::test
