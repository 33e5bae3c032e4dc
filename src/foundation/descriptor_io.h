// System calls on descriptors that do less than was asked: a signal interrupts them, or a write takes a part.
#pragma once

#include <cerrno>
#include <cstddef>

namespace quarry {

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
