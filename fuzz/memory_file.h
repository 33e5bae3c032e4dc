// Bytes of a fuzzer as a file that has a path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace quarry::fuzz {

class memory_file {
  public:
    memory_file(const std::uint8_t* bytes, std::size_t size) : m_fd(::memfd_create("fuzz", 0)) {
        if (m_fd < 0 || ::write(m_fd, bytes, size) != static_cast<::ssize_t>(size)) {
            std::abort();
        }
    }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;
    ~memory_file() { ::close(m_fd); }
    [[nodiscard]] std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(m_fd); }

  private:
    int m_fd;
};

}  // namespace quarry::fuzz
