// The scope of a run: remembers when it began, and closes it when it ends.
#pragma once

#include "foundation/ql_time_parse.h"
#include "frontend/options/cmd_params.h"

#include <optional>
#include <string>

namespace quarry {

class cmdline_ctx {
  public:
    using callback = int (*)(const std::string& text);

    cmdline_ctx() = default;
    cmdline_ctx(const cmdline_ctx&) = delete;
    cmdline_ctx& operator=(const cmdline_ctx&) = delete;
    // Clears the console's status line, reports the elapsed time where it was asked for, and calls the
    // callback. Does nothing of this unless `configure` was called.
    virtual ~cmdline_ctx();

    // Takes over what the end of the run needs to know, and starts the clock. `at_end` may be null.
    void configure(const cmd_params& opts, callback at_end);

    bool m_console = false;
    ql::ntp_time m_start;  // zero when nobody needs it
    bool m_profile = false;
    std::string m_log_path;
    std::optional<output_guard> m_guard;  // of the log, where there is one
    std::string m_signal;
    callback m_callback = nullptr;

  private:
    void report_elapsed_time();
};

}  // namespace quarry
