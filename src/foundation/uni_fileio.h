// Low-level files: the guarded open, and a file with an in-memory twin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/types.h>
#include <vector>

#include "foundation/uni_streams.h"

namespace uni {

// A descriptor, or -1. Adds large-file support and non-blocking mode; refuses a FIFO or a socket.
[[nodiscard]] int open_file(const std::string& path, int flags, ::mode_t mode);
[[nodiscard]] int open_file(const std::wstring& path, int flags, ::mode_t mode);

class fileio : public fileio_stats {
  public:
    fileio() = default;
    fileio(const fileio&) = delete;
    fileio& operator=(const fileio&) = delete;
    ~fileio() override;

    [[nodiscard]] bool open(const std::wstring& path, bool write, bool keep, bool create);
    [[nodiscard]] bool open_memory();
    [[nodiscard]] bool append(const void* bytes, std::size_t length);
    [[nodiscard]] bool append_text(const std::ostringstream& text);
    [[nodiscard]] bool write_at(const void* bytes, std::size_t length, std::uint64_t offset);
    [[nodiscard]] bool read_at(std::vector<std::uint8_t>& out, std::uint64_t length, std::uint64_t offset);
    [[nodiscard]] bool read_into(void* buffer, std::uint64_t& length, std::uint64_t offset);
    [[nodiscard]] bool write_all(const void* bytes, std::size_t length);
    [[nodiscard]] std::uint64_t size();
    [[nodiscard]] bool set_mode(const std::string& octal_text);
    void close();

    int m_fd = -1;
    std::uint64_t m_size = 0;
    bool m_open_write = false;
    bool m_is_open = false;
    bool m_keep_on_close = false;
    std::wstring m_path;
    std::vector<std::uint8_t> m_memory;
    bool m_in_memory = false;
    std::uint64_t m_position = 0;
    std::unique_ptr<std::ostream> m_ostream;
};

}  // namespace uni
