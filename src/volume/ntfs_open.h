// The four ways to a usable CNtfs. Each sets the out pointer to null first and leaves it null on false.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "volume/ntfs.h"

namespace quarry {

[[nodiscard]] bool open_by_drive(std::int32_t drive, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                                 bool writable, security_loader load_security);
[[nodiscard]] bool open_by_partition(const std::wstring& path, std::unique_ptr<CNtfs>& out, bool writable,
                                     std::uint8_t source_type, security_loader load_security);
[[nodiscard]] bool open_by_image(const std::wstring& path, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                                 bool writable, security_loader load_security);
[[nodiscard]] bool open_by_vmdk(const std::vector<std::wstring>& files, std::int64_t volume_offset,
                                std::unique_ptr<CNtfs>& out, bool writable, security_loader load_security);

}  // namespace quarry
