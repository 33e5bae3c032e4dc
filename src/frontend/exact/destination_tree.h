// The directories of a path, made below the destination.
//
//     -dst out/ -tree      /Users/anna/a.txt      out/  Users/  anna/  a.txt
//
// They are made one by one, each opened in the one above it, and no link is followed on the way: whatever
// names the volume has, nothing is made outside of the destination. Names are written as those of copies are.
// Directories that are there already are used.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <string>
#include <utility>
#include <vector>

namespace quarry::exact {

// A directory that is held open.
class open_directory {
  public:
    // Takes the descriptor over. `path` ends in "/".
    open_directory(int fd, std::string path) : m_fd(fd), m_path(std::move(path)) {}
    open_directory(open_directory&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1)), m_path(std::move(other.m_path)) {}
    open_directory& operator=(open_directory&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        std::swap(m_path, other.m_path);
        return *this;
    }
    open_directory(const open_directory&) = delete;
    open_directory& operator=(const open_directory&) = delete;
    ~open_directory();

    // Opens a directory that is there; a link in its path is followed. Fails with create.
    [[nodiscard]] static result<open_directory> at(std::string path);
    // Opens a directory of that name in this one, and makes it first if there is none, so that its name
    // reaches the disk; but nothing where the guard says that it would be written to the source. Fails with
    // exists for a link or a file of that name, with create or sync where the host refuses.
    [[nodiscard]] result<open_directory> child(const std::string& name, const output_guard& guard) const;

    [[nodiscard]] int fd() const { return m_fd; }
    [[nodiscard]] const std::string& path() const { return m_path; }
    // The descriptor is the caller's from here on.
    [[nodiscard]] int release() { return std::exchange(m_fd, -1); }

  private:
    [[nodiscard]] result<void> make(const std::string& name, const output_guard& guard) const;

    int m_fd;
    std::string m_path;
};

// The directory below `base` that the names lead to, from the top down, as the volume has them in units. All
// of them are made that are missing. Fails as open_directory does, and with create for a name that no
// directory can have.
[[nodiscard]] result<open_directory> open_tree(const std::string& base,
                                               const std::vector<std::u16string>& names,
                                               const output_guard& guard);

}  // namespace quarry::exact
