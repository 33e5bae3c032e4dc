#include "frontend/options/cmdline_ctx.h"

#include "frontend/output/console.h"
#include "frontend/output/output_file.h"

#include <sstream>

namespace quarry {

cmdline_ctx::~cmdline_ctx() {
    if (m_console) {
        clear_console_status();
    }
    if (m_start.seconds != 0 || m_start.fraction != 0) {
        report_elapsed_time();
    }
    if (m_callback != nullptr && !m_signal.empty()) {
        m_callback(m_signal);
    }
}

void cmdline_ctx::configure(const cmd_params& opts, callback at_end) {
    m_console = opts.m_console;
    if (opts.m_log.is_good()) {
        m_log_path = opts.m_log.path();
        m_guard = opts.m_guard;
    }
    m_profile = opts.m_profile;
    if (m_profile || !m_log_path.empty()) {
        ql::clock_ntp(m_start);
    }
    if (at_end != nullptr && !opts.m_signal.empty()) {
        m_callback = at_end;
        m_signal = opts.m_signal;
    }
}

void cmdline_ctx::report_elapsed_time() {
    ql::ntp_time now;
    ql::clock_ntp(now);
    std::ostringstream text;
    text << "->" << ql::ntp_difference(now, m_start) << " secs\n";
    if (m_profile) {
        print_error(text.str());
    }
    if (m_guard) {
        output_file log;
        if (log.open_log_again(*m_guard, m_log_path)) {
            log << text.str();
        }
    }
}

}  // namespace quarry
