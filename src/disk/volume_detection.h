// Where on a source the NTFS volume lies.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "disk/raw_disk_io.h"

namespace quarry {

[[nodiscard]] bool locate_ntfs_volume(std::ostream& stream, bool& found, std::uint64_t& offset, RAW_DISK_IO* disk,
                                      bool ignore_image_size);
[[nodiscard]] bool locate_in_image(std::ostream& stream, const std::wstring& path, std::uint64_t& offset,
                                   bool& found, bool ignore_image_size);
[[nodiscard]] bool locate_in_vmdk(std::ostream& stream, const std::vector<std::wstring>& files,
                                  std::uint64_t& offset, bool& found, bool ignore_image_size);
[[nodiscard]] bool locate_on_drive(std::ostream& stream, std::int32_t drive, std::uint64_t& offset, bool& found,
                                   bool ignore_image_size);
[[nodiscard]] bool ntfs_offsets_in_image(const std::wstring& path, std::vector<std::uint64_t>& offsets);
[[nodiscard]] bool ntfs_offsets_on_drive(std::int32_t drive, std::vector<std::uint64_t>& offsets);

}  // namespace quarry
