#include "support/plain_reader.h"

#include "support/slow_lznt1.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::uint32_t list_type = 0x20;
constexpr std::uint32_t data_type = 0x80;

// All of these throw std::out_of_range for what is not there.
std::uint64_t number(const bytes& from, std::size_t at, unsigned width) {
    std::uint64_t value = 0;
    for (unsigned i = width; i-- > 0;) {
        value = value << 8 | from.at(at + i);
    }
    return value;
}

std::int64_t signed_number(const bytes& from, std::size_t at, unsigned width) {
    if (width == 0 || width > 8) {
        throw std::out_of_range("a number of so many bytes");
    }
    const unsigned unused = 64 - 8 * width;
    return static_cast<std::int64_t>(number(from, at, width) << unused) >> unused;
}

bytes part_of(const bytes& from, std::uint64_t at, std::uint64_t size) {
    if (at > from.size() || size > from.size() - at) {
        throw std::out_of_range("a part of bytes");
    }
    const auto begin = from.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

std::u16string name_at(const bytes& from, std::size_t at, std::size_t units) {
    std::u16string name;
    for (std::size_t i = 0; i < units; ++i) {
        name.push_back(static_cast<char16_t>(number(from, at + 2 * i, 2)));
    }
    return name;
}

std::vector<bytes> attributes_of(const bytes& record) {
    std::vector<bytes> found;
    std::size_t at = number(record, 20, 2);
    while (number(record, at, 4) != 0xFFFFFFFF) {
        const std::size_t size = number(record, at + 4, 4);
        if (size == 0) {
            throw std::out_of_range("an attribute of no bytes");
        }
        found.push_back(part_of(record, at, size));
        at += size;
    }
    return found;
}

bool is_called(const bytes& attribute, std::uint32_t type, std::u16string_view name) {
    return number(attribute, 0, 4) == type &&
           name_at(attribute, number(attribute, 10, 2), number(attribute, 9, 1)) == name;
}

// Clusters of a compressed unit.
std::uint64_t unit_of(const bytes& attribute) {
    const std::uint64_t power = number(attribute, 34, 1);
    if (power > 16) {
        throw std::out_of_range("a unit of too many clusters");
    }
    return std::uint64_t{1} << power;
}

bool is_resident(const bytes& attribute) {
    return number(attribute, 8, 1) == 0;
}

}  // namespace

plain_reader::plain_reader(const bytes& image) : m_image(image) {
    const std::uint64_t sector = number(image, 11, 2);
    m_cluster_size = sector * number(image, 13, 1);
    const std::int64_t size = signed_number(image, 64, 1);
    m_record_size = size > 0 ? static_cast<std::uint64_t>(size) * m_cluster_size : std::uint64_t{1} << -size;
    // The record of $MFT describes the first piece of the table, and where the others are described.
    m_table = part_of(image, number(image, 48, 8) * m_cluster_size, m_record_size);
    const bytes own = record(0);
    std::vector<bytes> first = attributes_of(own);
    std::erase_if(first, [](const bytes& each) { return !is_called(each, data_type, {}); });
    m_table = content(first);
    m_table = content(pieces(0, data_type, {}));
}

bytes plain_reader::stream(std::uint64_t entry, std::u16string_view name) const {
    return content(pieces(entry, data_type, name));
}

std::vector<bytes> plain_reader::attributes(std::uint64_t entry) const {
    return attributes_of(record(entry));
}

bool plain_reader::has_attribute(std::uint64_t entry, std::uint32_t type) const {
    const std::vector<bytes> own = attributes(entry);
    return std::any_of(own.begin(), own.end(), [&](const bytes& each) { return number(each, 0, 4) == type; });
}

std::size_t plain_reader::header_size(std::uint64_t entry) const {
    return number(record(entry), 20, 2);
}

// A record with the words in place of which its sectors end in the update sequence number.
bytes plain_reader::record(std::uint64_t entry) const {
    bytes found = part_of(m_table, entry * m_record_size, m_record_size);
    const std::size_t array = number(found, 4, 2);
    const std::size_t words = number(found, 6, 2);
    for (std::size_t word = 1; word < words; ++word) {
        for (std::size_t i = 0; i < 2; ++i) {
            found.at(word * 512 - 2 + i) = found.at(array + 2 * word + i);
        }
    }
    return found;
}

// The attributes that are one stream, the one with the lowest VCN first.
std::vector<bytes> plain_reader::pieces(std::uint64_t entry, std::uint32_t type,
                                        std::u16string_view name) const {
    std::vector<bytes> found;
    const std::vector<bytes> own = attributes_of(record(entry));
    const auto list = std::find_if(own.begin(), own.end(),
                                   [](const bytes& each) { return number(each, 0, 4) == list_type; });
    if (list == own.end()) {
        std::copy_if(own.begin(), own.end(), std::back_inserter(found),
                     [&](const bytes& each) { return is_called(each, type, name); });
        return found;
    }
    const bytes items = content({*list});
    for (std::size_t at = 0; at < items.size();) {
        const std::size_t size = number(items, at + 4, 2);
        if (size == 0) {
            throw std::out_of_range("an item of no bytes");
        }
        const bytes item = part_of(items, at, size);
        at += size;
        if (number(item, 0, 4) != type || name_at(item, number(item, 7, 1), number(item, 6, 1)) != name) {
            continue;
        }
        for (const bytes& each : attributes_of(record(number(item, 16, 6)))) {
            if (is_called(each, type, name) && number(each, 14, 2) == number(item, 24, 2)) {
                found.push_back(each);
            }
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const bytes& a, const bytes& b) {
        return !is_resident(a) && !is_resident(b) && number(a, 16, 8) < number(b, 16, 8);
    });
    return found;
}

std::vector<plain_reader::extent> plain_reader::extents(const bytes& attribute) {
    std::vector<extent> found;
    if (is_resident(attribute)) {
        return found;
    }
    std::int64_t lcn = 0;
    std::size_t at = number(attribute, 32, 2);
    while (number(attribute, at, 1) != 0) {
        const auto length_width = static_cast<unsigned>(number(attribute, at, 1) & 15);
        const auto lcn_width = static_cast<unsigned>(number(attribute, at, 1) >> 4);
        const std::uint64_t clusters = number(attribute, at + 1, length_width);
        if (lcn_width == 0) {
            found.push_back({std::nullopt, clusters});
        } else {
            lcn += signed_number(attribute, at + 1 + length_width, lcn_width);
            found.push_back({static_cast<std::uint64_t>(lcn), clusters});
        }
        at += 1 + length_width + lcn_width;
    }
    return found;
}

bytes plain_reader::content(const std::vector<bytes>& pieces) const {
    const bytes& first = pieces.at(0);
    if (is_resident(first)) {
        return part_of(first, number(first, 20, 2), number(first, 16, 4));
    }
    std::vector<extent> all_extents;
    for (const bytes& piece : pieces) {
        const std::vector<extent> part = extents(piece);
        all_extents.insert(all_extents.end(), part.begin(), part.end());
    }
    const std::uint64_t size = number(first, 48, 8);
    if (size > m_image.size()) {
        throw std::out_of_range("a stream larger than the volume");
    }
    bytes all;
    if ((number(first, 12, 2) & 1) != 0) {
        all = decoded(all_extents, unit_of(first));
    } else {
        for (const extent& each : all_extents) {
            const bytes part = stored(each);
            all.insert(all.end(), part.begin(), part.end());
        }
    }
    all.resize(std::min<std::uint64_t>(all.size(), number(first, 56, 8)));
    all.resize(static_cast<std::size_t>(size));
    return all;
}

// The clusters of a compressed stream, `unit` of them at a time.
bytes plain_reader::decoded(const std::vector<extent>& extents, std::uint64_t unit) const {
    std::vector<std::optional<std::uint64_t>> clusters;
    for (const extent& each : extents) {
        for (std::uint64_t i = 0; i < each.clusters && clusters.size() < m_image.size(); ++i) {
            clusters.push_back(each.lcn ? std::optional(*each.lcn + i) : std::nullopt);
        }
    }
    bytes all;
    for (std::size_t begin = 0; begin < clusters.size(); begin += unit) {
        bytes held;
        const std::size_t end = std::min<std::size_t>(begin + unit, clusters.size());
        for (std::size_t i = begin; i < end && clusters[i]; ++i) {
            const bytes cluster = stored({clusters[i], 1});
            held.insert(held.end(), cluster.begin(), cluster.end());
        }
        const std::size_t plain_size = unit * m_cluster_size;
        const bool has_chunks = held.size() < plain_size && !held.empty();
        std::optional<bytes> plain = has_chunks ? slow_strict_unit(held, plain_size) : held;
        if (!plain) {
            throw std::out_of_range("a unit that does not decode");
        }
        plain->resize(plain_size);
        all.insert(all.end(), plain->begin(), plain->end());
    }
    return all;
}

bytes plain_reader::stored(const extent& part) const {
    const std::uint64_t most = m_image.size() / m_cluster_size;
    if (part.clusters > most || part.lcn.value_or(0) > most) {
        throw std::out_of_range("a run longer than the volume");
    }
    const std::uint64_t size = part.clusters * m_cluster_size;
    return part.lcn ? part_of(m_image, *part.lcn * m_cluster_size, size)
                    : bytes(static_cast<std::size_t>(size));
}

}  // namespace quarry::test
