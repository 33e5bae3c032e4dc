// Damages volumes in many ways and copies their streams as `-exact` does, many cases in one process.
//
// Usage: exact_damage write FOLDER                      the volumes, and in FOLDER/streams what is asked of
// each
//        exact_damage run CASES [PART PARTS]            every PARTS-th case, from PART on
//
// In streams and in the output fields have tabs between them. A line of streams is the volume, the number of
// the order, its path or nothing, the entry, the stream's name. Copies that are complete and not in doubt are
// told of the sound volumes, and of damaged ones where they have other bytes than before:
//
//     sound VOLUME ORDER ENTRY SHA256
//     other VOLUME ORDER ENTRY SHA256 DAMAGE
//     large VOLUME ORDER ENTRY SIZE DAMAGE       has more bytes than anybody wants to compare
//
// ENTRY is the one that was found. DAMAGE is "cut LENGTH", or "put OFFSET HEX" as often as bytes changed, all
// with blanks between them: whoever reads it can damage the volume in the same way and say what is right. The
// last line is "cases CASES complete SAME other OTHER large LARGE failed FAILED doubt DOUBT", which counts
// copies.
#include "exact/exact_volume.h"
#include "exact/warm_directories.h"
#include "foundation/sha256.h"
#include "frontend/exact/copy_object.h"
#include "frontend/exact/exact_messages.h"
#include "oracle/damage_volumes.h"
#include "support/opened_exact_volume.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace quarry::test {

namespace {

constexpr std::size_t sector = 512;
// A line of metadata holds something; what is zeros for this long is space that nobody has used.
constexpr std::size_t line = 64;
// Bytes of a copy, many times what the volumes hold.
constexpr std::uint64_t largest_copy = std::uint64_t{1} << 22;

// Bytes in memory that can be cut, and that notes which of them are asked for.
class damaged_bytes final : public byte_source {
  public:
    explicit damaged_bytes(bytes content) : m_content(std::move(content)), m_length(m_content.size()) {}

    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        if (offset >= m_length || buffer.empty()) {
            return {0, 0};
        }
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(m_length - offset, buffer.size()));
        const auto begin = static_cast<std::ptrdiff_t>(offset);
        std::copy_n(m_content.begin() + begin, size, buffer.begin());
        for (std::size_t at = offset / line; m_noted != nullptr && at <= (offset + size - 1) / line; ++at) {
            m_noted->insert(at);
        }
        return {size, 0};
    }
    [[nodiscard]] std::uint64_t size() const override { return m_length; }
    [[nodiscard]] std::uint64_t content_size() const override { return m_length; }
    [[nodiscard]] std::uint32_t sector_size() const override { return sector; }

    [[nodiscard]] bytes& content() { return m_content; }
    void cut(std::uint64_t length) { m_length = length; }
    // Lines that are asked for are noted here from now on; null ends it.
    void note_in(std::set<std::size_t>* noted) { m_noted = noted; }

  private:
    bytes m_content;
    std::uint64_t m_length;
    std::set<std::size_t>* m_noted = nullptr;
};

std::string digits_of(const bytes& content) {
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, content.data(), content.size());
    sha256_digest digest{};
    sha256_final(digest, &context);
    std::string text;
    for (const std::uint8_t each : digest) {
        constexpr std::string_view digits = "0123456789abcdef";
        text += digits[each >> 4U];
        text += digits[each & 15U];
    }
    return text;
}

enum class outcome : std::uint8_t { complete, large, in_doubt, failed };

struct copied_stream {
    outcome end = outcome::failed;
    std::uint64_t entry = 0;
    std::uint64_t size = 0;
    bytes content;
    // Byte ranges of the source that hold the bytes of the stream as they are.
    std::vector<exact::byte_range> plain;
};

// One volume that is opened anew for each case, as a run opens it.
class strict_copies {
  public:
    explicit strict_copies(byte_source& source)
        : m_volume(exact::exact_volume::open(source, "damaged", 0, source.size(), m_told)) {
        m_messages.set_quiet(true);
    }

    [[nodiscard]] copied_stream copy(const damage_order& order) {
        copied_stream made;
        if (!m_volume) {
            return made;
        }
        exact::notices told;
        auto found = exact::find_object(**m_volume, m_directories, {}, asked(order), m_messages, told);
        if (!found) {
            return made;
        }
        made.entry = found->set->base().self().entry;
        made.size = found->content->delivered_size(false);
        if (made.size > largest_copy) {
            made.end = outcome::large;
            return made;
        }
        note_plain(*found->content, made);
        collecting_sink sink;
        if (!found->content->deliver(sink, {}, told)) {
            return made;
        }
        made.end = told.in_doubt() || m_told.in_doubt() ? outcome::in_doubt : outcome::complete;
        made.content = sink.content();
        return made;
    }

  private:
    static exact::copy_object asked(const damage_order& order) {
        const std::string stream = order.stream.empty() ? "" : ":" + order.stream;
        if (order.path.empty()) {
            return exact::object_by_entry{order.entry, std::nullopt, stream};
        }
        return exact::object_by_path{order.path + stream};
    }
    void note_plain(const exact::stream& content, copied_stream& made) const {
        if (content.system_compressed() || (content.stored().flags() & 1U) != 0) {
            return;
        }
        for (const exact::run& each : content.stored().runs().runs()) {
            if (!each.is_hole()) {
                const std::uint64_t cluster = (*m_volume)->shape().cluster_size;
                made.plain.push_back({each.lcn * cluster, each.length * cluster});
            }
        }
    }

    exact::notices m_told;
    exact::result<std::unique_ptr<exact::exact_volume>> m_volume;
    exact::warm_directories m_directories;
    exact::exact_messages m_messages;
};

struct tally {
    std::uint64_t cases = 0;
    std::uint64_t complete = 0;
    std::uint64_t other = 0;
    std::uint64_t large = 0;
    std::uint64_t failed = 0;
    std::uint64_t in_doubt = 0;
};

// All cases of one volume.
class volume_damage {
  public:
    explicit volume_damage(damage_volume made) : m_made(std::move(made)), m_source(m_made.image) {
        for (const damage_order& order : m_made.orders) {
            std::set<std::size_t> lines;
            m_source.note_in(&lines);
            copied_stream sound = strict_copies(m_source).copy(order);
            m_source.note_in(nullptr);
            if (sound.end != outcome::complete) {
                throw std::runtime_error(m_made.name + ": " + order.path + " of entry " +
                                         std::to_string(order.entry) + " of the sound volume is not copied");
            }
            std::cout << "sound\t" << fields(m_sound.size(), sound) << '\n';
            forget_content(sound, lines);
            m_lines.insert(lines.begin(), lines.end());
            m_lines_of.push_back(std::move(lines));
            m_sound.push_back(std::move(sound));
        }
        m_places.assign(m_lines.begin(), m_lines.end());
    }

    [[nodiscard]] std::uint64_t cuts() const { return m_made.image.size() / sector; }

    // A cut where `number` is below cuts(), otherwise what follows from the number.
    void run_case(std::uint64_t number, tally& sum) {
        m_touched.clear();
        const bool is_cut = number < cuts();
        if (is_cut) {
            m_source.cut(number * sector);
        } else {
            damage(number);
        }
        strict_copies copies(m_source);
        for (std::size_t i = 0; i < m_made.orders.size(); ++i) {
            if (is_cut || is_touched(i)) {
                judge(i, copies.copy(m_made.orders[i]), number, sum);
            }
        }
        ++sum.cases;
        m_source.cut(m_made.image.size());
        for (const std::size_t at : m_touched) {
            m_source.content()[at] = m_made.image[at];
        }
    }

  private:
    static void forget_content(const copied_stream& sound, std::set<std::size_t>& lines) {
        for (const exact::byte_range& range : sound.plain) {
            lines.erase(lines.lower_bound(range.offset / line),
                        lines.lower_bound((range.offset + range.length) / line));
        }
    }
    [[nodiscard]] std::string fields(std::size_t order, const copied_stream& made) const {
        return m_made.name + '\t' + std::to_string(order) + '\t' + std::to_string(made.entry) + '\t' +
               digits_of(made.content);
    }
    // A copy depends on the bytes that are read for it and on nothing else.
    [[nodiscard]] bool is_touched(std::size_t order) const {
        return std::any_of(m_touched.begin(), m_touched.end(),
                           [&](std::size_t at) { return m_lines_of[order].contains(at / line); });
    }

    void judge(std::size_t order, const copied_stream& made, std::uint64_t number, tally& sum) {
        if (made.end == outcome::failed) {
            ++sum.failed;
        } else if (made.end == outcome::in_doubt) {
            ++sum.in_doubt;
        } else if (made.end == outcome::large) {
            ++sum.large;
            std::cout << "large\t" << m_made.name << '\t' << order << '\t' << made.entry << '\t' << made.size
                      << '\t' << damage_text(number) << '\n';
        } else if (made.entry == m_sound[order].entry && made.content == m_sound[order].content) {
            ++sum.complete;
        } else {
            ++sum.other;
            std::cout << "other\t" << fields(order, made) << '\t' << damage_text(number) << '\n';
        }
    }
    [[nodiscard]] std::string damage_text(std::uint64_t number) {
        if (number < cuts()) {
            return "cut " + std::to_string(number * sector);
        }
        std::ostringstream text;
        for (const std::size_t at : m_touched) {
            text << (text.tellp() == 0 ? "" : " ") << "put " << at << ' ' << std::hex
                 << static_cast<unsigned>(m_source.content()[at]) << std::dec;
        }
        return text.str();
    }

    void put(std::size_t at, std::uint8_t value) {
        m_source.content()[at] = value;
        m_touched.push_back(at);
    }
    void flip(std::size_t at, std::uint64_t bit) {
        put(at, static_cast<std::uint8_t>(m_source.content()[at] ^ (1U << (bit % 8))));
    }
    void damage(std::uint64_t number) {
        std::mt19937_64 random(number);
        const auto place = [&] { return m_places[random() % m_places.size()] * line + random() % line; };
        const std::size_t first = place();
        switch (random() % 8) {
            case 0:  // two bits of one line
                flip(first, random());
                flip(first / line * line + random() % line, random());
                break;
            case 1:  // bits in several places
                for (std::uint64_t left = 1 + random() % 6; left > 0; --left) {
                    flip(place(), random());
                }
                break;
            case 2:  // a word, small or large
                overwrite(first / 8 * 8, 8, random() % 2 == 0 ? random() % 64 : ~(random() % 4));
                break;
            case 3:  // another sector in the place of one
                copy_sector(place() / sector * sector, first / sector * sector);
                break;
            default:
                flip(first, random());
                break;
        }
    }
    void overwrite(std::size_t at, std::size_t width, std::uint64_t value) {
        for (std::size_t i = 0; i < width; ++i) {
            put(at + i, static_cast<std::uint8_t>(value >> (8 * i)));
        }
    }
    void copy_sector(std::size_t from, std::size_t to) {
        for (std::size_t i = 0; i < sector; ++i) {
            put(to + i, m_made.image[from + i]);
        }
    }

    damage_volume m_made;
    damaged_bytes m_source;
    std::vector<copied_stream> m_sound;
    std::vector<std::set<std::size_t>> m_lines_of;  // that each order reads, but for plain content
    std::set<std::size_t> m_lines;
    std::vector<std::size_t> m_places;
    std::vector<std::size_t> m_touched;  // bytes that this case changed
};

void write_volumes(const std::filesystem::path& folder) {
    std::ofstream streams(folder / "streams");
    for (const damage_volume& each : make_damage_volumes()) {
        write_file(folder / (each.name + ".img"), each.image);
        for (std::size_t i = 0; i < each.orders.size(); ++i) {
            const damage_order& order = each.orders[i];
            streams << each.name << '\t' << i << '\t' << order.path << '\t' << order.entry << '\t'
                    << order.stream << '\n';
        }
    }
    if (!streams.flush()) {
        throw std::runtime_error("streams cannot be written");
    }
}

// Each volume has the same share of the cases, and its cuts are among them.
void run_cases(std::uint64_t cases, std::uint64_t part, std::uint64_t parts) {
    tally sum;
    std::vector<damage_volume> volumes = make_damage_volumes();
    const std::uint64_t share = cases / volumes.size();
    for (damage_volume& each : volumes) {
        volume_damage damage(std::move(each));
        const std::uint64_t cuts = std::min(damage.cuts(), share / 4);
        for (std::uint64_t i = part; i < share; i += parts) {
            damage.run_case(i < cuts ? i * damage.cuts() / cuts : damage.cuts() + i, sum);
        }
    }
    std::cout << "cases " << sum.cases << " complete " << sum.complete << " other " << sum.other << " large "
              << sum.large << " failed " << sum.failed << " doubt " << sum.in_doubt << '\n';
}

}  // namespace

}  // namespace quarry::test

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        if (words.size() == 2 && words[0] == "write") {
            quarry::test::write_volumes(words[1]);
        } else if ((words.size() == 2 || words.size() == 4) && words[0] == "run") {
            const bool is_part = words.size() == 4;
            quarry::test::run_cases(std::stoull(words[1]), is_part ? std::stoull(words[2]) : 0,
                                    is_part ? std::stoull(words[3]) : 1);
        } else {
            std::cerr << "usage: exact_damage write FOLDER | run CASES [PART PARTS]\n";
            return 2;
        }
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
    return std::cout.flush() ? 0 : 1;
}
