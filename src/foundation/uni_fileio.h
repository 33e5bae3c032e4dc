// Low-level files: the guarded open, and a file with an in-memory twin.
//
// Every file that is not a stream of the standard library is opened by open_file, which keeps FIFOs and
// sockets out: a name that leads to one would block or take bytes that are no file. `fileio` is a file with
// positions of its own; the same object can work on an image in memory instead. Interrupted system calls are
// repeated.
#pragma once

#include "foundation/uni_streams.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/types.h>
#include <vector>

namespace uni {

// Opens a path with the flags and the mode of open(2) and gives a descriptor, which the caller closes, or -1.
// Large files are always supported. A FIFO or a socket is refused without waiting for its other end; block
// and character devices pass, so raw drives can be opened. An empty path gives -1. The wide form converts
// with `narrow`.
[[nodiscard]] int open_file(const std::string& path, int flags, ::mode_t mode);
[[nodiscard]] int open_file(const std::wstring& path, int flags, ::mode_t mode);

// True if a path that did not come from the user may be opened: it leads to a regular file with at least one
// byte. Opening a device can act on it, and so can opening a file of /proc, which has no size. Nothing is
// opened to find that out.
[[nodiscard]] bool may_be_opened_unasked(const std::wstring& path);
// True if a path leads to something other than a FIFO or a socket that this process may read. Nothing is
// opened.
[[nodiscard]] bool may_be_read(const std::wstring& path);

// All offsets and lengths are bytes. Unless its comment says otherwise, an operation gives false for an
// object that is neither open nor in memory and for null bytes, and a length of 0 is a success that does
// nothing. `m_size` of the base is the size of the file or of the image in memory.
class fileio : public fileio_stats {
  public:
    fileio() = default;
    fileio(const fileio&) = delete;
    fileio& operator=(const fileio&) = delete;
    ~fileio() override;

    // Closes what was open and opens a file: for reading; with `write` for reading and writing; with `write`
    // and `create` as an empty file, made if need be. `keep` is only stored. False, with the object closed,
    // if the file cannot be opened, and for an object in memory, which then keeps its image.
    [[nodiscard]] bool open(const std::wstring& path, bool write, bool keep, bool create);
    // From here on the object works on `m_memory`.
    [[nodiscard]] bool open_memory();

    // Writes at the end.
    [[nodiscard]] bool append(const void* bytes, std::size_t length);
    [[nodiscard]] bool append_text(const std::ostringstream& text);
    // Writes at `offset`. In memory what lies past the end of the image is appended to it, wherever `offset`
    // is.
    [[nodiscard]] bool write_at(const void* bytes, std::size_t length, std::uint64_t offset);
    // Reads what exists of `length` bytes from `offset` on, as far as the file can be read; `out` or `length`
    // say how much that was. False if it was nothing.
    [[nodiscard]] bool read_at(std::vector<std::uint8_t>& out, std::uint64_t length, std::uint64_t offset);
    [[nodiscard]] bool read_into(void* buffer, std::uint64_t& length, std::uint64_t offset);
    // Writes at the descriptor's own position until all is out; an image in memory has none and gives false.
    [[nodiscard]] bool write_all(const void* bytes, std::size_t length);

    // The present size; the descriptor's position stays. A file under /proc whose end cannot be sought counts
    // as 0x40000 bytes, any other failure and a closed object give 0.
    [[nodiscard]] std::uint64_t size();
    // Sets the permission bits from octal digits ("644"); false for other text. True for an image in memory.
    [[nodiscard]] bool set_mode(const std::string& octal_text);
    // Back to the state of a new object; the attached stream is flushed first.
    void close();

    int m_fd = -1;
    bool m_open_write = false;
    bool m_is_open = false;
    bool m_keep_on_close = false;
    std::wstring m_path;
    std::vector<std::uint8_t> m_memory;
    bool m_in_memory = false;
    std::uint64_t m_position = 0;  // of the next write to the image in memory
    std::unique_ptr<std::ostream> m_ostream;

  private:
    [[nodiscard]] bool usable(const void* bytes) const;
    [[nodiscard]] bool write_file(const void* bytes, std::size_t length, std::int64_t offset, int whence);
    [[nodiscard]] bool write_memory(const void* bytes, std::size_t length, std::uint64_t offset);
    [[nodiscard]] std::uint64_t bytes_from(std::uint64_t offset, std::uint64_t length);
    [[nodiscard]] std::size_t read_portion(std::uint8_t* buffer, std::size_t length, std::uint64_t offset);
};

}  // namespace uni
