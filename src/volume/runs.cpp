#include "volume/runs.h"

#include "volume/attribute.h"

#include <iterator>
#include <limits>
#include <optional>
#include <utility>

namespace quarry {

namespace {

// One pair as it is stored: header, length, LCN difference.
struct stored_pair {
    byte_view bytes;
    byte_view length;
    byte_view delta;
};

// The pair at the start of the bytes; none at a header of 0 or where the pair does not fit.
std::optional<stored_pair> first_pair(byte_view bytes) {
    const std::uint8_t header = bytes.u8_or_zero(0);
    const std::uint64_t length_width = header & 0x0Fu;
    const std::uint64_t delta_width = header >> 4;
    const std::optional<byte_view> whole = bytes.sub(0, 1 + length_width + delta_width);
    if (header == 0 || !whole) {
        return std::nullopt;
    }
    return stored_pair{*whole, whole->clipped(1, length_width), whole->from(1 + length_width)};
}

// How many runs there will be. A run in full takes many times the room of its pair, so a list that grew by
// doubling would take a good deal more than it holds.
std::size_t count_pairs(byte_view bytes) {
    std::size_t count = 0;
    // Ends with the bytes: each pair is at least one byte long.
    while (const std::optional<stored_pair> pair = first_pair(bytes)) {
        ++count;
        bytes = bytes.from(pair->bytes.size());
    }
    return count;
}

// Deliberate: of a length with more than four bytes, those from the fifth on are added to the first four; the
// length is not cut or refused. The user sees the run of a damaged pair as long as that sum says.
std::uint32_t folded_length(byte_view field) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < field.size(); ++i) {
        length += static_cast<std::uint32_t>(field.u8_or_zero(i)) << (8 * i % 32);
    }
    return length;
}

bool is_negative(byte_view field) {
    return !field.empty() && (field.u8_or_zero(field.size() - 1) & 0x80u) != 0;
}

// A little-endian number of up to 15 bytes, of which 64 bits are kept.
std::uint64_t low_64_bits(byte_view field) {
    return field.number_of_width(0, static_cast<unsigned>(std::min<std::size_t>(field.size(), 8)));
}

// The same as a signed number in two's complement.
std::uint64_t sign_extended(byte_view field) {
    const std::uint64_t value = low_64_bits(field);
    const bool fill = is_negative(field) && field.size() < 8;
    return fill ? value | (~std::uint64_t{0} << (8 * field.size())) : value;
}

// Deliberate: each run follows the one before; a piece does not stay at the VCN that its attribute gives it.
// The user sees a shorter copy of a file that has lost a piece: what came after the gap moves up.
void renumber_from(cluster_run_list& list, std::size_t first) {
    std::uint64_t vcn = first == 0 ? 0 : list[first - 1].vcn + list[first - 1].length;
    for (std::size_t i = first; i < list.size(); ++i) {
        list[i].vcn = vcn;
        vcn += list[i].length;
    }
}

bool vcn_is_lower(const cluster_run& left, const cluster_run& right) {
    return left.vcn < right.vcn;
}

bool vcn_is_equal(const cluster_run& left, const cluster_run& right) {
    return left.vcn == right.vcn;
}

// Orders by VCN and keeps the first of several runs with one VCN, then renumbers. Where VCNs are equal, runs
// from `middle` on come after those before it. Both parts are in order already, as a rule.
void put_in_order(cluster_run_list& list, std::size_t middle) {
    const auto after = list.begin() + static_cast<std::ptrdiff_t>(middle);
    for (const auto& [from, to] : {std::pair(list.begin(), after), std::pair(after, list.end())}) {
        if (!std::is_sorted(from, to, vcn_is_lower)) {
            std::stable_sort(from, to, vcn_is_lower);
        }
    }
    std::inplace_merge(list.begin(), after, list.end(), vcn_is_lower);
    list.erase(std::unique(list.begin(), list.end(), vcn_is_equal), list.end());
    renumber_from(list, 0);
}

bool is_ascending(const cluster_run_list& list) {
    const auto not_lower = [](const cluster_run& left, const cluster_run& right) {
        return !vcn_is_lower(left, right);
    };
    return std::adjacent_find(list.begin(), list.end(), not_lower) == list.end();
}

// Goes on after the runs that are known to be numbered without a gap. True if the whole list is. A run of
// length 0 ends it, because the next run has the same VCN.
bool is_numbered(const cluster_run_list& list, merge_progress& progress) {
    std::size_t& known = progress.numbered_runs;
    known = std::min(known, list.size());
    while (known < list.size() && list[known].length != 0) {
        const std::uint64_t expected = known == 0 ? 0 : list[known - 1].vcn + list[known - 1].length;
        if (list[known].vcn != expected) {
            break;
        }
        ++known;
    }
    return known == list.size();
}

bool merge_without_reordering(const cluster_run_list& new_runs, cluster_run_list& existing) {
    if (!is_ascending(new_runs)) {
        return false;
    }
    if (existing.empty() || new_runs.empty() || new_runs.front().vcn > existing.back().vcn) {
        const std::size_t first_new = existing.size();
        existing.insert(existing.end(), new_runs.begin(), new_runs.end());
        renumber_from(existing, first_new);
        return true;
    }
    return std::all_of(new_runs.begin(), new_runs.end(), [&](const cluster_run& run) {
        return std::binary_search(existing.begin(), existing.end(), run, vcn_is_lower);
    });
}

}  // namespace

bool decode_mapping_pairs(byte_view pairs, data_run_list& list, std::uint32_t attribute_type, bool clear) {
    if (pairs.empty()) {
        return false;
    }
    if (clear) {
        list.clear();
    }
    const std::size_t before = list.size();
    if (before == 0) {
        list.reserve(count_pairs(pairs));
    }
    std::uint64_t lcn = 0;
    // Ends with the bytes: each pair is at least one byte long.
    while (const std::optional<stored_pair> pair = first_pair(pairs)) {
        data_run& run = list.emplace_back();
        run.delta = ~std::uint64_t{0};
        run.num_clusters = folded_length(pair->length);
        run.attr_type = attribute_type;
        run.pair.assign(pair->bytes);
        run.lcn = sparse_lcn;
        if (!pair->delta.empty()) {
            lcn += sign_extended(pair->delta);
            run.lcn = lcn;
        }
        pairs = pairs.from(pair->bytes.size());
    }
    return list.size() > before;
}

bool decode_runs(byte_view attribute_bytes, data_run_list& list) {
    list.clear();
    const attribute source(attribute_bytes);
    if (source.is_null() || source.length() == 0) {
        return false;
    }
    std::uint64_t offset = source.mapping_pairs_offset();
    byte_view rest = attribute_bytes.clipped(0, source.length()).from(offset);
    list.reserve(count_pairs(rest));
    std::uint64_t lcn = 0;
    std::uint64_t vcn = source.lowest_vcn();
    // Ends with the attribute: each pair is at least one byte long.
    while (const std::optional<stored_pair> pair = first_pair(rest)) {
        const std::uint64_t difference = sign_extended(pair->delta);
        lcn += difference;
        data_run& run = list.emplace_back();
        run.lcn = lcn;
        run.negative = is_negative(pair->delta);
        run.delta = run.negative ? 0 - difference : difference;
        // Deliberate: a length above 32 bits is cut to its low 32 bits, not kept, nor folded as the other
        // decoder does. The user sees only a part of a file with a longer run.
        run.num_clusters = low_32_bits(low_64_bits(pair->length));
        run.vcn = vcn;
        run.attr_type = source.type();
        run.offset = offset;
        run.pair.assign(pair->bytes);
        run.following.assign(rest.sub(pair->bytes.size(), 3).value_or(byte_view()));
        offset += pair->bytes.size();
        rest = rest.from(pair->bytes.size());
        vcn += run.num_clusters;
    }
    return true;
}

bool to_cluster_runs(const data_run_list& runs, cluster_run_list& list) {
    list.reserve(list.size() + runs.size());
    for (const data_run& run : runs) {
        // Deliberate: a pair with an LCN difference of 0 counts as sparse, not only one without an LCN,
        // unless it is the first of its list (a file may begin at LCN 0). The user sees zeros for a run that
        // a damaged pair puts at the place of the run before.
        const bool begins_at_lcn_0 = &run == runs.data() && run.pair.view().u8_or_zero(0) > 0x0F;
        const bool sparse = run.delta == 0 && !begins_at_lcn_0;
        list.push_back({sparse ? 0 : run.lcn, run.vcn, sparse, run.num_clusters});
    }
    return true;
}

bool append_runs(const cluster_run_list& new_runs, cluster_run_list& existing, merge_progress& progress) {
    return is_numbered(existing, progress) && merge_without_reordering(new_runs, existing);
}

void merge_runs(const cluster_run_list& new_runs, cluster_run_list& existing, merge_progress& progress) {
    // Fragments are stored in the order of their VCNs, so nearly every merge appends.
    if (append_runs(new_runs, existing, progress)) {
        return;
    }
    const std::size_t middle = existing.size();
    existing.insert(existing.end(), new_runs.begin(), new_runs.end());
    put_in_order(existing, middle);
    progress = {};
}

void merge_runs(const cluster_run_list& new_runs, cluster_run_list& existing) {
    merge_progress progress;
    merge_runs(new_runs, existing, progress);
}

void drop_sparse_runs(cluster_run_list& list) {
    list.erase(std::remove_if(list.begin(), list.end(), [](const cluster_run& run) { return run.sparse; }),
               list.end());
    put_in_order(list, list.size());
}

bool find_run(const cluster_run_list& list, std::uint64_t vcn, std::size_t& index, std::uint64_t& lcn) {
    index = 0;
    lcn = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const cluster_run& run = list[i];
        if (run.vcn <= vcn && vcn - run.vcn < run.length) {
            index = i;
            lcn = run.sparse ? 0 : run.lcn - run.vcn + vcn;
            return true;
        }
    }
    return false;
}

std::uint64_t run_bytes(const cluster_run_list& list, std::uint64_t cluster_size, bool skip_sparse) {
    std::uint64_t clusters = 0;
    for (const cluster_run& run : list) {
        clusters += run.sparse && skip_sparse ? 0 : run.length;
    }
    if (cluster_size != 0 && clusters > std::numeric_limits<std::uint64_t>::max() / cluster_size) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return clusters * cluster_size;
}

std::uint64_t count_clusters(const data_run_list& list) {
    if (!list.empty() && list.front().resident) {
        return 1;
    }
    std::uint64_t clusters = 0;
    for (const data_run& run : list) {
        clusters += run.num_clusters;
    }
    return clusters;
}

}  // namespace quarry
