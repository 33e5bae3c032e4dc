// An EWF image ("Expert Witness" format, E01) as a source that reports its losses.
//
// An image is a set of segment files, disk.E01, disk.E02 and so on. They hold the disk in chunks of some tens
// of kilobytes, each compressed or not and each with a checksum, and the digests that were computed when the
// disk was acquired. The library libewf reads them; see ewf_library.h.
//
// libewf hands out a chunk whose checksum differs like any other, and counts it in a list. A set also lists
// the sectors that could not be read when the disk was acquired; what it holds of them never was on the disk.
// So each read is held against both lists: such bytes are an error here, never bytes of the disk.
#pragma once

#include "disk/byte_source.h"
#include "disk/damaged_ranges.h"
#include "foundation/byte_view.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// True if a file that begins with these bytes is the segment file of an EWF image.
[[nodiscard]] bool begins_as_ewf(byte_view head);

// Why there is no EWF image, where there is no library.
inline constexpr std::string_view ewf_needs_library = "EWF images need the library libewf2";

// The segment files of the set whose first is `path`, in order, as the names say; nothing is opened. Empty,
// with the reason in `why`, if there is no library or `path` is not called like a first segment.
[[nodiscard]] std::vector<std::string> ewf_segments(const std::string& path, std::string& why);

class ewf_source final : public byte_source {
  public:
    // Opens a whole set, given in order. Null if it cannot be opened or a segment is missing; `why` then says
    // so.
    [[nodiscard]] static std::unique_ptr<ewf_source> open(const std::vector<std::string>& segments,
                                                          std::string& why);
    ~ewf_source() override;

    // A chunk whose checksum differs, what could not be acquired, and what the library cannot read, is an
    // error, EIO.
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    [[nodiscard]] std::uint64_t size() const override { return m_size; }
    [[nodiscard]] std::uint64_t content_size() const override { return m_content_size; }
    [[nodiscard]] std::uint32_t sector_size() const override { return m_sector_size; }

    // The bytes as the set holds them, with what was put in the place of sectors that could not be acquired:
    // the digests are of these. A chunk whose checksum differs is an error here too.
    [[nodiscard]] read_outcome read_as_stored(std::span<std::uint8_t> buffer, std::uint64_t offset);
    // Bytes that could not be read when the disk was acquired.
    [[nodiscard]] std::uint64_t not_acquired() const { return m_not_acquired.bytes(); }

    // A digest that was stored when the disk was acquired, in hexadecimal, small letters; empty if there is
    // none. `kind` is "MD5" or "SHA1".
    [[nodiscard]] std::string stored_digest(std::string_view kind) const;

    explicit ewf_source(void* handle);

  private:
    [[nodiscard]] bool read_facts(const std::vector<std::string>& segments);
    [[nodiscard]] bool take_acquisition_errors();
    void take_new_damage();

    void* m_handle;
    std::uint64_t m_size = 0;
    std::uint64_t m_content_size = 0;
    std::uint32_t m_sector_size = 512;
    std::uint32_t m_unit_of_damage = 512;  // bytes; the container's own number, whatever it is
    std::uint32_t m_damage_count = 0;      // of the library's list
    damaged_ranges m_damage;               // as the library knows it by now
    damaged_ranges m_not_acquired;
};

}  // namespace quarry
