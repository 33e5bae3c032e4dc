#include "frontend/copy_by_name.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/copy_by_cluster.h"
#include "frontend/copy_job.h"
#include "frontend/copy_messages.h"
#include "frontend/destination.h"
#include "frontend/extraction.h"

namespace quarry {

namespace {

// Moves the device part of a path on a shadow copy from `src` to `base`.
void take_shadow_device(std::wstring& base, std::wstring& src) {
    std::wstring lowered = src;
    lower_wide(lowered);
    const std::wstring prefix = widen(shadow_prefix(true, true));
    if (!lowered.starts_with(prefix)) {
        return;
    }
    const std::size_t end = src.find(L'\\', prefix.size());
    if (end != std::wstring::npos) {
        base = src.substr(0, end);
        src.erase(0, end);
    }
}

// A source path that is not on an image or a virtual disk is made absolute. False after a message.
bool settle_bare_source(std::wstring& base, quarry_opts& opts) {
    const std::wstring absolute = canonical_path(std::wstring_view(opts.m_src), L'/');
    if (absolute.empty()) {
        print_copy_message(opts, "err: prob understanding source of " + narrow(opts.m_src));
        return false;
    }
    opts.m_src = absolute;
    take_shadow_device(base, opts.m_src);
    return true;
}

bool copy_requested_clusters(const copy_job& job, quarry_opts& opts) {
    if (opts.m_cluster_text.empty()) {
        return false;
    }
    if (!job.vmdk_list.empty()) {
        return copy_clusters(job.vmdk_list, {}, opts.m_vmdk_offset, opts.m_start_lcn, opts.m_cluster_count,
                             job.dst, job.meta, opts.m_guard);
    }
    const std::wstring& source = job.partition.empty() ? job.image : job.partition;
    return !source.empty() && copy_clusters({}, source, opts.m_volume_offset, opts.m_start_lcn,
                                            opts.m_cluster_count, job.dst, job.meta, opts.m_guard);
}

copy_job job_for(const quarry_opts& opts, const std::wstring& base) {
    copy_job job;
    job.src = opts.m_src;
    job.vmdk_list = opts.m_vmdk_list;
    job.image = base;
    job.partition = opts.m_partition;
    job.volume_offset = opts.m_vmdk_list.empty() ? opts.m_volume_offset : opts.m_vmdk_offset;
    job.entry = opts.m_entry;
    job.raw = opts.m_raw;
    job.md5 = opts.m_md5;
    job.skip_sparse = opts.m_skip_sparse;
    return job;
}

}  // namespace

bool copy_from_volume(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, bool check_dst) {
    std::wstring base = opts.m_image;
    if (base.empty() && opts.m_vmdk_list.empty() && !opts.m_src.empty() && !settle_bare_source(base, opts)) {
        return false;
    }
    copy_job job = job_for(opts, base);
    opts.m_guard.add_sources(source_files_of(job));
    const destination_rules rules{.missing_words = "err: -dst <filename> was not specified",
                                  .check_creation = check_dst};
    destination target;
    if (!settle_destination(target, opts, rules)) {
        return false;
    }
    job.dst = target.path;
    job.meta = target.meta;
    opts.log("partition letter %S", job.partition.c_str());
    // Deliberate: a path or an entry wins over clusters, which are then dropped without a word.
    if (opts.m_src.empty() && opts.m_entry == no_entry) {
        if (!copy_requested_clusters(job, opts)) {
            print_copy_failed(opts, opts.m_src, job.dst);
            return false;
        }
        return true;
    }
    return extract_stream(ntfs, job, opts);
}

}  // namespace quarry
