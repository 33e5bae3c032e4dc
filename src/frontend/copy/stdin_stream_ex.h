// The paths of a pipe run: lines of standard input, or the files below a directory of this host.
//
// A walk holds two queues: directories that are still to be listed and files that were found. Both grow with
// what is found; lines of standard input are not kept. Names that are no UTF-8 are left out, with all below
// them.
#pragma once

#include "foundation/uni_streams.h"
#include "frontend/options/filter_entry.h"
#include "frontend/options/time_range.h"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace qlportdir {

class stdin_stream_ex : public uni::stdin_stream {
  public:
    // `range` may be null: files of any time are found.
    explicit stdin_stream_ex(const quarry::time_range* range) : m_range(range) {}

    [[nodiscard]] bool open_stdin(bool check);
    // Files of `dir` and, up to `max_depth` levels below it, of its subdirectories. False for an empty path.
    [[nodiscard]] bool open_enum(const std::wstring& dir, std::int32_t max_depth,
                                 const quarry::filter_list& filter);
    // The next path. False at the end.
    bool getline(std::string& out, bool trim) override;
    bool getline(std::wstring& out, bool trim) override;

  private:
    void reset();
    // Lists directories until there is a file or no directory is left.
    void find_files();

    std::deque<std::pair<std::wstring, std::int32_t>> m_dirs;
    std::deque<std::wstring> m_files;
    std::int32_t m_max_depth = 1;
    quarry::filter_list m_filter;
    bool m_enumerating = false;
    const quarry::time_range* m_range;
};

// A found path as the rest of the run takes it: one that begins with two backslashes loses its prefix of four
// characters unless it names a global object, and becomes empty if it is too short to hold one.
void clean_found_path(std::wstring& path);

}  // namespace qlportdir
