#include "frontend/exact/side_digests.h"

#include <algorithm>

namespace quarry::exact {

void side_digests::take(std::span<const std::uint8_t> bytes) {
    if (m_workers == nullptr || empty()) {
        take_lasting(bytes);
        return;
    }
    while (!bytes.empty()) {
        const auto part = bytes.first(std::min(bytes.size(), block_bytes));
        block& filled = free_block();
        filled.bytes.assign(part.begin(), part.end());
        filled.view = filled.bytes;
        begin(filled);
        bytes = bytes.subspan(part.size());
    }
}

void side_digests::take_lasting(std::span<const std::uint8_t> bytes) {
    if (m_workers == nullptr) {
        for (digest& each : m_digests) {
            each.take(bytes);
        }
        return;
    }
    block& filled = free_block();
    filled.view = bytes;
    begin(filled);
}

void side_digests::finish() {
    for (const std::unique_ptr<block>& each : m_blocks) {
        if (each != nullptr) {
            for (worker_pool::job& job : each->jobs) {
                m_workers->finish(job);
            }
        }
    }
}

// The oldest block, once every digest has taken it.
side_digests::block& side_digests::free_block() {
    std::unique_ptr<block>& oldest = m_blocks[m_next++ % most_blocks];
    if (oldest == nullptr) {
        oldest = std::make_unique<block>();
        for (digest& each : m_digests) {
            oldest->jobs.emplace_back([&each, &from = *oldest] { each.take(from.view); });
        }
    }
    for (worker_pool::job& job : oldest->jobs) {
        m_workers->finish(job);
    }
    return *oldest;
}

void side_digests::begin(block& filled) {
    auto taking = m_digests.begin();
    for (worker_pool::job& job : filled.jobs) {
        m_workers->begin(job, &(taking++)->lane);
    }
}

}  // namespace quarry::exact
