// Any bytes as a disk: its partition tables read as a disk's and as those of a buffer, with and without the
// search for a lost table, with and without the records of free space; the sniffer of file systems on every
// sector that a table may name; and the detection of the volume.
//
// The first eight bytes of the input are the offset that a user gives, the rest is the disk. It is read as an
// image and as a drive.
#include "disk/format_sniffer.h"
#include "disk/partition_buffer_reader.h"
#include "disk/partition_reader.h"
#include "disk/volume_detection.h"
#include "fuzz/input_bytes.h"
#include "support/device_files.h"
#include "support/expect.h"
#include "support/limited_sink.h"
#include "support/memory_file.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using quarry::test::expect;

constexpr std::size_t most_text = 1024 * 1024;

bool same(const quarry::partition_stats& left, const quarry::partition_stats& right) {
    return left.m_start_sector == right.m_start_sector && left.m_num_sectors == right.m_num_sectors &&
           left.m_partition_type == right.m_partition_type && left.m_sector_size == right.m_sector_size &&
           left.m_format == right.m_format && left.m_name == right.m_name &&
           left.m_volume_signature == right.m_volume_signature;
}

// True if the records of `part` are in `whole` in the same order.
bool holds_in_order(const quarry::partition_list& whole, const quarry::partition_list& part) {
    auto next = part.begin();
    for (const quarry::partition_stats& record : whole) {
        if (next != part.end() && same(record, *next)) {
            ++next;
        }
    }
    return next == part.end();
}

void read_tables(quarry::RAW_DISK_IO& disk, std::uint64_t offset) {
    for (const bool scan : {false, true}) {
        quarry::partition_list plain;
        quarry::partition_list with_gaps;
        const bool found = quarry::read_partitions(&disk, plain, scan, false);
        const bool found_with_gaps = quarry::read_partitions(&disk, with_gaps, scan, true);
        expect(!found || !plain.empty());
        // Free space comes on top and takes nothing away.
        expect(!found || (found_with_gaps && holds_in_order(with_gaps, plain)));
    }
    quarry::partition_list gpt;
    const bool is_gpt = quarry::read_gpt(&disk, gpt, offset % 2 == 0);
    expect(!is_gpt || !gpt.empty());
    static_cast<void>(quarry::ntfs_at(&disk, offset));
}

void locate_volume(quarry::RAW_DISK_IO& disk, std::uint64_t offset) {
    for (const bool ignore_size : {false, true}) {
        quarry::test::limited_sink words(most_text);
        bool found = false;
        std::uint64_t place = offset;
        const bool good = quarry::locate_ntfs_volume(words, found, place, &disk, ignore_size);
        expect(!good || found);
        expect(!good || offset == 0 || place == offset);
        expect(words.good());
    }
}

void read_as_buffer(quarry::byte_view bytes) {
    for (const bool scan : {false, true}) {
        quarry::partition_list list;
        expect(quarry::read_partitions_from_buffer(bytes, list, scan, scan) == !list.empty());
        quarry::partition_list again;
        expect(quarry::read_partitions_from_buffer(bytes, again, scan, scan) == !list.empty());
        expect(again.size() == list.size() && holds_in_order(list, again));
    }
}

void sniff(quarry::byte_view bytes) {
    for (std::size_t at = 0; at < bytes.size() && at < 16 * 512; at += 512) {
        quarry::partition_stats record;
        record.m_sector_size = 512;
        const quarry::byte_view head = bytes.clipped(at, quarry::whole_probe_size);
        const bool known = quarry::sniff_format(record, head);
        expect(known == !record.m_format.empty() && (known || !record.m_format_known));
        expect(quarry::bare_volume(head).m_format_known);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::test::memory_file image("disk");
    static const quarry::test::device_files devices;
    static const bool linked =
        (std::filesystem::create_symlink(std::filesystem::path(image.path()), devices.drive(0)), true);
    expect(linked);
    quarry::fuzz::input_bytes input(data, size);
    const std::uint64_t offset = input.u64();
    const quarry::fuzz::lone_bytes bytes(input.rest());
    image.hold(bytes.view());

    quarry::RAW_DISK_IO as_image(image.path(), false, quarry::raw_kind_path);
    read_tables(as_image, offset);
    locate_volume(as_image, 0);
    locate_volume(as_image, offset);
    quarry::RAW_DISK_IO as_drive(0, false, false, quarry::raw_kind_drive);
    read_tables(as_drive, offset);
    locate_volume(as_drive, offset);
    std::vector<std::uint64_t> offsets;
    expect(quarry::ntfs_offsets_in_image(image.path(), offsets) == !offsets.empty());
    read_as_buffer(bytes.view());
    sniff(bytes.view());
    return 0;
}
