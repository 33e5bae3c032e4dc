// File and console streams that take wide paths.
#pragma once

#include <cstdint>
#include <fstream>
#include <ostream>
#include <string>

#include "foundation/ql_time.h"

namespace uni {

// Opens with the narrow form of a wide path. The default constructor followed by open() truncates.
class ofstream : public std::ofstream {
  public:
    ofstream() = default;
    ofstream(const std::wstring& path, std::ios_base::openmode mode);
    void open(const std::wstring& path);
};

class ifstream : public std::ifstream {
  public:
    ifstream() = default;
    ifstream(const std::wstring& path, std::ios_base::openmode mode);
};

// The lines of standard input.
class stdin_stream {
  public:
    virtual ~stdin_stream() = default;
    virtual bool getline(std::string& out, bool trim);
    virtual bool getline(std::wstring& out, bool trim);
    [[nodiscard]] bool open_stdin(bool check);
    [[nodiscard]] bool is_open() const;

  protected:
    bool m_open = false;
};

// Filled from a stat of a host file, or by the copy driver from a file record.
struct fileio_stats {
    virtual ~fileio_stats() = default;
    std::uint64_t m_entry = 0;
    std::uint64_t m_size = 0;
    std::uint32_t m_mode = 0;
    std::uint64_t m_modified = 0;
    std::uint64_t m_created = 0;
    std::uint64_t m_accessed = 0;
    std::uint64_t m_mft_changed = 0;
    ql::type_time m_time_kind = ql::type_time::filetime;
    std::uint32_t m_mask = 0;
    bool m_valid = false;

    void clear();
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
