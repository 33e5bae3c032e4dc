// The files that one copy makes: the copy, and the reports beside it.
//
//     out/a.txt              the copy         out/01d0..._a.txt_9001...            with its digest
//     out/a.txt.meta.txt     its report       out/01d0..._a.txt_9001..._meta.txt
//
// All that names such a file goes by this: the destination, which looks whether the files may be made, the
// confinement, which leaves the run the right to make them, and the copy that renames them. A new form of
// report is one more row of `report_forms`.
#pragma once

#include "frontend/options/quarry_opts.h"
#include "report/attribute_report.h"
#include "volume/attr_item.h"
#include "volume/ntfs.h"

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// A report that a copy by name or by entry makes.
struct report_form {
    std::string_view ending;               // after the path of the copy
    std::string_view ending_after_digest;  // the same once the name of the copy ends with its digest
    bool quarry_opts::*asked_for;          // the switch that asks for it
    void (*write)(std::ostream& out, CNtfs& ntfs, std::uint64_t entry, const std::wstring& path,
                  const attr_item_list& items);
};

inline constexpr std::array<report_form, 1> report_forms = {{
    {".meta.txt", "_meta.txt", &quarry_opts::m_meta, write_attribute_report},
}};
// The one that a copy of clusters makes too, with a content of its own.
inline constexpr const report_form& text_report = report_forms[0];

struct report_output {
    const report_form* form = nullptr;
    std::wstring path = {};
};

struct copy_outputs {
    std::wstring copy = {};
    std::vector<report_output> reports = {};  // those that are to be made

    // The path of the report of this form; empty if it is not to be made.
    [[nodiscard]] std::wstring report_path(const report_form& form) const;
};

// The outputs of a copy to this path, with a report in each form.
[[nodiscard]] copy_outputs outputs_with_reports(const std::wstring& copy);

// Every file that a copy to this path may make.
[[nodiscard]] std::vector<std::string> files_of_copy(const std::string& copy);

// The path of a copy in a directory whose name proves it: 16 hexadecimal digits of the modification time (a
// FILETIME as it is stored), the name, and the digest, with "_" between them.
[[nodiscard]] std::string path_with_digest(const std::string& directory, std::uint64_t mod_time,
                                           const std::string& name, const std::string& digest);

}  // namespace quarry
