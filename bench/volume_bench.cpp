// What it costs to read a volume's structures: records, whole entries, directories, paths, reports.
// The volume has one directory of 100,000 files in index blocks and lies on a memory file system if /tmp
// does.
#include "foundation/status_log.h"
#include "namespace/directory_index.h"
#include "namespace/path_resolution.h"
#include "report/attribute_report.h"
#include "support/opened_volume.h"
#include "volume/mft_entries.h"

#include <sstream>

#include <benchmark/benchmark.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t files = 100'000;

struct sample {
    sample() : builder({.mft_entries = files + 64}), directory(builder.add_directory("many").entry()) {
        builder.file(directory).index_in_blocks();
        for (std::uint64_t i = 0; i < files; ++i) {
            last =
                builder.add_file("file " + std::to_string(i) + ".txt", directory).data("a few bytes").entry();
        }
        opened = std::make_unique<opened_volume>(builder);
    }
    volume_builder builder;
    std::uint64_t directory;
    std::uint64_t last = 0;
    std::unique_ptr<opened_volume> opened;
};

sample& volume() {
    static sample only;
    return only;
}

void record_read(benchmark::State& state) {
    CNtfs& ntfs = volume().opened->ntfs();
    std::vector<std::uint8_t> record;
    std::uint64_t entry = first_user_entry;
    for (auto _ : state) {
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        if (!ntfs.read_record(entry, record, position, length)) {
            state.SkipWithError("a record is not read");
            return;
        }
        entry = entry == volume().last ? first_user_entry : entry + 1;
    }
    state.SetItemsProcessed(state.iterations());
}

void entry_categorised(benchmark::State& state) {
    CNtfs& ntfs = volume().opened->ntfs();
    attr_item_list items;
    std::uint64_t entry = first_user_entry;
    for (auto _ : state) {
        if (!categorize_entry(ntfs, entry, items, no_log())) {
            state.SkipWithError("an entry is not read");
            return;
        }
        entry = entry == volume().last ? first_user_entry : entry + 1;
    }
    state.SetItemsProcessed(state.iterations());
}

void index_walk(benchmark::State& state) {
    CNtfs& ntfs = volume().opened->ntfs();
    for (auto _ : state) {
        _inode_collection children;
        if (!get_directory_children(ntfs, volume().directory, children, false) || children.size() != files) {
            state.SkipWithError("a child is missing");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(files));
}

void look_up(benchmark::State& state, bool first) {
    CNtfs& ntfs = volume().opened->ntfs();
    for (auto _ : state) {
        if (first) {
            ntfs.m_path_cache.clear();
        }
        std::uint64_t entry = 0;
        std::uint64_t parent = 0;
        std::wstring canonical;
        std::wstring path = L"\\many\\file 99999.txt";
        if (!resolve_path(entry, parent, canonical, &ntfs, path, true, no_log()) || entry != volume().last) {
            state.SkipWithError("the path is not found");
            return;
        }
    }
}
void first_lookup(benchmark::State& state) {
    look_up(state, true);
}
void later_lookup(benchmark::State& state) {
    look_up(state, false);
}

void report(benchmark::State& state) {
    CNtfs& ntfs = volume().opened->ntfs();
    attr_item_list items;
    if (!categorize_entry(ntfs, volume().last, items, no_log())) {
        state.SkipWithError("the entry is not read");
        return;
    }
    std::size_t size = 0;
    for (auto _ : state) {
        std::ostringstream text;
        write_attribute_report(text, ntfs, volume().last, L"/many/file 99999.txt", items);
        size = text.str().size();
    }
    if (size == 0) {
        state.SkipWithError("the report is empty");
    }
}

BENCHMARK(record_read);
BENCHMARK(entry_categorised);
BENCHMARK(index_walk)->Unit(benchmark::kMillisecond);
BENCHMARK(first_lookup)->Unit(benchmark::kMillisecond);
BENCHMARK(later_lookup)->Unit(benchmark::kMicrosecond);
BENCHMARK(report)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quarry::test
