// The file that must not be left over if a signal ends the run: a copy that has no name of its own yet.
#pragma once

#include <csignal>
#include <string>

namespace quarry {

// Holds all signals back in its scope, so that none comes between the making of a file and its entry here.
class signals_held_back {
  public:
    signals_held_back();
    signals_held_back(const signals_held_back&) = delete;
    signals_held_back& operator=(const signals_held_back&) = delete;
    ~signals_held_back();

  private:
    ::sigset_t m_before{};
};

// From here on each signal that ends the program and can be caught removes this file first, unless it is
// ignored or handled by somebody else. Signals must be held back meanwhile. At most one file is remembered; a
// path too long for the system is not.
void remove_if_interrupted(const std::string& path);
// The file has its name, or is gone already.
void forget_leftover();
// Removes the file that is remembered, if there is one. For a program that ends at once; takes no memory.
void remove_leftover_now() noexcept;

}  // namespace quarry
