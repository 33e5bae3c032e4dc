// An image, a partition or a drive, by path.
//
// A regular file and a block device differ only in where their size and their sector size are found.
#pragma once

#include "disk/byte_source.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quarry {

class file_source final : public byte_source {
  public:
    // Opens a regular file or a block device for reading. Null after a failure; `error` then holds the
    // system's error number, which for what is neither is EISDIR, ESPIPE or ENOTBLK.
    [[nodiscard]] static std::unique_ptr<file_source> open(const std::string& path, int& error);
    // Opens whatever the host opens for reading, or for reading and writing, but no FIFO and no socket. Null
    // if that fails. What cannot say where it ends (see `has_end`) has a size of 0. Its sectors count as ones
    // of 512 bytes.
    [[nodiscard]] static std::unique_ptr<file_source> open_any(const std::string& path, bool writable);
    ~file_source() override;

    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    void announce(std::uint64_t offset, std::uint64_t length) override;
    [[nodiscard]] bool read_from_memory(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    [[nodiscard]] std::uint64_t size() const override { return m_told.size; }
    [[nodiscard]] std::uint64_t content_size() const override { return m_told.content_size; }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_told.sector_size; }

    [[nodiscard]] bool has_end() const { return m_told.has_end; }
    // The object's own, good as long as the object is.
    [[nodiscard]] int descriptor() const { return m_descriptor; }

    // True if a regular file has another size or modification time than when it was opened.
    [[nodiscard]] bool has_changed() const;

  private:
    struct description {
        std::uint64_t size = 0;
        std::uint64_t content_size = 0;
        std::uint32_t sector_size = 512;
        bool has_end = true;
        std::int64_t modified_seconds = 0;  // of regular files only
        std::int64_t modified_nanoseconds = 0;
    };
    [[nodiscard]] static int describe(int descriptor, description& told);

  public:
    // For open().
    file_source(int descriptor, const description& told);

  private:
    int m_descriptor;
    description m_told;
};

}  // namespace quarry
