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

    // One line from a printf format. The conversions of printf are known with their flags, widths, precisions
    // and length modifiers; "%S" and "%ls" take a pointer to wide text and write its UTF-8 form, whatever the
    // locale. A null pointer to text writes "(null)". "%n" and unknown conversions end the line there. Text
    // may be a name from a disk: it is written as `visible_text` gives it, so that none can begin a line of
    // its own. The line is cut at the format's length plus 254 bytes. Does nothing while the log is off.
    //
    // Only clang checks the arguments against the format: GCC calls "%S" an error under -Wpedantic.
#ifdef __clang__
    [[gnu::format(printf, 2, 3)]]
#endif
    void
    log(const char* format, ...);

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
