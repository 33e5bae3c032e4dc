// The ways to a usable CNtfs.
//
// Opening a volume opens its source, validates the volume and hands the object out. Each way sets `out` to
// null first and leaves it null on false, without a message; no reason is given. `load_security` is asked
// once, while the volume is opened, to read its security descriptors; null where nobody wants them.
#pragma once

#include "disk/source.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

// The volume of a source, from its offset on.
[[nodiscard]] bool open_volume(const source& from, std::unique_ptr<CNtfs>& out, security_loader load_security,
                               bool writable = false);

// Reserved: the program opens volumes by a `source`, with the function above. The same for four kinds of
// source by their parts. `volume_offset` is the byte offset of the volume on the source. `writable` asks for
// a source that is open for writing too; nothing is ever written.

// A physical drive by its number, 0 for the first.
[[nodiscard]] bool open_by_drive(std::int32_t drive, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                                 bool writable, security_loader load_security);
// A partition by its device's path; the volume begins where the device does. A path of type 32 is opened as
// its first character and a colon. False for an empty path.
[[nodiscard]] bool open_by_partition(const std::wstring& path, std::unique_ptr<CNtfs>& out, bool writable,
                                     std::uint8_t source_type, security_loader load_security);
// An image, or whatever the path says by its form: two backslashes at the front make it type 35, "c:" and
// "c:\" type 32. False for an empty path.
[[nodiscard]] bool open_by_image(const std::wstring& path, std::uint64_t volume_offset,
                                 std::unique_ptr<CNtfs>& out, bool writable, security_loader load_security);
// A virtual disk from the files of its chain. With an offset of 0 or less the first NTFS volume on the disk
// is taken. False for an empty list.
[[nodiscard]] bool open_by_vmdk(const std::vector<std::wstring>& files, std::int64_t volume_offset,
                                std::unique_ptr<CNtfs>& out, bool writable, security_loader load_security);

}  // namespace quarry
