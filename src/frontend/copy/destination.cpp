#include "frontend/copy/destination.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"
#include "foundation/visible_text.h"
#include "frontend/copy/copy_messages.h"
#include "frontend/output/creation_check.h"

#include <algorithm>

namespace quarry {

namespace {

bool ends_in_separator(const std::wstring& path) {
    return path.ends_with(L'\\') || path.ends_with(L'/');
}

bool refuse_same_file(quarry_opts& opts) {
    print_copy_message(opts.m_run, "err: source and destination are the same");
    return false;
}

bool refuse_creation(quarry_opts& opts, const std::wstring& path) {
    print_copy_message(opts.m_run, "err: can't create the file: " + narrow(path));
    return false;
}

// True for a name that would lead out of the directory to which it is added. A source path with both
// separators is parted at the last "\", so its name may hold "/".
bool leads_upwards(const std::wstring& name) {
    std::vector<std::wstring> parts;
    split(parts, name, L'/');
    return name.find(L'/') != std::wstring::npos &&
           std::find(parts.begin(), parts.end(), L"..") != parts.end();
}

// Adds the source's file name to a destination that is a directory.
bool add_source_name(std::wstring& path, quarry_opts& opts, const std::wstring& object_path) {
    std::wstring directory;
    std::wstring name;
    if (!split_path(directory, name, object_path)) {
        return true;
    }
    // Deliberate: only a "\" is added to the source's directory for this comparison, not a "/". The user does
    // not see "/out/" taken for the directory of a source in "/out".
    if (directory + L"\\" == path) {
        return refuse_same_file(opts);
    }
    replace_char(name, L'?', L'_', false);
    replace_char(name, L':', L'_', false);
    path += name;
    return !leads_upwards(name) || refuse_creation(opts, path);
}

bool add_name(std::wstring& path, quarry_opts& opts, const std::wstring& object_path,
              const std::wstring& absolute) {
    if (!object_path.empty()) {
        return add_source_name(path, opts, object_path);
    }
    if (!opts.m_cluster_text.empty()) {
        path += widen(opts.m_cluster_text);
    } else {
        // Deliberate: a copy by entry number without a path adds no name to a directory, not even one of its
        // own. The user sees the copy fail, because a directory cannot be created as a file.
        path = absolute;
    }
    return true;
}

// A list is spared the creation check after its first success. A path ending in ".." is not: no file can have
// that name, but under -md5 the copy would take a name of its own in the directory above.
bool needs_creation_check(const std::wstring& path, const destination_rules& rules) {
    return rules.check_creation || path.ends_with(L"/..");
}

// Nothing that is read, logged or kept may be written over.
bool is_free(const std::wstring& path, quarry_opts& opts) {
    switch (opts.m_run.m_guard.look_at(narrow(path), output_kind::copy)) {
        case output_verdict::source:
            return refuse_same_file(opts);
        case output_verdict::taken:
            return refuse_creation(opts, path);
        case output_verdict::free:
            break;
    }
    return true;
}

// The outputs of a copy to a path, without the reports that nobody asked for or that cannot be made.
copy_outputs possible_outputs(const std::wstring& path, const quarry_opts& opts) {
    copy_outputs outputs = outputs_with_reports(path);
    std::erase_if(outputs.reports, [&opts](const report_output& report) {
        if (!(opts.*report.form->asked_for)) {
            return true;
        }
        // Deliberate: below a current directory of 512 bytes or more a relative report is left out, while the
        // copy is made. The user finds the copy without its report.
        return canonical_path(std::wstring_view(report.path), L'/').empty() ||
               opts.m_run.m_guard.look_at(narrow(report.path), output_kind::report) != output_verdict::free;
    });
    return outputs;
}

// True for a path of nothing but quotes and blanks.
bool names_nothing(const std::wstring& path) {
    return canonical_path(std::wstring_view(L"/" + path), L'/') == L"/";
}

}  // namespace

bool settle_destination(destination& out, quarry_opts& opts, const std::wstring& object_path,
                        const destination_rules& rules) {
    if (opts.m_dst.empty()) {
        print_copy_message(opts.m_run, rules.missing_words);
        return false;
    }
    std::wstring absolute = canonical_path(std::wstring_view(opts.m_dst), L'/');
    if (absolute.empty() && !names_nothing(opts.m_dst)) {
        // The current directory is too long to be prepended. The system finds the file without it.
        absolute = opts.m_dst;
    }
    if (absolute.empty()) {
        print_copy_message(opts.m_run, "err: prob understanding destination of " + narrow(opts.m_dst));
        return false;
    }
    // Deliberate: a relative destination stays relative unless the caller keeps its absolute form, which is
    // otherwise only looked at. So messages and the log show what was typed.
    out.named = rules.keeps_absolute ? absolute : opts.m_dst;
    std::wstring path = out.named;
    if (ends_in_separator(path) && !add_name(path, opts, object_path, absolute)) {
        return false;
    }
    if (!is_free(path, opts)) {
        return false;
    }
    opts.m_run.m_log.log_text(visible_text("dst: " + narrow(path)));
    if (needs_creation_check(path, rules) &&
        !can_be_created(opts.m_run.m_guard, narrow(path), output_kind::copy, false)) {
        return refuse_creation(opts, path);
    }
    out.outputs = possible_outputs(path, opts);
    return true;
}

}  // namespace quarry
