#include "frontend/output/same_storage.h"

#include "foundation/uni_fileio.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <linux/loop.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

namespace quarry {

namespace {

constexpr unsigned loop_major = 7;
constexpr int most_links = 40;  // as many as the system follows

storage_id file_id(::dev_t device, ::ino_t inode) {
    return {false, device, inode};
}

storage_id device_id(::dev_t device) {
    return {true, device, 0};
}

std::optional<struct ::stat> status_of(const std::string& path) {
    struct ::stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return status;
}

std::string directory_of(const std::string& path) {
    const std::size_t separator = path.rfind('/');
    return separator == std::string::npos ? "." : path.substr(0, separator + 1);
}

// The path at the end of all links. Ends after as many as the system would follow.
std::string without_links(std::string path) {
    std::array<char, PATH_MAX> target{};
    for (int link = 0; link < most_links; ++link) {
        const ::ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length <= 0) {
            break;
        }
        const std::string next(target.data(), static_cast<std::size_t>(length));
        path = next.front() == '/' ? std::string() : directory_of(path).append("/");
        path += next;
    }
    return path;
}

// What stat(2) says, and the mount.
std::optional<struct ::statx> status_with_mount(const std::string& path) {
    struct ::statx status {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_MNT_ID, &status) != 0) {
        return std::nullopt;
    }
    return status;
}

file_system_id file_system_of(const struct ::statx& status) {
    const bool mount_is_known = (status.stx_mask & STATX_MNT_ID) != 0;
    return {::makedev(status.stx_dev_major, status.stx_dev_minor), mount_is_known ? status.stx_mnt_id : 0};
}

std::string number_text(::dev_t device) {
    return std::to_string(::major(device)) + ":" + std::to_string(::minor(device));
}

// "8:1", or nothing for a text that is no device number.
std::optional<::dev_t> parse_device(const std::string& text) {
    unsigned major = 0;
    unsigned minor = 0;
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, major);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != ':' ||
        std::from_chars(first.ptr + 1, end, minor).ec != std::errc()) {
        return std::nullopt;
    }
    return ::makedev(major, minor);
}

std::string first_line_of(const std::string& path) {
    std::string line;
    std::ifstream file(path);
    std::getline(file, line);
    return line;
}

std::vector<std::string> names_in(const std::string& directory) {
    std::vector<std::string> names;
    const std::unique_ptr<::DIR, int (*)(::DIR*)> listing(::opendir(directory.c_str()), ::closedir);
    while (const ::dirent* const entry = listing == nullptr ? nullptr : ::readdir(listing.get())) {
        if (const std::string name = entry->d_name; name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

// A line of mountinfo: "36 35 98:0 /root /mnt rw,noatime master:1 - ext3 /dev/root rw,errors=continue".
struct mount_line {
    std::uint64_t mount = 0;
    std::string device;
    std::string source;
};

// Blanks and some other characters are written as a backslash and three octal digits.
std::string without_escapes(const std::string& text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned code = 0;
        const char* const digits = text.data() + at + 1;
        if (text[at] == '\\' && text.size() - at > 3 &&
            std::from_chars(digits, digits + 3, code, 8).ptr == digits + 3) {
            plain += static_cast<char>(code);
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

mount_line parse_mount(const std::string& line) {
    std::string_view rest = line;
    const auto next_word = [&rest] {
        const std::string_view word = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(word.size() + 1, rest.size()));
        return word;
    };
    mount_line mount;
    const std::string_view number = next_word();
    static_cast<void>(std::from_chars(number.data(), number.data() + number.size(), mount.mount));
    next_word();
    mount.device = next_word();
    while (!rest.empty() && next_word() != "-") {
    }
    next_word();
    mount.source = without_escapes(std::string(next_word()));
    return mount;
}

// Goes down from a device or a file to all that it is made of. Ends because each device and file is entered
// once.
class storage_walk {
  public:
    storage_walk(storage_set& set, const kernel_places& places, bool through_file_systems)
        : m_set(set), m_places(places), m_through_file_systems(through_file_systems) {}

    void add_device(::dev_t device, const std::string& node) {
        if (!m_set.insert(device_id(device)).second) {
            return;
        }
        const std::string directory = m_places.block_devices + "/" + number_text(device);
        add_backing_file(device, node, directory);
        if (::access((directory + "/partition").c_str(), F_OK) == 0) {
            add_device_of_line(directory + "/../dev");
        }
        const std::string slaves = directory + "/slaves/";
        for (std::string slave : names_in(slaves)) {
            add_device_of_line(slave.insert(0, slaves).append("/dev"));
        }
    }

    void add_file(::dev_t device, ::ino_t inode) {
        if (m_set.insert(file_id(device, inode)).second && m_through_file_systems) {
            add_file_system({device, 0});
        }
    }

    // What is mounted. A file system without a device of its own, such as one of FUSE, may still name a file
    // or a device as its source; that of a device whose sysfs is missing names the node to ask.
    void add_file_system(const file_system_id& file_system) {
        const bool has_device = ::major(file_system.device) != 0;
        const std::string directory = m_places.block_devices + "/" + number_text(file_system.device);
        if (has_device && ::access(directory.c_str(), F_OK) == 0) {
            add_device(file_system.device, {});
            return;
        }
        std::ifstream mounts(m_places.mounts);
        for (std::string line; std::getline(mounts, line);) {
            const mount_line mount = parse_mount(line);
            if (mount.device == number_text(file_system.device) ||
                (file_system.mount != 0 && mount.mount == file_system.mount)) {
                add_mount_source(mount.source);
            }
        }
        if (has_device) {
            add_device(file_system.device, {});
        }
    }

  private:
    void add_mount_source(const std::string& source) {
        const auto status = source.starts_with('/') ? status_of(source) : std::nullopt;
        if (status && S_ISBLK(status->st_mode)) {
            add_device(status->st_rdev, source);
        } else if (status && S_ISREG(status->st_mode)) {
            add_file(status->st_dev, status->st_ino);
        }
    }

    void add_device_of_line(const std::string& path) {
        if (const auto device = parse_device(first_line_of(path))) {
            add_device(*device, {});
        }
    }

    void add_backing_file(::dev_t device, const std::string& node, const std::string& directory) {
        for (const std::string& name :
             {node, m_places.device_nodes + "/loop" + std::to_string(::minor(device))}) {
            if (add_by_status(device, name)) {
                return;
            }
        }
        // Without the right to open the device. A partition of it lies in the directory of the whole.
        for (const char* const place : {"/loop/backing_file", "/../loop/backing_file"}) {
            if (const auto status = status_of(first_line_of(directory + place))) {
                if (S_ISBLK(status->st_mode)) {
                    add_device(status->st_rdev, {});
                } else {
                    add_file(status->st_dev, status->st_ino);
                }
                return;
            }
        }
    }

    // Asks a loop device, or a partition of one, for its backing file. False if it is none or cannot be
    // opened.
    bool add_by_status(::dev_t device, const std::string& node) {
        const auto status = status_of(node);
        if (!status || !S_ISBLK(status->st_mode) || status->st_rdev != device || !may_be_loop(device)) {
            return false;
        }
        const int fd = ::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            return false;
        }
        struct ::loop_info64 info {};
        const bool known = ::ioctl(fd, LOOP_GET_STATUS64, &info) == 0;
        ::close(fd);
        if (known) {
            // Older kernels give a file the number of its file system here too.
            if (info.lo_rdevice != 0 && info.lo_rdevice != info.lo_device) {
                add_device(info.lo_rdevice, {});
            } else {
                add_file(info.lo_device, info.lo_inode);
            }
        }
        return known;
    }

    // Partitions beyond the reserved numbers of their device have numbers of a common range.
    static bool may_be_loop(::dev_t device) {
        constexpr unsigned common_major = 259;
        return ::major(device) == loop_major || ::major(device) == common_major;
    }

    storage_set& m_set;
    const kernel_places& m_places;
    bool m_through_file_systems;
};

}  // namespace

found_file look_up(const std::string& path) {
    found_file found;
    found.path = without_links(path);
    const auto status = status_with_mount(path);
    if (!status) {
        const auto directory = status_with_mount(directory_of(found.path));
        found.file_system = directory ? file_system_of(*directory) : file_system_id();
        return found;
    }
    found.exists = true;
    found.mode = status->stx_mode;
    found.file_system = file_system_of(*status);
    found.id = S_ISBLK(found.mode) ? device_id(::makedev(status->stx_rdev_major, status->stx_rdev_minor))
                                   : file_id(found.file_system.device, status->stx_ino);
    found.likeness = {status->stx_ino,          static_cast<::off_t>(status->stx_size),
                      status->stx_mtime.tv_sec, status->stx_mtime.tv_nsec,
                      status->stx_ctime.tv_sec, status->stx_ctime.tv_nsec};
    return found;
}

void add_storage(storage_set& set, const found_file& file, const kernel_places& places) {
    storage_walk walk(set, places, false);
    if (file.exists && file.id.is_device) {
        walk.add_device(file.id.device, file.path);
    } else if (file.exists) {
        walk.add_file(file.id.device, file.id.inode);
    }
}

void add_storage_of_file_system(storage_set& set, const file_system_id& file_system,
                                const kernel_places& places) {
    storage_walk(set, places, true).add_file_system(file_system);
}

}  // namespace quarry
