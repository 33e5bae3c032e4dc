// Where the entries of $MFT lie on the volume.
//
// $MFT is the table of all file records and itself a file: its first record, entry 0, holds the runs of the
// clusters in which the others lie. An entry's place within $MFT is its number times the step from one record
// to the next. A $MFT in many pieces has more runs than entry 0 has room for; the rest is in extension
// records, which are entries of $MFT like any other. So the map can be asked while it still grows: the runs
// known so far lead to the record that holds the next ones.
#pragma once

#include "volume/runs.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace quarry {

class mft_map {
  public:
    // Knows no entry.
    mft_map() = default;
    // `step`: bytes from one record to the next. `cluster_size` in bytes.
    mft_map(std::uint32_t step, std::uint64_t cluster_size) : m_step(step), m_cluster_size(cluster_size) {}

    // Takes the runs of `runs` that come after those of earlier calls. A list that is shorter than before is
    // another one, and takes the place of all that was known.
    void extend(const data_run_list& runs);
    // Forgets all runs.
    void clear() { m_pieces.clear(); }

    struct place {
        std::uint64_t lcn = 0;          // of the cluster in which the record begins
        std::uint32_t byte_offset = 0;  // within that cluster
    };
    // Nothing for an entry that the runs do not hold, and for one in a sparse run.
    [[nodiscard]] std::optional<place> find(std::uint64_t entry) const;
    // The place in bytes from the start of the volume. Deliberate: 0, where the boot sector is, not a
    // failure, for an entry without a place. A read from there finds no record.
    [[nodiscard]] std::uint64_t position(std::uint64_t entry) const;

    // Bytes of memory for each run.
    static constexpr std::size_t memory_of_run = 2 * sizeof(std::uint64_t);

  private:
    // One run.
    struct piece {
        std::uint64_t end = 0;  // the first cluster after it, counted from the start of $MFT
        std::uint64_t lcn = 0;  // of its first cluster
    };
    static_assert(sizeof(piece) == memory_of_run);

    std::uint32_t m_step = 0;
    std::uint64_t m_cluster_size = 0;
    std::vector<piece> m_pieces;
};

}  // namespace quarry
