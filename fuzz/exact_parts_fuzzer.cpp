// The parts of the exact mode that take bytes or text by themselves. The first byte of the input chooses:
// mapping pairs and a compressed unit, both compared with readers that are slow and easy to see through; an
// index node; a reparse point; a path; a command line; a disk with its partition table.
#include "exact/index_node.h"
#include "exact/lznt1_unit.h"
#include "exact/reparse.h"
#include "exact/run_map.h"
#include "exact/volume_path.h"
#include "exact/volume_table.h"
#include "foundation/crc32.h"
#include "frontend/exact/exact_options.h"
#include "fuzz/input_bytes.h"
#include "support/byte_writer.h"
#include "support/expect.h"
#include "support/memory_source.h"
#include "support/plain_reader.h"
#include "support/slow_lznt1.h"
#include "support/system_files.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace quarry::exact;
using quarry::byte_view;
using quarry::fuzz::input_bytes;
using quarry::fuzz::lone_bytes;
using quarry::test::expect;

constexpr std::uint64_t volume_clusters = 100000;

void add_runs(input_bytes& input) {
    const std::uint64_t last_vcn = input.u32();
    const quarry::test::bytes pairs = input.rest().to_vector();
    const quarry::test::bytes attribute = quarry::test::byte_writer(64)
                                              .u32(0, 0x80)
                                              .u32(4, 64 + pairs.size())
                                              .u8(8, 1)
                                              .u64(24, last_vcn)
                                              .u16(32, 64)
                                              .raw(64, pairs)
                                              .take();
    const lone_bytes alone{byte_view(attribute)};
    run_map map(volume_clusters, 4096);
    if (!map.add(quarry::attribute(alone.view()), "record 40", 0)) {
        return;
    }
    std::uint64_t vcn = 0;
    for (const run& each : map.runs()) {
        expect(each.vcn == vcn && each.length > 0);
        expect(each.is_hole() || (each.lcn < volume_clusters && each.length <= volume_clusters - each.lcn));
        expect(map.find(vcn) == &each);
        vcn = each.end_vcn();
    }
    expect(map.end_vcn() == vcn && map.find(vcn) == nullptr);
    auto slow = quarry::test::plain_reader::extents(attribute);
    std::erase_if(slow, [](const auto& each) { return each.clusters == 0; });
    expect(slow.size() == map.runs().size());
    for (std::size_t i = 0; i < slow.size(); ++i) {
        expect(slow[i].clusters == map.runs()[i].length &&
               slow[i].lcn.value_or(run::no_lcn) == map.runs()[i].lcn);
    }
}

void decode_unit(input_bytes& input) {
    const std::size_t wanted = 1 + input.u16();
    const quarry::test::bytes stored = input.rest().to_vector();
    std::vector<std::uint8_t> plain(wanted);
    const lone_bytes alone{byte_view(stored)};
    const auto decoded = decode_lznt1_unit(alone.view(), plain, "record 40", 0);
    const auto slow = quarry::test::slow_strict_unit(stored, wanted);
    expect(decoded.has_value() == slow.has_value());
    expect(!slow || plain == *slow);
}

void read_node(input_bytes& input) {
    static const upcase letters = upcase::parse(byte_view(quarry::test::upper_case_table())).value();
    const bool fills_block = input.u8() % 2 == 1;
    const lone_bytes alone{input.rest()};
    const auto node =
        read_index_node(alone.view(), 0, fills_block, letters, {"index root of record 5", {{0, 0}}});
    for (std::size_t i = 0; node && i < node->entries.size(); ++i) {
        expect(node->entries[i].key.has_value() == (i + 1 < node->entries.size()));
    }
}

void read_link(input_bytes& input) {
    const lone_bytes alone{input.rest()};
    const auto point = read_reparse_point(alone.view(), "record 40");
    if (point && point->is_link()) {
        const auto target = read_link_target(*point, "path \"/link\"");
        for (std::size_t i = 0; target && i < target->names.size(); ++i) {
            expect(!target->names[i].empty());
        }
    }
}

void read_path(input_bytes& input) {
    const std::string text = input.text(4096);
    const auto path = parse_volume_path(text);
    if (!path) {
        return;
    }
    // What is shown can be given back.
    const auto again = parse_volume_path(shown_path(*path));
    expect(again && again->names == path->names && again->stream == path->stream);
}

void read_options(input_bytes& input) {
    std::vector<std::string> words{"quarry", "-exact"};
    std::string word;
    while (!input.empty()) {
        const char next = static_cast<char>(input.u8());
        if (next == '\0' || next == '\n') {
            words.push_back(std::move(word));
            word.clear();
        } else {
            word.push_back(next);
        }
    }
    words.push_back(std::move(word));
    const auto options = parse_exact_options(words);
    const bool has_task = options && (options->help || options->volumes || options->verify_source ||
                                      options->listing || options->pipe || options->object);
    expect(options ? has_task : !options.error().text.empty());
}

// Makes the checksums of a GPT in sector 1 right, so that what is after them is reached.
void mend_checksums(quarry::test::bytes& disk, std::size_t sector_size) {
    constexpr std::size_t header_size = 92;
    const byte_view header = byte_view(disk).clipped(sector_size, header_size);
    if (header.size() < header_size || !header.text_at(0, "EFI PART")) {
        return;
    }
    const std::uint64_t entries = header.u64_or_zero(72);
    const std::uint64_t entries_size = std::uint64_t{header.u32_or_zero(80)} * header.u32_or_zero(84);
    if (entries > disk.size() / sector_size || entries_size > disk.size() - entries * sector_size) {
        return;
    }
    quarry::test::byte_writer out(disk);
    out.u32(sector_size + 88,
            quarry::crc32(byte_view(disk).clipped(entries * sector_size, entries_size).span()));
    out.u32(sector_size + 12, header_size).u32(sector_size + 16, 0);
    out.u32(sector_size + 16,
            quarry::crc32(byte_view(out.content()).clipped(sector_size, header_size).span()));
    disk = out.take();
}

void read_table(input_bytes& input) {
    const std::uint8_t choices = input.u8();
    const std::uint32_t sector_size = 512u << (choices >> 1) % 4;
    const bool size_is_told = choices % 2 == 1;
    quarry::test::bytes disk = input.rest().to_vector();
    mend_checksums(disk, sector_size);
    quarry::test::memory_source held(std::move(disk));
    const exact_source source(held, "disk");
    notices told;
    const auto table =
        volume_table::read(source, size_is_told ? std::optional(sector_size) : std::nullopt, told);
    if (!table) {
        expect(!table.error().text().empty());
        return;
    }
    std::uint64_t last_offset = 0;
    std::uint64_t ntfs_volumes = 0;
    for (const listed_volume& each : table->volumes()) {
        expect(each.place.offset >= last_offset);
        last_offset = each.place.offset;
        expect(each.number.has_value() == (each.kind == volume_kind::ntfs));
        expect(!each.number || *each.number == ++ntfs_volumes);
    }
    expect(table->choose(std::nullopt).has_value() == (ntfs_volumes == 1));
    expect(!table->choose(ntfs_volumes + 1) && !table->choose(0));
    expect(ntfs_volumes == 0 || table->choose(ntfs_volumes).has_value());
    static_cast<void>(table->listing());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input_bytes input(data, size);
    switch (input.u8() % 7) {
        case 0:
            add_runs(input);
            break;
        case 1:
            decode_unit(input);
            break;
        case 2:
            read_node(input);
            break;
        case 3:
            read_link(input);
            break;
        case 4:
            read_path(input);
            break;
        case 5:
            read_options(input);
            break;
        default:
            read_table(input);
            break;
    }
    return 0;
}
