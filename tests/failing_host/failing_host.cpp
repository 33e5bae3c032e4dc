// A host that fails on demand: a library to be loaded ahead of the C library, which comes between a program
// and its reads and writes of ordinary files. Environment variables say what it does, numbers in bytes:
//
// - FAIL_READS_FROM, FAIL_READS_TO: a read that touches this range of its file ends there, or fails with EIO
// - LONGEST_TRANSFER: no read or write moves more than this
// - INTERRUPTED: every other call fails with EINTR first
// - ROOM: a file takes this many bytes, then ENOSPC
// - VANISH_AT: once this many bytes were written to a file, its name is removed
// - SIGNAL_AT, SIGNAL: once this many bytes were written to a file, this signal is raised
// - SIGNAL_AT_CREATION: this signal is raised as soon as a file was made that must not have been there
// - SIGNAL_AT_TRIAL: this signal is raised as soon as a file was opened that may have been made by that
// - SHRINKS_AFTER, SHRINKS_TO: after this many reads of files, every file ends at this byte
// - CLOCK_JUMPS: each clock is a year ahead at its first reading, a year late at the next, and so on
// - SIGNAL_AT_REMOVAL: this signal is raised before a file that is not empty is removed
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr std::uint64_t never = ~std::uint64_t{0};

std::uint64_t setting(const char* name) {
    const char* text = std::getenv(name);
    return text == nullptr ? never : std::strtoull(text, nullptr, 10);
}

template <typename function>
function* next(const char* name) {
    return reinterpret_cast<function*>(::dlsym(RTLD_NEXT, name));
}

bool is_ordinary_file(int fd) {
    struct ::stat facts {};
    return ::fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode);
}

bool is_interrupted() {
    static bool interrupt = false;
    if (setting("INTERRUPTED") == never) {
        return false;
    }
    interrupt = !interrupt;
    return interrupt;
}

bool has_shrunk() {
    static std::uint64_t reads = 0;
    const std::uint64_t after = setting("SHRINKS_AFTER");
    return after != never && ++reads > after;
}

// In seconds. `readings` counts those of one clock.
std::time_t jump_of_clock(unsigned& readings) {
    constexpr std::time_t year = 365 * 86400;
    return setting("CLOCK_JUMPS") == never ? 0 : ++readings % 2 == 1 ? year : -year;
}

// Bytes of a read that are delivered; -1 with errno set if it fails.
::ssize_t allowed_read(std::size_t count, std::uint64_t offset) {
    if (is_interrupted()) {
        errno = EINTR;
        return -1;
    }
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, setting("LONGEST_TRANSFER")));
    if (has_shrunk()) {
        const std::uint64_t end = setting("SHRINKS_TO");
        count = static_cast<std::size_t>(std::min<std::uint64_t>(count, end - std::min(end, offset)));
    }
    const std::uint64_t from = setting("FAIL_READS_FROM");
    if (offset < setting("FAIL_READS_TO") && from != never && offset + count > from) {
        if (offset >= from) {
            errno = EIO;
            return -1;
        }
        count = static_cast<std::size_t>(from - offset);
    }
    return static_cast<::ssize_t>(count);
}

void remove_name_of(int fd) {
    std::array<char, PATH_MAX> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (::readlink(link.c_str(), path.data(), path.size() - 1) > 0) {
        ::unlink(path.data());
    }
}

// Bytes of a write that are taken; -1 with errno set if it fails.
::ssize_t allowed_write(int fd, std::size_t count) {
    if (is_interrupted()) {
        errno = EINTR;
        return -1;
    }
    struct ::stat facts {};
    ::fstat(fd, &facts);
    const auto written = static_cast<std::uint64_t>(facts.st_size);
    if (written >= setting("VANISH_AT")) {
        remove_name_of(fd);
    }
    if (written >= setting("SIGNAL_AT")) {
        ::raise(static_cast<int>(setting("SIGNAL")));
    }
    const std::uint64_t room = setting("ROOM");
    if (written >= room) {
        errno = ENOSPC;
        return -1;
    }
    std::uint64_t most = std::min(setting("LONGEST_TRANSFER"), room - written);
    for (const std::uint64_t stop : {setting("VANISH_AT"), setting("SIGNAL_AT")}) {
        most = written < stop ? std::min(most, stop - written) : most;
    }
    return static_cast<::ssize_t>(std::min<std::uint64_t>(count, most));
}

// What open(2) gives, with the signal if a new file was wanted and made.
int signalled_after(int fd, int flags) {
    const std::uint64_t signal = setting("SIGNAL_AT_CREATION");
    if (fd >= 0 && (flags & O_EXCL) != 0 && signal != never) {
        ::raise(static_cast<int>(signal));
    }
    const std::uint64_t trial_signal = setting("SIGNAL_AT_TRIAL");
    if (fd >= 0 && (flags & O_CREAT) != 0 && (flags & O_EXCL) == 0 && trial_signal != never) {
        ::raise(static_cast<int>(trial_signal));
    }
    return fd;
}

}  // namespace

extern "C" {

// Every open of the program, whose files may be large. It has a mode where it makes a file.
int open64(const char* path, int flags, ...) {
    static const auto real = next<int(const char*, int, ...)>("open64");
    ::mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, ::mode_t);
        va_end(arguments);
    }
    return signalled_after(real(path, flags, mode), flags);
}

int clock_gettime(::clockid_t clock, std::timespec* time) noexcept {
    static const auto real = next<int(::clockid_t, std::timespec*)>("clock_gettime");
    static unsigned readings = 0;
    const int result = real(clock, time);
    time->tv_sec += jump_of_clock(readings);
    return result;
}

int gettimeofday(::timeval* time, void* zone) noexcept {
    static const auto real = next<int(::timeval*, void*)>("gettimeofday");
    static unsigned readings = 0;
    const int result = real(time, zone);
    time->tv_sec += jump_of_clock(readings);
    return result;
}

std::time_t time(std::time_t* seconds) noexcept {
    static const auto real = next<std::time_t(std::time_t*)>("time");
    static unsigned readings = 0;
    const std::time_t result = real(nullptr) + jump_of_clock(readings);
    if (seconds != nullptr) {
        *seconds = result;
    }
    return result;
}

int unlink(const char* path) noexcept {
    static const auto real = next<int(const char*)>("unlink");
    struct ::stat facts {};
    const std::uint64_t signal = setting("SIGNAL_AT_REMOVAL");
    if (signal != never && ::stat(path, &facts) == 0 && facts.st_size != 0) {
        ::raise(static_cast<int>(signal));
    }
    return real(path);
}

::ssize_t pread64(int fd, void* buffer, std::size_t count, ::off64_t offset) {
    static const auto real = next<::ssize_t(int, void*, std::size_t, ::off64_t)>("pread64");
    if (is_ordinary_file(fd)) {
        const ::ssize_t allowed = allowed_read(count, static_cast<std::uint64_t>(offset));
        return allowed < 0 ? allowed : real(fd, buffer, static_cast<std::size_t>(allowed), offset);
    }
    return real(fd, buffer, count, offset);
}

// What a call of pread becomes where the compiler knows the size of the buffer.
::ssize_t __pread64_chk(int fd, void* buffer, std::size_t count, ::off64_t offset, std::size_t) {
    return pread64(fd, buffer, count, offset);
}

::ssize_t write(int fd, const void* buffer, std::size_t count) {
    static const auto real = next<::ssize_t(int, const void*, std::size_t)>("write");
    if (is_ordinary_file(fd)) {
        const ::ssize_t allowed = allowed_write(fd, count);
        return allowed < 0 ? allowed : real(fd, buffer, static_cast<std::size_t>(allowed));
    }
    return real(fd, buffer, count);
}

::ssize_t writev(int fd, const struct ::iovec* parts, int count) {
    static const auto real = next<::ssize_t(int, const struct ::iovec*, int)>("writev");
    if (!is_ordinary_file(fd)) {
        return real(fd, parts, count);
    }
    std::size_t total = 0;
    for (int i = 0; i < count; ++i) {
        total += parts[i].iov_len;
    }
    const ::ssize_t allowed = allowed_write(fd, total);
    if (allowed < 0 || static_cast<std::size_t>(allowed) == total) {
        return allowed < 0 ? allowed : real(fd, parts, count);
    }
    // The first part that holds anything, as far as it may go: a short write is a write.
    for (int i = 0; i < count; ++i) {
        if (parts[i].iov_len != 0) {
            return ::write(fd, parts[i].iov_base,
                           std::min(parts[i].iov_len, static_cast<std::size_t>(allowed)));
        }
    }
    return 0;
}
}
