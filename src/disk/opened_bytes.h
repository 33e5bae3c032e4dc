// A source once it is opened: its bytes, and the rules by which the default mode reads them.
//
// The kinds of source differ in where a request ends that reaches beyond the end of the source, in which
// losses make a read fail, and in whether small reads may be joined into a large one. Whoever opens a source
// says so here, and RAW_DISK_IO reads any of them by these rules. A new kind of source is one more function
// that gives such a value.
#pragma once

#include "disk/byte_source.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quarry {

class vmdk_disk;

// What RAW_DISK_IO::m_kind says about how a source was opened.
inline constexpr std::uint32_t raw_kind_path = 0;
inline constexpr std::uint32_t raw_kind_drive = 3;
inline constexpr std::uint32_t raw_kind_virtual_disk = 4;
inline constexpr std::uint32_t raw_kind_none = 8;

struct read_rules {
    // A request is cut where the source ends; of other sources all of it counts as covered.
    bool ends_with_source = false;
    // A read of which no byte came is a failed one if an error stopped it, or if there was no error.
    bool error_fails = false;
    bool silence_fails = false;
    // RAW_DISK_IO::m_locked makes reads fail.
    bool heeds_lock = false;
    // Bytes: reads that begin and end at multiples of it may be joined into one. 0: no reads may.
    std::uint32_t joined_unit = 1;
};

struct opened_bytes {
    std::shared_ptr<byte_source> bytes = {};  // null if nothing was opened
    read_rules rules = {};
    std::uint32_t kind = raw_kind_none;
    bool is_usable = false;
    bool writable = false;  // asked for, and never used
    // Of the file, the drive or the base of the chain, which `bytes` closes; -1 if there is none.
    int descriptor = -1;
    // The number that a drive was opened by, otherwise -1.
    std::int32_t drive_number = -1;
    std::wstring path = {};
    std::string path_utf8 = {};
    // Byte offset of the first partition that a virtual disk reports; 0 for any other source.
    std::uint64_t first_partition = 0;
};

// By path. The requested kinds 0 to 3 open it and are stored as 0; any other kind, and an empty path, are
// unusable. A path that cannot be opened is usable, with nothing opened.
[[nodiscard]] opened_bytes open_path(const std::wstring& path, bool writable, std::uint32_t requested_kind);

// A physical drive by number, from 0 for the first to 19, as kind 3. Any other number is unusable. So is a
// drive that cannot be opened, with a message on standard error. `suppress_open` and kind 5 are unusable too,
// kinds other than 3 and 5 usable with nothing opened.
[[nodiscard]] opened_bytes open_drive(std::int32_t drive_number, bool writable, bool suppress_open,
                                      std::uint32_t kind);

// A virtual disk from its files, in any order, as kind 4. Usable if the files make one whole chain.
// `check_only` opens nothing and is unusable.
[[nodiscard]] opened_bytes open_chain(const std::vector<std::wstring>& files, bool writable, bool check_only);
// The same of files that were added already and are not yet linked.
[[nodiscard]] opened_bytes link_chain(std::shared_ptr<vmdk_disk> disk);

}  // namespace quarry
