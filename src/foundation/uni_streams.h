// File and console streams that take wide paths.
//
// Paths inside the copy logic are wide text, one code point an element. The operating system wants UTF-8.
// These classes convert with `narrow` on the way and are otherwise the standard streams, which carry 64-bit
// positions and go on after an interrupted system call. A path that cannot be converted wholly reaches the
// system as the text that could be. Failures show in a stream's state or a result; nothing here prints.
#pragma once

#include "foundation/ql_time.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace uni {

class ofstream : public std::ofstream {
  public:
    ofstream() = default;
    ofstream(const std::wstring& path, std::ios_base::openmode mode);
    // Opens for output and empties the file.
    void open(const std::wstring& path);
};

class ifstream : public std::ifstream {
  public:
    ifstream() = default;
    ifstream(const std::wstring& path, std::ios_base::openmode mode);
};

// The lines of standard input, read piece by piece from the descriptor as they are asked for.
//
// A line is what fgets would put into a buffer of 4,096 bytes: at most 4,095 bytes, up to and with the next
// line feed. So a longer line arrives as several. As with fgets, the text of a line ends at its first zero
// byte: no path holds one. The rest of the line after a zero byte is dropped with its line feed. One object
// reads standard input; what it has buffered is lost to a second one.
class stdin_stream {
  public:
    stdin_stream() = default;
    stdin_stream(const stdin_stream&) = delete;
    stdin_stream& operator=(const stdin_stream&) = delete;
    virtual ~stdin_stream() = default;

    // The next line, with its line feed unless `trim` removes all carriage returns and line feeds from its
    // end. The wide form decodes the line as UTF-8 and is empty for a line that is none. False, with empty
    // text, at the end of input or if it cannot be read.
    virtual bool getline(std::string& out, bool trim);
    virtual bool getline(std::wstring& out, bool trim);
    // Always true: a closed standard input shows as one without lines. `check` changes nothing.
    [[nodiscard]] bool open_stdin(bool check);
    [[nodiscard]] bool is_open() const;

  protected:
    bool m_open = false;

  private:
    [[nodiscard]] bool fill();

    std::array<char, 4096> m_bytes{};
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
};

// Standard output takes narrow bytes only; wide text is converted on its way there.
class stdout_stream {
  public:
    virtual ~stdout_stream() = default;
    void write(std::string_view text);
    void write(std::wstring_view text);
};

// What is known of a file: filled from a stat of a host file, or by the copy driver from a file record.
struct fileio_stats {
    virtual ~fileio_stats() = default;

    std::uint64_t m_entry = 0;  // MFT entry number
    std::uint64_t m_size = 0;   // bytes
    std::uint32_t m_mode = 0;   // of a host file
    std::uint64_t m_modified = 0;
    std::uint64_t m_created = 0;
    std::uint64_t m_accessed = 0;
    std::uint64_t m_mft_changed = 0;
    ql::type_time m_time_kind = ql::type_time::filetime;  // the kind of the four times
    std::uint32_t m_mask = 0;
    bool m_valid = false;

    // Back to the state of a new record.
    void clear();
    // Takes size, mode and three times, in whole seconds since 1970, from the host's file system, links
    // followed. A host file has no creation time; the time of its last status change is used instead. False,
    // with the record cleared, if the path leads to nothing.
    [[nodiscard]] bool fill_from_host(const std::wstring& path);
};

}  // namespace uni

namespace quarry {

// Swallows all text and reports success.
class null_out_buf : public std::streambuf {
  protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
};
class null_out_stream : public std::ostream {
  public:
    null_out_stream();

  private:
    null_out_buf m_buffer;
};

}  // namespace quarry
