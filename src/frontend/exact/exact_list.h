// A list of orders, carried out one after another.
//
// A line that fails is reported, and the next one begins. At the end one line says what became of all of
// them, and the exit status says it too:
//
//     list: 138 asked, 136 complete, 1 in doubt, 1 failed, 0 kept
#pragma once

#include "frontend/exact/copy_session.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/exact_status.h"
#include "frontend/exact/list_lines.h"
#include "frontend/exact/list_scout.h"

#include <cstdint>
#include <string>

namespace quarry::exact {

struct list_count {
    std::uint64_t asked = 0;  // lines that are not empty
    std::uint64_t complete = 0;
    std::uint64_t in_doubt = 0;
    std::uint64_t failed = 0;
    std::uint64_t kept = 0;  // copies of an earlier run
    // The list could not be read to its end.
    bool cut_off = false;

    void add(copy_end end);
    // 0 also for a list without a line: nothing was asked for, and nothing failed.
    [[nodiscard]] exit_status status() const;
    // The last line of the run.
    [[nodiscard]] std::string text() const;
};

// Carries out every line, in order, unless the session must end before. `lines` has begun; `scout` goes
// ahead.
[[nodiscard]] exit_status copy_list(copy_session& session, list_lines& lines, list_scout& scout,
                                    exact_messages& messages);

}  // namespace quarry::exact
