// A descriptor that is closed at its end, and system calls on descriptors that do less than was asked: a
// signal interrupts them, or a write takes a part.
#pragma once

#include <cerrno>
#include <cstddef>
#include <unistd.h>

namespace quarry {

// Closes a descriptor. What a call of the system gave, so it may be -1: none.
class owned_descriptor {
  public:
    explicit owned_descriptor(int descriptor) : m_descriptor(descriptor) {}
    owned_descriptor(const owned_descriptor&) = delete;
    owned_descriptor& operator=(const owned_descriptor&) = delete;
    ~owned_descriptor() {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    [[nodiscard]] int get() const { return m_descriptor; }

  private:
    int m_descriptor;
};

// Repeats a system call as long as signals interrupt it, and gives what it answered in the end.
template <typename Call>
[[nodiscard]] auto uninterrupted(Call call) {
    auto answer = call();
    while (answer == -1 && errno == EINTR) {
        answer = call();
    }
    return answer;
}

// Writes `length` bytes at the descriptor's own position. Returns 0, or the error number of the call that
// failed: ENOSPC where the system took nothing and gave no reason. Some bytes may have been written then.
[[nodiscard]] int write_whole(int descriptor, const void* bytes, std::size_t length);

}  // namespace quarry
