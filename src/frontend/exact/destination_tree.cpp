#include "frontend/exact/destination_tree.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "frontend/exact/destination_path.h"
#include "volume/attribute_layout.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quarry::exact {

namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr ::mode_t new_directory_mode = 0777;
// "_3fa07"
constexpr std::size_t bytes_of_temporary_name = 6;

tl::unexpected<failure> refused(failure_code code, const std::string& path, std::string why) {
    return fail(code, where::destination(shown_typed(path)), std::move(why));
}

// What is in the way of a directory.
tl::unexpected<failure> not_opened(int parent, const std::string& name, const std::string& path, int error) {
    struct ::stat status {};
    if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(status.st_mode)) {
            return refused(failure_code::exists, path, "is a link");
        }
        if (!S_ISDIR(status.st_mode)) {
            return refused(failure_code::exists, path, "is no directory");
        }
    }
    return refused(failure_code::create, path, std::strerror(error));
}

// What the directories are called on the host. Refused before any of them is made: a path that could not be
// given to the host as a whole, and a name that no directory can have.
result<std::vector<std::string>> names_on_host(const std::string& base,
                                               const std::vector<std::u16string>& names,
                                               std::size_t name_bytes) {
    // With the zero byte at its end. The temporary name of the copy needs room, too.
    std::size_t bytes = base.size() + std::max(name_bytes, bytes_of_temporary_name) + 1;
    std::vector<std::string> on_host;
    for (const std::u16string& name : names) {
        auto each = name_on_host(name, {}, attr_data);
        if (!each) {
            return passed_on(each);
        }
        bytes += each->size() + 1;
        on_host.push_back(std::move(*each));
    }
    if (bytes > PATH_MAX) {
        return refused(failure_code::create, base,
                       "with the directories of the path the name has " + std::to_string(bytes - 1) +
                           " bytes, " + std::to_string(PATH_MAX - 1) + " are possible; leave -tree out");
    }
    return on_host;
}

}  // namespace

open_directory::~open_directory() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

result<open_directory> open_directory::at(std::string path) {
    const int fd = ::open(path.c_str(), directory_flags);
    if (fd < 0) {
        return refused(failure_code::create, path, std::strerror(errno));
    }
    return open_directory(fd, std::move(path));
}

result<open_directory> open_directory::child(const std::string& name, const output_guard& guard) const {
    const std::string path = m_path + name;
    std::vector<std::string> made;
    int fd = ::openat(m_fd, name.c_str(), directory_flags | O_NOFOLLOW);
    if (fd < 0 && errno == ENOENT) {
        const auto is_new = make(name, guard);
        if (!is_new) {
            return passed_on(is_new);
        }
        if (*is_new) {
            made = m_made;
            made.push_back(name);
        }
        fd = ::openat(m_fd, name.c_str(), directory_flags | O_NOFOLLOW);
    }
    if (fd < 0) {
        return not_opened(m_fd, name, path, errno);
    }
    return open_directory(fd, path + "/", std::move(made));
}

result<bool> open_directory::make(const std::string& name, const output_guard& guard) const {
    if (guard.is_on_source(m_path)) {
        return refused(failure_code::exists, m_path, "lies on the source");
    }
    // Somebody else may have made it meanwhile; whatever it is, it is looked at when it is opened.
    const bool is_new = ::mkdirat(m_fd, name.c_str(), new_directory_mode) == 0;
    if (!is_new && errno != EEXIST) {
        return refused(failure_code::create, m_path + name, std::strerror(errno));
    }
    if (uninterrupted([&] { return ::fsync(m_fd); }) != 0 && errno != EINVAL) {
        const int error = errno;
        if (is_new) {
            ::unlinkat(m_fd, name.c_str(), AT_REMOVEDIR);
        }
        return refused(failure_code::sync, m_path, std::strerror(error));
    }
    return is_new;
}

made_directories::made_directories(const open_directory& last)
    : m_fd(last.made().empty() ? -1 : ::fcntl(last.fd(), F_DUPFD_CLOEXEC, 0)), m_names(last.made()) {}

// From the last one up: the directory above is found from the one below, so that no path is walked again.
made_directories::~made_directories() {
    while (m_fd >= 0 && !m_names.empty()) {
        const int above = ::openat(m_fd, "..", directory_flags);
        ::close(std::exchange(m_fd, above));
        if (above >= 0 && ::unlinkat(above, m_names.back().c_str(), AT_REMOVEDIR) != 0) {
            break;
        }
        m_names.pop_back();
    }
    if (m_fd >= 0) {
        ::close(m_fd);
    }
}

result<open_directory> open_tree(const std::string& base, const std::vector<std::u16string>& names,
                                 const output_guard& guard, std::size_t name_bytes) {
    const auto on_host = names_on_host(base, names, name_bytes);
    if (!on_host) {
        return passed_on(on_host);
    }
    auto directory = open_directory::at(base);
    for (const std::string& name : *on_host) {
        if (!directory) {
            break;
        }
        auto child = directory->child(name, guard);
        if (!child) {
            const made_directories removed(*directory);
            return child;
        }
        directory = std::move(child);
    }
    return directory;
}

}  // namespace quarry::exact
