#include "frontend/extraction.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "frontend/named_by_hash.h"
#include "frontend/output/output_file.h"
#include "frontend/stream_choice.h"
#include "namespace/path_resolution.h"
#include "report/attribute_report.h"
#include "volume/mft_entries.h"
#include "volume/ntfs_open.h"
#include "volume/stream_pump.h"

#include <algorithm>
#include <new>
#include <span>

namespace quarry {

namespace {

// How CNtfs is told what a path is.
constexpr std::uint8_t letter_source = 32;
constexpr std::uint8_t path_source = 33;
constexpr std::uint8_t device_name_source = 35;

// Deliberate: a colon behind any first character makes a letter form of a text of any length. So the path
// "a:b" is opened as the file "a:".
bool begins_as_letter(const std::wstring& path) {
    return path.size() > 1 && path[1] == L':';
}

bool begins_as_device_name(const std::wstring& path) {
    return path.starts_with(L"\\\\");
}

// Without a partition, a source path that carries its own volume names it.
std::uint8_t source_type_of(copy_job& job) {
    if (job.partition.empty() && (begins_as_letter(job.src) || begins_as_device_name(job.src))) {
        job.partition = job.src;
    }
    if (begins_as_letter(job.partition)) {
        return letter_source;
    }
    return begins_as_device_name(job.partition) ? device_name_source : path_source;
}

// No report prints what the descriptors of a volume say, so no copy has them read.
constexpr security_loader no_descriptors = nullptr;

bool open_source(std::unique_ptr<CNtfs>& ntfs, copy_job& job, cmd_params& opts) {
    const auto offset = static_cast<unsigned long long>(job.volume_offset);
    if (!job.vmdk_list.empty()) {
        std::vector<std::string> names;
        std::string text;
        static_cast<void>(narrow_all(names, job.vmdk_list));
        join(text, names, ";", false);
        opts.log("info: pNTFS vm:%s:0x%llx", text.c_str(), offset);
        return open_by_vmdk(job.vmdk_list, static_cast<std::int64_t>(job.volume_offset), ntfs, false,
                            no_descriptors);
    }
    if (!job.image.empty()) {
        opts.log("info: pNTFS img:%s:0x%llx", narrow(job.image).c_str(), offset);
        return open_by_image(job.image, job.volume_offset, ntfs, false, no_descriptors);
    }
    if (job.drive != -1) {
        opts.log("info: pNTFS drv:%d:0x%llx", job.drive, offset);
        return open_by_drive(job.drive, job.volume_offset, ntfs, false, no_descriptors);
    }
    const std::uint8_t type = source_type_of(job);
    opts.log("info: pNTFS part:%s, type:%d", narrow(job.partition).c_str(), type);
    return open_by_partition(job.partition, ntfs, false, type, no_descriptors);
}

bool open_volume(std::unique_ptr<CNtfs>& ntfs, copy_job& job, cmd_params& opts) {
    if (ntfs != nullptr) {
        return true;
    }
    if (!open_source(ntfs, job, opts)) {
        opts.log("err: pNTFS");
        return false;
    }
    return ntfs != nullptr;
}

// Settles the entry number. After a lookup the path is the one that was found.
bool find_entry(CNtfs& ntfs, copy_job& job, cmd_params& opts) {
    if (job.entry != no_entry) {
        opts.log("info: inode %s", narrow(job.src).c_str());
        return true;
    }
    opts.log("info: find inode %s", narrow(job.src).c_str());
    std::uint64_t parent_entry = no_entry;
    std::wstring path = job.src;
    std::wstring found_path;
    if (!resolve_path(job.entry, parent_entry, found_path, &ntfs, path, true, opts) ||
        job.entry == no_entry) {
        opts.log("err: find inode");
        return false;
    }
    job.src = found_path;
    return true;
}

bool list_attributes(attr_item_list& items, CNtfs& ntfs, std::uint64_t entry, cmd_params& opts) {
    std::vector<std::uint8_t> record;
    try {
        record.resize(ntfs.get_mft_record_size());
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::uint64_t position = 0;
    std::uint64_t length = record.size();
    // Into a buffer of the boot sector's record size: an entry of a volume whose record 0 claims larger ones
    // is not read.
    if (!ntfs.read_record(entry, std::span(record), position, length)) {
        opts.log("err: fixup: 0x%llx", static_cast<unsigned long long>(entry));
        return false;
    }
    if (!categorize_entry(ntfs, entry, items, opts)) {
        opts.log("err: categorize: 0x%llx", static_cast<unsigned long long>(entry));
        return false;
    }
    opts.m_file_stats.m_entry = entry;
    opts.m_file_stats.m_valid = true;
    return true;
}

// A report that cannot be opened is no failure; the job goes on as one without a report.
void write_report(copy_job& job, CNtfs& ntfs, const attr_item_list& items, output_guard& guard) {
    if (job.meta.empty() || items.empty()) {
        job.meta.clear();
        return;
    }
    output_file report;
    if (!report.open(guard, job.meta, output_kind::report)) {
        job.meta.clear();
        return;
    }
    write_attribute_report(report, ntfs, job.entry, job.src, items);
}

std::uint64_t first_run_position(const attr_item& item, const CNtfs& ntfs) {
    return item.runs.empty() ? 0 : item.runs.front().lcn * static_cast<std::uint64_t>(ntfs.m_cluster_size);
}

// Notes sizes and places of what was chosen, and answers which item to copy.
std::size_t item_to_copy(copy_job& job, const CNtfs& ntfs, const attr_item_list& items,
                         const stream_choice& choice, bool by_name, cmd_params& opts) {
    const std::size_t chosen = *choice.chosen;
    const attr_item& item = items[chosen];
    opts.m_file_stats.m_size = item.runs.empty() ? item.value_size : item.initialized;
    job.data_position = first_run_position(item, ntfs);
    if (!choice.wof || items[*choice.wof].runs.empty()) {
        return chosen;
    }
    const attr_item& wof = items[*choice.wof];
    job.wof_present = true;
    job.wof_position = first_run_position(wof, ntfs);
    job.wof_size = std::max(wof.initialized, wof.real);
    // Deliberate: a file that the system compressed is copied as it is stored. Its unnamed stream is only a
    // hole; the bytes are in the compressed one and are not unpacked.
    return by_name ? chosen : *choice.wof;
}

bool copy_to_file(const copy_job& job, CNtfs* ntfs, attr_item& item, pump_context& context,
                  output_guard& guard) {
    output_file out;
    if (!out.open(guard, job.dst, output_kind::copy)) {
        return false;
    }
    // Deliberate: what the pump says is the result, also when the file could not take all of the bytes.
    return copy_to_stream(ntfs, item, out, job.raw, job.skip_sparse, context);
}

}  // namespace

bool extract_stream(std::unique_ptr<CNtfs>& ntfs, copy_job& job, cmd_params& opts) {
    if (job.out_stream != nullptr && job.out_stream->fail()) {
        opts.log("err: out stream bad");
        return false;
    }
    opts.m_file_stats.clear();
    if (!open_volume(ntfs, job, opts) || !find_entry(*ntfs, job, opts)) {
        return false;
    }
    const std::string stream_name = requested_stream_name(job.src);
    attr_item_list items;
    if (!list_attributes(items, *ntfs, job.entry, opts)) {
        return false;
    }
    write_report(job, *ntfs, items, opts.m_guard);
    const stream_choice choice = choose_stream(items, stream_name, opts.m_file_stats);
    if (choice.mod_time == 0 || !choice.chosen) {
        // Deliberate: a stream that is not there is no failure. No file is made, and the run succeeds.
        return true;
    }
    attr_item& item = items[item_to_copy(job, *ntfs, items, choice, !stream_name.empty(), opts)];
    pump_context context{opts};
    if (job.md5) {
        return copy_named_by_hash(job, ntfs.get(), item, choice.mod_time, context, opts.m_guard);
    }
    return copy_to_file(job, ntfs.get(), item, context, opts.m_guard);
}

}  // namespace quarry
