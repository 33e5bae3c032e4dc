// What no copy may do: be complete, without a doubt, and wrong.
//
// NTFS has no checksums. Some flipped bits make another volume that is just as sound: another size, another
// cluster of a file. What the strict reader gives then must be what the volume says, which a second reader
// that compares nothing says too, and these bits are named here, field by field.
#include "exact/exact_volume.h"
#include "exact/path_walk.h"
#include "exact/stream.h"
#include "exact/volume_path.h"
#include "support/odd_volume.h"
#include "support/opened_exact_volume.h"
#include "support/plain_reader.h"

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

#if !defined(NDEBUG) || defined(__SANITIZE_ADDRESS__)
constexpr bool slow_build = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool slow_build = true;
#else
constexpr bool slow_build = false;
#endif
#else
constexpr bool slow_build = false;
#endif

// Of the bits of the volume that a copy reads, each is flipped, except for those in bytes that nothing uses
// and in letters of $UpCase that no name has; of those, and of what no copy reads, one in so many. A slow
// build takes one in so many of all. The numbers are primes, so that each bit of a byte and each place of a
// field comes up.
constexpr std::size_t stride_of_slow_build = 31;
constexpr std::size_t stride_of_free_room = 13;
constexpr std::size_t stride_of_unread = 499;
constexpr std::size_t stride_of_letters = 997;

// Bytes in memory, which notes those that are asked for.
class noting_source final : public byte_source {
  public:
    explicit noting_source(const bytes& content) : m_content(content), m_asked(content.size()) {}

    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override {
        if (offset >= m_content.size()) {
            return {0, 0};
        }
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(m_content.size() - offset, buffer.size()));
        const auto begin = static_cast<std::ptrdiff_t>(offset);
        std::copy_n(m_content.begin() + begin, size, buffer.begin());
        if (m_noting) {
            std::fill_n(m_asked.begin() + begin, size, true);
        }
        return {size, 0};
    }
    [[nodiscard]] std::uint64_t size() const override { return m_content.size(); }
    [[nodiscard]] std::uint64_t content_size() const override { return m_content.size(); }
    [[nodiscard]] std::uint32_t sector_size() const override { return 512; }

    [[nodiscard]] bytes& content() { return m_content; }
    // Which bytes were asked for since the last call. From the first call on they are noted.
    [[nodiscard]] std::vector<bool> take_asked() {
        m_noting = true;
        return std::exchange(m_asked, std::vector<bool>(m_content.size()));
    }
    void stop_noting() { m_noting = false; }

  private:
    bytes m_content;
    std::vector<bool> m_asked;
    bool m_noting = false;
};

// A volume on which copies are made one after the other, as one run does.
class strict_reader {
  public:
    explicit strict_reader(byte_source& source)
        : m_volume(exact::exact_volume::open(source, "odd", 0, source.size(), m_told)) {}

    // The bytes of a copy that is complete and not in doubt; nothing for any other outcome.
    [[nodiscard]] std::optional<bytes> complete_copy(const odd_stream& wanted) {
        if (!m_volume) {
            return std::nullopt;
        }
        exact::notices told;
        const auto file = find(wanted, told);
        if (!file) {
            return std::nullopt;
        }
        auto stream = exact::stream::open(**m_volume, *file, attr_data, wanted.stream, told);
        if (!stream) {
            return std::nullopt;
        }
        collecting_sink sink;
        const auto delivered = stream->deliver(sink, {}, told);
        return delivered && !told.in_doubt() && !m_told.in_doubt() ? std::optional(sink.content())
                                                                   : std::nullopt;
    }

  private:
    [[nodiscard]] exact::result<exact::attribute_set> find(const odd_stream& wanted, exact::notices& told) {
        const exact::mft& table = (*m_volume)->table();
        if (wanted.path.empty()) {
            return table.read_asked(wanted.entry, std::nullopt, told).and_then([&](exact::record base) {
                return exact::attribute_set::of(table, std::move(base), told);
            });
        }
        const auto names = exact::parse_volume_path(wanted.path)->names;
        return exact::walk_path(**m_volume, names, {}, told).map([](exact::walked_path walked) {
            return std::move(walked.file);
        });
    }

    exact::notices m_told;
    exact::result<std::unique_ptr<exact::exact_volume>> m_volume;
};

// The same stream by the reader that compares nothing; nothing where the volume has none.
std::optional<bytes> plain_copy(const bytes& image, const odd_stream& wanted) {
    try {
        const plain_reader reader(image);
        const bool is_link = wanted.through != 0 && reader.has_attribute(wanted.through, 0xC0);
        return reader.stream(wanted.through == 0 || is_link ? wanted.entry : wanted.through, wanted.stream);
    } catch (const std::out_of_range&) {
        return std::nullopt;
    }
}

// What the bytes of a sound volume are, in words: "$DATA of 28: size". Bytes of files that are not their
// description are "content".
class volume_fields {
  public:
    explicit volume_fields(const odd_volume& made)
        : m_image(made.image), m_reader(made.image), m_names(made.image.size(), "unused") {
        name(0, 512, "boot sector");
        name(made.backup_boot, 512, "backup of the boot sector");
        for (std::uint64_t entry = 0; entry < m_reader.entries(); ++entry) {
            if (!is_record(made.image, entry)) {
                continue;
            }
            for (const bytes& each : m_reader.attributes(entry)) {
                name_clusters(entry, each);
            }
        }
        // The mirror is the content of a file too, and $MFT that of its own.
        name(made.mirror, 4096, "mirror");
        for (std::uint64_t entry = 0; entry < m_reader.entries(); ++entry) {
            if (is_record(made.image, entry)) {
                name_record(entry);
            }
        }
    }
    [[nodiscard]] const std::string& at(std::size_t offset) const { return m_names[offset]; }

  private:
    static constexpr std::size_t record_size = 1024;

    // Where a byte of $MFT is stored.
    static std::size_t place_of(std::uint64_t entry, std::size_t offset) {
        const std::size_t byte = static_cast<std::size_t>(entry) * record_size + offset;
        const std::size_t vcn = byte / 512;
        const std::size_t lcn = vcn < 61 ? 40 + vcn : vcn < 64 ? 110 + (vcn - 61) : 116 + (vcn - 64);
        return lcn * 512 + byte % 512;
    }
    static bool is_record(const bytes& image, std::uint64_t entry) {
        return image[place_of(entry, 0)] == 'F';
    }

    void name(std::size_t begin, std::size_t size, const std::string& what) {
        std::fill_n(m_names.begin() + static_cast<std::ptrdiff_t>(begin), size, what);
    }
    void name_clusters(std::uint64_t entry, const bytes& each) {
        for (const plain_reader::extent& part : plain_reader::extents(each)) {
            if (part.lcn) {
                name(*part.lcn * 512, part.clusters * 512, clusters_of(entry, each));
            }
            if (part.lcn && is_compressed(each)) {
                name_unit(*part.lcn * 512, part.clusters);
            }
            if (part.lcn && type_of(each) == "$INDEX_ALLOCATION") {
                name_free_room_of_blocks(*part.lcn * 512, part.clusters * 512);
            }
        }
    }
    static bool is_compressed(const bytes& each) {
        return byte_view(each).u32_or_zero(0) == 0x80 && (byte_view(each).u16_or_zero(12) & 1) != 0;
    }
    // The stored clusters of a unit of eight: its bytes as they are, or chunks.
    void name_unit(std::size_t begin, std::size_t clusters) {
        if (clusters < 8) {
            name(begin, 2, "chunk header");
            name(begin + 2, clusters * 512 - 2, "chunks");
        }
    }
    void name_free_room_of_blocks(std::size_t begin, std::size_t size) {
        for (std::size_t block = begin; block < begin + size; block += 4096) {
            const std::size_t used = 24 + byte_view(m_image).u32_or_zero(block + 28);
            name(block + used, 4096 - used, "free room");
        }
    }
    static std::string clusters_of(std::uint64_t entry, const bytes& each) {
        const byte_view view(each);
        const std::map<std::uint64_t, std::string> system = {
            {2, "$LogFile"}, {6, "$Bitmap"}, {10, "$UpCase"}};
        if (view.u32_or_zero(0) != 0x80) {
            return type_of(each);
        }
        if (const auto known = system.find(entry); known != system.end()) {
            return known->second;
        }
        return "content";
    }

    void name_record(std::uint64_t entry) {
        std::size_t at = m_reader.header_size(entry);
        name_part(entry, 0, at, "record header");
        for (const bytes& each : m_reader.attributes(entry)) {
            const std::string owner = entry == 0 || entry == 15 ? "$MFT's " : "";
            for (std::size_t i = 0; i < each.size(); ++i) {
                name_part(entry, at + i, 1, owner + type_of(each) + " " + field_of(each, i));
            }
            at += each.size();
        }
        // After the mark at the end of the attributes.
        name_part(entry, at, 8, "end of attributes");
        name_part(entry, at + 8, record_size - at - 8, "free room");
    }
    void name_part(std::uint64_t entry, std::size_t offset, std::size_t size, const std::string& what) {
        for (std::size_t i = offset; i < offset + size; ++i) {
            m_names[place_of(entry, i)] = what;
        }
    }
    static std::string type_of(const bytes& each) {
        switch (byte_view(each).u32_or_zero(0)) {
            case 0x20:
                return "$ATTRIBUTE_LIST";
            case 0x30:
                return "$FILE_NAME";
            case 0x80:
                return "$DATA";
            case 0x90:
                return "$INDEX_ROOT";
            case 0xA0:
                return "$INDEX_ALLOCATION";
            case 0xB0:
                return "$BITMAP";
            case 0xC0:
                return "$REPARSE_POINT";
            default:
                return "other attribute";
        }
    }
    static std::string field_of(const bytes& each, std::size_t offset) {
        const byte_view view(each);
        const bool resident = each[8] == 0;
        struct field {
            std::size_t end;
            const char* name;
        };
        static constexpr field common[] = {{4, "type"},        {8, "length"}, {9, "form"},
                                           {12, "name place"}, {14, "flags"}, {16, "id"}};
        static constexpr field of_value[] = {{20, "value length"}, {22, "value offset"}, {24, "indexed"}};
        static constexpr field of_runs[] = {{32, "VCNs"}, {34, "offset of pairs"},
                                            {40, "unit"}, {48, "allocated"},
                                            {56, "size"}, {64, "valid length"}};
        const auto find = [&](auto& fields) -> const char* {
            for (const field& one : fields) {
                if (offset < one.end) {
                    return one.name;
                }
            }
            return nullptr;
        };
        if (const char* found = find(common)) {
            return found;
        }
        if (const char* found = resident ? find(of_value) : find(of_runs)) {
            return found;
        }
        if (offset >= (resident ? view.u16_or_zero(20) : view.u16_or_zero(32))) {
            return resident ? "value" : "pairs";
        }
        return "name";
    }

    const bytes& m_image;
    plain_reader m_reader;
    std::vector<std::string> m_names;
};

// Flips the bits of a volume one by one.
class bit_flips {
  public:
    explicit bit_flips(const odd_volume& made)
        : m_made(made), m_source(made.image), m_fields(made), m_streams_of(made.image.size()) {
        // A copy depends on the bytes that are read for it and on nothing else.
        static_cast<void>(m_source.take_asked());
        for (std::size_t i = 0; i < made.streams.size(); ++i) {
            if (strict_reader(m_source).complete_copy(made.streams[i]) != made.streams[i].content) {
                throw std::runtime_error("entry " + std::to_string(made.streams[i].entry) +
                                         " of the sound volume is not copied");
            }
            const std::vector<bool> asked = m_source.take_asked();
            for (std::size_t offset = 0; offset < asked.size(); ++offset) {
                if (asked[offset]) {
                    m_streams_of[offset].push_back(i);
                }
            }
        }
        m_source.stop_noting();
    }

    // Fields of which a single flipped bit makes a copy complete and different. Every such copy must be what
    // the plain reader gives.
    [[nodiscard]] std::set<std::string> find_silent() {
        std::vector<std::size_t> all(m_made.streams.size());
        std::iota(all.begin(), all.end(), std::size_t{0});
        for (std::size_t offset = 0; offset < m_made.image.size(); ++offset) {
            if (m_fields.at(offset) == "content" || m_fields.at(offset) == "unused") {
                continue;
            }
            const std::size_t stride = stride_of(offset);
            for (std::size_t bit = 0; bit < 8; ++bit) {
                if ((8 * offset + bit) % stride == 0) {
                    try_bit(offset, bit, m_streams_of[offset].empty() ? all : m_streams_of[offset]);
                }
            }
        }
        return std::move(m_silent);
    }
    [[nodiscard]] std::size_t flipped() const { return m_flipped; }

  private:
    [[nodiscard]] std::size_t stride_of(std::size_t offset) const {
        const std::size_t of_build = slow_build ? stride_of_slow_build : 1;
        const std::string& field = m_fields.at(offset);
        if (m_streams_of[offset].empty()) {
            return stride_of_unread * of_build;
        }
        if (field == "free room" && !is_sector_end(offset)) {
            return stride_of_free_room * of_build;
        }
        return field == "$UpCase" && !is_used_letter(offset) ? stride_of_letters * of_build : of_build;
    }
    // Where the update sequence number is.
    [[nodiscard]] static bool is_sector_end(std::size_t offset) { return offset % 512 >= 510; }
    // Names on the volume have ASCII letters only.
    [[nodiscard]] bool is_used_letter(std::size_t offset) const {
        return m_fields.at(offset - 256) != "$UpCase";
    }

    void try_bit(std::size_t offset, std::size_t bit, const std::vector<std::size_t>& streams) {
        std::uint8_t& flipped = m_source.content()[offset];
        flipped ^= static_cast<std::uint8_t>(1u << bit);
        strict_reader reader(m_source);
        for (const std::size_t i : streams) {
            const odd_stream& wanted = m_made.streams[i];
            const std::optional<bytes> copied = reader.complete_copy(wanted);
            if (copied && *copied != wanted.content) {
                m_silent.insert(m_fields.at(offset));
                EXPECT_EQ(copied, plain_copy(m_source.content(), wanted))
                    << m_fields.at(offset) << ", byte " << offset << ", bit " << bit << ", stream " << i;
            }
        }
        flipped ^= static_cast<std::uint8_t>(1u << bit);
        ++m_flipped;
    }

    const odd_volume& m_made;
    noting_source m_source;
    volume_fields m_fields;
    std::vector<std::vector<std::size_t>> m_streams_of;  // those that ask for a byte
    std::set<std::string> m_silent;
    std::size_t m_flipped = 0;
};

}  // namespace

TEST(damage, of_one_bit_of_metadata_is_silent_only_where_the_volume_says_something_else) {
    const odd_volume made = make_odd_volume();
    bit_flips flips(made);
    const std::set<std::string> silent = flips.find_silent();
    // Nothing in the volume contradicts these: how long a stream is, where it lies and how it is stored is
    // said once. A record that moved because $MFT did is known by its own number, with a warning.
    const std::set<std::string> said_once = {
        "$DATA size",  // and the copy of it in $FILE_NAME is an old one as often as not
        "$DATA valid length",
        "$DATA pairs",  // another cluster that is in use
        "$DATA flags",  // the chunks of a compressed stream as its bytes
        "$DATA value",
        "$DATA value length",
        "$DATA value offset",
        "$MFT's $DATA pairs",
        "chunks",  // an item of a chunk that decodes
    };
    for (const std::string& field : silent) {
        EXPECT_EQ(said_once.count(field), 1u) << field;
    }
    // So many that none of the loops above can have been empty.
    EXPECT_GT(flips.flipped(), slow_build ? 3000u : 100000u);
    if (!slow_build) {
        EXPECT_EQ(silent, said_once);
    }
}

TEST(damage, of_an_image_cut_at_any_sector_is_never_silent) {
    const odd_volume made = make_odd_volume();
    for (std::size_t size = 0; size < made.image.size(); size += 512) {
        memory_source cut(bytes(made.image.begin(), made.image.begin() + static_cast<std::ptrdiff_t>(size)));
        strict_reader reader(cut);
        for (const odd_stream& each : made.streams) {
            const std::optional<bytes> copied = reader.complete_copy(each);
            ASSERT_TRUE(!copied || *copied == each.content) << size << ' ' << each.entry << each.path;
        }
    }
}

}  // namespace quarry::test
