// What path lookups learn of a directory: its children and their names, kept in the volume's path cache.
//
// The index gives only the numbers of the children. Their names are read from each child's own record and
// lowered, so the first lookup in a directory costs a read for each child and every later one a search in a
// table. What could not be read the first time stays missing, and a directory that yielded nothing is not
// read again: the log has the same lines for it each time.
#pragma once

#include "foundation/budget.h"
#include "foundation/status_log.h"
#include "volume/ntfs.h"

#include <cstdint>

namespace quarry {

// What the reads of one lookup may still cost, in bytes, by kind. All lookups of a run share the budgets of
// the volume's path cache, which these are parts of.
struct lookup_reads {
    explicit lookup_reads(path_cache& cache)
        : listed(limits::one_lookup_listed_bytes, cache.reads().listed),
          records(limits::one_lookup_record_bytes, cache.reads().records),
          indexes(limits::one_lookup_index_bytes, cache.reads().indexes) {}
    budget listed;   // attribute lists and the records that they name
    budget records;  // of children
    budget indexes;
};

// The table of names of a directory, read if the cache does not have it; null if it has no children, or none
// that has a name. Each step is logged. The table belongs to the cache and is good until the next call.
[[nodiscard]] const child_name_table* child_names_of(CNtfs& ntfs, std::uint64_t directory,
                                                     lookup_reads& reads, status_log& log);

}  // namespace quarry
