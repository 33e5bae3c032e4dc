#include "damage/damaged_source.h"

#include "support/disk_builder.h"
#include "support/vmdk_builder.h"

#include <algorithm>
#include <array>
#include <random>

namespace quarry::test {

namespace {

constexpr std::uint64_t sector = 512;
constexpr std::uint64_t first_sector = 64;
constexpr std::size_t word = 8;
// A line of metadata holds something; what is zeros for this long is space that nobody has used.
constexpr std::size_t line = 64;
constexpr std::size_t most_bits = 16;

// Small and large, with either half and with the sign bit set, and two that lie within a file of a tebibyte.
constexpr std::array<std::uint64_t, 6> values = {0,
                                                 ~std::uint64_t{0},
                                                 0x7FFF'FFFF'FFFF'FFFF,
                                                 0x8000'0001'8000'0000,
                                                 0x0000'0000'0400'0000,
                                                 0x0010'0000'0010'0000};

void put_number(bytes& content, std::size_t at, unsigned width, std::uint64_t value) {
    apply(content, {{at, width, value}});
}

bytes disk_around(const source_shape& shape, bytes volume) {
    const std::uint64_t stored = (volume.size() + sector - 1) / sector;
    const std::uint64_t sectors = std::max(stored, shape.apparent_size / sector);
    if (shape.apparent_size != 0) {
        constexpr std::size_t total_sectors = 40;
        put_number(volume, total_sectors, 8, sectors);
    }
    disk_builder disk(first_sector + stored + 40);
    if (shape.kind == source_kind::gpt_disk) {
        disk.gpt({{.first = first_sector, .last = first_sector + sectors - 1, .name = "volume"}});
    } else {
        disk.table(0,
                   {{0x07, static_cast<std::uint32_t>(first_sector), static_cast<std::uint32_t>(sectors)}});
    }
    return disk.put(first_sector, std::move(volume)).image();
}

bytes source_around(const source_shape& shape, const bytes& volume) {
    if (shape.kind == source_kind::bare_volume) {
        return volume;
    }
    const bytes disk = disk_around(shape, volume);
    if (shape.kind != source_kind::virtual_disk) {
        return disk;
    }
    vmdk_builder built;
    built.grains = disk.size() / built.grain_bytes() + 1;
    built.put_all(0, disk);
    if (shape.apparent_size != 0) {
        built.force(vmdk_builder::at_capacity, 8, shape.apparent_size / sector);
    }
    return built.build();
}

std::vector<std::uint64_t> metadata_words(const bytes& content) {
    std::vector<std::uint64_t> words;
    for (std::size_t at = 0; at + line <= content.size(); at += line) {
        const auto begin = content.begin() + static_cast<std::ptrdiff_t>(at);
        if (std::any_of(begin, begin + line, [](std::uint8_t byte) { return byte != 0; })) {
            for (std::size_t offset = 0; offset < line; offset += word) {
                words.push_back(at + offset);
            }
        }
    }
    return words;
}

}  // namespace

damaged_source::damaged_source(source_shape shape, const bytes& volume)
    : m_shape(std::move(shape)),
      m_content(source_around(m_shape, volume)),
      m_words(metadata_words(m_content)) {
    hold_content();
}

void damaged_source::hold_content() const {
    m_file.hold(byte_view(m_content));
    m_file.set_length(std::max<std::uint64_t>(m_content.size(), m_shape.apparent_size));
}

std::uint64_t damaged_source::listed_cases() const {
    return m_content.size() / sector + m_words.size() * values.size();
}

std::string damaged_source::describe(std::uint64_t number) const {
    const std::string& name = m_shape.name;
    const std::uint64_t cuts = m_content.size() / sector;
    if (number < cuts) {
        return name + " cut to " + std::to_string(number * sector) + " bytes";
    }
    if (number < listed_cases()) {
        const std::uint64_t index = number - cuts;
        return name + ", byte " + std::to_string(m_words[index / values.size()]) + ", value " +
               std::to_string(index % values.size());
    }
    return name + ", random bits " + std::to_string(number);
}

void damaged_source::restore() {
    if (m_cut) {
        hold_content();
        m_cut = false;
    }
    for (const std::uint64_t at : m_touched) {
        m_file.put(at, byte_view(m_content).clipped(at, word));
    }
    m_touched.clear();
}

void damaged_source::damage(std::uint64_t number) {
    restore();
    const std::uint64_t cuts = m_content.size() / sector;
    if (number < cuts) {
        m_file.set_length(number * sector);
        m_cut = true;
        return;
    }
    if (number < listed_cases()) {
        const std::uint64_t index = number - cuts;
        bytes value(word);
        for (std::size_t i = 0; i < word; ++i) {
            value[i] = static_cast<std::uint8_t>(values[index % values.size()] >> (8 * i));
        }
        m_touched.push_back(m_words[index / values.size()]);
        m_file.put(m_touched.back(), byte_view(value));
        return;
    }
    std::mt19937_64 random(number);
    const std::size_t count = 1 + random() % most_bits;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t at = m_words[random() % m_words.size()];
        const auto begin = m_content.begin() + static_cast<std::ptrdiff_t>(at);
        bytes value(begin, begin + word);
        const std::uint64_t bit = random() % (word * 8);
        value[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
        m_touched.push_back(at);
        m_file.put(at, byte_view(value));
    }
}

}  // namespace quarry::test
