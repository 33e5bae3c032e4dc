#include "frontend/copy_job.h"

#include "foundation/ql_string.h"
#include "frontend/source_files.h"

namespace quarry {

std::vector<std::string> source_files_of(const copy_job& job) {
    std::vector<std::string> files = {narrow(job.image), narrow(job.partition), drive_device(job.drive)};
    for (const std::wstring& file : job.vmdk_list) {
        files.push_back(narrow(file));
    }
    // The letter form of a volume is opened without what follows the letter, and a bare path may begin with
    // one.
    for (const std::wstring& path : {job.partition, job.src}) {
        if (path.size() > 1 && path[1] == L':') {
            files.push_back(narrow(path.substr(0, 2)));
        }
    }
    return files;
}

}  // namespace quarry
