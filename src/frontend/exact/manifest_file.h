// The file that the lines of a manifest are appended to.
//
// It is evidence of its own, so nothing in it is ever changed: it may be new, or a manifest of earlier runs
// that ends with a whole line. Each line is one write, which is on the disk before the next copy begins. A
// line for which there is no room is taken away again, so that the file still ends with a whole one.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace quarry::exact {

class manifest_file {
  public:
    // How long another program may keep the file locked. Signals wait as long: the copy whose line is to be
    // written has its name already. Another run needs the lock for one line.
    static constexpr std::chrono::milliseconds lock_patience{10000};

    // Opens the file or makes it, and protects it from the run's own copies. Fails with manifest for a path
    // that leads to the source, the log or a standard stream, for a link, for what is no regular file, for a
    // file that does not begin as a manifest does or does not end with a line feed, and if the system refuses
    // it. Fails also if another program keeps the file locked for longer than `patience`.
    [[nodiscard]] static result<std::unique_ptr<manifest_file>> open(
        const std::string& path, output_guard& guard, std::chrono::milliseconds patience = lock_patience);
    manifest_file(const manifest_file&) = delete;
    manifest_file& operator=(const manifest_file&) = delete;
    ~manifest_file();

    // Appends one line, with its line feed, and brings it to the disk. Fails with manifest, for a line that
    // is longer than any that is read again, while another program keeps the file locked, and otherwise with
    // the system's word; the file then ends as it did before.
    [[nodiscard]] result<void> append(std::string_view line);

    // As messages name it: "manifest P".
    [[nodiscard]] const std::string& where() const { return m_where; }
    // Open for reading too; the position is nobody's.
    [[nodiscard]] int descriptor() const { return m_descriptor; }

  private:
    struct only_by_open {};

  public:
    manifest_file(int descriptor, std::string where, std::chrono::milliseconds patience, only_by_open)
        : m_descriptor(descriptor), m_where(std::move(where)), m_patience(patience) {}

  private:
    [[nodiscard]] result<void> lock() const;

    int m_descriptor;
    std::string m_where;
    std::chrono::milliseconds m_patience;
};

}  // namespace quarry::exact
