// A scratch directory of a test's own: made empty under a name that no other test has, removed with all that
// is in it at the end of the scope.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace quarry::test {

class temp_dir {
  public:
    // Throws std::system_error when the directory cannot be made.
    temp_dir() {
        std::string name = (std::filesystem::temp_directory_path() / "quarry_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        m_path = name;
    }
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;
    // What a test made read-only is left over; it does not end the program.
    ~temp_dir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    // A name inside of the directory; nothing is made.
    [[nodiscard]] std::filesystem::path operator/(const std::filesystem::path& name) const {
        return m_path / name;
    }

  private:
    std::filesystem::path m_path;
};

}  // namespace quarry::test
