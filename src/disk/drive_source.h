// A physical drive by its number, read in whole sectors.
//
// Linux names drives /dev/sda, /dev/sdb and so on. A drive is read as a raw device wants it: a request that
// does not begin and end at the edge of a sector goes through a buffer of the sectors that hold it.
#pragma once

#include "disk/byte_source.h"
#include "disk/file_source.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quarry {

// The directory in which physical drives lie, "/dev" unless a test puts another in its place.
[[nodiscard]] std::string& device_directory();

// The device of a physical drive, 0 for the first; empty for a number without a letter of its own.
[[nodiscard]] std::string drive_device(std::int32_t drive);

class drive_source final : public byte_source {
  public:
    explicit drive_source(std::unique_ptr<file_source> device) : m_device(std::move(device)) {}

    // Throws std::bad_alloc or std::length_error if there is no memory for the sectors of a request.
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    void announce(std::uint64_t offset, std::uint64_t length) override { m_device->announce(offset, length); }
    [[nodiscard]] std::uint64_t size() const override { return m_device->size(); }
    [[nodiscard]] std::uint64_t content_size() const override { return m_device->content_size(); }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_device->sector_size(); }

  private:
    std::unique_ptr<file_source> m_device;
};

}  // namespace quarry
