// Plain files that are used as physical drives: in its scope, drive 0 is the file "sda" of a scratch
// directory, drive 1 is "sdb", and so on.
#pragma once

#include "disk/drive_source.h"
#include "support/temp_dir.h"

#include <filesystem>
#include <string>

namespace quarry::test {

class device_files {
  public:
    device_files() : m_usual_directory(device_directory()) { device_directory() = m_dir.path().string(); }
    device_files(const device_files&) = delete;
    device_files& operator=(const device_files&) = delete;
    ~device_files() { device_directory() = m_usual_directory; }

    // The file of a drive, "sda" to "sdt"; nothing is made.
    [[nodiscard]] std::filesystem::path drive(int number) const {
        return m_dir / (std::string("sd") + static_cast<char>('a' + number));
    }

  private:
    temp_dir m_dir;
    std::string m_usual_directory;
};

}  // namespace quarry::test
