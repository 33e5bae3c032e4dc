// Bytes as a file that has a path, for readers that open their source themselves. One object serves all
// inputs of a process, so that an input costs no more than the copy of its bytes.
#pragma once

#include "foundation/byte_view.h"
#include "support/expect.h"

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
        expect(::ftruncate(m_fd, 0) == 0);
        expect(::pwrite(m_fd, content.data(), content.size(), 0) == static_cast<::ssize_t>(content.size()));
    }
    [[nodiscard]] std::wstring path() const { return L"/proc/self/fd/" + std::to_wstring(m_fd); }
    [[nodiscard]] int descriptor() const { return m_fd; }

  private:
    int m_fd;
};

}  // namespace quarry::test
