#include "frontend/output/exclusive_file.h"

#include "foundation/descriptor_io.h"
#include "frontend/output/leftover.h"
#include "frontend/output/output_file.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

namespace quarry {

namespace {

constexpr std::size_t random_characters = 5;
// Far more than chance needs with a million names; a directory full of them gives up.
constexpr int most_attempts = 1000;
constexpr ::mode_t new_file_mode = 0666;

void seed_once() {
    static const bool seeded = [] {
        struct ::timeval now {};
        ::gettimeofday(&now, nullptr);
        std::srand(static_cast<unsigned>(now.tv_usec));
        return true;
    }();
    static_cast<void>(seeded);
}

bool is_name_character(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f');
}

}  // namespace

std::string random_name() {
    seed_once();
    std::string name;
    while (name.size() < random_characters) {
        const char drawn = static_cast<char>('0' + std::rand() % ('f' - '0' + 1));
        if (is_name_character(drawn)) {
            name += drawn;
        }
    }
    return name;
}

exclusive_file::descriptor_buffer::~descriptor_buffer() {
    close();
}

void exclusive_file::descriptor_buffer::attach(int fd) {
    m_fd = fd;
    setp(m_bytes.data(), m_bytes.data() + m_bytes.size());
}

bool exclusive_file::descriptor_buffer::close() {
    if (m_fd < 0) {
        return true;
    }
    const bool flushed = descriptor_buffer::sync() == 0;
    const bool closed = ::close(m_fd) == 0;
    m_fd = -1;
    setp(nullptr, nullptr);
    return flushed && closed;
}

bool exclusive_file::descriptor_buffer::write_all(const char* from, const char* end) const {
    return write_whole(m_fd, from, static_cast<std::size_t>(end - from)) == 0;
}

int exclusive_file::descriptor_buffer::sync() {
    if (!write_all(pbase(), pptr())) {
        return -1;
    }
    setp(m_bytes.data(), m_bytes.data() + m_bytes.size());
    return 0;
}

// What is longer than the buffer does not go through it.
std::streamsize exclusive_file::descriptor_buffer::xsputn(const char* from, std::streamsize count) {
    if (count < static_cast<std::streamsize>(m_bytes.size())) {
        return std::streambuf::xsputn(from, count);
    }
    return m_fd >= 0 && sync() == 0 && write_all(from, from + count) ? count : 0;
}

exclusive_file::descriptor_buffer::int_type exclusive_file::descriptor_buffer::overflow(int_type character) {
    if (m_fd < 0 || sync() != 0) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        sputc(traits_type::to_char_type(character));
    }
    return traits_type::not_eof(character);
}

exclusive_file::~exclusive_file() {
    if (!m_path.empty()) {
        const signals_held_back quiet;
        ::unlink(m_path.c_str());
        forget_leftover();
    }
}

bool exclusive_file::create(const output_guard& guard, const std::string& directory) {
    const signals_held_back quiet;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        const std::string path = directory + "/_" + random_name();
        if (guard.look_at(path, output_kind::copy) == output_verdict::source) {
            break;
        }
        const int fd = ::open(
            path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_LARGEFILE, new_file_mode);
        if (fd >= 0) {
            m_path = path;
            remove_if_interrupted(path);
            m_buffer.attach(fd);
            m_stream.rdbuf(&m_buffer);
            return true;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return false;
}

bool exclusive_file::close() {
    const bool written = m_stream.good();
    return m_buffer.close() && written;
}

bool exclusive_file::rename_to(output_guard& guard, const std::string& path) {
    const signals_held_back quiet;
    if (!rename_output(guard, m_path, path, output_kind::copy)) {
        return false;
    }
    m_path.clear();
    forget_leftover();
    return true;
}

}  // namespace quarry
