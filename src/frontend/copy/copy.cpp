#include "frontend/copy/copy.h"

#include "foundation/ql_string.h"
#include "frontend/copy/cluster_copy.h"
#include "frontend/copy/copy_messages.h"
#include "frontend/copy/extraction.h"
#include "frontend/copy/request_settling.h"

#include <optional>

namespace quarry {

bool copy(std::unique_ptr<CNtfs>& ntfs, quarry_opts& opts, const std::wstring& path, bool check_dst) {
    const copy_rules& rules = rules_of(opts.m_source.kind);
    destination target;
    const std::optional<copy_request> request = settle_request(opts, path, rules, check_dst, target);
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
