// Lines on their way to standard output: a listing, or the volumes of a source.
//
// They are gathered and written in blocks. Whoever reads them must be able to rely on having all of them, so
// a write that fails is a failure of the run, and so is a standard output that the caller closed.
#pragma once

#include "exact/failure.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry::exact {

class line_writer {
  public:
    // Fails with write if the caller closed standard output: what is written there would be lost.
    [[nodiscard]] static result<void> begin();
    // Takes a line, given without its end. Fails with write.
    [[nodiscard]] result<void> write(std::string_view line);
    // The same for lines that have their ends already.
    [[nodiscard]] result<void> write_lines(std::string_view lines);
    // Writes what was not written yet; to be called at the end. Fails with write.
    [[nodiscard]] result<void> flush();
    // How many lines were taken.
    [[nodiscard]] std::uint64_t lines() const { return m_lines; }

  private:
    std::string m_text;
    std::uint64_t m_lines = 0;
};

}  // namespace quarry::exact
