#include "foundation/uni_streams.h"

#include "foundation/ql_string.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace uni {

namespace {

// fgets with a buffer of 4,096 bytes keeps one of them for the zero at the end.
// Deliberate: a long line arrives in pieces of 4095 bytes, not whole. The user sees each piece taken for a
// line of its own.
constexpr std::size_t longest_line = 4095;

}  // namespace

ofstream::ofstream(const std::wstring& path, std::ios_base::openmode mode)
    : std::ofstream(quarry::narrow(path), mode) {}

void ofstream::open(const std::wstring& path) {
    std::ofstream::open(quarry::narrow(path), std::ios_base::out | std::ios_base::trunc);
}

ifstream::ifstream(const std::wstring& path, std::ios_base::openmode mode)
    : std::ifstream(quarry::narrow(path), mode) {}

bool stdin_stream::open_stdin(bool) {
    m_open = true;
    return true;
}

bool stdin_stream::is_open() const {
    return m_open;
}

bool stdin_stream::fill() {
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, m_bytes.data(), m_bytes.size());
    } while (count < 0 && errno == EINTR);
    m_begin = 0;
    m_end = count > 0 ? static_cast<std::size_t>(count) : 0;
    return m_end != 0;
}

bool stdin_stream::getline(std::string& out, bool trim) {
    out.clear();
    bool complete = false;
    while (!complete && (m_begin < m_end || fill())) {
        const std::size_t take = std::min(m_end - m_begin, longest_line - out.size());
        const std::string_view bytes(&m_bytes[m_begin], take);
        const std::size_t line_feed = bytes.find('\n');
        const std::size_t used = line_feed == std::string_view::npos ? take : line_feed + 1;
        out.append(bytes.substr(0, used));
        m_begin += used;
        complete = line_feed != std::string_view::npos || out.size() == longest_line;
    }
    const bool found = !out.empty();
    out.resize(std::min(out.find('\0'), out.size()));
    if (trim) {
        out.erase(out.find_last_not_of("\r\n") + 1);
    }
    return found;
}

bool stdin_stream::getline(std::wstring& out, bool trim) {
    out.clear();
    std::string line;
    // Named outright: a derived class that has its own narrow lines decides itself what its wide ones are.
    if (!stdin_stream::getline(line, trim)) {
        return false;
    }
    out = quarry::widen(line);
    return true;
}

void stdout_stream::write(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void stdout_stream::write(std::wstring_view text) {
    write(quarry::narrow(text));
}

void fileio_stats::clear() {
    *this = fileio_stats();
}

bool fileio_stats::fill_from_host(const std::wstring& path) {
    clear();
    struct ::stat host = {};
    if (::stat(quarry::narrow(path).c_str(), &host) != 0) {
        return false;
    }
    m_size = static_cast<std::uint64_t>(host.st_size);
    m_mode = host.st_mode;
    m_modified = static_cast<std::uint64_t>(host.st_mtime);
    m_created = static_cast<std::uint64_t>(host.st_ctime);
    m_accessed = static_cast<std::uint64_t>(host.st_atime);
    m_time_kind = ql::type_time::unix_time;
    m_valid = true;
    return true;
}

}  // namespace uni

namespace quarry {

null_out_buf::int_type null_out_buf::overflow(int_type character) {
    return traits_type::not_eof(character);
}

std::streamsize null_out_buf::xsputn(const char*, std::streamsize count) {
    return count;
}

null_out_stream::null_out_stream() : std::ostream(nullptr) {
    rdbuf(&m_buffer);
}

}  // namespace quarry
