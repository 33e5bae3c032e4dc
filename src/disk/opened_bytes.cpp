#include "disk/opened_bytes.h"

#include "disk/drive_source.h"
#include "disk/file_source.h"
#include "disk/vmdk_disk.h"
#include "foundation/ql_string.h"

#include <cerrno>
#include <cstdio>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint32_t highest_path_kind = 3;
// Drive numbers above this one are no numbers of drives at all ...
constexpr std::int32_t highest_drive_number = 24;
// ... and those from this one on are not opened: the last is /dev/sdt.
constexpr std::int32_t drives_that_open = 20;
constexpr std::uint32_t kind_not_opened = 5;
// Drives are joined in these, whatever sectors they have.
constexpr std::uint32_t bytes_per_sector = 512;

constexpr read_rules rules_of_paths = {
    .ends_with_source = true,
    .error_fails = true,
};

// Deliberate: an error of a drive reads as zeros, not as a failed read; only a drive that gives nothing
// without an error fails it. The user sees zeros in place of a bad sector, and the work on the drive goes on.
// With a path it is the reverse: an error fails the read, and a file that has shrunk reads as zeros where it
// was.
constexpr read_rules rules_of_drives = {
    .silence_fails = true,
    .heeds_lock = true,
    .joined_unit = bytes_per_sector,
};

// What a chain does not give is zeros, whatever the reason.
read_rules rules_of_chain(const vmdk_disk& disk) {
    return {.joined_unit = disk.reads_join() ? 1U : 0U};
}

}  // namespace

opened_bytes open_path(const std::wstring& path, bool writable, std::uint32_t requested_kind) {
    if (path.empty() || requested_kind > highest_path_kind) {
        return {};
    }
    // Deliberate: a path that cannot be opened counts as an empty source, not as an unusable one. The user
    // sees the words for a disk without partitions where the image is missing.
    opened_bytes opened{.rules = rules_of_paths,
                        .kind = raw_kind_path,
                        .is_usable = true,
                        .writable = writable,
                        .path = path,
                        .path_utf8 = narrow(path)};
    if (std::unique_ptr<file_source> file = file_source::open_any(opened.path_utf8, writable)) {
        opened.descriptor = file->descriptor();
        opened.bytes = std::move(file);
    }
    return opened;
}

opened_bytes open_drive(std::int32_t drive_number, bool writable, bool suppress_open, std::uint32_t kind) {
    if (drive_number < 0 || drive_number > highest_drive_number) {
        return {};
    }
    opened_bytes opened{.rules = rules_of_drives, .kind = kind, .writable = writable};
    if (suppress_open || kind == kind_not_opened) {
        return opened;
    }
    if (kind != raw_kind_drive) {
        opened.is_usable = true;
        return opened;
    }
    if (drive_number >= drives_that_open) {
        return opened;
    }
    opened.path_utf8 = drive_device(drive_number);
    errno = 0;
    std::unique_ptr<file_source> device = file_source::open_any(opened.path_utf8, writable);
    if (device == nullptr) {
        std::fprintf(stderr, "prob opening %s, error %d\n", opened.path_utf8.c_str(), errno);
        return opened;
    }
    opened.drive_number = drive_number;
    opened.is_usable = device->has_end();
    opened.descriptor = device->descriptor();
    opened.bytes = std::make_shared<drive_source>(std::move(device));
    return opened;
}

opened_bytes open_chain(const std::vector<std::wstring>& files, bool writable, bool check_only) {
    opened_bytes unusable{.kind = raw_kind_virtual_disk, .writable = writable};
    if (check_only) {
        return unusable;
    }
    auto disk = std::make_shared<vmdk_disk>(writable);
    return disk->add_files(files) ? link_chain(std::move(disk)) : unusable;
}

opened_bytes link_chain(std::shared_ptr<vmdk_disk> disk) {
    opened_bytes opened{.kind = raw_kind_virtual_disk, .writable = disk->m_writable};
    if (!disk->link()) {
        return opened;
    }
    opened.rules = rules_of_chain(*disk);
    opened.is_usable = true;
    opened.descriptor = disk->m_base->m_fd;
    opened.path_utf8 = disk->m_base->m_path_utf8;
    opened.first_partition = disk->disk_offset();
    opened.bytes = std::move(disk);
    return opened;
}

}  // namespace quarry
