#include "frontend/copy/copy.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/copy/cluster_copy.h"
#include "frontend/copy/copy_messages.h"
#include "frontend/copy/copy_request.h"
#include "frontend/copy/destination.h"
#include "frontend/copy/extraction.h"

#include <optional>
#include <vector>

namespace quarry {

namespace {

// What a copy from a drive by number does otherwise than one from any other source.
struct copy_rules {
    const char* no_destination;
    bool keeps_absolute_destination;
    // A path on the volume may name the volume, and where it is a path of this host it is made absolute.
    bool path_may_name_volume;
    bool logs_partition;
    bool clusters_come_first;
    bool reports_clusters;
    bool says_that_driver_failed;
};

constexpr copy_rules rules_of_volumes = {
    .no_destination = "err: -dst <filename> was not specified",
    .keeps_absolute_destination = false,
    .path_may_name_volume = true,
    .logs_partition = true,
    // Deliberate: a path or an entry wins over clusters, which are then dropped without a word.
    .clusters_come_first = false,
    .reports_clusters = true,
    .says_that_driver_failed = false,
};

constexpr copy_rules rules_of_drives = {
    .no_destination = "err: -dst <filename> was not specified, aborting",
    .keeps_absolute_destination = true,
    .path_may_name_volume = false,
    .logs_partition = false,
    // Deliberate: on a drive clusters come before a path and an entry, where every other source has them
    // last.
    .clusters_come_first = true,
    // Deliberate: a copy of clusters from a drive has no report, whatever -meta says.
    .reports_clusters = false,
    // Deliberate: a failure of the driver is reported on the console, not only in the log as for any other
    // source. The user sees it without a log.
    .says_that_driver_failed = true,
};

// The device part of a path on a shadow copy, which is taken off the path; empty for any other path.
std::wstring take_shadow_device(std::wstring& path) {
    std::wstring lowered = path;
    lower_wide(lowered);
    const std::wstring prefix = widen(shadow_prefix(true, true));
    const std::size_t end =
        lowered.starts_with(prefix) ? path.find(L'\\', prefix.size()) : std::wstring::npos;
    if (end == std::wstring::npos) {
        return {};
    }
    std::wstring device = path.substr(0, end);
    path.erase(0, end);
    return device;
}

// A path of this host is made absolute, and may begin with the device of a shadow copy. False after a
// message.
bool settle_path(copy_request& request, quarry_opts& opts) {
    if (request.from.has_paths_of_host() && !request.path.empty()) {
        const std::wstring absolute = canonical_path(std::wstring_view(request.path), L'/');
        if (absolute.empty()) {
            print_copy_message(opts.m_run, "err: prob understanding source of " + narrow(request.path));
            return false;
        }
        request.path = absolute;
        if (const std::wstring device = take_shadow_device(request.path); !device.empty()) {
            request.from = source::of_image(device, 0);
        }
    }
    return true;
}

copy_request request_for(const quarry_opts& opts, const std::wstring& path) {
    copy_request request{.from = opts.m_source, .path = path};
    request.entry = opts.m_entry;
    request.clusters = opts.m_clusters;
    request.raw = opts.m_raw;
    request.md5 = opts.m_md5;
    request.skip_sparse = opts.m_skip_sparse;
    return request;
}

void protect_sources(const copy_request& request, const copy_rules& rules, output_guard& guard) {
    std::vector<std::string> files = request.from.files();
    if (rules.path_may_name_volume) {
        add_named_volume(files, narrow(request.path));
    }
    guard.add_sources(files);
}

// Settles all of a request. Nothing after a message.
std::optional<copy_request> settled_request(quarry_opts& opts, const std::wstring& path,
                                            const copy_rules& rules, bool check_dst, destination& target) {
    copy_request request = request_for(opts, path);
    if (rules.path_may_name_volume && !settle_path(request, opts)) {
        return std::nullopt;
    }
    protect_sources(request, rules, opts.m_run.m_guard);
    if (request.from.is_left_to_the_path()) {
        request.from = source::named_by(request.path);
    }
    const destination_rules how{.missing_words = rules.no_destination,
                                .keeps_absolute = rules.keeps_absolute_destination,
                                .check_creation = check_dst};
    if (!settle_destination(target, opts, request.path, how)) {
        return std::nullopt;
    }
    request.outputs = target.outputs;
    return request;
}

}  // namespace

bool copy(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, const std::wstring& path, bool check_dst) {
    const bool is_drive = opts.m_source.kind == source_kind::drive;
    const copy_rules& rules = is_drive ? rules_of_drives : rules_of_volumes;
    destination target;
    const std::optional<copy_request> request = settled_request(opts, path, rules, check_dst, target);
    if (!request) {
        return false;
    }
    if (rules.logs_partition) {
        opts.m_run.m_log.log("partition letter %s", narrow(opts.m_source.partition()).c_str());
    }
    const bool asks_for_clusters = !opts.m_cluster_text.empty();
    const bool takes_clusters =
        rules.clusters_come_first ? asks_for_clusters : request->path.empty() && request->entry == no_entry;
    bool copied = false;
    if (!takes_clusters) {
        copy_findings found;
        copied = extract_stream(ntfs, *request, found, opts.m_run.m_log, opts.m_run.m_guard);
    } else if (asks_for_clusters) {
        copied = copy_clusters(*request, rules.reports_clusters, opts.m_run.m_guard);
    }
    if (!copied && (takes_clusters || rules.says_that_driver_failed)) {
        print_copy_failed(opts.m_run, request->path,
                          rules.keeps_absolute_destination ? target.named : target.outputs.copy);
    }
    return copied;
}

}  // namespace quarry
