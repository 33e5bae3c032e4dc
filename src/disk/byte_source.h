// A source of bytes that reports its losses.
//
// An image, a drive, a chain of virtual-disk files: whatever is examined is a row of bytes of a fixed size.
// A read says how many bytes came and, where fewer came than were asked for, whether the source ended or
// which error stopped it. No source turns a loss into zeros; who reads decides what a loss means. A reader
// who takes zeros for what is lost asks read_with_zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quarry {

// What one read brought.
struct read_outcome {
    // Bytes at the start of the buffer that came from the source. The rest of the buffer holds nothing of
    // use.
    std::size_t bytes = 0;
    // The system's error number if an error stopped the read; 0 if it is whole or the source ended.
    int error = 0;
    // Where the source knows how far a loss reaches, as a virtual disk does for each of its grains: bytes
    // after those that came which it cannot give. A reader who can do without them may go on after them. 0
    // where nothing is known of what comes next.
    std::size_t lost = 0;
};

class byte_source {
  public:
    byte_source() = default;
    byte_source(const byte_source&) = delete;
    byte_source& operator=(const byte_source&) = delete;
    virtual ~byte_source() = default;

    // Reads from byte `offset` of the source on until the buffer is full, the source ends or an error stops
    // it. An offset at or beyond the end gives no bytes and no error.
    [[nodiscard]] virtual read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) = 0;
    // Says that these bytes will be read soon, so that the system may begin to fetch them. Returns at once;
    // what a read brings is the same with and without it. Does nothing where the source knows no way.
    virtual void announce([[maybe_unused]] std::uint64_t offset, [[maybe_unused]] std::uint64_t length) {}
    // Fills the whole buffer from byte `offset` of the source on if that needs no wait, because the bytes are
    // in memory. False if they are not, or nobody knows; the buffer then holds nothing of use.
    [[nodiscard]] virtual bool read_from_memory([[maybe_unused]] std::span<std::uint8_t> buffer,
                                                [[maybe_unused]] std::uint64_t offset) {
        return false;
    }
    // Bytes of the source.
    [[nodiscard]] virtual std::uint64_t size() const = 0;
    // Bytes that the source can have content in: at most its size, less where it stores less, as a sparse
    // file does. The cap of what is allocated or walked at the source's word.
    [[nodiscard]] virtual std::uint64_t content_size() const = 0;
    // Bytes of a sector of the source, as the host or the container says; 512 where nobody says.
    [[nodiscard]] virtual std::uint32_t sector_size() const = 0;
};

// Fills the whole buffer: with the bytes of the source from byte `offset` on, and with zeros for each byte
// that does not come. Returns what came before the first loss, and the error that caused it.
[[nodiscard]] read_outcome read_with_zeros(byte_source& source, std::span<std::uint8_t> buffer,
                                           std::uint64_t offset);

}  // namespace quarry
