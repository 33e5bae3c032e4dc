// The status log as its writers see it.
//
// A forensic copy must be able to show what was done, so everything that happens on the way is written to a
// log. Readers of a volume only ever say what happened; where the lines go, and whether anywhere, is the
// front end's business: it derives from this class, and a routine that is to stay silent is handed no_log().
// The severity of a line ("info: ", "err: ") is the caller's choice and part of the text.
#pragma once

#include <string>

namespace quarry {

class status_log {
  public:
    status_log() = default;
    status_log(const status_log&) = delete;
    status_log& operator=(const status_log&) = delete;
    virtual ~status_log() = default;

    // One line from a printf format, without "%n" and without conversions of wide text, which depend on the
    // locale. Text may be a name from a disk: the line is written as `visible_text` gives it, so that none
    // can begin a line of its own. It is then cut at the format's length plus 254 bytes. Does nothing while
    // the log is off.
    [[gnu::format(printf, 2, 3)]] void log(const char* format, ...);

    // One line of ready text, of any length and with whatever line feeds are in it. Does nothing while the
    // log is off.
    void log_text(const std::string& text);

  protected:
    [[nodiscard]] virtual bool log_is_on() const = 0;
    // Takes one message, without its leading "->" and its newline.
    virtual void write_log_line(const std::string& text) = 0;
};

// The log that swallows everything.
[[nodiscard]] status_log& no_log();

}  // namespace quarry
