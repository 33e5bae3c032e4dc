#include "frontend/output/creation_check.h"

#include "foundation/uni_fileio.h"
#include "frontend/output/leftover.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr ::mode_t new_file_mode = 0666;

void remove_ordinary_file(const char* path) {
    struct ::stat status {};
    if (::lstat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        ::unlink(path);
    }
}

// Removes the file that a path leads to when all links are followed. Takes no memory: where that has run out
// the file must not stay.
void remove_target(const char* path) {
    std::array<char, PATH_MAX> target{};
    remove_ordinary_file(::realpath(path, target.data()) != nullptr ? target.data() : path);
}

}  // namespace

bool can_be_created(const output_guard& guard, const std::string& path, output_kind kind, bool append) {
    if (guard.look_at(path, kind) != output_verdict::free) {
        return false;
    }
    const bool existed = ::access(path.c_str(), F_OK) == 0;
    // No signal may end the program while a file is there that only this check has made. An earlier file
    // needs no such care.
    std::optional<signals_held_back> quiet;
    if (!existed) {
        quiet.emplace();
    }
    const int fd =
        uni::open_file(path, O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : 0), new_file_mode);
    if (fd < 0) {
        return false;
    }
    ::close(fd);
    // Deliberate: an ordinary file that was there before is gone afterwards; it does not stay until the copy
    // replaces it. The user sees no file at all after a copy that fails.
    //
    // A link that led to nothing has a target now, which is to go again.
    if (existed) {
        remove_ordinary_file(path.c_str());
    } else {
        remove_target(path.c_str());
    }
    return true;
}

}  // namespace quarry
