#include "disk/file_source.h"

#include "disk/positioned_read.h"
#include "disk/stored_size.h"
#include "foundation/uni_fileio.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace quarry {

namespace {

// The error of a file of this kind that cannot be a source; 0 for one that can.
int error_of_kind(mode_t mode) {
    if (S_ISREG(mode) || S_ISBLK(mode)) {
        return 0;
    }
    if (S_ISDIR(mode)) {
        return EISDIR;
    }
    return S_ISFIFO(mode) || S_ISSOCK(mode) ? ESPIPE : ENOTBLK;
}

}  // namespace

std::unique_ptr<file_source> file_source::open(const std::string& path, int& error) {
    // Without O_NONBLOCK a FIFO would wait for a writer.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor == -1) {
        error = errno;
        return nullptr;
    }
    description told;
    error = describe(descriptor, told);
    if (error != 0) {
        ::close(descriptor);
        return nullptr;
    }
    return std::make_unique<file_source>(descriptor, told);
}

std::unique_ptr<file_source> file_source::open_any(const std::string& path, bool writable) {
    const int descriptor =
        writable ? uni::open_file(path, O_RDWR, 0606) : uni::open_file(path, O_RDONLY, 0404);
    if (descriptor == -1) {
        return nullptr;
    }
    description told;
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    told.has_end = end >= 0;
    if (told.has_end) {
        told.size = static_cast<std::uint64_t>(end);
        told.content_size = stored_bytes(descriptor, told.size);
    }
    return std::make_unique<file_source>(descriptor, told);
}

// Fills the description; the error number after a failure, otherwise 0.
int file_source::describe(int descriptor, description& told) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (const int error = error_of_kind(status.st_mode); error != 0) {
        return error;
    }
    if (S_ISREG(status.st_mode)) {
        told.size = static_cast<std::uint64_t>(status.st_size);
        told.content_size = stored_bytes(descriptor, told.size);
        told.modified_seconds = status.st_mtim.tv_sec;
        told.modified_nanoseconds = status.st_mtim.tv_nsec;
        return 0;
    }
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    if (end < 0) {
        return errno;
    }
    told.size = told.content_size = static_cast<std::uint64_t>(end);
    int sector_size = 0;
    if (::ioctl(descriptor, BLKSSZGET, &sector_size) == 0 && sector_size > 0) {
        told.sector_size = static_cast<std::uint32_t>(sector_size);
    }
    return 0;
}

file_source::file_source(int descriptor, const description& told) : m_descriptor(descriptor), m_told(told) {}

file_source::~file_source() {
    ::close(m_descriptor);
}

read_outcome file_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset >= size()) {
        return {};
    }
    const std::uint64_t inside = std::min<std::uint64_t>(buffer.size(), size() - offset);
    return read_from_descriptor(m_descriptor, buffer.first(static_cast<std::size_t>(inside)), offset);
}

void file_source::announce(std::uint64_t offset, std::uint64_t length) {
    if (offset < size()) {
        // No more than advice: nobody has to know where it is not taken.
        ::posix_fadvise(m_descriptor, static_cast<off_t>(offset),
                        static_cast<off_t>(std::min(length, size() - offset)), POSIX_FADV_WILLNEED);
    }
}

bool file_source::read_from_memory(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset > size() || buffer.size() > size() - offset) {
        return false;
    }
    iovec whole{buffer.data(), buffer.size()};
    return ::preadv2(m_descriptor, &whole, 1, static_cast<off_t>(offset), RWF_NOWAIT) ==
           static_cast<ssize_t>(buffer.size());
}

bool file_source::has_changed() const {
    description now;
    return describe(m_descriptor, now) != 0 || now.size != m_told.size ||
           now.modified_seconds != m_told.modified_seconds ||
           now.modified_nanoseconds != m_told.modified_nanoseconds;
}

}  // namespace quarry
