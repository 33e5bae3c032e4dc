// What a run says: to the user on standard error, and to the log.
//
// Each message is one line. Those that begin with "ok:", "doubt:", "warning:" and "err:" are for people and
// scripts; "info:" lines are only for the log. The log has all of them, each after "->", written at once.
#pragma once

#include "exact/failure.h"
#include "foundation/uni_streams.h"
#include "frontend/exact/progress.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::exact {

class exact_messages {
  public:
    // A quiet run shows "err:" lines only.
    void set_quiet(bool quiet) { m_quiet = quiet; }
    // The status line, which gives way to each message.
    [[nodiscard]] progress& status_line() { return m_status_line; }
    // Opens the log, whose earlier content is lost, and writes the head of it. Fails with create if it cannot
    // be opened, and with write if it does not take its head.
    [[nodiscard]] result<void> open_log(const std::string& path, const std::string& command_line,
                                        const std::string& header);
    // True once a line could not be written to the log. The user was told then, and the log has no more
    // lines.
    [[nodiscard]] bool log_is_cut_off() const { return m_log_failure.has_value(); }

    void err(const std::string& text) { say("err: " + text, true); }
    // The notices of one list as warnings.
    void warn(const notices& told);
    // "ok: ..." or "doubt: ...".
    void done(std::string_view outcome, const std::string& text);
    // A line that is neither praise nor blame, such as the last one of a list.
    void tell(const std::string& line) { say(line, false); }
    // Text of several lines, only for standard error, unless the run is quiet.
    void show(const std::string& text);
    void info(const std::string& text) { log("info: " + text); }
    void log(const std::string& line);

  private:
    void write_to_log(const std::string& line);
    void say(const std::string& line, bool even_if_quiet);

    bool m_quiet = false;
    bool m_log_is_open = false;
    std::string m_log_place;  // "log P"
    std::optional<failure> m_log_failure;
    progress m_status_line;
    // Null while there is no log, as in most runs: a stream of the library takes a while to set up.
    std::unique_ptr<uni::ofstream> m_log;
};

}  // namespace quarry::exact
