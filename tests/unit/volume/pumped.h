// Streams of a patterned volume, and what becomes of one that is pumped.
#pragma once

#include "support/capturing_log.h"
#include "support/opened_volume.h"
#include "support/sample_text.h"
#include "volume/stream_pump.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

using lines = std::vector<std::string>;
inline constexpr std::uint64_t cluster = 4096;
inline constexpr std::uint64_t volume_clusters = 160;

inline bytes patterned_image(std::uint32_t sectors_per_cluster = 8) {
    geometry shape;
    shape.sectors_per_cluster = sectors_per_cluster;
    shape.mft_entries = 8;
    shape.total_clusters = volume_clusters;
    volume_builder volume(shape);
    volume.write_clusters(40, pattern((volume_clusters - 40) * sectors_per_cluster * 512, 17));
    return volume.image();
}

inline attr_item resident_item(bytes value) {
    attr_item item;
    item.type = attr_data;
    item.value_size = static_cast<std::uint32_t>(value.size());
    item.value = std::move(value);
    return item;
}

// A stream in clusters, its sizes those of its runs on clusters of 4096 bytes.
inline attr_item stored_item(const run_list& runs) {
    attr_item item;
    item.type = attr_data;
    item.non_resident = true;
    std::uint64_t vcn = 0;
    for (const run& each : runs) {
        const bool sparse = each.lcn == hole;
        item.runs.push_back({.lcn = sparse ? 0 : static_cast<std::uint64_t>(each.lcn),
                             .vcn = vcn,
                             .sparse = sparse,
                             .length = static_cast<std::uint32_t>(each.length)});
        vcn += each.length;
    }
    item.allocated = item.real = item.initialized = vcn * cluster;
    return item;
}

// The same with one size for real and initialized.
inline attr_item stored_item(const run_list& runs, std::uint64_t size) {
    attr_item item = stored_item(runs);
    item.real = item.initialized = size;
    return item;
}

struct pumped {
    bool ok = false;
    bytes out;
    std::uint64_t bytes_copied = 0;
    std::string md5;
    lines log;
};

inline pumped pump(CNtfs* ntfs, attr_item& item, const pump_rules& rules = {}) {
    pumped got;
    std::ostringstream out;
    capturing_log log;
    pump_context context{.log = log, .bytes_copied = 99};
    got.md5 = "old";
    got.ok = pump_stream(ntfs, item, out, rules, got.md5, context);
    got.out = to_bytes(out.str());
    got.bytes_copied = context.bytes_copied;
    got.log = log.lines;
    return got;
}

// A stream buffer that notes each write and takes as many bytes as it is told.
class counting_buffer : public std::streambuf {
  public:
    explicit counting_buffer(std::size_t room = std::numeric_limits<std::size_t>::max()) : m_room(room) {}
    std::vector<std::size_t> writes;
    std::size_t taken = 0;

  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize count) override {
        writes.push_back(static_cast<std::size_t>(count));
        const std::size_t accepted = std::min(m_room - taken, static_cast<std::size_t>(count));
        taken += accepted;
        return static_cast<std::streamsize>(accepted);
    }

  private:
    std::size_t m_room;
};

inline bytes part(const bytes& text, std::uint64_t from, std::uint64_t count) {
    const auto at = text.begin() + static_cast<std::ptrdiff_t>(from);
    return {at, at + static_cast<std::ptrdiff_t>(count)};
}

class pump_stream_test : public ::testing::Test {
  protected:
    bytes m_image = patterned_image();
    opened_volume m_volume{m_image};

    [[nodiscard]] bytes clusters(std::uint64_t lcn, std::uint64_t count) const {
        return part(m_image, lcn * cluster, count * cluster);
    }
    pumped pump(attr_item item, const pump_rules& rules = {}) {
        return test::pump(&m_volume.ntfs(), item, rules);
    }
};

}  // namespace quarry::test
