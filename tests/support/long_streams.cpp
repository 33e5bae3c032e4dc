#include "support/long_streams.h"

#include "support/lznt1_encoder.h"
#include "support/lzx_builder.h"
#include "support/sample_text.h"
#include "support/xpress_builder.h"

#include <algorithm>
#include <utility>

namespace quarry::test {

namespace {

constexpr std::size_t cluster = 4096;
constexpr std::size_t unit = 16 * cluster;

attribute_builder wof_point(std::uint32_t format) {
    const bytes data = byte_writer().u32(0, 1).u32(4, 2).u32(8, 1).u32(12, format).take();
    return attribute_builder::resident(
        0xC0, byte_writer().u32(0, 0x80000017).u16(4, data.size()).raw(8, data).take());
}

// Chunks after their table of offsets.
bytes with_table(const std::vector<bytes>& chunks) {
    byte_writer table;
    std::size_t offset = 0;
    for (std::size_t i = 0; i + 1 < chunks.size(); ++i) {
        offset += chunks[i].size();
        table.u32(4 * i, static_cast<std::uint32_t>(offset));
    }
    return concat({table.take(), concat(chunks)});
}

// `size` bytes of one value, as a chunk of each codec.
bytes xpress_of(std::uint8_t value, std::size_t size) {
    return xpress_builder().literal(value).match(1, size - 1).build();
}
bytes lzx_of(std::uint8_t value) {
    lzx_codes codes{bytes(lzx_main_symbols), bytes(lzx_length_symbols), {}};
    codes.main[value] = 1;
    codes.main[256 + 7] = 1;
    codes.length[0] = 1;
    codes.length[248] = 1;
    lzx_builder chunk;
    chunk.verbatim(32768, codes);
    for (std::size_t done = 0; done < 32768;) {
        const bool matched = done > 0 && 32768 - done >= 257;
        matched ? chunk.recent(0, 257) : chunk.literal(value);
        done += matched ? 257 : 1;
    }
    return chunk.build();
}

}  // namespace

long_streams::long_streams() : m_volume({.total_clusters = 9000, .system_files = true}) {
    m_content["plain"] = random_bytes(3000000, 1);
    m_volume.add_file("plain").stored_data(m_content["plain"]);
    add_holes();
    add_units("lznt1", {}, {});
    add_units("lznt1-broken", {20, 21, 40}, {});
    add_units("lznt1-short", {}, {5, 6, 33});
    add_chunks("xpress", 3, 220, {});
    add_chunks("xpress-broken", 3, 220, {100, 101});
    add_chunks("lzx", 1, 100, {});
    add_units("lznt1-lost", {}, {});
}

// Unit 46, the last with bytes, is noise in 16 clusters.
bytes long_streams::image() const {
    bytes image = m_volume.image();
    image.resize((static_cast<std::size_t>(m_free) - 5) * cluster);
    return image;
}

void long_streams::add_holes() {
    const bytes first = random_bytes(100 * cluster, 2);
    const bytes second = random_bytes(300 * cluster, 3);
    const auto lcn = take(400);
    m_volume.write_clusters(static_cast<std::uint64_t>(lcn), concat({first, second}));
    m_volume.add_file("holes").data(runs({{hole, 200}, {lcn, 100}, {hole, 300}, {lcn + 100, 300}}),
                                    {.flags = 0x8000});
    m_content["holes"] = concat({bytes(200 * cluster), first, bytes(300 * cluster), second});
}

// Of three units one is text, one noise, one a hole.
void long_streams::add_units(const std::string& name, const std::vector<int>& broken,
                             const std::vector<int>& too_short) {
    run_list where;
    bytes plain;
    const auto is_one_of = [](const std::vector<int>& list, int number) {
        return std::find(list.begin(), list.end(), number) != list.end();
    };
    for (int number = 0; number < 48; ++number) {
        const auto seed = static_cast<std::uint32_t>(number);
        const bool is_broken = is_one_of(broken, number);
        const bool is_short = is_one_of(too_short, number);
        bytes stored;
        bytes made(unit);
        if (is_broken) {
            stored = {1, 0, 0, 0};  // a header without its mark
        } else if (is_short) {
            stored = lznt1_chunk(lznt1_payload().literals(to_bytes("abc")).build());
            std::copy_n("abc", 3, made.begin());
        } else if (number % 3 == 0) {
            made = text_like(unit, seed);
            stored = lznt1_chunks(made);
        } else if (number % 3 == 1) {
            stored = made = random_bytes(unit, seed);
        }
        const std::size_t clusters = (stored.size() + cluster - 1) / cluster;
        if (clusters > 0) {
            const auto lcn = take(clusters);
            m_volume.write_clusters(static_cast<std::uint64_t>(lcn), stored);
            where.push_back({lcn, clusters});
        }
        if (clusters < 16) {
            where.push_back({hole, 16 - clusters});
        }
        plain.insert(plain.end(), made.begin(), made.end());
    }
    m_volume.add_file(name).data(where, {.real = plain.size(), .compressed = 0, .unit = 4, .flags = 1});
    m_content[name] = plain;
}

// Every fifth chunk is stored as it is.
void long_streams::add_chunks(const std::string& name, std::uint32_t format, int count,
                              const std::vector<int>& broken) {
    const std::size_t size = format == 1 ? 32768 : 16384;
    std::vector<bytes> chunks;
    bytes plain;
    for (int number = 0; number < count; ++number) {
        const auto value = static_cast<std::uint8_t>(number);
        bytes made(size, value);
        if (number % 5 == 4) {
            made = random_bytes(size, value);
            chunks.push_back(made);
        } else {
            chunks.push_back(format == 1 ? lzx_of(value) : xpress_of(value, size));
        }
        plain.insert(plain.end(), made.begin(), made.end());
    }
    for (const int number : broken) {
        chunks[static_cast<std::size_t>(number)].assign(264, 0);
    }
    m_volume.add_file(name)
        .data(runs({{hole, plain.size() / cluster}}), {.real = plain.size(), .flags = 0x8000})
        .stream("WofCompressedData", with_table(chunks))
        .attribute(wof_point(format));
    m_content[name] = plain;
}

// The first of so many clusters that nothing else has.
std::int64_t long_streams::take(std::size_t clusters) {
    const std::int64_t first = m_free;
    m_free += static_cast<std::int64_t>(clusters);
    return first;
}

}  // namespace quarry::test
