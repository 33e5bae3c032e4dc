// The generic part of a command line: the options that say nothing about what is copied, and the status log.
//
// Unknown options are no error; they stay in the list of arguments. Messages go to standard error. The log is
// a text file that -diags asks for: each line begins "->" and is flushed at once, so that it survives a crash
// up to its last line. A log that cannot be opened is absent without a word, and no failure of it changes the
// result of a run.
#pragma once

#include "foundation/ql_time_format.h"
#include "foundation/status_log.h"
#include "foundation/uni_streams.h"
#include "frontend/arg_list.h"
#include "frontend/options/filter_entry.h"
#include "frontend/options/time_range.h"
#include "frontend/output/output_file.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

class cmd_params : public status_log, public time_range {
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

    bool m_log_on = false;
    std::int32_t m_log_level = 0;
    std::unique_ptr<output_file> m_log_stream;
    std::string m_log_path;

    // Takes the generic options out of `args`. False, after a message where one is due, for an empty list, an
    // -out file that cannot be written, and a time range without a date.
    bool parse(arg_list& args);

    // True if the log is open and has not failed.
    [[nodiscard]] bool log_is_good() const;

  protected:
    [[nodiscard]] bool log_is_on() const override { return m_log_on; }
    void write_log_line(const std::string& text) override;

  private:
    void open_log(arg_list& args);
    void log_command_line();
    [[nodiscard]] bool check_out_file(arg_list& args) const;
    [[nodiscard]] output_guard guard_ahead(const arg_list& args) const;
    void parse_run_options(arg_list& args);
    void parse_filters(arg_list& args);
    [[nodiscard]] bool parse_time_range(arg_list& args);
    void parse_formats(arg_list& args);
    void parse_console_options(arg_list& args);
};

}  // namespace quarry
