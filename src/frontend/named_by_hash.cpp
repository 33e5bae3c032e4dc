#include "frontend/named_by_hash.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/output/exclusive_file.h"
#include "frontend/source_files.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace quarry {

namespace {

std::string time_text(std::uint64_t mod_time) {
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016" PRIx64, mod_time);
    return digits.data();
}

}  // namespace

bool copy_named_by_hash(const copy_job& job, CNtfs* ntfs, attr_item& item, std::uint64_t mod_time,
                        pump_context& context) {
    std::wstring directory;
    std::wstring name;
    if (!split_path(directory, name, job.dst) || name.empty()) {
        return false;
    }
    exclusive_file file;
    if (!file.create(narrow(directory))) {
        return false;
    }
    std::string digest;
    const bool pumped =
        copy_hashed(ntfs, item, file.stream(), job.raw, job.skip_sparse, true, digest, context);
    // The name promises the digest of the file's bytes, so a file that did not take all of them is no copy.
    const bool written = file.close();
    if (!pumped || !written || digest.empty()) {
        return false;
    }
    const std::string final_path =
        narrow(directory) + "/" + time_text(mod_time) + "_" + narrow(name) + "_" + digest;
    if (is_one_of(final_path, job.protected_files) || !file.rename_to(final_path)) {
        return false;
    }
    if (!job.meta.empty()) {
        // A report that cannot follow stays where it is; the copy stands.
        const std::string report_path = final_path + "_meta.txt";
        static_cast<void>(!is_one_of(report_path, job.protected_files) &&
                          rename_file(narrow(job.meta), report_path, false));
    }
    return true;
}

}  // namespace quarry
