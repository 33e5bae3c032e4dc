#include "foundation/uni_fileio.h"

#include "foundation/descriptor_io.h"
#include "foundation/ql_string.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace uni {

namespace {

constexpr std::uint64_t largest_portion = 0x10000000;
// A vector grows with what was read, in portions from this size up, so that a size that is only claimed (that
// of a directory, say) costs no memory.
constexpr std::uint64_t first_portion = 0x100000;
constexpr std::uint64_t assumed_proc_size = 0x40000;
constexpr std::uint64_t largest_offset = std::numeric_limits<std::int64_t>::max();

// The mode's type bits: 0x1000 is a FIFO, 0xC000 a socket.
bool is_pipe_or_socket(::mode_t mode) {
    return (mode & 0x1000) != 0 || (mode & 0xC000) == 0xC000;
}

bool write_bytes(int fd, const void* bytes, std::size_t length) {
    return quarry::write_whole(fd, bytes, length) == 0;
}

}  // namespace

int open_file(const std::string& path, int flags, ::mode_t mode) {
    if (path.empty()) {
        return -1;
    }
    // Without O_NONBLOCK the open of a FIFO would wait for its other end before its kind can be looked at.
    const int fd =
        quarry::uninterrupted([&] { return ::open64(path.c_str(), flags | O_LARGEFILE | O_NONBLOCK, mode); });
    if (fd == -1) {
        return -1;
    }
    struct ::stat64 status = {};
    bool accepted = ::fstat64(fd, &status) == 0 && !is_pipe_or_socket(status.st_mode);
    if (accepted && (flags & O_NONBLOCK) == 0) {
        // Of these flags F_SETFL takes those that can change. O_NONBLOCK is not among them.
        accepted = ::fcntl(fd, F_SETFL, flags) != -1;
    }
    if (!accepted) {
        ::close(fd);
        return -1;
    }
    return fd;
}

int open_file(const std::wstring& path, int flags, ::mode_t mode) {
    return open_file(quarry::narrow(path), flags, mode);
}

bool may_be_opened_unasked(const std::wstring& path) {
    struct ::stat64 status = {};
    return ::stat64(quarry::narrow(path).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size > 0;
}

bool may_be_read(const std::wstring& path) {
    const std::string narrow_path = quarry::narrow(path);
    struct ::stat64 status = {};
    return ::stat64(narrow_path.c_str(), &status) == 0 && !is_pipe_or_socket(status.st_mode) &&
           ::faccessat(AT_FDCWD, narrow_path.c_str(), R_OK, AT_EACCESS) == 0;
}

fileio::~fileio() {
    close();
}

bool fileio::open(const std::wstring& path, bool write, bool keep, bool create) {
    if (m_in_memory) {
        return false;
    }
    close();
    if (write) {
        m_fd = open_file(path, create ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR, 0606);
    } else {
        m_fd = open_file(path, O_RDONLY, 0404);
    }
    if (m_fd == -1) {
        return false;
    }
    m_is_open = true;
    m_open_write = write;
    m_keep_on_close = keep;
    m_path = path;
    m_size = size();
    return true;
}

bool fileio::open_memory() {
    if (!m_in_memory) {
        close();
        m_in_memory = true;
    }
    return true;
}

bool fileio::usable(const void* bytes) const {
    return (m_is_open || m_in_memory) && bytes != nullptr;
}

bool fileio::write_file(const void* bytes, std::size_t length, std::int64_t offset, int whence) {
    if (::lseek64(m_fd, offset, whence) == -1 || !write_bytes(m_fd, bytes, length)) {
        return false;
    }
    m_size = static_cast<std::uint64_t>(std::max<off64_t>(::lseek64(m_fd, 0, SEEK_END), 0));
    return true;
}

bool fileio::write_memory(const void* bytes, std::size_t length, std::uint64_t offset) {
    const auto* const input = static_cast<const std::uint8_t*>(bytes);
    const std::size_t start = static_cast<std::size_t>(std::min<std::uint64_t>(offset, m_memory.size()));
    const std::size_t overwritten = std::min(length, m_memory.size() - start);
    try {
        m_memory.insert(m_memory.end(), input + overwritten, input + length);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    std::copy(input, input + overwritten, m_memory.begin() + static_cast<std::ptrdiff_t>(start));
    m_size = m_memory.size();
    m_position = start + length;
    return true;
}

bool fileio::append(const void* bytes, std::size_t length) {
    if (!usable(bytes)) {
        return false;
    }
    if (length == 0) {
        return true;
    }
    return m_in_memory ? write_memory(bytes, length, m_memory.size())
                       : write_file(bytes, length, 0, SEEK_END);
}

bool fileio::append_text(const std::ostringstream& text) {
    const std::string bytes = text.str();
    return append(bytes.data(), bytes.size());
}

bool fileio::write_at(const void* bytes, std::size_t length, std::uint64_t offset) {
    if (!usable(bytes)) {
        return false;
    }
    if (length == 0) {
        return true;
    }
    if (m_in_memory) {
        return write_memory(bytes, length, offset);
    }
    return offset <= largest_offset && write_file(bytes, length, static_cast<std::int64_t>(offset), SEEK_SET);
}

std::uint64_t fileio::bytes_from(std::uint64_t offset, std::uint64_t length) {
    const std::uint64_t end = size();
    return offset < end ? std::min(length, end - offset) : 0;
}

// Reads until `length` bytes are there, the file ends or a read fails; gives how many came.
std::size_t fileio::read_portion(std::uint8_t* buffer, std::size_t length, std::uint64_t offset) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = quarry::uninterrupted([&] {
            return ::pread64(m_fd, buffer + done, length - done, static_cast<off64_t>(offset + done));
        });
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

bool fileio::read_at(std::vector<std::uint8_t>& out, std::uint64_t length, std::uint64_t offset) {
    out.clear();
    if (!m_is_open && !m_in_memory) {
        return false;
    }
    if (length == 0) {
        return true;
    }
    const std::uint64_t wanted = bytes_from(offset, length);
    std::uint64_t portion = first_portion;
    bool complete = true;
    try {
        while (complete && out.size() < wanted) {
            const std::size_t before = out.size();
            std::uint64_t count = std::min(portion, wanted - before);
            out.resize(before + static_cast<std::size_t>(count));
            const std::uint64_t asked = count;
            complete = read_into(out.data() + before, count, offset + before) && count == asked;
            out.resize(before + static_cast<std::size_t>(count));
            portion = std::min(portion * 2, largest_portion);
        }
    } catch (const std::bad_alloc&) {
        out.clear();
    } catch (const std::length_error&) {
        out.clear();
    }
    return !out.empty();
}

bool fileio::read_into(void* buffer, std::uint64_t& length, std::uint64_t offset) {
    const std::uint64_t asked = length;
    length = 0;
    if (!usable(buffer)) {
        return false;
    }
    if (asked == 0) {
        return true;
    }
    const std::uint64_t wanted = bytes_from(offset, asked);
    auto* const bytes = static_cast<std::uint8_t*>(buffer);
    if (m_in_memory) {
        std::copy_n(m_memory.begin() + static_cast<std::ptrdiff_t>(wanted == 0 ? 0 : offset), wanted, bytes);
        length = wanted;
        return wanted != 0;
    }
    bool complete = true;
    while (complete && length < wanted) {
        const auto portion = static_cast<std::size_t>(std::min(largest_portion, wanted - length));
        const std::size_t count = read_portion(bytes + length, portion, offset + length);
        complete = count == portion;
        length += count;
    }
    return length != 0;
}

bool fileio::write_all(const void* bytes, std::size_t length) {
    if (!usable(bytes) || m_in_memory) {
        return false;
    }
    return write_bytes(m_fd, bytes, length);
}

std::uint64_t fileio::size() {
    if (m_in_memory) {
        return m_memory.size();
    }
    if (!m_is_open) {
        return 0;
    }
    const off64_t position = ::lseek64(m_fd, 0, SEEK_CUR);
    const off64_t end = ::lseek64(m_fd, 0, SEEK_END);
    if (end == -1) {
        // Deliberate: a file under /proc whose end cannot be sought counts as 0x40000 bytes, not as 0 like
        // any other. The user sees its text read.
        return errno == EINVAL && m_path.starts_with(L"/proc") ? assumed_proc_size : 0;
    }
    if (position != -1) {
        ::lseek64(m_fd, position, SEEK_SET);
    }
    return static_cast<std::uint64_t>(end);
}

bool fileio::set_mode(const std::string& octal_text) {
    if (m_in_memory) {
        return true;
    }
    if (!m_is_open || octal_text.size() > 6 ||
        octal_text.find_first_not_of("01234567") != std::string::npos) {
        return false;
    }
    const auto mode = static_cast<::mode_t>(std::stoul("0" + octal_text, nullptr, 8));
    return ::fchmod(m_fd, mode) == 0;
}

void fileio::close() {
    if (m_ostream != nullptr) {
        m_ostream->flush();
        m_ostream.reset();
    }
    if (m_fd != -1) {
        ::close(m_fd);
        m_fd = -1;
    }
    clear();
    m_open_write = false;
    m_is_open = false;
    m_keep_on_close = false;
    m_path.clear();
    m_memory = {};
    m_in_memory = false;
    m_position = 0;
}

}  // namespace uni
