#include "disk/volume_detection.h"

#include "disk/partition_reader.h"
#include "disk/partition_types.h"
#include "foundation/hexadecimal.h"

#include <limits>
#include <memory>

namespace quarry {

namespace {

std::string offset_text(std::uint64_t offset) {
    return "0x" + hex(offset, 1);
}

void tell_out_of_bounds(std::ostream& stream, std::uint64_t offset) {
    stream << "volume offset " + offset_text(offset) + " is not within image bounds\n";
}

// Reads the table, by a search where there is none. True: the list is not empty, or `bare_ntfs` is set for a
// source that is an NTFS volume without a table.
bool read_table(std::ostream& stream, RAW_DISK_IO& disk, partition_list& list, bool& bare_ntfs) {
    bare_ntfs = false;
    if (!read_partitions(&disk, list, false, false)) {
        if (ntfs_at(&disk, 0)) {
            bare_ntfs = true;
            return true;
        }
        if (!read_partitions(&disk, list, true, false)) {
            stream << "couldn't find any partitions on disk\n";
            return false;
        }
        stream << "disk is corrupted, partition info questionable\n";
    }
    if (list.empty()) {
        stream << "couldn't find any partitions on disk.\n";
        return false;
    }
    return true;
}

// The partition at the offset that the user gave, if it is the one to take.
enum class verdict { accepted, refused, not_ntfs };

verdict judge(std::ostream& stream, const partition_stats& record, std::uint64_t size,
              bool ignore_image_size) {
    const std::uint64_t offset = record.byte_offset();
    if (!is_ntfs_type(record.m_partition_type)) {
        stream << "volume offset selected " + offset_text(offset) + " is not a NTFS partition, but [" +
                      partition_type_name(record.m_partition_type) + "]\n";
        return verdict::not_ntfs;
    }
    if (size < record.byte_end() && !ignore_image_size) {
        stream << "volume offset " + offset_text(offset) +
                      " is a NTFS partition, however image size does not encapsulate entire volume\n";
        return verdict::refused;
    }
    return verdict::accepted;
}

// The table for the user, and the offset to give. Deliberate: `offset` ends as the suggestion, or as the last
// partition's offset where there is none; the table does not leave it as it was. The user sees a virtual disk
// opened there if no offset was given.
void show_table(std::ostream& stream, const partition_list& list, std::uint64_t suggestion,
                std::uint64_t& offset) {
    stream << "\n";
    for (const partition_stats& record : list) {
        offset = record.byte_offset();
        stream << "volume offset [ " + offset_text(offset) +
                      " ] : " + partition_type_name(record.m_partition_type) + "\n";
    }
    stream << "\n";
    if (suggestion == 0) {
        stream << "prob detecting ntfs partition\n";
        return;
    }
    offset = suggestion;
    stream << "use option [-offset " + offset_text(offset) + "]\n";
}

bool locate_and_give_back(std::ostream& stream, source on, std::uint64_t& offset, bool& found,
                          bool ignore_image_size) {
    const bool located = locate_volume(stream, on, found, ignore_image_size);
    offset = on.offset;
    return located;
}

}  // namespace

bool locate_ntfs_volume(std::ostream& stream, bool& found, std::uint64_t& offset, RAW_DISK_IO* disk,
                        bool ignore_image_size) {
    found = false;
    if (disk == nullptr || !disk->is_ok()) {
        return false;
    }
    const std::uint64_t size = disk->size();
    if (size < offset) {
        tell_out_of_bounds(stream, offset);
        return false;
    }
    partition_list list;
    bool bare_ntfs = false;
    if (!read_table(stream, *disk, list, bare_ntfs)) {
        return false;
    }
    if (bare_ntfs) {
        offset = 0;
        found = true;
        return true;
    }
    // Deliberate: the last NTFS partition seen is suggested, not the first; a partition at the offset that
    // the user gave ends the search. The user sees the last one.
    std::uint64_t suggestion = 0;
    for (const partition_stats& record : list) {
        if (record.byte_offset() == offset) {
            const verdict result = judge(stream, record, size, ignore_image_size);
            if (result == verdict::not_ntfs) {
                break;
            }
            found = true;
            return result == verdict::accepted;
        }
        if (is_ntfs_type(record.m_partition_type)) {
            found = true;
            suggestion = record.byte_offset();
            if (size < suggestion) {
                tell_out_of_bounds(stream, suggestion);
            }
        }
    }
    show_table(stream, list, suggestion, offset);
    return false;
}

bool ntfs_offsets(const source& on, std::size_t most_partitions, std::vector<std::uint64_t>& offsets) {
    offsets.clear();
    const std::unique_ptr<RAW_DISK_IO> disk = on.open_as_named();
    partition_list list;
    if (!read_partitions(disk.get(), list, false, false) || list.size() > most_partitions) {
        return false;
    }
    for (const partition_stats& record : list) {
        if (is_ntfs_type(record.m_partition_type)) {
            offsets.push_back(record.byte_offset());
        }
    }
    return !offsets.empty();
}

bool locate_volume(std::ostream& stream, source& on, bool& found, bool ignore_image_size) {
    found = false;
    if (on.is_left_to_the_path()) {
        return false;
    }
    on.keep_open();
    const std::unique_ptr<RAW_DISK_IO> disk = on.open_as_named();
    if (disk == nullptr || !disk->is_ok()) {
        stream << on.unusable_words();
        return false;
    }
    return locate_ntfs_volume(stream, found, on.offset, disk.get(), ignore_image_size);
}

bool locate_in_image(std::ostream& stream, const std::wstring& path, std::uint64_t& offset, bool& found,
                     bool ignore_image_size) {
    return locate_and_give_back(stream, source::of_image(path, offset), offset, found, ignore_image_size);
}

bool locate_in_vmdk(std::ostream& stream, const std::vector<std::wstring>& files, std::uint64_t& offset,
                    bool& found, bool ignore_image_size) {
    return locate_and_give_back(stream, source::of_virtual_disk(files, offset), offset, found,
                                ignore_image_size);
}

bool locate_on_drive(std::ostream& stream, std::int32_t drive, std::uint64_t& offset, bool& found,
                     bool ignore_image_size) {
    return locate_and_give_back(stream, source::of_drive(drive, offset), offset, found, ignore_image_size);
}

bool ntfs_offsets_in_image(const std::wstring& path, std::vector<std::uint64_t>& offsets) {
    constexpr std::size_t most_partitions = 768;
    return ntfs_offsets(source::of_image(path, 0), most_partitions, offsets);
}

bool ntfs_offsets_on_drive(std::int32_t drive, std::vector<std::uint64_t>& offsets) {
    return ntfs_offsets(source::of_drive(drive, 0), std::numeric_limits<std::size_t>::max(), offsets);
}

}  // namespace quarry
