#include "frontend/copy/cluster_copy.h"

#include "disk/drive_source.h"
#include "foundation/ql_string.h"
#include "frontend/output/output_file.h"
#include "report/cluster_report.h"
#include "volume/ntfs_open.h"

#include <memory>
#include <vector>

namespace quarry {

namespace {

// Writes one cluster that was read, and leaves the place of what a short read did not give.
void write_cluster(output_file& out, const std::vector<std::uint8_t>& bytes, std::uint64_t length,
                   std::uint64_t cluster_size) {
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(length));
    if (length < cluster_size) {
        out.seekp(static_cast<std::streamoff>(cluster_size - length), std::ios_base::cur);
    }
}

// Deliberate: a cluster that cannot be read leaves a gap only if the read came back short, not always. The
// user sees the clusters after it moved up; the report says which ones are missing.
void pass_over_cluster(output_file& out, std::uint64_t length, std::uint64_t cluster_size) {
    if (length < cluster_size) {
        out.seekp(static_cast<std::streamoff>(cluster_size), std::ios_base::cur);
    }
}

// Ends at the end of the range, or where neither the copy nor a report can take anything more: no cluster
// lies past the end of the source.
void copy_range(CNtfs& ntfs, const cluster_range& range, output_file& out, output_file& report) {
    const auto cluster_size = static_cast<std::uint64_t>(ntfs.m_cluster_size);
    const std::uint64_t origin = ntfs.disk_origin();
    const std::uint64_t clusters_in_source = ntfs.get_disk()->size() / cluster_size + 1;
    std::vector<std::uint8_t> bytes;
    const std::uint64_t end_lcn = range.start_lcn + range.count;
    for (std::uint64_t lcn = range.start_lcn; lcn < end_lcn; ++lcn) {
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

// Deliberate: where the image cannot be opened the first drive is tried in its place, without a word. It is a
// source then, and no output may go to it.
bool open_first_drive(std::unique_ptr<CNtfs>& ntfs, const copy_request& request, const std::wstring& report,
                      output_guard& guard) {
    guard.add_source(drive_device(0));
    return guard.look_at(narrow(request.outputs.copy), output_kind::copy) == output_verdict::free &&
           (report.empty() || guard.look_at(narrow(report), output_kind::report) == output_verdict::free) &&
           open_volume(source::of_drive(0, request.from.offset), ntfs, nullptr);
}

}  // namespace

bool copy_clusters(const copy_request& request, bool with_report, output_guard& guard) {
    const source from = request.from.for_clusters();
    const std::wstring report_path = with_report ? request.outputs.report_path(text_report) : std::wstring();
    std::unique_ptr<CNtfs> ntfs;
    const bool gives_way = from.gives_way_to_first_drive();
    if (from.is_left_to_the_path() || (!open_volume(from, ntfs, nullptr) &&
                                       !(gives_way && open_first_drive(ntfs, request, report_path, guard)))) {
        return false;
    }
    output_file out;
    if (!out.open(guard, request.outputs.copy, output_kind::copy)) {
        // Deliberate: a copy of clusters whose file cannot be opened counts as a success.
        return true;
    }
    output_file report;
    if (!report_path.empty() && report.open(guard, report_path, output_kind::report)) {
        write_cluster_report_head(report, from.report_text(), from.offset, ntfs->disk_origin(),
                                  ntfs->get_bytes_per_sector(), request.clusters.start_lcn,
                                  request.clusters.count);
    }
    copy_range(*ntfs, request.clusters, out, report);
    return true;
}

}  // namespace quarry
