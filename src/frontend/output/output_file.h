// The files that a run writes: copies, reports, the status log. None is opened without a look at the guard.
#pragma once

#include "foundation/uni_streams.h"
#include "frontend/output/output_guard.h"

#include <string>

namespace quarry {

class output_file : public uni::ofstream {
  public:
    output_file() = default;

    // Makes or empties a file. False if the guard keeps it from that or it cannot be opened. A copy or a
    // report at a FIFO or a socket is refused too, whose other end is not waited for: a name that leads to
    // one must not hold up the rest of a run. A log may be one.
    [[nodiscard]] bool open(output_guard& guard, const std::wstring& path, output_kind kind);
    // Opens the status log once more, after what it holds.
    [[nodiscard]] bool open_log_again(output_guard& guard, const std::string& path);
};

// Gives a closed output another name; an earlier file of that name is replaced. False if the guard or the
// system keeps it from that.
[[nodiscard]] bool rename_output(output_guard& guard, const std::string& from, const std::string& to,
                                 output_kind kind);

}  // namespace quarry
