#include "frontend/copy/extraction.h"

#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "frontend/copy/named_by_hash.h"
#include "frontend/copy/stream_choice.h"
#include "frontend/output/output_file.h"
#include "namespace/path_resolution.h"
#include "volume/mft_entries.h"
#include "volume/ntfs_open.h"
#include "volume/stream_pump.h"

#include <algorithm>
#include <new>
#include <span>

namespace quarry {

namespace {

// No report prints what the descriptors of a volume say, so no copy has them read.
constexpr security_loader no_descriptors = nullptr;

bool open_volume_once(std::unique_ptr<CNtfs>& ntfs, const copy_request& request, status_log& log) {
    if (ntfs != nullptr) {
        return true;
    }
    request.from.log_words(log);
    if (!open_volume(request.from, ntfs, no_descriptors)) {
        log.log("err: pNTFS");
        return false;
    }
    return ntfs != nullptr;
}

// Settles the entry number. After a lookup the path is the one that was found.
bool find_entry(CNtfs& ntfs, const copy_request& request, copy_findings& found, status_log& log) {
    found.entry = request.entry;
    found.path = request.path;
    if (request.entry != no_entry) {
        log.log("info: inode %s", narrow(request.path).c_str());
        return true;
    }
    log.log("info: find inode %s", narrow(request.path).c_str());
    std::uint64_t parent_entry = no_entry;
    std::wstring path = request.path;
    if (!resolve_path(found.entry, parent_entry, found.path, &ntfs, path, true, log) ||
        found.entry == no_entry) {
        log.log("err: find inode");
        return false;
    }
    return true;
}

bool list_attributes(attr_item_list& items, CNtfs& ntfs, copy_findings& found, status_log& log) {
    const std::uint64_t entry = found.entry;
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
        log.log("err: fixup: 0x%llx", static_cast<unsigned long long>(entry));
        return false;
    }
    if (!categorize_entry(ntfs, entry, items, log)) {
        log.log("err: categorize: 0x%llx", static_cast<unsigned long long>(entry));
        return false;
    }
    found.stats.m_entry = entry;
    found.stats.m_valid = true;
    return true;
}

// Gives the reports that were written. One that cannot be opened is no failure; the request goes on as if it
// had not been asked for.
std::vector<report_output> write_reports(const copy_request& request, const copy_findings& found, CNtfs& ntfs,
                                         const attr_item_list& items, output_guard& guard) {
    std::vector<report_output> written;
    for (const report_output& report : request.outputs.reports) {
        output_file file;
        if (!items.empty() && file.open(guard, report.path, output_kind::report)) {
            report.form->write(file, ntfs, found.entry, found.path, items);
            written.push_back(report);
        }
    }
    return written;
}

std::uint64_t first_run_position(const attr_item& item, const CNtfs& ntfs) {
    return item.runs.empty() ? 0 : item.runs.front().lcn * static_cast<std::uint64_t>(ntfs.m_cluster_size);
}

// Notes sizes and places of what was chosen, and answers which item to copy.
std::size_t item_to_copy(copy_findings& found, const CNtfs& ntfs, const attr_item_list& items,
                         const stream_choice& choice, bool by_name) {
    const std::size_t chosen = *choice.chosen;
    const attr_item& item = items[chosen];
    found.stats.m_size = item.runs.empty() ? item.value_size : item.initialized;
    found.data_position = first_run_position(item, ntfs);
    if (!choice.wof || items[*choice.wof].runs.empty()) {
        return chosen;
    }
    const attr_item& wof = items[*choice.wof];
    found.wof_present = true;
    found.wof_position = first_run_position(wof, ntfs);
    found.wof_size = std::max(wof.initialized, wof.real);
    // Deliberate: a file that the system compressed is copied as it is stored. Its unnamed stream is only a
    // hole; the bytes are in the compressed one and are not unpacked.
    return by_name ? chosen : *choice.wof;
}

bool copy_to_file(const copy_request& request, CNtfs* ntfs, attr_item& item, pump_context& context,
                  output_guard& guard) {
    output_file out;
    if (!out.open(guard, request.outputs.copy, output_kind::copy)) {
        return false;
    }
    // Deliberate: what the pump says is the result, also when the file could not take all of the bytes.
    return copy_to_stream(ntfs, item, out, request.raw, request.skip_sparse, context);
}

}  // namespace

bool extract_stream(std::unique_ptr<CNtfs>& ntfs, const copy_request& request, copy_findings& found,
                    status_log& log, output_guard& guard) {
    found = {};
    if (request.out_stream != nullptr && request.out_stream->fail()) {
        log.log("err: out stream bad");
        return false;
    }
    if (!open_volume_once(ntfs, request, log) || !find_entry(*ntfs, request, found, log)) {
        return false;
    }
    const std::string stream_name = requested_stream_name(found.path);
    attr_item_list items;
    if (!list_attributes(items, *ntfs, found, log)) {
        return false;
    }
    found.reports = write_reports(request, found, *ntfs, items, guard);
    const stream_choice choice = choose_stream(items, stream_name, found.stats);
    if (choice.mod_time == 0 || !choice.chosen) {
        // Deliberate: a stream that is not there is no failure. No file is made, and the run succeeds.
        return true;
    }
    attr_item& item = items[item_to_copy(found, *ntfs, items, choice, !stream_name.empty())];
    pump_context context{log};
    return request.md5
               ? copy_named_by_hash(request, found.reports, ntfs.get(), item, choice.mod_time, context, guard)
               : copy_to_file(request, ntfs.get(), item, context, guard);
}

}  // namespace quarry
