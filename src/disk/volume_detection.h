// Where on a source the NTFS volume lies.
//
// A volume is read from a byte offset of its source on. That offset is either given by the user, and then
// checked against the partition table, or found in it. Picking a volume on the user's behalf is avoided: a
// source with partitions and no offset given is answered with a table of what there is and with an offset to
// give. A source that is one bare volume needs no offset.
//
// A partition counts as an NTFS volume by its type only. Types named "ntfs or exfat", "hidden ntfs" and "ntfs
// volume set" do, guessed or not, so exFAT volumes and encrypted containers count as well.
#pragma once

#include "disk/source.h"

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace quarry {

// Settles the byte offset of the volume on a disk. `offset` comes in as the user's, 0 for none; messages go
// to `stream`. True: `offset` is good, and `found` is true. False: the messages say why; `found` says whether
// an NTFS volume was seen, and `offset` holds the last one seen, or without any the last partition's; it is
// unchanged when no partition was found, when it is out of bounds, or when its volume does not fit the
// source. `ignore_image_size` accepts a volume that is larger than the rest of its source.
[[nodiscard]] bool locate_ntfs_volume(std::ostream& stream, bool& found, std::uint64_t& offset,
                                      RAW_DISK_IO* disk, bool ignore_image_size);

// The same on a source, whose offset is the user's and becomes what was settled; an image stays open in it.
// A source with nothing to open is false without a word; one that cannot be opened gets a message.
[[nodiscard]] bool locate_volume(std::ostream& stream, source& on, bool& found, bool ignore_image_size);

// Reserved: the program asks with a `source`. The same on an image, on the files of a virtual disk, and on a
// physical drive. An empty path or list is
// false without a word; a source that cannot be opened gets a message.
[[nodiscard]] bool locate_in_image(std::ostream& stream, const std::wstring& path, std::uint64_t& offset,
                                   bool& found, bool ignore_image_size);
[[nodiscard]] bool locate_in_vmdk(std::ostream& stream, const std::vector<std::wstring>& files,
                                  std::uint64_t& offset, bool& found, bool ignore_image_size);
[[nodiscard]] bool locate_on_drive(std::ostream& stream, std::int32_t drive, std::uint64_t& offset,
                                   bool& found, bool ignore_image_size);

// The byte offsets of all NTFS volumes of a source in the order of its table; no search on damaged disks.
// True when there is one. A source with more than `most_partitions` gives none; `offsets` is empty after
// false.
[[nodiscard]] bool ntfs_offsets(const source& on, std::size_t most_partitions,
                                std::vector<std::uint64_t>& offsets);

// Reserved: the program asks with a `source`. The same of an image, which may have up to 768 partitions.
[[nodiscard]] bool ntfs_offsets_in_image(const std::wstring& path, std::vector<std::uint64_t>& offsets);
// The same of a drive by its number.
[[nodiscard]] bool ntfs_offsets_on_drive(std::int32_t drive, std::vector<std::uint64_t>& offsets);

}  // namespace quarry
