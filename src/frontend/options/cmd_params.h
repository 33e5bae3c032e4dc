// The generic part of a command line: the options that say nothing about what is copied.
//
// Unknown options are no error; they stay in the list of arguments. Messages go to standard error.
#pragma once

#include "foundation/ql_time_format.h"
#include "frontend/arg_list.h"
#include "frontend/options/filter_entry.h"
#include "frontend/options/run_log.h"
#include "frontend/options/time_range.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

class cmd_params {
  public:
    std::string m_command_line;  // the arguments, those with a blank in double quotes
    std::string m_program_name;  // without directory and last extension
    // What any source option names, taken or not.
    std::vector<std::string> m_source_files;
    // Knows what any source option names, taken or not, and the log: no output is ever written over these.
    output_guard m_guard;
    std::string m_version;
    std::string m_tool_name;
    std::string m_date_format = "yyyy-mm-dd";
    std::string m_time_format = "hh:mm:ss.xxx";
    ql::time_layout m_time_layout;
    bool m_csv = false;
    bool m_hex_output = false;
    bool m_verbose = true;
    bool m_pair_datetime = false;
    bool m_console = true;  // -quiet clears it
    bool m_profile = false;
    std::string m_signal;
    filter_list m_filter;
    filter_list m_filter_skip;
    bool m_pipe = false;
    bool m_enum = false;
    std::string m_enum_dir;
    std::uint32_t m_num_subdirs = 0;  // levels below m_enum_dir
    time_range m_time_range;
    run_log m_log;

    // Takes the generic options out of `args`. False, after a message where one is due, for an empty list, an
    // -out file that cannot be written, and a time range without a date.
    bool parse(arg_list& args);

  private:
    void open_log(arg_list& args);
    [[nodiscard]] bool check_out_file(arg_list& args) const;
    [[nodiscard]] output_guard guard_ahead(const arg_list& args) const;
    void parse_run_options(arg_list& args);
    void parse_filters(arg_list& args);
    [[nodiscard]] bool parse_time_range(arg_list& args);
    void parse_formats(arg_list& args);
    void parse_console_options(arg_list& args);
};

}  // namespace quarry
