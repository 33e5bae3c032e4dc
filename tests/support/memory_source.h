// A source of bytes in memory, whole or damaged as a test wants it.
#pragma once

#include "disk/byte_source.h"
#include "support/byte_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace quarry::test {

class memory_source final : public byte_source {
  public:
    explicit memory_source(bytes content, std::uint32_t sector_size = 512)
        : m_content(std::move(content)), m_sector_size(sector_size) {}

    // Reads that reach into these bytes stop there with EIO.
    memory_source& unreadable(std::uint64_t offset, std::uint64_t length) {
        m_unreadable.emplace_back(offset, offset + length);
        return *this;
    }

    // From here on a read that stops says where the bytes end that cannot be read.
    memory_source& with_known_losses() {
        m_knows_losses = true;
        return *this;
    }

    // From here on read_from_memory() gives pages of 4,096 bytes only of which something was announced or
    // read after this.
    memory_source& evict() {
        m_pages.clear();
        m_is_cold = true;
        return *this;
    }

    void announce(std::uint64_t offset, std::uint64_t length) override {
        m_announced.emplace_back(offset, length);
        touch(offset, length);
    }
    [[nodiscard]] bool read_from_memory(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        if (offset + buffer.size() > m_content.size()) {
            return false;
        }
        for (std::uint64_t page = offset / page_bytes;
             m_is_cold && page * page_bytes < offset + buffer.size(); ++page) {
            if (!m_pages.contains(page)) {
                return false;
            }
        }
        std::copy_n(m_content.begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
        return true;
    }

    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        ++m_reads;
        touch(offset, buffer.size());
        std::uint64_t end = std::min<std::uint64_t>(m_content.size(), offset + buffer.size());
        int error = 0;
        std::uint64_t end_of_loss = 0;
        for (const auto& [begin, after] : m_unreadable) {
            if (offset < after && begin < end) {
                end = std::max(begin, offset);
                error = EIO;
                end_of_loss = after;
            }
        }
        const std::uint64_t lost = error != 0 && m_knows_losses ? end_of_loss - std::max(end, offset) : 0;
        if (offset >= end) {
            return {0, error, static_cast<std::size_t>(lost)};
        }
        std::copy(m_content.begin() + static_cast<std::ptrdiff_t>(offset),
                  m_content.begin() + static_cast<std::ptrdiff_t>(end), buffer.begin());
        return {static_cast<std::size_t>(end - offset), error, static_cast<std::size_t>(lost)};
    }
    [[nodiscard]] std::uint64_t size() const override { return m_content.size(); }
    [[nodiscard]] std::uint64_t content_size() const override { return m_content.size(); }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_sector_size; }

    [[nodiscard]] bytes& content() { return m_content; }
    // Calls of read() so far.
    [[nodiscard]] std::size_t reads() const { return m_reads; }
    // What was announced, in order: offset and length in bytes.
    using announcements = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
    [[nodiscard]] announcements& announced() { return m_announced; }

  private:
    static constexpr std::uint64_t page_bytes = 4096;
    void touch(std::uint64_t offset, std::uint64_t length) {
        for (std::uint64_t page = offset / page_bytes; m_is_cold && page * page_bytes < offset + length;
             ++page) {
            m_pages.insert(page);
        }
    }

    bytes m_content;
    std::uint32_t m_sector_size;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> m_unreadable;
    bool m_knows_losses = false;
    std::size_t m_reads = 0;
    announcements m_announced;
    bool m_is_cold = false;
    std::set<std::uint64_t> m_pages;
};

}  // namespace quarry::test
