#include "frontend/copy/request_settling.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/copy/copy_messages.h"

#include <string>
#include <vector>

namespace quarry {

namespace {

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

}  // namespace

std::optional<copy_request> settle_request(quarry_opts& opts, const std::wstring& path,
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

}  // namespace quarry
