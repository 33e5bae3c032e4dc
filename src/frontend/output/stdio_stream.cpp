#include "frontend/output/stdio_stream.h"

#include <cstddef>

namespace quarry {

stdio_buffer::int_type stdio_buffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return sync() == 0 ? traits_type::not_eof(character) : traits_type::eof();
    }
    return std::fputc(character, m_file) == EOF ? traits_type::eof() : character;
}

std::streamsize stdio_buffer::xsputn(const char* text, std::streamsize count) {
    return static_cast<std::streamsize>(std::fwrite(text, 1, static_cast<std::size_t>(count), m_file));
}

int stdio_buffer::sync() {
    return std::fflush(m_file) == 0 ? 0 : -1;
}

}  // namespace quarry
