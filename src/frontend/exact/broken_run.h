// What breaks a run off: memory that ran out, or a fault of the program.
//
// Both arrive as exceptions. They are caught where something is left to be said: at a copy, whose line of the
// manifest is written, at a list, whose last line is, and at the run, whose log says how it ended.
#pragma once

#include "exact/failure.h"

#include <string>

namespace quarry::exact {

// The exception that is being handled, as a failure at a place: memory, or else fault. Only within a handler.
// May throw std::bad_alloc.
[[nodiscard]] failure failure_in_flight(std::string where);

}  // namespace quarry::exact
