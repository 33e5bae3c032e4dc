#include "frontend/exact/exact_messages.h"

#include "exact/name_text.h"
#include "foundation/output_file.h"
#include "foundation/ql_string.h"
#include "frontend/output/console.h"

#include <cerrno>
#include <cstring>

namespace quarry::exact {

result<void> exact_messages::open_log(const std::string& path, const std::string& command_line,
                                      const std::string& header) {
    m_log_place = "log " + shown_typed(path);
    m_log = std::make_unique<uni::ofstream>();
    errno = 0;
    if (!uni::open_output(*m_log, widen(path))) {
        const int error = errno == 0 ? EIO : errno;
        return fail(failure_code::create, m_log_place,
                    std::string("cannot be opened: ") + std::strerror(error) +
                        (error == ENOENT ? "; make the directory first" : ""));
    }
    m_log_is_open = true;
    write_to_log(command_line);
    write_to_log(header);
    return m_log_failure ? result<void>(tl::make_unexpected(*m_log_failure)) : result<void>();
}

void exact_messages::write_to_log(const std::string& line) {
    if (!m_log_is_open) {
        return;
    }
    errno = 0;
    *m_log << "->" << line << "\n" << std::flush;
    if (!*m_log) {
        m_log_failure = failure{failure_code::write, m_log_place,
                                std::string("cannot be written: ") + std::strerror(errno == 0 ? EIO : errno),
                                std::nullopt};
        m_log_is_open = false;
    }
}

void exact_messages::log(const std::string& line) {
    const bool was_whole = !log_is_cut_off();
    write_to_log(line);
    if (was_whole && log_is_cut_off()) {
        err(m_log_failure->text());
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
