// A status log that keeps its lines for a test to look at.
#pragma once

#include "foundation/status_log.h"

#include <string>
#include <vector>

namespace quarry::test {

class capturing_log : public status_log {
  public:
    std::vector<std::string> lines;

  protected:
    [[nodiscard]] bool log_is_on() const override { return true; }
    void write_log_line(const std::string& text) override { lines.push_back(text); }
};

}  // namespace quarry::test
