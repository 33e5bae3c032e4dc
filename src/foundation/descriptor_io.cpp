#include "foundation/descriptor_io.h"

#include <sys/types.h>
#include <unistd.h>

namespace quarry {

int write_whole(int descriptor, const void* bytes, std::size_t length) {
    const auto* from = static_cast<const char*>(bytes);
    // Each turn writes a byte at least, or is the last.
    while (length != 0) {
        const ::ssize_t written = uninterrupted([&] { return ::write(descriptor, from, length); });
        if (written <= 0) {
            return written < 0 ? errno : ENOSPC;
        }
        from += written;
        length -= static_cast<std::size_t>(written);
    }
    return 0;
}

}  // namespace quarry
