#include "frontend/copy/named_by_hash.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/output/exclusive_file.h"
#include "frontend/output/output_file.h"

namespace quarry {

bool copy_named_by_hash(const copy_request& request, const std::vector<report_output>& reports, CNtfs* ntfs,
                        attr_item& item, std::uint64_t mod_time, pump_context& context, output_guard& guard) {
    std::wstring directory;
    std::wstring name;
    if (!split_path(directory, name, request.outputs.copy) || name.empty()) {
        return false;
    }
    exclusive_file file;
    if (!file.create(guard, narrow(directory))) {
        return false;
    }
    std::string digest;
    const bool pumped =
        copy_hashed(ntfs, item, file.stream(), request.raw, request.skip_sparse, true, digest, context);
    // The name promises the digest of the file's bytes, so a file that did not take all of them is no copy.
    const bool written = file.close();
    if (!pumped || !written || digest.empty()) {
        return false;
    }
    const std::string final_path = path_with_digest(narrow(directory), mod_time, narrow(name), digest);
    if (!file.rename_to(guard, final_path)) {
        return false;
    }
    for (const report_output& report : reports) {
        // A report that cannot follow stays where it is; the copy is kept.
        static_cast<void>(rename_output(guard, narrow(report.path),
                                        final_path + std::string(report.form->ending_after_digest),
                                        output_kind::report));
    }
    return true;
}

}  // namespace quarry
