// The status log of a run: a text file that -diags asks for.
//
// Each line begins with "->" and is flushed at once, so that the log survives a crash up to its last line. A
// log that cannot be opened is absent without a word, and no failure of it changes the result of a run.
#pragma once

#include "foundation/status_log.h"
#include "frontend/output/output_file.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quarry {

class run_log : public status_log {
  public:
    std::int32_t m_level = 0;  // what -l2 and -l3 say; nothing depends on it

    // Opens the log, whose earlier content is lost. False, with the log off, if `guard` keeps the file or it
    // cannot be opened.
    [[nodiscard]] bool open(output_guard& guard, const std::string& path);

    [[nodiscard]] bool is_on() const { return m_stream != nullptr; }
    // True if the log is open and has not failed.
    [[nodiscard]] bool is_good() const { return is_on() && m_stream->good(); }
    // As it was typed; empty while the log is off.
    [[nodiscard]] const std::string& path() const { return m_path; }

  protected:
    [[nodiscard]] bool log_is_on() const override { return is_on(); }
    void write_log_line(const std::string& text) override;

  private:
    std::unique_ptr<output_file> m_stream;
    std::string m_path;
};

}  // namespace quarry
