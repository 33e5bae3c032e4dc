#include "frontend/exact/manifest_file.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "frontend/exact/manifest_line.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace quarry::exact {

namespace {

constexpr ::mode_t new_file_mode = 0666;
constexpr std::chrono::milliseconds between_attempts{20};

tl::unexpected<failure> refused(const std::string& where, std::string_view why) {
    return fail(failure_code::manifest, where, std::string(why));
}

// What is at the path already must be a regular file of this run's own.
result<void> check_path(const std::string& path, const std::string& where, const output_guard& guard) {
    const output_verdict verdict = guard.look_at(path, output_kind::report);
    if (verdict == output_verdict::source) {
        return refused(where, "is the source or lies on it");
    }
    struct ::stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? result<void>() : refused(where, std::strerror(errno));
    }
    if (S_ISLNK(status.st_mode)) {
        return refused(where, "is a link; links are not followed, name a file");
    }
    if (!S_ISREG(status.st_mode)) {
        return refused(where, "is no regular file");
    }
    if (verdict == output_verdict::taken) {
        return refused(where, "is the log, or standard input, output or error");
    }
    return {};
}

// A file that holds something must hold whole lines of a manifest.
result<void> check_content(int descriptor, std::uint64_t size, const std::string& where) {
    if (size == 0) {
        return {};
    }
    std::array<char, manifest_start.size()> head{};
    const ::ssize_t came = uninterrupted([&] { return ::pread(descriptor, head.data(), head.size(), 0); });
    if (came < 0) {
        return refused(where, std::strerror(errno));
    }
    if (std::string_view(head.data(), static_cast<std::size_t>(came)) != manifest_start) {
        return refused(where, "exists and is no manifest");
    }
    char last = 0;
    if (uninterrupted([&] { return ::pread(descriptor, &last, 1, static_cast<::off_t>(size - 1)); }) != 1) {
        return refused(where, std::strerror(errno));
    }
    return last == '\n' ? result<void>()
                        : refused(where, "does not end with a line feed: its last line is not whole");
}

// A new name must reach the disk as the lines do.
void sync_directory_of(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        // Some file systems cannot; the lines are synced all the same.
        (void)uninterrupted([&] { return ::fsync(descriptor); });
        ::close(descriptor);
    }
}

}  // namespace

result<std::unique_ptr<manifest_file>> manifest_file::open(const std::string& path, output_guard& guard,
                                                           std::chrono::milliseconds patience) {
    const std::string where = "manifest " + shown_typed(path);
    if (auto checked = check_path(path, where, guard); !checked) {
        return passed_on(checked);
    }
    const int descriptor = ::open(
        path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, new_file_mode);
    if (descriptor < 0) {
        const int error = errno;
        return refused(
            where, std::string(std::strerror(error)) + (error == ENOENT ? "; make the directory first" : ""));
    }
    auto file = std::make_unique<manifest_file>(descriptor, where, patience, only_by_open{});
    struct ::stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return refused(where, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return refused(where, "is no regular file");
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (auto checked = check_content(descriptor, size, where); !checked) {
        return passed_on(checked);
    }
    if (size == 0) {
        sync_directory_of(path);
    }
    // Who keeps it locked would keep the first line out, too.
    if (auto locked = file->lock(); !locked) {
        return passed_on(locked);
    }
    ::flock(descriptor, LOCK_UN);
    guard.protect_file(path);
    return file;
}

manifest_file::~manifest_file() {
    ::close(m_descriptor);
}

// Another run may append to the same file; none takes away what the other has just written.
result<void> manifest_file::lock() const {
    const auto end = std::chrono::steady_clock::now() + m_patience;
    while (uninterrupted([&] { return ::flock(m_descriptor, LOCK_EX | LOCK_NB); }) != 0) {
        if (errno != EWOULDBLOCK) {
            return refused(m_where, std::strerror(errno));
        }
        if (std::chrono::steady_clock::now() >= end) {
            return refused(m_where, "another program keeps it locked");
        }
        std::this_thread::sleep_for(between_attempts);
    }
    return {};
}

result<void> manifest_file::append(std::string_view line) {
    if (line.size() > longest_manifest_line + 1) {
        return refused(m_where, "it has " + std::to_string(line.size() - 1) + " bytes, " +
                                    std::to_string(longest_manifest_line) + " are possible");
    }
    if (auto locked = lock(); !locked) {
        return locked;
    }
    struct ::stat before {};
    int error = ::fstat(m_descriptor, &before) == 0 ? 0 : errno;
    // A file without a name is gone when the run ends.
    if (error == 0 && before.st_nlink == 0) {
        error = ENOENT;
    }
    if (error == 0) {
        const ::ssize_t written =
            uninterrupted([&] { return ::write(m_descriptor, line.data(), line.size()); });
        if (written != static_cast<::ssize_t>(line.size())) {
            error = written < 0 ? errno : ENOSPC;
        } else if (uninterrupted([&] { return ::fdatasync(m_descriptor); }) != 0) {
            error = errno;
        }
        if (error != 0 && written > 0) {
            (void)uninterrupted([&] { return ::ftruncate(m_descriptor, before.st_size); });
        }
    }
    ::flock(m_descriptor, LOCK_UN);
    return error == 0 ? result<void>() : refused(m_where, std::strerror(error));
}

}  // namespace quarry::exact
