// The $I30 index of a directory: its nodes, and the walk over the entries of one node.
//
// NTFS keeps the names of a directory in a B-tree. The root node is the value of $INDEX_ROOT; further nodes
// are blocks of 4,096 bytes in the stream of $INDEX_ALLOCATION. Each node is a node header followed by
// entries, and each entry names one child by its file reference, with the child's $FILE_NAME as key. The last
// entry of a node has no child. This reader does not follow the tree: it takes every entry of every node, so
// the order of nodes and the sub-node pointers do not matter, and a damaged pointer hides nothing.
//
// A reader must know that a block may be stale (freed by the file system, its entries still there) and that
// the sequence number of an entry is not compared with the child's record.
#pragma once

#include "foundation/byte_view.h"
#include "volume/index_layout.h"
#include "volume/path_cache.h"

#include <cstdint>

namespace quarry {

// Adds the children that a node names to the collection. False, with nothing added, if the node's total size
// is 0 or above 4,096 bytes. A damaged entry ends the walk, and what was found before it counts. With
// `keep_going` the walk goes on after the last entry, into the slack of the node.
[[nodiscard]] bool parse_index_node(_inode_collection& collection, const node_header& header,
                                    bool keep_going);

// The same for the value of an $INDEX_ROOT, which must index $FILE_NAME and name a block size other than 0.
[[nodiscard]] bool parse_index_root(_inode_collection& collection, const index_root& root);

// The same for an index block whose fixups are restored. The signature is the caller's to test. False for a
// null block.
[[nodiscard]] bool parse_index_block(_inode_collection& collection, const index_block& block,
                                     bool keep_going);

}  // namespace quarry
