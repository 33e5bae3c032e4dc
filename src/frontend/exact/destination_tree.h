// The directories of a path, made below the destination.
//
//     -dst out/ -tree      /Users/anna/a.txt      out/  Users/  anna/  a.txt
//
// They are made one by one, each opened in the one above it, and no link is followed on the way: whatever
// names the volume has, nothing is made outside of the destination. Names are written as those of copies are.
// Directories that are there already are used. Those that were made for a copy that fails are removed again.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace quarry::exact {

// A directory that is held open.
class open_directory {
  public:
    // Takes the descriptor over. `path` ends in "/". `made` are the last names of it that were made on the
    // way.
    open_directory(int fd, std::string path, std::vector<std::string> made = {})
        : m_fd(fd), m_path(std::move(path)), m_made(std::move(made)) {}
    open_directory(open_directory&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1)),
          m_path(std::move(other.m_path)),
          m_made(std::move(other.m_made)) {}
    open_directory& operator=(open_directory&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        std::swap(m_path, other.m_path);
        std::swap(m_made, other.m_made);
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
    // The last names of the path that were not there before, from the top down.
    [[nodiscard]] const std::vector<std::string>& made() const { return m_made; }
    // The descriptor is the caller's from here on.
    [[nodiscard]] int release() { return std::exchange(m_fd, -1); }

  private:
    // False if somebody else made it meanwhile.
    [[nodiscard]] result<bool> make(const std::string& name, const output_guard& guard) const;

    int m_fd;
    std::string m_path;
    std::vector<std::string> m_made;
};

// The directories that were made on the way to one, which are removed at the end of the scope unless they are
// needed. One that is not empty, and all above it, stay.
class made_directories {
  public:
    explicit made_directories(const open_directory& last);
    made_directories(made_directories&& other) noexcept
        : m_fd(std::exchange(other.m_fd, -1)), m_names(std::move(other.m_names)) {}
    made_directories(const made_directories&) = delete;
    made_directories& operator=(const made_directories&) = delete;
    ~made_directories();

    void keep() { m_names.clear(); }

  private:
    int m_fd;  // the last one
    std::vector<std::string> m_names;
};

// The directory below `base` that the names lead to, from the top down, as the volume has them in units. All
// of them are made that are missing. Fails as open_directory does, and with create for a name that no
// directory can have and for a path that is too long for the host with a file name of `name_bytes` at its
// end; nothing that was made is left then.
[[nodiscard]] result<open_directory> open_tree(const std::string& base,
                                               const std::vector<std::u16string>& names,
                                               const output_guard& guard, std::size_t name_bytes = 0);

}  // namespace quarry::exact
