// Any bytes as a node of a directory index, and as the value of its root, in one of the index blocks that are
// read and in one that is printed.
//
// The first byte of the input chooses the index whose block is printed, the rest is the node. The children of
// a node are compared with those that a plain walk finds.
#include "fuzz/input_bytes.h"
#include "namespace/index_block.h"
#include "namespace/index_text.h"
#include "support/expect.h"
#include "support/limited_sink.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

namespace {

using quarry::byte_view;
using quarry::test::expect;

constexpr std::string_view index_names[] = {"$I30", "$O", "$SDH", "$SII", "$R", "$i30", "other"};
// A line has at most so many characters, and each entry that gives one has a byte at least.
constexpr std::size_t longest_line = 1200;

// The children of a node by plain reading: as long as something is left of the node's size, an entry that is
// no longer than it gives its child.
std::set<std::uint64_t> plain_children(byte_view node, bool keep_going) {
    std::set<std::uint64_t> children;
    const std::uint64_t total = node.u32_or_zero(4);
    if (total > 4095) {
        return children;
    }
    std::uint64_t used = 0;
    for (std::uint64_t at = node.u32_or_zero(0); used < total;) {
        const std::uint64_t length = node.u16_or_zero(at + 8);
        const std::uint64_t key = node.u16_or_zero(at + 10);
        const unsigned flags = node.u16_or_zero(at + 12);
        const bool names_none = node.u64_or_zero(at) == 0 || flags == 2 || flags == 3;
        if (length > total || key > total || (!keep_going && (key > length || names_none))) {
            break;
        }
        if (!names_none) {
            children.insert(node.u64_or_zero(at) & 0xFFFFFFFFFFFF);
        }
        used += length;
        at += length;
        const std::uint64_t next_length = node.u16_or_zero(at + 8);
        if (next_length == 0 || next_length > 768) {
            break;
        }
    }
    return children;
}

void compare(byte_view node, bool keep_going) {
    quarry::_inode_collection found;
    const bool parsed = quarry::parse_index_node(found, quarry::node_header(node), keep_going);
    const std::uint32_t total = node.u32_or_zero(4);
    expect(parsed == (total != 0 && total <= 4096));
    const std::set<std::uint64_t> plain = plain_children(node, keep_going);
    expect(std::equal(found.begin(), found.end(), plain.begin(), plain.end()));
}

constexpr std::string_view signature = "INDX";

// The node in an index block of so many bytes, with the mark that printing asks for.
std::vector<std::uint8_t> block_around(byte_view node, std::size_t size) {
    std::vector<std::uint8_t> block(size);
    const byte_view placed = node.clipped(0, size - quarry::index_block::node_offset);
    std::copy(signature.begin(), signature.end(), block.begin());
    std::copy(placed.span().begin(), placed.span().end(), block.begin() + quarry::index_block::node_offset);
    return block;
}

void print(byte_view node, std::string_view name) {
    for (const std::uint32_t sector_size : {0u, 512u, 4096u}) {
        std::vector<std::uint8_t> block = block_around(node, quarry::index_block_size);
        quarry::test::limited_sink out(longest_line * quarry::index_block_size);
        expect(quarry::list_index_block(name, block, quarry::index_block_size, sector_size, out, true));
        expect(out.good());
        const std::vector<std::uint8_t>& text = out.taken();
        expect(text.empty() || text.back() == '\n');
    }
    std::vector<std::uint8_t> small = block_around(node, 4095);
    quarry::test::limited_sink none(1);
    expect(!quarry::list_index_block(name, small, 4095, 512, none, true) && none.taken().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quarry::fuzz::input_bytes input(data, size);
    const std::string_view name = index_names[input.u8() % std::size(index_names)];
    const quarry::fuzz::lone_bytes node(input.rest());
    compare(node.view(), false);
    compare(node.view(), true);
    quarry::_inode_collection in_root;
    static_cast<void>(quarry::parse_index_root(in_root, quarry::index_root(node.view())));
    print(node.view(), name);
    return 0;
}
