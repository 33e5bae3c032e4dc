// The files that a run has made, so that none of them is lost to another copy of the same run.
//
// Two lines of a list may ask for copies of one name. With -overwrite the second would replace the first, and
// evidence would be gone without a word. What is remembered of a copy are 16 bytes: its inode, the number of
// its file system in a table of its own, and the line that asked for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace quarry::exact {

// A file of the host.
struct host_file {
    ::dev_t device = 0;
    ::ino_t inode = 0;

    [[nodiscard]] bool operator==(const host_file&) const = default;
};

// The file at a path, a link itself if it is one; nothing if there is none.
[[nodiscard]] std::optional<host_file> file_at(const std::string& path);

class made_copies {
  public:
    // Takes the memory for one more file, so that the next `add` for a file system takes none.
    void make_room(::dev_t device);
    // `line` counts from 1 and is remembered up to 2^32 - 1.
    void add(const host_file& file, std::uint64_t line);
    // The line that a file was made for; nothing for a file that this run has not made.
    [[nodiscard]] std::optional<std::uint64_t> line_of(const host_file& file) const;

  private:
    // Of a hash table without links: a slot is empty if its line is 0.
    struct slot {
        std::uint64_t inode = 0;
        std::uint32_t device_number = 0;
        std::uint32_t line = 0;
    };

    [[nodiscard]] std::size_t place_of(std::uint64_t inode, std::uint32_t device_number) const;
    void grow();

    std::vector<::dev_t> m_devices;
    std::vector<slot> m_slots;  // a power of two of them, or none
    std::size_t m_used = 0;
};

}  // namespace quarry::exact
