// Bytes as a file that has a path, for readers that open their source themselves. One object serves all
// inputs of a process, so that an input costs no more than the copy of its bytes. What is never put is a
// hole: the file may seem far longer than what it stores.
#pragma once

#include "foundation/byte_view.h"
#include "support/expect.h"

#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace quarry::test {

class memory_file {
  public:
    explicit memory_file(const char* name) : m_fd(::memfd_create(name, MFD_CLOEXEC)) { expect(m_fd >= 0); }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;
    ~memory_file() { ::close(m_fd); }

    // The file is these bytes from here on.
    void hold(byte_view content) const {
        set_length(0);
        put(0, content);
    }
    // These bytes over what is there.
    void put(std::uint64_t position, byte_view content) const {
        expect(::pwrite(m_fd, content.data(), content.size(), static_cast<::off_t>(position)) ==
               static_cast<::ssize_t>(content.size()));
    }
    // Cuts the file, or lets it seem longer.
    void set_length(std::uint64_t length) const {
        expect(::ftruncate(m_fd, static_cast<::off_t>(length)) == 0);
    }
    [[nodiscard]] std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(m_fd); }
    [[nodiscard]] int descriptor() const { return m_fd; }

  private:
    int m_fd;
};

}  // namespace quarry::test
