// Digests of a stream, computed beside whatever else is done with its bytes.
//
// The bytes are kept in blocks until every digest has taken them, so that their owner may write the next ones
// meanwhile. Each digest takes the blocks in their order, on a worker:
//
//     owner     | write 0 | write 1 | write 2 | write 3 | ...
//     MD5       | digest 0 ... | digest 1 ... | digest 2 ...
//     SHA-256   | digest 0 | digest 1 | digest 2 | ...
//
// There are so many blocks and no more: the owner waits for the slowest digest, or helps it.
#pragma once

#include "foundation/worker_pool.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace quarry::exact {

class side_digests {
  public:
    // What a digest does with the next bytes of the stream.
    using update = std::function<void(std::span<const std::uint8_t>)>;

    static constexpr std::size_t block_bytes = 0x40000;
    static constexpr std::size_t most_blocks = 16;

    // `workers` may be null, then bytes are digested as they come; they outlive this.
    explicit side_digests(worker_pool* workers) : m_workers(workers) {}

    // One more digest, before the first byte. What it works on outlives this.
    void add(update taking) { m_digests.emplace_back(std::move(taking)); }
    [[nodiscard]] bool empty() const { return m_digests.empty(); }

    // The next bytes of the stream; the caller may change them afterwards.
    void take(std::span<const std::uint8_t> bytes);
    // The next bytes of the stream, which stay as they are until finish().
    void take_lasting(std::span<const std::uint8_t> bytes);
    // Returns when every digest has all bytes.
    void finish();

  private:
    struct digest {
        explicit digest(update updated) : take(std::move(updated)) {}
        update take;
        worker_pool::lane lane;
    };
    struct block {
        std::vector<std::uint8_t> bytes;
        std::span<const std::uint8_t> view;
        std::deque<worker_pool::job> jobs;  // one for each digest
    };

    [[nodiscard]] block& free_block();
    void begin(block& filled);

    worker_pool* m_workers;
    std::deque<digest> m_digests;
    std::array<std::unique_ptr<block>, most_blocks> m_blocks;
    std::size_t m_next = 0;
};

}  // namespace quarry::exact
