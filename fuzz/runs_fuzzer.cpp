// Mapping pairs and run lists.
//
// The first byte of the input chooses what the rest is: pairs for either decoder, compared with a decoder
// that works bit by bit; runs that are stored as pairs and must come back; or lists of runs to merge and to
// search, compared with the plain way to do so.
#include "fuzz/input_bytes.h"
#include "support/expect.h"
#include "support/mapping_pairs.h"
#include "volume/attribute.h"
#include "volume/run_cursor.h"
#include "volume/runs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

using quarry::byte_view;
using quarry::cluster_run;
using quarry::cluster_run_list;
using quarry::fuzz::input_bytes;
using quarry::fuzz::lone_bytes;
using quarry::test::expect;

// A pair by plain reading. Numbers are as wide as they are stored, up to 15 bytes, in two's complement.
struct plain_pair {
    std::size_t size = 0;
    __extension__ unsigned __int128 length = 0;
    __extension__ __int128 delta = 0;
    std::size_t length_width = 0;
    std::size_t delta_width = 0;
};

std::vector<plain_pair> plain_pairs(byte_view bytes) {
    std::vector<plain_pair> pairs;
    std::size_t at = 0;
    while (at < bytes.size() && bytes.span()[at] != 0) {
        plain_pair pair;
        pair.length_width = bytes.span()[at] & 15u;
        pair.delta_width = bytes.span()[at] / 16;
        pair.size = 1 + pair.length_width + pair.delta_width;
        if (at + pair.size > bytes.size()) {
            break;
        }
        for (std::size_t i = pair.length_width; i > 0; --i) {
            pair.length = pair.length * 256 + bytes.span()[at + i];
        }
        for (std::size_t i = pair.delta_width; i > 0; --i) {
            const std::uint8_t byte = bytes.span()[at + pair.length_width + i];
            // The highest byte has the sign.
            pair.delta = pair.delta * 256 + (i == pair.delta_width ? static_cast<std::int8_t>(byte) : byte);
        }
        pairs.push_back(pair);
        at += pair.size;
    }
    return pairs;
}

void decode_of_system_files(byte_view bytes) {
    const std::vector<plain_pair> plain = plain_pairs(bytes);
    quarry::data_run_list runs;
    expect(quarry::decode_mapping_pairs(bytes, runs, 0x80, true) == !plain.empty());
    expect(runs.size() == plain.size());
    std::uint64_t lcn = 0;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        lcn += static_cast<std::uint64_t>(plain[i].delta);
        expect(runs[i].lcn == (plain[i].delta_width == 0 ? quarry::sparse_lcn : lcn));
        // Four bytes at a time are added up.
        std::uint32_t length = 0;
        for (std::size_t part = 0; part < 16; part += 4) {
            length += static_cast<std::uint32_t>(plain[i].length >> (8 * part));
        }
        expect(runs[i].num_clusters == length);
        expect(runs[i].pair.view().size() == plain[i].size && runs[i].vcn == 0);
    }
}

void decode_of_attributes(byte_view bytes) {
    const quarry::attribute at(bytes);
    const std::size_t begin = at.mapping_pairs_offset();
    const std::vector<plain_pair> plain = plain_pairs(bytes.clipped(0, at.length()).from(begin));
    quarry::data_run_list runs;
    expect(quarry::decode_runs(bytes, runs) == (!bytes.empty() && at.length() != 0));
    expect(runs.size() == plain.size());
    cluster_run_list compact;
    expect(quarry::to_cluster_runs(runs, compact) && compact.size() == runs.size());
    std::uint64_t lcn = 0;
    std::uint64_t vcn = at.lowest_vcn();
    for (std::size_t i = 0; i < runs.size(); ++i) {
        lcn += static_cast<std::uint64_t>(plain[i].delta);
        const std::uint32_t length = static_cast<std::uint32_t>(plain[i].length);
        const bool sparse =
            static_cast<std::uint64_t>(plain[i].delta) == 0 && (i > 0 || plain[i].delta_width == 0);
        expect(runs[i].lcn == lcn && runs[i].vcn == vcn && runs[i].num_clusters == length);
        expect(compact[i] == cluster_run{sparse ? 0 : lcn, vcn, sparse, length});
        vcn += length;
    }
}

void round_trip(input_bytes& input) {
    quarry::test::run_list stored;
    while (!input.empty() && stored.size() < 64) {
        const std::uint64_t length = input.u32();
        const std::int64_t lcn = static_cast<std::int64_t>(input.u64() >> 2) * (input.u8() % 2);
        stored.push_back({lcn == 0 ? quarry::test::hole : lcn, std::max<std::uint64_t>(length, 1)});
    }
    quarry::data_run_list runs;
    expect(quarry::decode_mapping_pairs(encode_mapping_pairs(stored), runs, 0x80, true) == !stored.empty());
    expect(runs.size() == stored.size());
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const bool is_hole = stored[i].lcn == quarry::test::hole;
        expect(runs[i].lcn == (is_hole ? quarry::sparse_lcn : static_cast<std::uint64_t>(stored[i].lcn)));
        // A length that needs a fifth byte for its sign bit has a zero there.
        expect(runs[i].num_clusters == stored[i].length);
    }
}

cluster_run_list take_runs(input_bytes& input, std::size_t most) {
    cluster_run_list list;
    const std::size_t count = input.u8() % most;
    std::uint64_t vcn = input.u8();
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t kind = input.u8();
        const std::uint32_t length = kind % 8 == 7 ? input.u32() : kind % 8;
        // Mostly in order; now and then anywhere.
        vcn = kind >= 0xF0 ? input.u64() : vcn;
        list.push_back({kind % 16 < 4 ? 0 : input.u64() >> 8, vcn, kind % 16 < 4, length});
        vcn += length + (kind >= 0xE0 ? 3 : 0);
    }
    return list;
}

// The new runs after the old ones, put in order; the first of several with one VCN; then no gaps.
cluster_run_list plain_merge(const cluster_run_list& new_runs, cluster_run_list list) {
    list.insert(list.end(), new_runs.begin(), new_runs.end());
    std::stable_sort(list.begin(), list.end(),
                     [](const cluster_run& left, const cluster_run& right) { return left.vcn < right.vcn; });
    cluster_run_list merged;
    std::uint64_t next = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i == 0 || list[i].vcn != list[i - 1].vcn) {
            merged.push_back({list[i].lcn, next, list[i].sparse, list[i].length});
            next += list[i].length;
        }
    }
    return merged;
}

void merge(input_bytes& input) {
    cluster_run_list merged;
    cluster_run_list plain;
    quarry::merge_progress progress;
    for (int pieces = 0; pieces < 24 && !input.empty(); ++pieces) {
        const cluster_run_list piece = take_runs(input, 16);
        quarry::merge_runs(piece, merged, progress);
        plain = plain_merge(piece, std::move(plain));
        expect(merged == plain);
    }
    std::erase_if(plain, [](const cluster_run& run) { return run.sparse; });
    plain = plain_merge({}, std::move(plain));
    quarry::drop_sparse_runs(merged);
    expect(merged == plain);
}

void search(input_bytes& input) {
    const cluster_run_list list = take_runs(input, 64);
    quarry::run_cursor cursor(list);
    std::uint64_t clusters = 0;
    for (const cluster_run& run : list) {
        clusters += run.length;
    }
    expect(quarry::run_bytes(list, 1, false) == clusters);
    expect(quarry::run_bytes(list, 1, true) <= clusters);
    while (!input.empty()) {
        const std::uint64_t near = list.empty() ? 0 : list[input.u8() % list.size()].vcn;
        const std::uint64_t vcn = near + input.u16() - 1024u;
        quarry::run_cursor::stretch found;
        std::size_t index = 0;
        std::uint64_t lcn = 0;
        const bool covered = quarry::find_run(list, vcn, index, lcn);
        expect(cursor.find(vcn, found) == covered);
        if (!covered) {
            continue;
        }
        expect(found.lcn == lcn && found.sparse == list[index].sparse && found.length_in_clusters != 0);
        // The answer holds for the last cluster of the stretch too.
        const std::uint64_t last = found.length_in_clusters - 1;
        expect(quarry::find_run(list, vcn + last, index, lcn));
        expect(lcn == (found.sparse ? 0 : found.lcn + last));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input_bytes input(data, size);
    switch (input.u8() % 5) {
        case 0:
            decode_of_system_files(lone_bytes(input.rest()).view());
            break;
        case 1:
            decode_of_attributes(lone_bytes(input.rest()).view());
            break;
        case 2:
            round_trip(input);
            break;
        case 3:
            merge(input);
            break;
        default:
            search(input);
            break;
    }
    return 0;
}
