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

// An entry of exactly `length` bytes for a child: its key is what remains behind the 16 bytes of its head.
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

TEST(IndexNode, GivesEachChildOnceInAscendingOrder) {
    const walk found = node(build_index_node({child(40), child(31), child(40), child(0x123456789ABC)}));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{31, 40, 0x123456789ABC}));
}

TEST(IndexNode, AddsToWhatTheCollectionHolds) {
    _inode_collection found = {7};
    const bytes content = build_index_node({child(30)});
    ASSERT_TRUE(parse_index_node(found, node_header(byte_view(content)), false));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{7, 30}));
}

TEST(IndexNode, WithoutChildrenSucceeds) {
    const walk found = node(build_index_node({}));
    EXPECT_TRUE(found.result);
    EXPECT_TRUE(found.children.empty());
}

TEST(IndexNode, TakesChildrenWithASubNode) {
    index_entry inner = child(33);
    inner.sub_node = 5;
    EXPECT_EQ(node(build_index_node({inner, child(34)})).children, (numbers{33, 34}));
}

TEST(IndexNode, IgnoresTheSequenceNumberOfAChild) {
    EXPECT_EQ(node(build_index_node({child(30, 96, 0xFFFF)})).children, (numbers{30}));
}

TEST(IndexNode, BeginsWhereTheFirstEntryOffsetSays) {
    const bytes content = build_index_node({child(30), child(31)}, 16);
    EXPECT_EQ(node(with(content, first_offset_field, 4, 16 + 96)).children, (numbers{31}));
}

TEST(IndexNode, AFirstEntryOutsideOfTheBytesGivesNoChild) {
    const bytes content = build_index_node({child(30)});
    for (const std::uint64_t offset :
         {std::uint64_t{content.size()}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}}) {
        const walk found = node(with(content, first_offset_field, 4, offset));
        EXPECT_TRUE(found.result) << offset;
        EXPECT_TRUE(found.children.empty()) << offset;
    }
}

TEST(IndexNode, ATotalSizeOfZeroFails) {
    EXPECT_FALSE(node(with(build_index_node({child(30)}), total_field, 4, 0)).result);
}

TEST(IndexNode, ATotalSizeAbove4096Fails) {
    for (const std::uint64_t size :
         {std::uint64_t{4097}, std::uint64_t{0x80000000}, std::uint64_t{0xFFFFFFFF}}) {
        const walk found = node(with(build_index_node({child(30)}), total_field, 4, size));
        EXPECT_FALSE(found.result) << size;
        EXPECT_TRUE(found.children.empty()) << size;
    }
}

TEST(IndexNode, ANodeOfExactly4096BytesYieldsNoChildAndNoError) {
    const bytes content = build_index_node({child(30)});
    const walk full = node(with(content, total_field, 4, 4096));
    EXPECT_TRUE(full.result);
    EXPECT_TRUE(full.children.empty());
    EXPECT_EQ(node(with(content, total_field, 4, 4095)).children, (numbers{30}));
}

TEST(IndexNode, StopsWhenTheTotalSizeIsUsedUp) {
    const bytes content = build_index_node({child(30), child(31), child(32)});
    // Both entries fit two times 96 bytes exactly, or the second one begins within them.
    EXPECT_EQ(node(with(content, total_field, 4, 192)).children, (numbers{30, 31}));
    EXPECT_EQ(node(with(content, total_field, 4, 97)).children, (numbers{30, 31}));
    EXPECT_EQ(node(with(content, total_field, 4, 96)).children, (numbers{30}));
}

TEST(IndexNode, AnEntryLongerThanTheTotalSizeEndsTheNode) {
    const bytes content = build_index_node({child(30), child(31)});
    EXPECT_TRUE(node(with(content, total_field, 4, 95)).children.empty());
}

TEST(IndexNode, AKeyLongerThanTheTotalSizeEndsTheNodeEvenInTheSlack) {
    index_entry odd = child(31);
    odd.forced = {{10, 2, 400}};
    const bytes content = build_index_node({child(30), odd, child(32)});
    ASSERT_EQ(content.size(), 16u + 3 * 96 + 16);
    EXPECT_EQ(node(content, true).children, (numbers{30}));
}

TEST(IndexNode, AKeyLongerThanItsEntryEndsTheNode) {
    index_entry odd = child(31);
    odd.forced = {{10, 2, 97}};
    const bytes content = build_index_node({child(30), odd, child(32)});
    EXPECT_EQ(node(content).children, (numbers{30}));
    EXPECT_EQ(node(content, true).children, (numbers{30, 31, 32}));
    odd.forced = {{10, 2, 96}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30, 31, 32}));
}

TEST(IndexNode, AReferenceOfEightZeroBytesEndsTheNode) {
    index_entry nothing = child(0, 96, 0);
    const bytes content = build_index_node({child(30), nothing, child(31)});
    EXPECT_EQ(node(content).children, (numbers{30}));
    EXPECT_EQ(node(content, true).children, (numbers{30, 31}));
}

TEST(IndexNode, TheWholeReferenceDecidesSoTheMftIsAChildLikeAnyOther) {
    EXPECT_EQ(node(build_index_node({child(30), child(0, 96, 1), child(31)})).children, (numbers{0, 30, 31}));
}

TEST(IndexNode, EntriesBehindTheLastOneAreInTheSlackAndNotSeen) {
    for (const std::uint16_t last : std::vector<std::uint16_t>{2, 3}) {
        index_entry end = child(31);
        end.flags = last;
        bytes content = build_index_node({child(30), end, child(32)});
        EXPECT_EQ(node(content).children, (numbers{30})) << last;
        EXPECT_EQ(node(content, true).children, (numbers{30, 32})) << last;
    }
}

TEST(IndexNode, OnlyTheFlags2And3MarkTheLastEntry) {
    for (const std::uint16_t flags : std::vector<std::uint16_t>{1, 4, 6, 7, 0xFFFF}) {
        index_entry odd = child(31);
        odd.flags = flags;
        // Flags with bit 1 would make the builder leave its own end entry out.
        EXPECT_EQ(node(build_index_node({child(30), odd, child(32), end_entry()})).children,
                  (numbers{30, 31, 32}))
            << flags;
    }
}

TEST(IndexNode, AnEntryLongerThan768BytesEndsTheNode) {
    EXPECT_EQ(node(build_index_node({child(30), child(31, 768), child(32)})).children, (numbers{30, 31, 32}));
    EXPECT_EQ(node(build_index_node({child(30), child(31, 776), child(32)})).children, (numbers{30}));
    index_entry odd = child(31, 776);
    odd.forced = {{8, 2, 769}, {10, 2, 80}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30}));
}

TEST(IndexNode, TheFirstEntryMayBeLongerThan768Bytes) {
    EXPECT_EQ(node(build_index_node({child(30, 1000), child(31)})).children, (numbers{30, 31}));
}

TEST(IndexNode, AnEntryOfLengthZeroEndsTheNode) {
    index_entry odd = child(31);
    odd.forced = {{8, 2, 0}, {10, 2, 0}};
    EXPECT_EQ(node(build_index_node({child(30), odd, child(32)})).children, (numbers{30}));
    // As the first entry it is still taken, and ends the node as the entry behind itself.
    EXPECT_EQ(node(build_index_node({odd, child(32)})).children, (numbers{31}));
    EXPECT_EQ(node(build_index_node({odd, child(32)}), true).children, (numbers{31}));
}

TEST(IndexNode, EntriesShorterThanTheirHeadEndWithTheNode) {
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

TEST(IndexNode, CutAtEveryLengthGivesOnlyChildrenThatAreThere) {
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

TEST(IndexRoot, GivesTheChildrenOfItsNode) {
    const walk found = root(build_index_root({child(30), child(31)}));
    EXPECT_TRUE(found.result);
    EXPECT_EQ(found.children, (numbers{30, 31}));
}

TEST(IndexRoot, MustIndexFileNames) {
    for (const std::uint64_t type : {0u, 0x2Fu, 0x31u, 0xFFFFFFFFu}) {
        const walk found = root(with(build_index_root({child(30)}), 0, 4, type));
        EXPECT_FALSE(found.result) << type;
        EXPECT_TRUE(found.children.empty()) << type;
    }
}

TEST(IndexRoot, NeedsABlockSizeOtherThanZeroWhateverItIs) {
    EXPECT_FALSE(root(with(build_index_root({child(30)}), 8, 4, 0)).result);
    for (const std::uint64_t size : {1u, 4095u, 0xFFFFFFFFu}) {
        EXPECT_EQ(root(with(build_index_root({child(30)}), 8, 4, size)).children, (numbers{30})) << size;
    }
}

TEST(IndexRoot, IgnoresItsCollationRuleAndItsClustersPerBlock) {
    EXPECT_EQ(root(with(with(build_index_root({child(30)}), 4, 4, 0xFFFFFFFF), 12, 4, 0xFFFFFFFF)).children,
              (numbers{30}));
}

TEST(IndexRoot, FailsWithANodeThatIsRefused) {
    EXPECT_FALSE(root(with(build_index_root({child(30)}), 20, 4, 4097)).result);
}

TEST(IndexRoot, OfSixteenBytesHasNoNodeAndFails) {
    bytes value = build_index_root({child(30)});
    value.resize(16);
    EXPECT_FALSE(root(value).result);
    EXPECT_FALSE(root({}).result);
}

TEST(IndexBlock, GivesTheChildrenOfItsNode) {
    const bytes block = index_block_builder().add(child(30)).add(child(31)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), false));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{30, 31}));
}

TEST(IndexBlock, OfAnySignatureIsParsed) {
    const bytes block = index_block_builder().signature("BAAD").add(child(30)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), false));
    EXPECT_EQ(found.size(), 1u);
}

TEST(IndexBlock, ShowsItsSlackWhenToldToKeepGoing) {
    const bytes block = index_block_builder().add(child(30)).add(end_entry()).add(child(31)).build_restored();
    _inode_collection found;
    EXPECT_TRUE(parse_index_block(found, index_block(byte_view(block)), true));
    EXPECT_EQ(numbers(found.begin(), found.end()), (numbers{30, 31}));
}

TEST(IndexBlock, ANullBlockFails) {
    _inode_collection found;
    EXPECT_FALSE(parse_index_block(found, index_block(byte_view()), false));
}

}  // namespace
}  // namespace quarry::test
