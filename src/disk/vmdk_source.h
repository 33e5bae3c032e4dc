// A virtual disk, read strictly: a chain of sparse VMDK files as a source that reports its losses.
//
// The chain is opened as vmdk_disk opens it, then tested for what that would read wrongly or fill with zeros:
// files that are not part of the chain, sizes that differ from file to file, tables that are missing or lie
// outside of their file, kinds of grains that need another reader.
#pragma once

#include "disk/byte_source.h"
#include "disk/vmdk_disk.h"
#include "disk/vmdk_layout.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// A file of a chain, which the caller has open for reading. The path only names it.
struct open_vmdk_file {
    std::wstring path;
    int descriptor = -1;
};

// What to do with a disk in a form that is not read here.
inline constexpr std::string_view read_by_raw_view =
    "give a raw view of it, as share/doc/quarry/docs/limits.md shows under \"Other containers\"";

class vmdk_source final : public byte_source {
  public:
    // Reads the files, which may be in any order, by duplicates of their descriptors: no path is opened, so
    // that the files that the caller watches are those that are read. Null if they are no whole, sound chain;
    // `why` then says which file breaks which rule.
    [[nodiscard]] static std::unique_ptr<vmdk_source> open(const std::vector<open_vmdk_file>& files,
                                                           std::string& why);

    // A grain that no file holds is zeros. One that its file names and does not have is an error, EIO.
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    [[nodiscard]] std::uint64_t size() const override { return m_disk.m_base->capacity_bytes(); }
    [[nodiscard]] std::uint64_t content_size() const override {
        return std::min(size(), m_disk.stored_bytes());
    }
    [[nodiscard]] std::uint32_t sector_size() const override { return vmdk_sector_size; }

    vmdk_source() = default;

  private:
    [[nodiscard]] std::string fault() const;

    vmdk_disk m_disk{false};
};

}  // namespace quarry
