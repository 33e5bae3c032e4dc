// Puts content of a test's own under the descriptor of standard input for as long as a scope lasts.
#pragma once

#include <cerrno>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace quarry::test {

class standard_input {
  public:
    // Standard input reads from `descriptor`, which stays the caller's.
    explicit standard_input(int descriptor) : m_before(::dup(STDIN_FILENO)) {
        if (::dup2(descriptor, STDIN_FILENO) == -1) {
            throw std::system_error(errno, std::generic_category(), "dup2");
        }
    }
    standard_input(const standard_input&) = delete;
    standard_input& operator=(const standard_input&) = delete;
    ~standard_input() {
        if (m_before == -1) {
            ::close(STDIN_FILENO);
        } else {
            ::dup2(m_before, STDIN_FILENO);
            ::close(m_before);
        }
    }

  private:
    int m_before;
};

}  // namespace quarry::test
