#include "frontend/copy_by_cluster.h"

#include "disk/drive_source.h"
#include "foundation/ql_string.h"
#include "frontend/copy_job.h"
#include "frontend/copy_messages.h"
#include "frontend/destination.h"
#include "frontend/extraction.h"
#include "frontend/output/output_file.h"
#include "frontend/source_files.h"
#include "report/cluster_report.h"
#include "volume/ntfs_open.h"

namespace quarry {

namespace {

struct cluster_range {
    std::uint64_t start_lcn = 0;
    std::uint64_t end_lcn = 0;  // not included
};

// Writes one cluster that was read, and leaves the place of what a short read did not give.
void write_cluster(output_file& out, const std::vector<std::uint8_t>& bytes, std::uint64_t length,
                   std::uint64_t cluster_size) {
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(length));
    if (length < cluster_size) {
        out.seekp(static_cast<std::streamoff>(cluster_size - length), std::ios_base::cur);
    }
}

// Deliberate: a cluster that cannot be read leaves a gap only if the read came back short; otherwise nothing
// is left for it and the clusters behind it move up. The report tells which ones are missing.
void pass_over_cluster(output_file& out, std::uint64_t length, std::uint64_t cluster_size) {
    if (length < cluster_size) {
        out.seekp(static_cast<std::streamoff>(cluster_size), std::ios_base::cur);
    }
}

// Ends at the end of the range, or where neither the copy nor a report can take anything more: no cluster
// lies behind the end of the source.
void copy_range(CNtfs& ntfs, const cluster_range& range, output_file& out, output_file& report) {
    const auto cluster_size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const std::uint64_t origin = ntfs.disk_origin();
    const std::uint64_t clusters_in_source = ntfs.get_disk()->size() / cluster_size + 1;
    std::vector<std::uint8_t> bytes;
    for (std::uint64_t lcn = range.start_lcn; lcn < range.end_lcn; ++lcn) {
        const bool reports = report.is_open() && report.good();
        if (!reports && (lcn > clusters_in_source || !out.good())) {
            return;
        }
        std::uint64_t length = cluster_size;
        std::uint64_t position = 0;
        if (ntfs.read_cluster_alloc(lcn, bytes, length, position)) {
            if (reports) {
                write_cluster_read_line(report, lcn, origin + position, length == cluster_size);
            }
            write_cluster(out, bytes, length, cluster_size);
        } else {
            if (reports) {
                write_cluster_failed_line(report, lcn);
            }
            pass_over_cluster(out, length, cluster_size);
        }
    }
}

// The part that both cluster copies share.
bool copy_clusters_of(CNtfs& ntfs, const std::string& source_text, std::uint64_t volume_offset,
                      std::uint64_t start_lcn, std::uint64_t count, const std::wstring& dst,
                      const std::wstring& meta, output_guard& guard) {
    output_file out;
    if (!out.open(guard, dst, output_kind::copy)) {
        // Deliberate: a copy of clusters whose file cannot be opened counts as a success.
        return true;
    }
    output_file report;
    if (!meta.empty() && report.open(guard, meta, output_kind::report)) {
        write_cluster_report_head(report, source_text, volume_offset, ntfs.disk_origin(),
                                  ntfs.get_bytes_per_sector(), start_lcn, count);
    }
    copy_range(ntfs, {start_lcn, start_lcn + count}, out, report);
    return true;
}

// Deliberate: where the image cannot be opened the first drive is tried in its place, without a word. It is a
// source then, and no output may go to it.
bool open_image_or_first_drive(std::unique_ptr<CNtfs>& ntfs, const std::wstring& path,
                               std::uint64_t volume_offset, const std::wstring& dst, const std::wstring& meta,
                               output_guard& guard) {
    if (open_by_image(path, volume_offset, ntfs, false, nullptr)) {
        return true;
    }
    guard.add_source(drive_device(0));
    return guard.look_at(narrow(dst), output_kind::copy) == output_verdict::free &&
           (meta.empty() || guard.look_at(narrow(meta), output_kind::report) == output_verdict::free) &&
           open_by_drive(0, volume_offset, ntfs, false, nullptr);
}

}  // namespace

bool copy_clusters(const std::vector<std::wstring>& vmdk_list, const std::wstring& source_text,
                   std::uint64_t volume_offset, std::uint64_t start_lcn, std::uint64_t count,
                   const std::wstring& dst, const std::wstring& meta, output_guard& guard) {
    std::unique_ptr<CNtfs> ntfs;
    const bool opened =
        vmdk_list.empty()
            ? open_image_or_first_drive(ntfs, source_text, volume_offset, dst, meta, guard)
            : open_by_vmdk(vmdk_list, static_cast<std::int64_t>(volume_offset), ntfs, false, nullptr);
    return opened && ntfs != nullptr &&
           copy_clusters_of(*ntfs, narrow(source_text), volume_offset, start_lcn, count, dst, meta, guard);
}

bool copy_clusters_from_drive(std::int32_t drive, std::uint64_t volume_offset, std::uint64_t start_lcn,
                              std::uint64_t count, const std::wstring& dst, const std::wstring& meta,
                              output_guard& guard) {
    std::unique_ptr<CNtfs> ntfs;
    return open_by_drive(drive, volume_offset, ntfs, false, nullptr) && ntfs != nullptr &&
           copy_clusters_of(*ntfs, std::to_string(drive), volume_offset, start_lcn, count, dst, meta, guard);
}

bool copy_from_drive(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, bool check_dst) {
    copy_job job;
    job.drive = static_cast<std::int32_t>(opts.m_drive);
    opts.m_guard.add_sources(source_files_of(job));
    const destination_rules rules{.missing_words = "err: -dst <filename> was not specified, aborting",
                                  .keeps_absolute = true,
                                  .check_creation = check_dst};
    destination target;
    if (!settle_destination(target, opts, rules)) {
        return false;
    }
    job.volume_offset = opts.m_volume_offset;
    job.src = opts.m_src;
    job.dst = target.path;
    job.meta = target.meta;
    job.entry = opts.m_entry;
    job.raw = opts.m_raw;
    job.md5 = opts.m_md5;
    job.skip_sparse = opts.m_skip_sparse;
    // Deliberate: on a drive clusters come before a path and an entry, where every other source has them
    // last.
    //
    // Deliberate: a copy of clusters from a drive has no report, whatever -meta says.
    const bool copied = opts.m_cluster_text.empty()
                            ? extract_stream(ntfs, job, opts)
                            : copy_clusters_from_drive(job.drive, job.volume_offset, opts.m_start_lcn,
                                                       opts.m_cluster_count, job.dst, {}, opts.m_guard);
    if (!copied) {
        // Deliberate: a failure of the driver is told on the console, where a copy from any other source
        // leaves it to the log.
        print_copy_failed(opts, opts.m_src, opts.m_dst);
    }
    return copied;
}

}  // namespace quarry
