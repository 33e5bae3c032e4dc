#include "frontend/exact/line_writer.h"

#include "foundation/descriptor_io.h"
#include "frontend/standard_streams.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace quarry::exact {

namespace {

constexpr std::size_t bytes_of_a_write = 65536;

tl::unexpected<failure> cannot_be_written(int error) {
    return fail(failure_code::write, "standard output",
                std::string("cannot be written: ") + std::strerror(error) +
                    (error == EPIPE ? "; what reads the lines has ended before them" : ""));
}

}  // namespace

result<void> line_writer::begin() {
    return standard_output_was_closed() ? result<void>(cannot_be_written(EBADF)) : result<void>();
}

result<void> line_writer::write(std::string_view line) {
    return write_lines(std::string(line) + "\n");
}

result<void> line_writer::write_lines(std::string_view lines) {
    m_text.append(lines);
    m_lines += static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
    return m_text.size() < bytes_of_a_write ? result<void>() : flush();
}

result<void> line_writer::flush() {
    const int error = m_text.empty() ? 0 : write_whole(STDOUT_FILENO, m_text.data(), m_text.size());
    m_text.clear();
    return error == 0 ? result<void>() : cannot_be_written(error);
}

}  // namespace quarry::exact
