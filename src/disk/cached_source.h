// A source as far as it is in memory.
//
// For a reader that wants to know what will be needed next and must not wait for it. What is not in memory is
// announced, so that it is there the next time:
//
//     first read      not in memory: announced, EAGAIN
//     later read      in memory: the bytes
#pragma once

#include "disk/byte_source.h"

#include <cstdint>
#include <span>

namespace quarry {

class cached_source final : public byte_source {
  public:
    // `source` must outlive the object.
    explicit cached_source(byte_source& source) : m_source(&source) {}

    // The error is EAGAIN where the bytes are not in memory; no part of them is given then.
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    void announce(std::uint64_t offset, std::uint64_t length) override { m_source->announce(offset, length); }
    [[nodiscard]] bool read_from_memory(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        return m_source->read_from_memory(buffer, offset);
    }
    [[nodiscard]] std::uint64_t size() const override { return m_source->size(); }
    [[nodiscard]] std::uint64_t content_size() const override { return m_source->content_size(); }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_source->sector_size(); }

    // Reads so far of what was not in memory.
    [[nodiscard]] std::uint64_t misses() const { return m_misses; }

  private:
    byte_source* m_source;
    std::uint64_t m_misses = 0;
};

}  // namespace quarry
