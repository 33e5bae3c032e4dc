#include "frontend/exact/exact_messages.h"

#include "foundation/output_file.h"
#include "foundation/ql_string.h"
#include "frontend/output/console.h"

namespace quarry::exact {

bool exact_messages::open_log(const std::string& path, const std::string& command_line,
                              const std::string& header) {
    m_log_is_open = uni::open_output(m_log, widen(path));
    if (m_log_is_open) {
        log(command_line);
        log(header);
    }
    return m_log_is_open;
}

void exact_messages::log(const std::string& line) {
    if (m_log_is_open) {
        m_log << "->" << line << "\n" << std::flush;
    }
}

void exact_messages::say(const std::string& line, bool even_if_quiet) {
    log(line);
    if (even_if_quiet || !m_quiet) {
        m_status_line.clear();
        print_error(line + "\n");
    }
}

void exact_messages::warn(const notices& told) {
    for (const notice& each : told.all()) {
        say("warning: " + each.text(), false);
    }
}

void exact_messages::done(std::string_view outcome, const std::string& text) {
    say(std::string(outcome) + ": " + text, false);
}

void exact_messages::show(const std::string& text) {
    if (!m_quiet) {
        m_status_line.clear();
        print_error(text);
    }
}

}  // namespace quarry::exact
