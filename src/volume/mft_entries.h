// Entry categorising: from an MFT entry number to its attr_item_list.
//
// The record of the entry is read, each of its attributes is sorted by kind (entry_record), and an attribute
// list is followed into the extension records that hold what the first record had no room for. What was found
// becomes a flat list (entry_flattening). Damage ends the walk that meets it, and what was read before it
// counts.
#pragma once

#include "foundation/status_log.h"
#include "volume/attr_item.h"
#include "volume/entry_record.h"
#include "volume/followed_reads.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <vector>

namespace quarry {

// The items of an entry: its record, its standard information, its names, its other attributes. True if the
// record could be read. False, with `out` empty, for a volume that is not valid, and with "err: mftfixup
// %llx" or "err: recd bad %llx" in the log for a record that cannot be read or is none.
[[nodiscard]] bool categorize_entry(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out, status_log& log);
// Reserved: no flow of the program asks for this. The same with nothing but the items of index attributes.
[[nodiscard]] bool categorize_index_only(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out,
                                         status_log& log);

// Reads one entry and what belongs to it. Made afresh for each entry.
class mft_entries_ctx {
  public:
    mft_entries_ctx(CNtfs& ntfs, status_log& log);

    // Reads the record of an entry and restores its fixups. The vector keeps its size from call to call.
    // False for a volume that is not valid, a failed read, and anything that is neither a file record nor an
    // index block. A record marked "BAAD" gives true with `bad` set, and a line in the log.
    [[nodiscard]] bool fixup_mft(std::vector<std::uint8_t>& record, bool& bad, std::uint64_t entry);

    // The whole of an entry, extension records included.
    [[nodiscard]] bool read_entry(entry_record& record, std::uint64_t entry);

    // Follows one attribute list, as far as the reads for this entry and its memory allow.
    void handle_attribute_list(entry_record& record, std::uint64_t entry, const attribute& list);
    // Sorts the attributes that the entries of a list name in other records than that of `entry`. Ends early
    // where handle_attribute_list does.
    void walk_list_entries(entry_record& record, std::uint64_t entry, byte_view list);

  private:
    [[nodiscard]] bool may_go_on(const entry_record& record) const;
    void take_from_extension(entry_record& record, std::uint64_t entry, const list_entry& named);

    CNtfs& m_ntfs;
    status_log& m_log;
    // Bytes to read for a record; 0 until one is read, because only a valid volume knows them.
    std::uint64_t m_record_size = 0;
    std::vector<std::uint8_t> m_extension;
    // Of lists and of extension records.
    followed_reads m_reads;
};

}  // namespace quarry
