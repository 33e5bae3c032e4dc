// A built volume in memory, opened by the strict reader, and copies of its streams.
#pragma once

#include "exact/exact_volume.h"
#include "exact/stream.h"
#include "support/memory_source.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace quarry::test {

// Collects what is delivered. Zeros are written out, and noted.
class collecting_sink final : public exact::stream_sink {
  public:
    [[nodiscard]] exact::result<void> data(byte_view block) override {
        m_largest_block = std::max(m_largest_block, block.size());
        m_bytes.insert(m_bytes.end(), block.span().begin(), block.span().end());
        return {};
    }
    [[nodiscard]] exact::result<void> zeros(std::uint64_t length) override {
        m_holes.push_back({m_bytes.size(), length});
        m_bytes.resize(m_bytes.size() + static_cast<std::size_t>(length));
        return {};
    }
    [[nodiscard]] const bytes& content() const { return m_bytes; }
    [[nodiscard]] const std::vector<exact::byte_range>& holes() const { return m_holes; }
    [[nodiscard]] std::size_t largest_block() const { return m_largest_block; }

  private:
    bytes m_bytes;
    std::vector<exact::byte_range> m_holes;
    std::size_t m_largest_block = 0;
};

// A copy of one stream, or why there is none.
struct exact_copy {
    bytes content;
    std::vector<exact::byte_range> holes;
    exact::delivery told;
    exact::notices said;
    std::string failed;  // the code and the text, such as "torn record 5: ..."; empty for a copy
};

[[nodiscard]] inline std::string text_of(const exact::failure& failed) {
    return std::string(exact::code_text(failed.code)) + " " + failed.text();
}

// The codes and texts of all notices, one a line.
[[nodiscard]] inline std::string text_of(const exact::notices& told) {
    std::string text;
    for (const exact::notice& each : told.all()) {
        text += each.code + " " + each.text() + "\n";
    }
    return text;
}

class opened_exact_volume {
  public:
    explicit opened_exact_volume(const volume_builder& volume) : opened_exact_volume(volume.image()) {}
    explicit opened_exact_volume(bytes image, std::uint64_t volume_offset = 0)
        : m_source(std::move(image)), m_offset(volume_offset) {}

    // Opens the volume; afterwards volume() can be used. The failure's text, or nothing.
    // May be called again after the source has changed.
    [[nodiscard]] std::string open() {
        m_told = {};
        exact::result<std::unique_ptr<exact::exact_volume>> opened =
            exact::exact_volume::open(m_source, "image", m_offset, m_source.size() - m_offset, m_told);
        if (!opened) {
            return text_of(opened.error());
        }
        m_volume = std::move(*opened);
        return "";
    }
    // Throws std::runtime_error if the volume does not open.
    [[nodiscard]] exact::exact_volume& volume() {
        if (!m_volume) {
            if (const std::string failed = open(); !failed.empty()) {
                throw std::runtime_error(failed);
            }
        }
        return *m_volume;
    }
    [[nodiscard]] memory_source& source() { return m_source; }
    // What was said while the volume was opened.
    [[nodiscard]] const exact::notices& told() const { return m_told; }

    [[nodiscard]] exact_copy copy(std::uint64_t entry, std::u16string_view name = {},
                                  const exact::delivery_options& options = {},
                                  std::uint32_t type = attr_data) {
        exact_copy copy;
        collecting_sink sink;
        const auto failed_with = [&](const exact::failure& failed) {
            copy.failed = text_of(failed);
            return copy;
        };
        exact::result<exact::record> base = volume().table().read_asked(entry, std::nullopt, copy.said);
        if (!base) {
            return failed_with(base.error());
        }
        exact::result<exact::attribute_set> set =
            exact::attribute_set::of(volume().table(), std::move(*base), copy.said);
        if (!set) {
            return failed_with(set.error());
        }
        exact::result<exact::stream> stream = exact::stream::open(volume(), *set, type, name, copy.said);
        if (!stream) {
            return failed_with(stream.error());
        }
        exact::result<exact::delivery> done = stream->deliver(sink, options, copy.said);
        if (!done) {
            return failed_with(done.error());
        }
        copy.content = sink.content();
        copy.holes = sink.holes();
        copy.told = *done;
        return copy;
    }

  private:
    memory_source m_source;
    std::uint64_t m_offset;
    exact::notices m_told;
    std::unique_ptr<exact::exact_volume> m_volume;
};

}  // namespace quarry::test
