#include "volume/numbered_runs.h"

#include <algorithm>
#include <span>
#include <utility>

namespace quarry {

namespace {

// Runs that a block may have. A merge costs a step for each block and one for each run of the blocks that
// change, so that both numbers are to be small.
constexpr std::size_t most_runs_of_a_block = 128;

bool vcn_is_lower(const cluster_run& left, const cluster_run& right) {
    return left.vcn < right.vcn;
}

bool vcn_is_equal(const cluster_run& left, const cluster_run& right) {
    return left.vcn == right.vcn;
}

}  // namespace

numbered_runs::numbered_runs(const cluster_run_list& numbered) {
    m_blocks.emplace_back().runs = numbered;
    number(m_blocks.back());
    tidy();
}

void numbered_runs::merge(cluster_run_list piece) {
    std::stable_sort(piece.begin(), piece.end(), vcn_is_lower);
    piece.erase(std::unique(piece.begin(), piece.end(), vcn_is_equal), piece.end());
    const std::vector<placed_run> placed = place(piece);
    if (placed.empty() && m_empty_runs == 0) {
        return;
    }
    auto next = placed.begin();
    bool drop_first = false;
    for (std::size_t i = 0; i < m_blocks.size(); ++i) {
        block& at = m_blocks[i];
        const bool ends_empty = !at.runs.empty() && at.runs.back().length == 0;
        const auto last =
            std::find_if(next, placed.end(), [i](const placed_run& run) { return run.block != i; });
        if (next != last || drop_first || at.empty_runs != 0) {
            rebuild(at, {next, last}, drop_first);
        }
        next = last;
        drop_first = ends_empty;
    }
    tidy();
}

// Where the runs of an ordered piece come in. A run whose VCN is taken comes in nowhere.
std::vector<numbered_runs::placed_run> numbered_runs::place(const cluster_run_list& piece) const {
    std::vector<placed_run> placed;
    for (const cluster_run& run : piece) {
        // The first block starts at VCN 0, so that there is always one before.
        const auto after =
            std::upper_bound(m_blocks.begin() + 1, m_blocks.end(), run.vcn,
                             [](std::uint64_t vcn, const block& other) { return vcn < other.first_vcn; });
        const auto index = static_cast<std::size_t>(after - m_blocks.begin()) - 1;
        const block& at = m_blocks[index];
        const std::uint64_t vcn_in_block = run.vcn - at.first_vcn;
        const auto run_after =
            std::upper_bound(at.runs.begin(), at.runs.end(), vcn_in_block,
                             [](std::uint64_t vcn, const cluster_run& other) { return vcn < other.vcn; });
        if (run_after == at.runs.begin() || std::prev(run_after)->vcn != vcn_in_block) {
            placed.push_back({index, static_cast<std::size_t>(run_after - at.runs.begin()), run});
        }
    }
    return placed;
}

// Puts runs into a block and drops those that share the VCN of the run before: after a run of length 0 there
// is one.
void numbered_runs::rebuild(block& changed, std::span<const placed_run> added, bool drop_first) {
    cluster_run_list runs;
    runs.reserve(changed.runs.size() + added.size());
    auto next = added.begin();
    bool drop = drop_first;
    for (std::size_t i = 0; i < changed.runs.size(); ++i) {
        for (; next != added.end() && next->place == i; ++next) {
            runs.push_back(next->run);
        }
        if (!drop) {
            runs.push_back(changed.runs[i]);
        }
        drop = changed.runs[i].length == 0;
    }
    for (; next != added.end(); ++next) {
        runs.push_back(next->run);
    }
    changed.runs = std::move(runs);
    number(changed);
}

void numbered_runs::number(block& changed) {
    changed.clusters = 0;
    changed.empty_runs = 0;
    for (cluster_run& run : changed.runs) {
        run.vcn = changed.clusters;
        changed.clusters += run.length;
        changed.empty_runs += run.length == 0 ? 1 : 0;
    }
}

// Splits blocks that are too long, takes out those without runs, and gives all of them their start.
void numbered_runs::tidy() {
    const auto is_unfit = [](const block& each) {
        return each.runs.empty() || each.runs.size() > most_runs_of_a_block;
    };
    if (std::any_of(m_blocks.begin(), m_blocks.end(), is_unfit)) {
        split_blocks();
    }
    m_size = 0;
    m_empty_runs = 0;
    std::uint64_t vcn = 0;
    for (block& each : m_blocks) {
        each.first_vcn = vcn;
        vcn += each.clusters;
        m_size += each.runs.size();
        m_empty_runs += each.empty_runs;
    }
}

void numbered_runs::split_blocks() {
    std::vector<block> blocks;
    for (block& each : m_blocks) {
        if (each.runs.size() <= most_runs_of_a_block) {
            if (!each.runs.empty()) {
                blocks.push_back(std::move(each));
            }
            continue;
        }
        const std::span<const cluster_run> all(each.runs);
        constexpr std::size_t half = most_runs_of_a_block / 2;
        for (std::size_t from = 0; from < all.size(); from += half) {
            const auto part = all.subspan(from, std::min(half, all.size() - from));
            blocks.emplace_back().runs.assign(part.begin(), part.end());
            number(blocks.back());
        }
    }
    if (blocks.empty()) {
        blocks.emplace_back();
    }
    m_blocks = std::move(blocks);
}

cluster_run_list numbered_runs::list() const {
    cluster_run_list all;
    all.reserve(m_size);
    for (const block& each : m_blocks) {
        for (cluster_run run : each.runs) {
            run.vcn += each.first_vcn;
            all.push_back(run);
        }
    }
    return all;
}

}  // namespace quarry
