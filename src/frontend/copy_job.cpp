#include "frontend/copy_job.h"

#include "disk/drive_source.h"
#include "foundation/ql_string.h"
#include "frontend/source_files.h"

namespace quarry {

std::vector<std::string> source_files_of(const copy_job& job) {
    std::vector<std::string> files = {narrow(job.image), narrow(job.partition), drive_device(job.drive)};
    for (const std::wstring& file : job.vmdk_list) {
        files.push_back(narrow(file));
    }
    for (const std::wstring& path : {job.image, job.partition, job.src}) {
        add_named_volume(files, narrow(path));
    }
    return files;
}

}  // namespace quarry
