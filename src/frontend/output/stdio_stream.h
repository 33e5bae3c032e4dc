// Standard output or standard error as a C++ stream.
//
// The library's own std::cout and std::cerr are eight streams that are made before main() whenever anything
// names one of them, with all that the library knows about languages: a thirtieth of the time of a small
// copy. Two rare messages need a stream. They get one when they are written.
#pragma once

#include <cstdio>
#include <ostream>
#include <streambuf>

namespace quarry {

// Keeps nothing back: each character goes to the C library's stream at once, in order with all that is
// written there by other means.
class stdio_buffer final : public std::streambuf {
  public:
    // `file` must outlive the buffer.
    explicit stdio_buffer(std::FILE* file) : m_file(file) {}

  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    // Flushes the C library's stream. -1 if that fails.
    int sync() override;

  private:
    std::FILE* m_file;
};

class stdio_stream final : public std::ostream {
  public:
    // `file` must outlive the stream.
    explicit stdio_stream(std::FILE* file) : std::ostream(nullptr), m_buffer(file) { rdbuf(&m_buffer); }

  private:
    stdio_buffer m_buffer;
};

}  // namespace quarry
