// A temporary file that nobody else made: it cannot be opened through a link or over a file that was planted
// under its name, and it is gone when its owner is or a signal ends the run, unless it was given a name of
// its own.
#pragma once

#include "frontend/output/output_guard.h"

#include <array>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

namespace quarry {

class exclusive_file {
  public:
    exclusive_file() = default;
    exclusive_file(const exclusive_file&) = delete;
    exclusive_file& operator=(const exclusive_file&) = delete;
    ~exclusive_file();

    // Makes a file "_" and five random characters of 0 to 9 and a to f in a directory. False if the guard
    // keeps it from that or none can be made.
    [[nodiscard]] bool create(const output_guard& guard, const std::string& directory);
    // Only after create.
    [[nodiscard]] std::ostream& stream() { return m_stream; }
    // True if all that was written has reached the file.
    [[nodiscard]] bool close();
    // Gives the closed file its final name, as a copy; an earlier file of that name is replaced. False if the
    // guard keeps it from that or it fails.
    [[nodiscard]] bool rename_to(output_guard& guard, const std::string& path);

  private:
    // Writes to a descriptor, which it owns.
    class descriptor_buffer : public std::streambuf {
      public:
        descriptor_buffer() = default;
        descriptor_buffer(const descriptor_buffer&) = delete;
        descriptor_buffer& operator=(const descriptor_buffer&) = delete;
        ~descriptor_buffer() override;
        void attach(int fd);
        bool close();

      protected:
        int_type overflow(int_type character) override;
        std::streamsize xsputn(const char* from, std::streamsize count) override;
        int sync() override;

      private:
        [[nodiscard]] bool write_all(const char* from, const char* end) const;

        std::array<char, 65536> m_bytes{};
        int m_fd = -1;
    };

    descriptor_buffer m_buffer;
    std::ostream m_stream{nullptr};
    std::string m_path;  // empty: there is nothing to remove
};

// Five random characters of 0 to 9 and a to f.
[[nodiscard]] std::string random_name();

}  // namespace quarry
