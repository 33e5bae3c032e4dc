// The rules of the MBR and of the chain of extended tables that it leads to.
//
// The MBR has room for four partitions. When a disk needs more, one of them is an "extended" one: its first
// sector is a table of the same layout, with an entry for a partition and another of an extended type that
// leads to the next such table. Positions in the chain are counted from two places. A partition's start
// counts from the table that holds its entry; a link counts from the first table of the chain, the base.
//
// A disk and a buffer in memory are read by these same rules but for three points, which `chain_rules` names.
#pragma once

#include "disk/ql_disk_structs.h"
#include "disk/sector_source.h"
#include "foundation/byte_view.h"

#include <cstddef>
#include <cstdint>

namespace quarry {

struct chain_rules {
    // An entry of the first sector that is unused, or of a type that does not count, ends the walk; otherwise
    // it is passed over.
    bool bad_entry_ends_primary_table;
    // A GPT's protective entry hands the disk over to the reader of GPTs; otherwise it is of a type that does
    // not count.
    bool gpt_takes_over;
    // A linked table has to end with the mark of a table.
    bool links_need_mark;
};
inline constexpr chain_rules rules_for_disks = {false, true, true};
inline constexpr chain_rules rules_for_buffers = {true, false, false};

struct primary_table_result {
    // Hand over to the reader of GPTs. What the list got from earlier entries is void then.
    bool is_gpt = false;
    // The sector of the first extended table; 0 when there is no chain.
    std::uint64_t chain_base = 0;
};

// Appends the partitions of the first sector of a disk, an extended one included, which ends the walk. With
// `with_gaps` a record "mbr" comes before the first of them.
[[nodiscard]] primary_table_result walk_primary_table(partition_list& list, byte_view sector,
                                                      std::uint32_t sector_size, const chain_rules& rules,
                                                      bool with_gaps);

struct chain_result {
    // False: the first table could not be read, and nothing was appended.
    bool first_table_read = false;
    // The type of the last partition in the first table that is no link; 0 when there is none.
    std::uint8_t last_ordinary_type = 0;
};

// The length of a list at which a chain is not followed further. No disk has so many partitions; a source
// that is nothing but tables would have one for each 128 of its bytes, and cost several times its size in
// memory.
inline constexpr std::size_t most_chained_partitions = 0x40000;

// Appends the partitions of an extended chain whose first table is in sector `base`, the links included. The
// chain ends where a table has no link, has a bad entry or cannot be read, at a table that was seen already,
// and when the list has become very long.
chain_result walk_extended_chain(partition_list& list, std::uint64_t base, std::uint32_t sector_size,
                                 const chain_rules& rules, const sector_source& source);

// The sector in which disks of old geometry have their first partition.
inline constexpr std::uint64_t guessed_start_sector = 63;

// Puts a first partition that no table holds at the head of the list: from sector 63 to the base of the
// chain.
void prepend_guessed_partition(partition_list& list, std::uint64_t chain_base, std::uint32_t sector_size,
                               std::uint8_t type);

// Fits records of free space, named "unalloc", into the list: before every record that begins past the end of
// the one before it, and up to the end of the source. Each has the sector size of the record that follows it,
// the last `sector_size`.
void fill_gaps(partition_list& list, std::uint64_t source_size_bytes, std::uint32_t sector_size, bool is_gpt);

}  // namespace quarry
