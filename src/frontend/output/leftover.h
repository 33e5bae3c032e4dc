// The file that must not be left behind if a signal ends the run: a copy that has no name of its own yet.
#pragma once

#include <string>

namespace quarry {

// From here on SIGINT, SIGTERM and SIGHUP remove this file before they end the program, unless they are
// ignored. At most one file is remembered; a path too long for the system is not.
void remove_if_interrupted(const std::string& path);
// The file has its name, or is gone already.
void forget_leftover();

}  // namespace quarry
