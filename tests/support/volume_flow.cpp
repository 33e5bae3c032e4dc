#include "support/volume_flow.h"

#include "namespace/directory_index.h"
#include "namespace/entry_paths.h"
#include "namespace/path_resolution.h"
#include "report/attribute_report.h"
#include "support/expect.h"
#include "support/limited_sink.h"
#include "support/slow_stream.h"
#include "volume/attribute.h"
#include "volume/mft_entries.h"
#include "volume/stream_pump.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using quarry::test::expect;
using quarry::test::limited_sink;

// Entries that are looked at, whatever number the volume claims.
constexpr std::uint64_t most_entries = 96;
// Bytes of one stream that are copied, and bytes of one report that are written.
constexpr std::size_t most_bytes = 32 * 1024;
// A stream up to this length is read the plain way too.
constexpr std::uint64_t most_plain_bytes = 16 * 1024;

void resolve(quarry::CNtfs& ntfs, std::wstring path) {
    std::uint64_t entry = 0;
    std::uint64_t parent = 0;
    std::wstring canonical;
    if (quarry::resolve_path(entry, parent, canonical, &ntfs, path, true, quarry::no_log())) {
        expect(!path.empty());
    }
}

void resolve_paths(quarry::CNtfs& ntfs) {
    for (const wchar_t* path :
         {L"/", L"/Folder/stored.bin", L"\\small.txt:named", L"many\\file 7 of forty.txt",
          L"/junction/stored.bin", L"/loop/loop/x", L"c:\\link", L"/$MFT", L"/missing/name"}) {
        resolve(ntfs, path);
    }
}

// The most bytes that a copy may have: the size that the log announces, and with the slack what is allocated
// or, if the attribute claims less than its own size, all of its clusters.
std::uint64_t most_bytes_of_copy(const quarry::attr_item& item, const quarry::pump_rules& rules,
                                 std::uint64_t cluster_size) {
    if (!item.non_resident) {
        return item.value_size;
    }
    const std::uint64_t announced = rules.raw ? item.allocated : std::max(item.real, item.initialized);
    if (!rules.include_slack || item.allocated == announced) {
        return announced;
    }
    return item.allocated > announced
               ? item.allocated
               : std::max(announced, quarry::run_bytes(item.runs, cluster_size, false));
}

// Copies a stream, and compares what came with the plain reader where that is quick.
void copy(quarry::CNtfs& ntfs, const quarry::attr_item& original, const quarry::pump_rules& rules) {
    quarry::attr_item item = original;
    limited_sink sink(most_bytes);
    quarry::pump_context context{quarry::no_log()};
    std::string digest_text;
    const bool ok = quarry::pump_stream(&ntfs, item, sink, rules, digest_text, context);
    expect(ok || sink.taken().empty() || !sink.good());
    const auto cluster = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    expect(sink.taken().size() <= most_bytes_of_copy(original, rules, cluster));
    const std::uint64_t stored = quarry::run_bytes(original.runs, cluster, false);
    if (!original.non_resident || stored > most_plain_bytes || original.allocated > most_plain_bytes) {
        return;
    }
    const bool compressed = original.flags == quarry::attr_flag_compressed && original.unit != 0 &&
                            !rules.raw && original.compressed != 0;
    const quarry::test::slow_copy plain =
        compressed
            ? quarry::test::slow_pump_compressed(ntfs, original)
            : quarry::test::slow_pump(ntfs, original, rules.raw, rules.skip_sparse, rules.include_slack);
    expect(plain.ok == ok);
    expect(plain.out == sink.taken());
}

void copy_streams(quarry::CNtfs& ntfs, const quarry::attr_item_list& items) {
    for (const quarry::attr_item& item : items) {
        if (item.type == quarry::attr_file_record || item.type == quarry::attr_standard_information ||
            item.type == quarry::attr_file_name) {
            continue;
        }
        copy(ntfs, item, {.raw = true});
        copy(ntfs, item, {});
        if (item.non_resident && item.id % 2 == 0) {
            copy(ntfs, item, {.skip_sparse = true, .include_slack = true, .want_md5 = true});
        }
    }
}

void list_directory(quarry::CNtfs& ntfs, std::uint64_t entry) {
    quarry::_inode_collection children;
    const bool listed = quarry::get_directory_children(ntfs, entry, children, false);
    quarry::_inode_collection with_slack;
    expect(quarry::get_directory_children(ntfs, entry, with_slack, true) == listed);
    // What follows the end of a node is added to what precedes it.
    expect(std::includes(with_slack.begin(), with_slack.end(), children.begin(), children.end()));
}

void find_paths(quarry::CNtfs& ntfs, std::uint64_t entry) {
    std::vector<std::string> narrow;
    std::vector<std::wstring> wide;
    if (entry % 4 != 0) {
        expect(quarry::narrow_paths_of_entry(ntfs, entry, "leaf", narrow) == !narrow.empty());
    } else if (quarry::paths_of_entry(ntfs, entry, {}, wide) && !wide.empty()) {
        resolve(ntfs, wide.front());
    }
}

void look_at_entry(quarry::CNtfs& ntfs, std::uint64_t entry) {
    quarry::attr_item_list items;
    if (quarry::categorize_entry(ntfs, entry, items, quarry::no_log())) {
        limited_sink report(most_bytes);
        quarry::write_attribute_report(report, ntfs, entry, L"/path", items);
        copy_streams(ntfs, items);
    }
    list_directory(ntfs, entry);
    find_paths(ntfs, entry);
}

}  // namespace

namespace quarry::test {

void look_at_volume(CNtfs& ntfs) {
    expect(ntfs.is_valid());
    resolve_paths(ntfs);
    const std::uint64_t entries = std::min(ntfs.get_num_entries(), most_entries);
    for (std::uint64_t entry = 0; entry < entries; ++entry) {
        look_at_entry(ntfs, entry);
    }
}

}  // namespace quarry::test
