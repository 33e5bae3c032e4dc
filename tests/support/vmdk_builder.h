// Monolithic sparse VMDK files, byte by byte.
//
// A file is laid out as programs lay it out: header, descriptor, grain directory, grain tables, grains.
// Anything in it can be forced to any value afterwards. Sizes are kept small, so that a few kilobytes hold a
// chain.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quarry::test {

class vmdk_builder {
  public:
    // Offsets of the header's fields, for `force`.
    static constexpr std::size_t at_capacity = 12;
    static constexpr std::size_t at_grain_size = 20;
    static constexpr std::size_t at_descriptor_offset = 28;
    static constexpr std::size_t at_descriptor_size = 36;
    static constexpr std::size_t at_entries_per_table = 44;
    static constexpr std::size_t at_directory_offset = 56;
    static constexpr std::size_t at_overhead = 64;

    // The descriptor. An empty text leaves its line out; values are written as they are, quotes included.
    std::string cid = "c0000000";
    std::string parent_cid = "ffffffff";
    std::string parent_hint;
    std::string encoding;
    std::string line_end = "\n";
    std::optional<std::string> descriptor;  // in place of all of the above
    std::uint64_t descriptor_sectors = 2;

    // The virtual disk.
    std::uint64_t grain_sectors = 8;
    std::uint32_t entries_per_table = 16;
    std::uint64_t grains = 64;

    // Holds a grain with these bytes, zeros after them. Grains lie in the file in the order in which they
    // were put.
    vmdk_builder& put(std::uint64_t grain, bytes content);
    // The bytes of consecutive grains, cut to their size.
    vmdk_builder& put_all(std::uint64_t first_grain, const bytes& content);
    // Makes a table entry say this, whatever was put.
    vmdk_builder& table_entry(std::uint64_t grain, std::uint32_t sector);
    // Puts a number into the finished file.
    vmdk_builder& force(std::size_t offset, unsigned width, std::uint64_t value);
    // Cuts the finished file to a length.
    vmdk_builder& cut(std::size_t length);

    [[nodiscard]] std::uint64_t grain_bytes() const { return grain_sectors * 512; }
    [[nodiscard]] std::uint64_t directory_entries() const;
    [[nodiscard]] std::uint64_t directory_offset() const;  // bytes
    [[nodiscard]] std::uint64_t table_offset(std::uint64_t table) const;
    // Where a table keeps the entry of a grain.
    [[nodiscard]] std::uint64_t entry_offset(std::uint64_t grain) const;
    [[nodiscard]] std::uint64_t overhead_sectors() const;
    // Position of a grain that was put.
    [[nodiscard]] std::uint64_t grain_offset(std::uint64_t grain) const;

    [[nodiscard]] bytes build() const;
    void write(const std::filesystem::path& path) const;

  private:
    [[nodiscard]] std::string descriptor_text() const;
    [[nodiscard]] std::uint64_t table_sectors() const;

    struct held_grain {
        std::uint64_t grain;
        bytes content;
    };
    std::vector<held_grain> m_held;
    std::map<std::uint64_t, std::uint32_t> m_entries;
    std::vector<forced_number> m_forced;
    std::optional<std::size_t> m_length;
};

}  // namespace quarry::test
