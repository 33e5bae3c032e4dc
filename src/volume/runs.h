// Cluster runs: where on the volume the clusters of a stream lie.
//
// A non-resident attribute ends in mapping pairs, one for each run of contiguous clusters. The first byte of
// a pair is its header: the low nibble is the number of bytes of the run's length, which follows, the high
// nibble that of the LCN after it, a signed difference to the LCN of the last run that had one. A pair
// without an LCN is a sparse run: clusters that read as zeros and take no room. A header of 0 ends the pairs.
// Nothing on disk says how many there are, and nothing here compares them with the size of the volume or with
// the VCNs that the attribute claims: an LCN beyond the volume shows when a read fails.
//
// Two decoders differ on purpose. decode_mapping_pairs serves the volume's own system files, decode_runs the
// streams that a user asks for, attribute lists and directories. Run lengths are 32 bits wide here, whatever
// a pair says; LCNs and VCNs are 64 bits and wrap.
#pragma once

#include "foundation/byte_view.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// A few bytes kept in place, because every run of a list has some.
template <std::size_t Capacity>
class inline_bytes {
  public:
    // Takes the bytes, as many as there is room for.
    void assign(byte_view source) {
        const byte_view taken = source.clipped(0, Capacity);
        std::copy(taken.span().begin(), taken.span().end(), m_bytes.begin());
        m_size = static_cast<std::uint8_t>(taken.size());
    }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    [[nodiscard]] byte_view view() const { return {m_bytes.data(), m_size}; }

  private:
    static_assert(Capacity < 256);
    std::array<std::uint8_t, Capacity> m_bytes{};
    std::uint8_t m_size = 0;
};

// A header and two fields whose widths are nibbles.
inline constexpr std::size_t longest_mapping_pair = 1 + 15 + 15;

// One run in full, or the value of a resident attribute in the place of runs.
struct data_run {
    std::uint64_t lcn = 0;
    // Magnitude of the LCN's difference; all ones from decode_mapping_pairs, which does not keep it.
    std::uint64_t delta = 0;
    std::uint32_t num_clusters = 0;
    std::uint64_t vcn = 0;
    bool negative = false;  // the difference was below zero
    bool resident = false;  // no run: `bytes` is the value of a resident attribute
    std::vector<std::uint8_t> bytes;
    std::uint32_t value_size = 0;
    std::uint32_t attr_type = 0;
    std::string label;
    // From decode_runs only: place of the pair, in bytes from the start of the attribute.
    std::uint64_t offset = 0;
    // The pair as it is stored.
    inline_bytes<longest_mapping_pair> pair;
    // From decode_runs only: the three bytes after the pair, if that many lie inside the attribute.
    inline_bytes<3> following;
};
using data_run_list = std::vector<data_run>;

// The compact form on which stream reading works. `length` in clusters.
struct cluster_run {
    std::uint64_t lcn = 0;  // 0 in a sparse run
    std::uint64_t vcn = 0;
    bool sparse = false;
    std::uint32_t length = 0;
    [[nodiscard]] bool operator==(const cluster_run&) const = default;
};
using cluster_run_list = std::vector<cluster_run>;

// LCN of a sparse run in what decode_mapping_pairs gives.
inline constexpr std::uint64_t sparse_lcn = ~std::uint64_t{0};

// Decodes mapping pairs and appends them to `list`, which is emptied first if `clear` is set and there are
// any bytes. Ends at a header of 0, or at a pair that does not fit the bytes. All VCNs are 0.
// `attribute_type` goes into each run. True if at least one run was decoded.
[[nodiscard]] bool decode_mapping_pairs(byte_view pairs, data_run_list& list, std::uint32_t attribute_type,
                                        bool clear);

// Decodes the runs of a non-resident attribute into `list`, which is emptied first. `attribute_bytes` begins
// at the attribute's header; what lies past the attribute's own length is not looked at. Ends at a header of
// 0, or at a pair that does not fit the attribute. False, with an empty list, only for no attribute at all or
// one of length 0; an attribute whose pairs hold nothing gives true and an empty list.
[[nodiscard]] bool decode_runs(byte_view attribute_bytes, data_run_list& list);

// Appends what decode_runs gave in the compact form. Always true.
bool to_cluster_runs(const data_run_list& runs, cluster_run_list& list);

// What merge_runs has learned of one list that it has merged into: so many runs at its front are numbered
// from 0 without a gap, none of them of length 0. Kept beside a list that grows by many merges, it makes
// their total cost linear in the runs; it must be fresh again when anything else changes the list.
struct merge_progress {
    std::size_t numbered_runs = 0;
};

// Merges `new_runs` into `existing`, ordered by VCN. Where both hold a run of the same VCN, and where one
// list holds two, the first stays. Then the runs are renumbered: the first gets VCN 0 and each other one
// follows the one before, so that gaps disappear.
void merge_runs(const cluster_run_list& new_runs, cluster_run_list& existing, merge_progress& progress);
void merge_runs(const cluster_run_list& new_runs, cluster_run_list& existing);

// merge_runs where that comes to appending the new runs, or to leaving all of them out. False, with the list
// as it was, where it does not.
[[nodiscard]] bool append_runs(const cluster_run_list& new_runs, cluster_run_list& existing,
                               merge_progress& progress);

// Takes the sparse runs out of a list, orders it by VCN, drops all but the first of several runs with one
// VCN, and renumbers it, so that it covers the stored clusters one after another.
void drop_sparse_runs(cluster_run_list& list);

// The first run that covers a VCN: its place in the list and the LCN of that cluster, which is 0 in a sparse
// run. Both are 0 on false.
[[nodiscard]] bool find_run(const cluster_run_list& list, std::uint64_t vcn, std::size_t& index,
                            std::uint64_t& lcn);

// Bytes of all runs; leaves sparse runs out if asked to. A sum that 64 bits cannot hold is all ones.
[[nodiscard]] std::uint64_t run_bytes(const cluster_run_list& list, std::uint64_t cluster_size,
                                      bool skip_sparse);

// Clusters of a $DATA list: 0 if it is empty, 1 if its first element is a resident value, otherwise the sum
// of the lengths, sparse runs included.
[[nodiscard]] std::uint64_t count_clusters(const data_run_list& list);

}  // namespace quarry
