#include "frontend/options/cmd_params.h"

#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/options/expand_env.h"
#include "frontend/options/filter.h"
#include "frontend/options/ignored_options.h"
#include "frontend/options/source_files.h"
#include "frontend/output/console.h"
#include "frontend/output/creation_check.h"

namespace quarry {

namespace {

// The name of a path, without its last extension.
std::string program_name_of(const std::string& path) {
    std::string directory;
    std::string name;
    if (!split_path_narrow(directory, name, path)) {
        return {};
    }
    return name.substr(0, name.rfind('.'));
}

bool is_date_format(const std::string& pattern) {
    return pattern.size() == 8 || pattern.size() == 10;
}

bool is_time_format(const std::string& pattern) {
    const bool length_is_good = pattern.size() == 8 || (pattern.size() >= 12 && pattern.size() <= 18);
    return length_is_good && pattern.find(':') != std::string::npos;
}

void parse_format(std::string& format, std::string_view option, bool (*is_format)(const std::string&),
                  arg_list& args) {
    std::string value;
    if (!find_value(option, value, args)) {
        return;
    }
    if (!is_format(value)) {
        print_error("invalid " + value + ", using default format\n");
        return;
    }
    lower_narrow(value);
    format = value;
}

// Adds the alternatives of every place of an option, and sets the path of -filter_path on all of the list.
void parse_filter(filter_list& list, std::string_view option, arg_list& args) {
    std::string value;
    while (find_value(option, value, args)) {
        filter_list added;
        make_filter(added, value);
        list.insert(list.end(), added.begin(), added.end());
        if (find_value("-filter_path", value, args)) {
            for (filter_entry& entry : list) {
                entry.path = widen(value);
                entry.path_length = static_cast<std::uint32_t>(entry.path.size());
            }
        }
    }
}

}  // namespace

bool cmd_params::parse(arg_list& args) {
    if (args.empty()) {
        return false;
    }
    if (m_command_line.empty()) {
        m_command_line = joined_arguments(args, '"');
    }
    if (m_program_name.empty()) {
        m_program_name = program_name_of(args.front());
    }
    m_source_files = files_of_source_options(args);
    m_guard.add_sources(m_source_files);
    m_pair_datetime = find_flag("-pair_datetime", args) || m_pair_datetime;
    open_log(args);
    if (!check_out_file(args)) {
        return false;
    }
    parse_run_options(args);
    parse_filters(args);
    if (!parse_time_range(args)) {
        return false;
    }
    parse_formats(args);
    parse_console_options(args);
    drop_ignored_options(args);
    // A pattern that cannot be read is no error: nothing is printed with it.
    static_cast<void>(ql::validate_patterns(m_time_layout, m_date_format, m_time_format, m_pair_datetime));
    return true;
}

void cmd_params::open_log(arg_list& args) {
    std::string path;
    if (!find_value("-diags", path, args)) {
        return;
    }
    output_guard guard = guard_ahead(args);
    // Deliberate: a log that cannot be opened is left out without a message; the run is not refused. The user
    // sees the copy, and no log.
    if (!m_log.open(guard, path)) {
        return;
    }
    m_guard.protect_log(path);
    m_log.log_text(m_command_line);
    m_log.m_level = find_flag("-l3", args) ? 3 : 0;
    m_log.m_level = find_flag("-l2", args) ? 2 : m_log.m_level;
}

// What is opened before the paths are parsed must not be one that they will name.
output_guard cmd_params::guard_ahead(const arg_list& args) const {
    output_guard guard = m_guard;
    guard.add_sources(source_files_ahead(args));
    return guard;
}

bool cmd_params::check_out_file(arg_list& args) const {
    std::string path;
    if (!find_value("-out", path, args) && !find_value("-outfile", path, args)) {
        return true;
    }
    const bool append = find_flag("-append", args);
    // Deliberate: an out file is only tried out, not written. The user finds it gone, also a file of that
    // name that was there before.
    const output_guard guard = guard_ahead(args);
    const bool writable = can_be_created(guard, path, output_kind::trial, append) ||
                          (append && can_be_created(guard, path, output_kind::trial, false));
    if (!writable) {
        print_error("prob opening file " + path + " for output, aborting\n");
    }
    return writable;
}

void cmd_params::parse_run_options(arg_list& args) {
    std::string value;
    if (find_value("-enumdir", value, args)) {
        m_enum_dir = expand_env(value, true);
        m_enum = true;
    }
    if (find_value("-num_subdirs", value, args)) {
        parse_u32(m_num_subdirs, value);
    }
    m_profile = find_flag("-profile", args) || m_profile;
    m_pipe = find_flag("-pipe", args) || m_pipe;
}

void cmd_params::parse_filters(arg_list& args) {
    parse_filter(m_filter_skip, "-filter_skip", args);
    parse_filter(m_filter, "-filter", args);
    std::string value;
    while (find_value("-filter_sig", value, args)) {
        m_filter.push_back(make_signature_filter(value));
    }
}

bool cmd_params::parse_time_range(arg_list& args) {
    std::string value;
    if (find_value("-cmd_start_time", value, args)) {
        const range_result result = m_time_range.set_start(value);
        if (result == range_result::no_date) {
            return false;
        }
        if (result == range_result::ignored) {
            print_error("invalid start time, ignoring\n");
        }
    }
    if (find_value("-cmd_stop_time", value, args)) {
        const range_result result = m_time_range.set_stop(value);
        if (result == range_result::no_date) {
            return false;
        }
        if (result == range_result::ignored) {
            print_error("invalid stop time, ignoring\n");
        }
    }
    return true;
}

void cmd_params::parse_formats(arg_list& args) {
    if (find_flag("-base10", args)) {
        m_hex_output = false;
    }
    if (find_flag("-base16", args)) {
        m_hex_output = true;
    }
    parse_format(m_date_format, "-dateformat", is_date_format, args);
    // Deliberate: a time format is checked and not used. The user sees the times of the header and the
    // reports in forms of their own.
    parse_format(m_time_format, "-timeformat", is_time_format, args);
}

void cmd_params::parse_console_options(arg_list& args) {
    for (const std::string_view option : {"-verbose", "-v"}) {
        m_verbose = find_flag(option, args) || m_verbose;
    }
    if (find_flag("-quiet", args)) {
        m_console = false;
    }
    find_value("-signal", m_signal, args);
}

}  // namespace quarry
