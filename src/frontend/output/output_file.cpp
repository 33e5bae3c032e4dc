#include "frontend/output/output_file.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"
#include "foundation/uni_fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr ::mode_t new_file_mode = 0666;

bool is_no_pipe(const std::wstring& path) {
    const int probe = uni::open_file(path, O_WRONLY | O_CREAT | O_CLOEXEC, new_file_mode);
    if (probe >= 0) {
        ::close(probe);
    }
    return probe >= 0;
}

}  // namespace

bool output_file::open(output_guard& guard, const std::wstring& path, output_kind kind) {
    const std::string name = quarry::narrow(path);
    if (guard.look_at(name, kind) != output_verdict::free ||
        (kind != output_kind::log && !is_no_pipe(path))) {
        return false;
    }
    uni::ofstream::open(path);
    if (is_open()) {
        guard.note(name, kind);
    }
    return is_open();
}

bool output_file::open_log_again(output_guard& guard, const std::string& path) {
    if (guard.look_at(path, output_kind::log) != output_verdict::free) {
        return false;
    }
    std::ofstream::open(path, std::ios_base::app);
    return is_open();
}

bool rename_output(output_guard& guard, const std::string& from, const std::string& to, output_kind kind) {
    if (guard.look_at(to, kind) != output_verdict::free || !rename_file(from, to, false)) {
        return false;
    }
    guard.forget(from);
    guard.note(to, kind);
    return true;
}

}  // namespace quarry
