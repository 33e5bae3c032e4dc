#include "frontend/exact/destination_tree.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "frontend/exact/destination_path.h"
#include "volume/attribute_layout.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry::exact {

namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr ::mode_t new_directory_mode = 0777;

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
    int fd = ::openat(m_fd, name.c_str(), directory_flags | O_NOFOLLOW);
    if (fd < 0 && errno == ENOENT) {
        if (auto made = make(name, guard); !made) {
            return passed_on(made);
        }
        fd = ::openat(m_fd, name.c_str(), directory_flags | O_NOFOLLOW);
    }
    if (fd < 0) {
        return not_opened(m_fd, name, path, errno);
    }
    return open_directory(fd, path + "/");
}

result<void> open_directory::make(const std::string& name, const output_guard& guard) const {
    if (guard.is_on_source(m_path)) {
        return refused(failure_code::exists, m_path, "lies on the source");
    }
    // Somebody else may have made it meanwhile; whatever it is, it is looked at when it is opened.
    if (::mkdirat(m_fd, name.c_str(), new_directory_mode) != 0 && errno != EEXIST) {
        return refused(failure_code::create, m_path + name, std::strerror(errno));
    }
    if (uninterrupted([&] { return ::fsync(m_fd); }) != 0 && errno != EINVAL) {
        return refused(failure_code::sync, m_path, std::strerror(errno));
    }
    return {};
}

result<open_directory> open_tree(const std::string& base, const std::vector<std::u16string>& names,
                                 const output_guard& guard) {
    auto directory = open_directory::at(base);
    for (const std::u16string& name : names) {
        if (!directory) {
            break;
        }
        auto name_here = name_on_host(name, {}, attr_data);
        if (!name_here) {
            return passed_on(name_here);
        }
        auto child = directory->child(*name_here, guard);
        directory = std::move(child);
    }
    return directory;
}

}  // namespace quarry::exact
