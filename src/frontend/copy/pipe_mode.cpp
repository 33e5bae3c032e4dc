#include "frontend/copy/pipe_mode.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "frontend/copy/copy.h"
#include "frontend/copy/copy_messages.h"
#include "frontend/copy/stdin_stream_ex.h"
#include "frontend/options/expand_env.h"
#include "frontend/options/filter.h"
#include "frontend/output/console.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace quarry {

namespace {

bool open_paths(qlportdir::stdin_stream_ex& paths, const quarry_opts& opts) {
    if (opts.m_run.m_pipe) {
        return paths.open_stdin(true);
    }
    constexpr std::uint32_t deepest = std::numeric_limits<std::int32_t>::max();
    return paths.open_enum(widen(opts.m_run.m_enum_dir),
                           static_cast<std::int32_t>(std::min(opts.m_run.m_num_subdirs, deepest)),
                           opts.m_run.m_filter);
}

// The path that a line names. Nothing, without a word, for one that the filter drops and for one that names
// no file.
std::optional<std::wstring> path_of_line(const quarry_opts& opts, const std::string& line) {
    if (line.empty()) {
        return std::nullopt;
    }
    std::wstring path = widen(expand_env(line, true));
    uni::fileio_stats stats;
    bool open_failed = false;
    // Deliberate: skip filters are not looked at, although the command line takes them.
    if (!filter_match(&opts.m_run.m_time_range, open_failed, path, opts.m_run.m_filter, &stats)) {
        return std::nullopt;
    }
    std::wstring directory;
    std::wstring name;
    if (!split_path(directory, name, path) || name.empty()) {
        return std::nullopt;
    }
    return path;
}

}  // namespace

void run_pipe(quarry_opts& opts) {
    qlportdir::stdin_stream_ex paths(&opts.m_run.m_time_range);
    if (!open_paths(paths, opts)) {
        return;
    }
    std::unique_ptr<CNtfs> ntfs;
    bool first_copy = true;
    std::string line;
    while (paths.getline(line, true)) {
        const std::optional<std::wstring> path = path_of_line(opts, line);
        if (!path) {
            continue;
        }
        const bool copied = copy(ntfs, opts, *path, first_copy);
        print_outcome(opts.m_run, copied, (copied ? "success: " : "failed: ") + line);
        flush_output();
        // Deliberate: the destination is tried out only until the first success. The user sees a later one
        // that cannot be made reported as any other failure.
        first_copy = first_copy && !copied;
    }
}

}  // namespace quarry
