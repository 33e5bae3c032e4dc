// Any bytes as a file record, without a volume around it: the sector ends, the walks over attributes, the
// sorting of attributes, the items made of them, and their report.
//
// The first byte of the input chooses the size of a sector, the rest is the record.
#include "fuzz/input_bytes.h"
#include "namespace/reparse_link.h"
#include "report/attribute_report.h"
#include "support/expect.h"
#include "support/limited_sink.h"
#include "volume/attribute.h"
#include "volume/entry_flattening.h"
#include "volume/entry_record.h"
#include "volume/file_record.h"
#include "volume/ntfs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using quarry::fuzz::lone_bytes;
using quarry::test::expect;

// The text of a report grows with the values that it shows: a byte of a descriptor gives at most so many.
constexpr std::size_t text_per_byte = 64;
constexpr std::size_t text_per_item = 8192;

// Restores the fixups. Only the sector ends change, by the words of the array.
void restore(std::span<std::uint8_t> record, std::uint32_t sector_size) {
    const std::vector<std::uint8_t> before(record.begin(), record.end());
    quarry::record_kind kind = quarry::record_kind::unknown;
    const bool restored = quarry::apply_fixups_checked(kind, record, sector_size);
    expect(!restored || kind != quarry::record_kind::unknown);
    for (std::size_t i = 0; i < record.size(); ++i) {
        const bool is_sector_end = i % sector_size >= sector_size - 2;
        expect(record[i] == before[i] || (restored && is_sector_end));
    }
}

void search(quarry::byte_view record) {
    for (std::uint32_t type = 0x10; type <= 0x110; type += 0x10) {
        quarry::attribute at;
        if (quarry::first_attribute_of_type(record, type, at, 1024)) {
            expect(at.type() == type && record.size() >= at.bytes().size());
            quarry::attribute named = at;
            static const std::vector<std::uint8_t> name = {'$', 0, 'I', 0, '3', 0, '0', 0};
            expect(!quarry::find_attribute_by_name(named, type, name, 1024) || named.type() == type);
            quarry::list_entry entry{at.value()};
            auto left = static_cast<std::int64_t>(at.value().size());
            if (quarry::find_list_entry_by_name(entry, left, 0x80, {})) {
                expect(left > 0 && entry.type() == 0x80);
            }
        }
    }
    std::wstring target;
    expect(quarry::link_target(target, record, 1024) || target.empty());
}

void sort_attributes(quarry::entry_record& sorted, quarry::byte_view record, std::uint64_t entry) {
    quarry::attribute at = quarry::first_attribute(record);
    bool is_list = false;
    // Ends with the record: each turn moves on by an attribute's length.
    while (at.type() != quarry::attr_end_marker && quarry::categorize_attribute(sorted, entry, at, is_list)) {
        at = at.next();
    }
}

void report(const quarry::attr_item_list& items) {
    for (const quarry::attr_item& item : items) {
        const std::size_t room = text_per_item + text_per_byte * (item.value.size() + item.name.size() +
                                                                  item.text.size() + 4 * item.runs.size());
        quarry::test::limited_sink out(room);
        quarry::write_item(out, item);
        expect(out.good());
    }
}

void flatten(quarry::byte_view record) {
    constexpr std::uint32_t record_size = 1024;
    quarry::entry_record sorted;
    sorted.entry = 30;
    sorted.record = record.to_vector();
    std::copy_n(record.clipped(0, 42).data(), record.clipped(0, 42).size(), sorted.header.begin());
    sort_attributes(sorted, record, sorted.entry);
    const std::size_t kept = sorted.std_infos.size() + sorted.file_names.size() + sorted.attributes.size();
    const quarry::attr_item_list items = quarry::flatten_entry(sorted, record_size);
    expect(items.size() == 1 + kept && items.front().type == quarry::attr_file_record);
    for (const quarry::attr_item& item : items) {
        expect(item.value.size() < record_size);
    }
    report(items);
}

// The summary that a volume keeps of its own system files; without a volume no list can be followed.
void summarize(quarry::byte_view record) {
    quarry::CNtfs no_volume;
    quarry::INODE_STATS stats;
    no_volume.parse_record(record, stats, 0, false);
    expect(stats.vcn_index.size() <= stats.data_runs.size());
    expect(stats.index_names.size() == stats.index_runs.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quarry::fuzz::input_bytes input(data, size);
    const std::uint32_t sector_size = 256u << (input.u8() % 5);
    lone_bytes record(input.rest());
    restore(record.span(), sector_size);
    search(record.view());
    flatten(record.view());
    summarize(record.view());
    return 0;
}
