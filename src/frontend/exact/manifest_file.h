// The file that the lines of a manifest are appended to.
//
// It is evidence of its own, so nothing in it is ever changed: it may be new, or a manifest of earlier runs
// that ends with a whole line. Each line is one write, which is on the disk before the next copy begins. A
// line for which there is no room is taken away again, so that the file still ends with a whole one.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <memory>
#include <string>
#include <string_view>

namespace quarry::exact {

class manifest_file {
  public:
    // Opens the file or makes it, and protects it from the run's own copies. Fails with manifest for a path
    // that leads to the source, the log or a standard stream, for a link, for what is no regular file, for a
    // file that does not begin as a manifest does or does not end with a line feed, and if the system refuses
    // it.
    [[nodiscard]] static result<std::unique_ptr<manifest_file>> open(const std::string& path,
                                                                     output_guard& guard);
    manifest_file(const manifest_file&) = delete;
    manifest_file& operator=(const manifest_file&) = delete;
    ~manifest_file();

    // Appends one line, with its line feed, and brings it to the disk. Fails with manifest, whose reason is
    // the system's word; the file then ends as it did before.
    [[nodiscard]] result<void> append(std::string_view line);

    // As messages name it: "manifest P".
    [[nodiscard]] const std::string& where() const { return m_where; }
    // Open for reading too; the position is nobody's.
    [[nodiscard]] int descriptor() const { return m_descriptor; }

  private:
    struct only_by_open {};

  public:
    manifest_file(int descriptor, std::string where, only_by_open)
        : m_descriptor(descriptor), m_where(std::move(where)) {}

  private:
    int m_descriptor;
    std::string m_where;
};

}  // namespace quarry::exact
