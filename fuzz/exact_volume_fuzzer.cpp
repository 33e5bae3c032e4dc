// Any bytes as a source with holes (see sparse_input.h), read by the exact mode: its partition table, the
// volume at its start, every stream of the first entries, names looked up through the indexes, compared with
// a walk over all of their keys, and listings of the whole tree and of the deleted files.
#include "disk/file_source.h"
#include "exact/exact_volume.h"
#include "exact/index_lookup.h"
#include "exact/listing.h"
#include "exact/path_walk.h"
#include "exact/stream.h"
#include "exact/volume_path.h"
#include "exact/volume_table.h"
#include "fuzz/sparse_input.h"
#include "support/expect.h"
#include "support/memory_peak/memory_limit.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace quarry::exact;
using quarry::byte_view;
using quarry::test::expect;

constexpr std::uint64_t most_entries = 40;
// A stream of more stored bytes is given up: a copy of them all shows no more.
constexpr std::uint64_t most_stored_bytes = std::uint64_t{4} << 20;

// Counts what is delivered.
class counting_sink final : public stream_sink {
  public:
    [[nodiscard]] result<void> data(byte_view block) override {
        expect(!block.empty() && block.size() <= largest_block);
        m_stored += block.size();
        m_bytes += block.size();
        return m_stored <= most_stored_bytes ? result<void>() : fail(failure_code::write, "sink", "is full");
    }
    [[nodiscard]] result<void> zeros(std::uint64_t length) override {
        m_bytes += length;
        return {};
    }
    [[nodiscard]] std::uint64_t bytes() const { return m_bytes; }

  private:
    std::uint64_t m_stored = 0;
    std::uint64_t m_bytes = 0;
};

void copy_stream(exact_volume& volume, const attribute_set& set, std::uint32_t type,
                 std::u16string_view name) {
    notices told;
    auto opened = stream::open(volume, set, type, name, told);
    if (!opened) {
        expect(!opened.error().text().empty());
        return;
    }
    for (const delivery_options options : {delivery_options{}, {.raw = true}, {.zero_unreadable = true}}) {
        counting_sink sink;
        const auto delivered = opened->deliver(sink, options, told);
        // A copy that is called whole has just the bytes that were announced.
        expect(!delivered ||
               (sink.bytes() == opened->delivered_size(options.raw) && delivered->bytes == sink.bytes()));
        expect(!delivered || delivered->unread.empty() || told.in_doubt());
    }
}

// Every key of an index, by a walk that asks each node and no order. False if a node is damaged or there are
// too many.
bool take_all_keys(const directory_index& index, const index_node& node, unsigned depth,
                   std::vector<index_key>& keys, notices& told) {
    constexpr unsigned deepest = 32;
    constexpr std::size_t most_keys = 2000;
    for (const index_node_entry& entry : node.entries) {
        if (entry.child) {
            const auto child = index.block(*entry.child, told);
            if (depth == deepest || !child || !take_all_keys(index, *child, depth + 1, keys, told)) {
                return false;
            }
        }
        if (entry.key) {
            keys.push_back(*entry.key);
        }
        if (keys.size() > most_keys) {
            return false;
        }
    }
    return true;
}

// A name in an index of which all keys are known and rise.
void look_up_beside(const directory_index& index, const std::vector<index_key>& keys,
                    const std::u16string& name) {
    notices told;
    const auto found = look_up(index, name, "/x", told);
    const auto same =
        std::find_if(keys.begin(), keys.end(), [&](const index_key& key) { return key.name == name; });
    if (same != keys.end()) {
        expect(found && found->name == name && found->file == same->file);
        return;
    }
    const bool is_equal_to_one = std::any_of(keys.begin(), keys.end(), [&](const index_key& key) {
        return index.letters().equal(key.name, name);
    });
    expect(!found || (is_equal_to_one && index.letters().equal(found->name, name)));
    expect(is_equal_to_one || (!found && found.error().code == failure_code::name));
}

void look_up_names(exact_volume& volume, const attribute_set& directory) {
    notices told;
    const auto index = directory_index::open(volume, directory, told);
    if (!index) {
        return;
    }
    const auto root = index->root();
    for (std::size_t i = 0; root && i < std::min<std::size_t>(root->entries.size(), 4); ++i) {
        if (const auto& key = root->entries[i].key) {
            const auto found = look_up(*index, key->name, "/x", told);
            // A key that was just read is found, unless the way to it is damaged.
            expect(!found || index->letters().equal(found->name, key->name));
        }
    }
    static_cast<void>(look_up(*index, u"no such name", "/x", told));
    std::vector<index_key> keys;
    if (!root || !take_all_keys(*index, *root, 1, keys, told)) {
        return;
    }
    const auto falls = [&](const index_key& one, const index_key& next) {
        return !std::is_lt(collate(index->letters(), one.name, next.name));
    };
    if (std::adjacent_find(keys.begin(), keys.end(), falls) != keys.end()) {
        return;
    }
    look_up_beside(*index, keys, u"no such name");
    for (std::size_t i = 0; i < keys.size(); i += 1 + keys.size() / 8) {
        look_up_beside(*index, keys, keys[i].name);
        look_up_beside(*index, keys, index->letters().upper(keys[i].name));
        look_up_beside(*index, keys, keys[i].name + u"x");
    }
}

void look_at_entries(exact_volume& volume) {
    const std::uint64_t entries = std::min(volume.table().entries(), most_entries);
    for (std::uint64_t entry = 0; entry < entries; ++entry) {
        notices told;
        auto base = volume.table().read_asked(entry, std::nullopt, told);
        if (!base) {
            continue;
        }
        const auto set = attribute_set::of(volume.table(), std::move(*base), told);
        if (!set) {
            continue;
        }
        for (const std::u16string& name : set->names(quarry::attr_data)) {
            copy_stream(volume, *set, quarry::attr_data, name);
        }
        copy_stream(volume, *set, quarry::attr_index_allocation, u"$I30");
        look_up_names(volume, *set);
    }
    for (const char* path : {"/folder/file00", "/small.txt", "/junction/x", "/link"}) {
        notices told;
        static_cast<void>(walk_path(volume, parse_volume_path(path)->names, {.volume_names = {u"c"}}, told));
    }
}

// A line of a listing is one line of text with five fields, whatever the names are.
void expect_listing_line(std::string_view line) {
    std::vector<std::string_view> fields;
    for (std::size_t at = 0; at <= line.size();) {
        const std::size_t end = std::min(line.find('\t', at), line.size());
        fields.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    expect(fields.size() == 5);
    expect(fields[1].size() == 1 && std::string_view("fdlsFDLS").find(fields[1]) != std::string_view::npos);
    expect(fields[4].starts_with('/'));
    expect(std::none_of(fields[4].begin(), fields[4].end(), [](char letter) {
        return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F;
    }));
}

// The whole tree and the deleted files. Lists of more than so many bytes are given up.
void list_everything(exact_volume& volume) {
    constexpr std::size_t most_bytes = std::size_t{1} << 20;
    std::size_t bytes = 0;
    const listing_outputs outputs{
        [&](std::string_view line) {
            expect_listing_line(line);
            bytes += line.size();
            return bytes <= most_bytes ? result<void>() : fail(failure_code::write, "output", "is full");
        },
        [&](const failure& each) { expect(!each.text().empty()); }};
    for (const bool recurse : {true, false}) {
        notices told;
        auto root = walk_path(volume, {}, {}, told);
        const auto listed =
            root ? list_path(volume, std::move(*root), recurse, outputs, told) : result<void>();
        expect(listed || bytes > most_bytes);
    }
    notices told;
    const auto listed = list_deleted(volume, outputs, told);
    expect(listed || bytes > most_bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::test::memory_file image("volume");
    quarry::fuzz::hold(image, quarry::fuzz::take_sparse({data, size}));
    const quarry::test::memory_limit limit;
    int error = 0;
    const auto source =
        quarry::file_source::open("/proc/self/fd/" + std::to_string(image.descriptor()), error);
    expect(source != nullptr);
    notices told;
    const exact_source bytes(*source, "image");
    if (const auto table = volume_table::read(bytes, std::nullopt, told)) {
        static_cast<void>(table->listing());
        static_cast<void>(table->choose(std::nullopt));
    }
    const auto volume = exact_volume::open(*source, "image", 0, source->size(), told);
    if (volume) {
        look_at_entries(**volume);
        list_everything(**volume);
    }
    return 0;
}
