// The status log as its writers see it. Readers of a volume only ever say what happened; where the lines go,
// and whether anywhere, is the front end's business.
#pragma once

#include <string>

namespace quarry {

class status_log {
  public:
    status_log() = default;
    status_log(const status_log&) = delete;
    status_log& operator=(const status_log&) = delete;
    virtual ~status_log() = default;

    // One line from a printf format. "%S" takes wide text and writes its narrow form. The line is cut at the
    // format's length plus 254 bytes. Does nothing while the log is off.
    [[gnu::format(printf, 2, 3)]] void log(const char* format, ...);
    // One line of ready text, of any length.
    void log_text(const std::string& text);

  protected:
    [[nodiscard]] virtual bool log_is_on() const = 0;
    // Takes one message, without its leading "->" and its newline.
    virtual void write_log_line(const std::string& text) = 0;
};

// The log that swallows everything.
[[nodiscard]] status_log& no_log();

}  // namespace quarry
