// Which storage a path of the host leads to.
//
// The same bytes can have many names: links, the nodes of a drive and of its partitions, a loop device and
// its backing file (which may be a loop device again, or a file whose name is gone), a device-mapper volume
// over any of these, and the files of a file system that is mounted from one. Who writes to one name writes
// to all.
//
// The kernel says what a device is made of in three places: directories of sysfs ("partition", "slaves",
// "loop/backing_file"), the ioctl LOOP_GET_STATUS64, which also knows files without a name and needs no
// sysfs, and the list of mounts. A file of an overlay and the file of the layer below it have one likeness,
// see file_likeness. What none of these says is not known here: a remote host's disk on a network file
// system.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <sys/types.h>
#include <tuple>

namespace quarry {

// A file, by the device number of its file system and its inode, or a block device, by its own number.
struct storage_id {
    bool is_device = false;
    ::dev_t device = 0;
    ::ino_t inode = 0;  // 0 for a device

    [[nodiscard]] bool operator==(const storage_id&) const = default;
    [[nodiscard]] bool operator<(const storage_id& other) const {
        return std::tie(is_device, device, inode) < std::tie(other.is_device, other.device, other.inode);
    }
};
using storage_set = std::set<storage_id>;

// What the two names of a file that an overlay shows have in common: the overlay and its layer are file
// systems of different numbers, but inode, size and times are passed through. Two files that differ never
// agree in all of it: the time of the last change is kept in nanoseconds and cannot be set.
struct file_likeness {
    ::ino_t inode = 0;
    ::off_t size = 0;  // bytes
    std::int64_t modified_seconds = 0;
    std::int64_t modified_nanoseconds = 0;
    std::int64_t changed_seconds = 0;
    std::int64_t changed_nanoseconds = 0;

    [[nodiscard]] bool operator<(const file_likeness& other) const {
        const auto all = [](const file_likeness& of) {
            return std::tie(of.inode, of.size, of.modified_seconds, of.modified_nanoseconds,
                            of.changed_seconds, of.changed_nanoseconds);
        };
        return all(*this) < all(other);
    }
};

// Where the kernel describes devices and mounts.
struct kernel_places {
    std::string block_devices = "/sys/dev/block";
    std::string mounts = "/proc/self/mountinfo";
    std::string device_nodes = "/dev";
};

// Where the bytes of a file lie or would lie: the file system, as stat(2) and statx(2) number it.
struct file_system_id {
    ::dev_t device = 0;
    std::uint64_t mount = 0;  // 0: not known

    [[nodiscard]] bool operator==(const file_system_id&) const = default;
    [[nodiscard]] bool operator<(const file_system_id& other) const {
        return std::tie(device, mount) < std::tie(other.device, other.mount);
    }
};

// What is found under a path, links followed.
struct found_file {
    bool exists = false;
    ::mode_t mode = 0;           // of what exists
    storage_id id;               // of what exists
    file_likeness likeness;      // of what exists
    std::string path;            // without links at its end
    file_system_id file_system;  // of the file, or of the directory in which it would be made
};

// Looks a path up. A link that leads to nothing counts as the file that would be made through it. Where not
// even the directory exists, all but the path is empty.
[[nodiscard]] found_file look_up(const std::string& path);

// Adds what exists under a path, and what that is made of: the drive of a partition, the backing file of a
// loop device, the devices below a device-mapper volume, and so on down.
void add_storage(storage_set& set, const found_file& file, const kernel_places& places = {});

// Adds the devices that take the bytes of a file system, with what they are made of and, for each file among
// this, the devices that take that file's bytes.
void add_storage_of_file_system(storage_set& set, const file_system_id& file_system,
                                const kernel_places& places = {});

}  // namespace quarry
