// A small volume with each kind of metadata that the strict reader has to do with, and what its streams hold.
//
// Clusters of 512 bytes, records of 1 KiB. $MFT is in three pieces, one record straddles two of them; the
// mirror, the backup of the boot sector, restart pages, a state, $Bitmap and $UpCase are there; the root and
// a folder have index blocks; lists of attributes are in records and in clusters.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry::test {

// One stream, as a user names it.
struct odd_stream {
    std::string path;           // empty: by the number of the entry
    std::uint64_t entry = 0;    // also of the file that the path leads to
    std::uint64_t through = 0;  // the link at the end of the path; 0 if there is none
    std::u16string stream;
    bytes content;
};

struct odd_volume {
    bytes image;
    std::vector<odd_stream> streams;
    // Bytes of the image, in which the boot sector is stored a second time, and the mirror's first byte.
    std::size_t backup_boot = 0;
    std::size_t mirror = 0;
};

[[nodiscard]] odd_volume make_odd_volume();

}  // namespace quarry::test
