#include "frontend/copy_job.h"

#include "foundation/ql_string.h"
#include "frontend/source_files.h"

#include <algorithm>

namespace quarry {

std::vector<std::string> source_files_of(const copy_job& job, const quarry_opts& opts) {
    std::vector<std::string> files = opts.m_source_files;
    files.insert(files.end(), {narrow(job.image), narrow(job.partition), drive_device(job.drive)});
    for (const std::wstring& file : job.vmdk_list) {
        files.push_back(narrow(file));
    }
    for (const std::wstring& path : {job.image, job.partition, job.src}) {
        add_named_volume(files, narrow(path));
    }
    std::sort(files.begin(), files.end());
    files.erase(std::unique(files.begin(), files.end()), files.end());
    return files;
}

}  // namespace quarry
