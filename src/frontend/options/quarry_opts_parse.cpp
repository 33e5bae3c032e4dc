#include "foundation/ql_number.h"
#include "foundation/ql_string.h"
#include "frontend/options/expand_env.h"
#include "frontend/options/quarry_opts.h"
#include "frontend/options/source_options.h"
#include "frontend/options/source_words.h"
#include "frontend/output/console.h"

#include <algorithm>
#include <sys/stat.h>

namespace quarry {

namespace {

std::wstring expanded_path(const std::string& path) {
    return widen(expand_env(path, true));
}

void parse_path(std::wstring& path, std::string_view option, arg_list& args) {
    std::string value;
    if (find_value(option, value, args)) {
        path = expanded_path(value);
    }
}

// True for anything on the host but a directory.
bool is_file_of_host(const std::string& path) {
    struct ::stat status {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

}  // namespace

bool quarry_opts::parse(arg_list& args, std::string_view version) {
    m_run.m_csv = false;
    m_run.m_hex_output = false;
    m_after_source_files = words_after_source_files(args);
    if (!m_run.parse(args)) {
        return false;
    }
    m_run.m_version = version;
    m_run.m_tool_name = "QUARRY";
    if (!parse_switches(args) || !parse_source(*this, args)) {
        return false;
    }
    parse_path(m_dst, "-dst", args);
    parse_path(m_src, "-src", args);
    return parse_object(args);
}

bool quarry_opts::parse_switches(arg_list& args) {
    struct switch_option {
        std::string_view name;
        bool quarry_opts::*member;
        bool gated;
    };
    static constexpr switch_option switches[] = {
        {"-first_ntfsvol", &quarry_opts::m_first_ntfsvol, true},
        {"-meta", &quarry_opts::m_meta, false},
        {"-skip_sparse_clusters", &quarry_opts::m_skip_sparse, true},
        {"-md5", &quarry_opts::m_md5, false},
        {"-raw", &quarry_opts::m_raw, true},
    };
    for (const switch_option& option : switches) {
        if (find_flag(option.name, args)) {
            this->*option.member = true;
            if (option.gated && !pass_gate()) {
                return false;
            }
        }
    }
    if (m_meta) {
        m_run.m_guard.tell_reports_from_copies();
    }
    return true;
}

bool quarry_opts::parse_object(arg_list& args) {
    std::string value;
    if (find_value("-mft", value, args)) {
        if (!pass_gate()) {
            return false;
        }
        // Deliberate: an entry number that cannot be read is 0, not an error. The user sees "-mft abc" copy
        // the file table itself.
        parse_u64(m_entry, value);
        return has_destination();
    }
    if (peek_flag("-cluster", args, 0)) {
        return parse_clusters(args) && has_destination();
    }
    if (m_run.m_pipe) {
        m_src.clear();
        return has_destination();
    }
    take_positional_arguments(args);
    return true;
}

bool quarry_opts::parse_clusters(arg_list& args) {
    std::string first;
    std::string second;
    if (find_two_values("-cluster", first, second, args)) {
        m_cluster_text = first;
        if (!pass_gate()) {
            return false;
        }
        parse_u64(m_clusters.start_lcn, first);
        parse_u64(m_clusters.count, second);
        return true;
    }
    if (find_value("-cluster", first, args)) {
        if (!pass_gate()) {
            return false;
        }
        parse_u64(m_clusters.start_lcn, first);
        // Deliberate: with one number the text is the count, not the cluster, so a destination directory gets
        // a file "1" whatever cluster was asked for.
        m_cluster_text = "1";
        m_clusters.count = 1;
        return true;
    }
    print_error("invalid: should be: -cluster <cluster num> [<num clusters>]\n");
    return false;
}

// Whether the first word that is left was hardly meant as a path on the source: what follows it may then have
// been meant as anything.
bool quarry_opts::may_be_a_slip(const arg_list& args, bool has_pair) const {
    const std::string& path = args[1];
    if (begins_with_dash(path)) {
        return true;  // an option that nobody knows
    }
    if (!has_pair) {
        return false;
    }
    if (!m_source.is_given() && is_like_a_source_name(path)) {
        return true;  // "image disk.img"
    }
    // "-image disk.00*": the second piece is the path and the third the destination.
    return std::find(m_after_source_files.begin(), m_after_source_files.end(), path) !=
               m_after_source_files.end() &&
           is_file_of_host(path);
}

void quarry_opts::take_positional_arguments(const arg_list& args) {
    const bool has_pair = args.size() > 2 && m_src.empty() && m_dst.empty();
    if ((has_pair || args.size() == 2) && may_be_a_slip(args, has_pair)) {
        m_run.m_guard.keep_what_exists();
    }
    if (has_pair) {
        m_src = expanded_path(args[1]);
        m_dst = expanded_path(args[2]);
    } else if (args.size() == 2) {
        // Deliberate: a single word without an option is the source as typed; its %NAME% references are not
        // replaced as those of -src and of a pair of paths are. The user sees it win over the path of -src,
        // even if it is an option that nothing took.
        m_src = widen(args[1]);
    }
}

bool quarry_opts::has_destination() const {
    if (m_dst.empty()) {
        print_error("option [-dst <destination file>] needed for this option\n");
    }
    return !m_dst.empty();
}

}  // namespace quarry
