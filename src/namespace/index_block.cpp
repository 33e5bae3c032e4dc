#include "namespace/index_block.h"

#include "volume/attribute.h"

namespace quarry {

namespace {

// Deliberate: an entry longer than this ends the node, unless it is the first; its node does not set the
// limit. The user does not find the names after it. (A $FILE_NAME of 255 characters makes an entry of 592
// bytes.)
constexpr std::uint16_t longest_entry = 768;

[[nodiscard]] bool is_last(const index_entry& entry) {
    return entry.flags() == index_entry_last || entry.flags() == index_entry_last_with_sub_node;
}

// Deliberate: the whole reference decides, not the entry number. $MFT is entry 0 and a child of every root
// directory; only a reference of eight zero bytes names nothing.
[[nodiscard]] bool names_a_child(const index_entry& entry) {
    return entry.file_reference() != 0 && !is_last(entry);
}

}  // namespace

bool parse_index_node(_inode_collection& collection, const node_header& header, bool keep_going) {
    const std::uint32_t total = header.total_size();
    if (total == 0 || total > index_block_size) {
        return false;
    }
    std::int64_t remaining = total;
    index_entry entry = header.first_entry();
    // Ends because each round consumes at least one byte of `remaining`: only the first entry can be of
    // length 0, and then so is the one that follows it. Deliberate: a node of exactly 4,096 bytes would seem
    // to be full and fine; it yields no child, and no error.
    while (remaining > 0 && remaining < index_block_size) {
        if (entry.length() > total || entry.key_length() > total) {
            break;
        }
        if (!keep_going && entry.key_length() > entry.length()) {
            break;
        }
        if (names_a_child(entry)) {
            collection.insert(entry.entry_number());
        } else if (!keep_going) {
            break;
        }
        remaining -= entry.length();
        entry = entry.next();
        if (entry.length() == 0 || entry.length() > longest_entry) {
            break;
        }
    }
    return true;
}

bool parse_index_root(_inode_collection& collection, const index_root& root) {
    return root.indexed_type() == attr_file_name && root.block_size() != 0 &&
           parse_index_node(collection, root.node(), false);
}

bool parse_index_block(_inode_collection& collection, const index_block& block, bool keep_going) {
    return !block.is_null() && parse_index_node(collection, block.node(), keep_going);
}

}  // namespace quarry
