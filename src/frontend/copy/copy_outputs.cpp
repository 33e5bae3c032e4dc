#include "frontend/copy/copy_outputs.h"

#include "foundation/hexadecimal.h"
#include "foundation/ql_string.h"

#include <algorithm>

namespace quarry {

std::wstring copy_outputs::report_path(const report_form& form) const {
    const auto found = std::find_if(reports.begin(), reports.end(),
                                    [&form](const report_output& report) { return report.form == &form; });
    return found == reports.end() ? std::wstring() : found->path;
}

copy_outputs outputs_with_reports(const std::wstring& copy) {
    copy_outputs outputs{copy};
    for (const report_form& form : report_forms) {
        outputs.reports.push_back({&form, copy + widen(form.ending)});
    }
    return outputs;
}

std::vector<std::string> files_of_copy(const std::string& copy) {
    std::vector<std::string> files = {copy};
    for (const report_form& form : report_forms) {
        files.push_back(copy + std::string(form.ending));
    }
    return files;
}

std::string path_with_digest(const std::string& directory, std::uint64_t mod_time, const std::string& name,
                             const std::string& digest) {
    constexpr unsigned time_digits = 16;
    return directory + "/" + hex(mod_time, time_digits) + "_" + name + "_" + digest;
}

}  // namespace quarry
