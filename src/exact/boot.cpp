#include "exact/boot.h"

#include "exact/record.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <optional>
#include <vector>

namespace quarry::exact {

namespace {

constexpr std::uint64_t boot_sector_bytes = 512;
constexpr std::uint64_t smallest_block = 512;
constexpr std::uint64_t largest_block_size = 65536;
constexpr std::uint64_t most_bytes = std::numeric_limits<std::int64_t>::max();
// Distances of the backup from the end of its partition: one sector, of whatever size.
constexpr std::array<std::uint64_t, 5> backup_distances = {512, 4096, 1024, 2048, 256};

// A field of the boot sector, for the words and the byte of a failure.
struct field {
    const char* name;
    std::uint64_t offset;
};
constexpr field signature_field = {"signature", 3};
constexpr field bytes_per_sector_field = {"bytes per sector", 11};
constexpr field sectors_per_cluster_field = {"sectors per cluster", 13};
constexpr field total_sectors_field = {"total sectors", 40};
constexpr field mft_field = {"LCN of $MFT", 48};
constexpr field mirror_field = {"LCN of the mirror of $MFT", 56};
constexpr field record_size_field = {"record size", 64};
constexpr field index_block_size_field = {"index block size", 68};
constexpr std::uint64_t serial_offset = 72;

constexpr unsigned power_form_begin = 0xF4;  // from here on 2^(256 - n) sectors

// Sectors of a cluster from the stored byte; 0 if no volume has it.
std::uint32_t sectors_of_cluster(std::uint8_t stored) {
    if (stored >= power_form_begin) {
        return 1u << (256u - stored);
    }
    return stored <= 128 && std::has_single_bit(stored) ? stored : 0;
}

// Bytes of a record or an index block from the stored byte; 0 if no volume has it.
std::uint32_t block_size(std::uint8_t stored, std::uint32_t cluster_size) {
    const auto number = static_cast<std::int8_t>(stored);
    std::uint64_t size = 0;
    if (number > 0) {
        size = std::uint64_t{static_cast<std::uint8_t>(number)} * cluster_size;
    } else if (number < 0 && number > -32) {
        size = std::uint64_t{1} << -number;
    }
    const bool possible = std::has_single_bit(size) && size >= smallest_block && size <= largest_block_size;
    return possible ? static_cast<std::uint32_t>(size) : 0;
}

}  // namespace

result<geometry> parse_boot_sector(byte_view sector, std::uint64_t volume_offset,
                                   std::uint64_t sector_offset) {
    const auto wrong = [&](const field& which, const std::string& value) {
        return fail(failure_code::boot, where::boot_sector, std::string(which.name) + " is " + value,
                    sector_offset + which.offset);
    };
    const auto wrong_number = [&](const field& which, std::uint64_t value) {
        return wrong(which, std::to_string(value));
    };
    geometry shape;
    shape.volume_offset = volume_offset;
    if (!sector.text_at(signature_field.offset, "NTFS    ")) {
        return wrong(signature_field, "not \"NTFS    \"");
    }
    shape.bytes_per_sector = sector.u16_or_zero(bytes_per_sector_field.offset);
    if (!std::has_single_bit(shape.bytes_per_sector) || shape.bytes_per_sector < 256 ||
        shape.bytes_per_sector > 4096) {
        return wrong_number(bytes_per_sector_field, shape.bytes_per_sector);
    }
    const std::uint8_t stored_sectors = sector.u8_or_zero(sectors_per_cluster_field.offset);
    const std::uint32_t sectors_per_cluster = sectors_of_cluster(stored_sectors);
    const std::uint64_t cluster_size = std::uint64_t{shape.bytes_per_sector} * sectors_per_cluster;
    if (cluster_size == 0 || cluster_size > largest_cluster) {
        return wrong_number(sectors_per_cluster_field, stored_sectors);
    }
    shape.cluster_size = static_cast<std::uint32_t>(cluster_size);
    const std::uint8_t stored_record = sector.u8_or_zero(record_size_field.offset);
    const std::uint8_t stored_block = sector.u8_or_zero(index_block_size_field.offset);
    shape.record_size = block_size(stored_record, shape.cluster_size);
    shape.index_block_size = block_size(stored_block, shape.cluster_size);
    if (shape.record_size == 0) {
        return wrong_number(record_size_field, stored_record);
    }
    if (shape.index_block_size == 0) {
        return wrong_number(index_block_size_field, stored_block);
    }
    shape.total_sectors = sector.u64_or_zero(total_sectors_field.offset);
    // The whole volume has its place in 63 bits, so that no position on it wraps.
    if (shape.total_sectors == 0 || volume_offset > most_bytes ||
        shape.total_sectors > (most_bytes - volume_offset) / shape.bytes_per_sector) {
        return wrong_number(total_sectors_field, shape.total_sectors);
    }
    shape.clusters = shape.total_sectors / sectors_per_cluster;
    shape.mft_lcn = sector.u64_or_zero(mft_field.offset);
    shape.mirror_lcn = sector.u64_or_zero(mirror_field.offset);
    if (shape.mft_lcn >= shape.clusters) {
        return wrong_number(mft_field, shape.mft_lcn);
    }
    if (shape.mirror_lcn >= shape.clusters) {
        return wrong_number(mirror_field, shape.mirror_lcn);
    }
    shape.serial = sector.u64_or_zero(serial_offset);
    return shape;
}

namespace {

result<geometry> geometry_at(const exact_source& source, std::uint64_t volume_offset,
                             std::uint64_t sector_offset, std::uint64_t length) {
    std::vector<std::uint8_t> sector(static_cast<std::size_t>(length));
    if (result<void> came = source.read(sector, sector_offset); !came) {
        return passed_on(came);
    }
    return parse_boot_sector(sector, volume_offset, sector_offset);
}

// The geometry of a backup that lies so many bytes ahead of the end of the partition, if it is one.
std::optional<geometry> backup_at(const exact_source& source, std::uint64_t volume_offset,
                                  std::uint64_t length_available, std::uint64_t distance) {
    if (distance > length_available || length_available > most_bytes - volume_offset) {
        return std::nullopt;
    }
    const std::uint64_t place = volume_offset + length_available - distance;
    result<geometry> shape = geometry_at(source, volume_offset, place, std::min(distance, boot_sector_bytes));
    // It is the sector after the last one of its volume, or the rest of another volume.
    if (!shape || place != volume_offset + shape->volume_bytes()) {
        return std::nullopt;
    }
    notices ignored;
    const std::uint64_t first_record = shape->source_byte_of(shape->mft_lcn);
    if (!read_record_at(source, shape->record_size, first_record, 0, where::record(0), ignored)) {
        return std::nullopt;
    }
    shape->from_backup = true;
    return *shape;
}

}  // namespace

result<geometry> read_geometry(const exact_source& source, std::uint64_t volume_offset,
                               std::uint64_t length_available, notices& told) {
    result<geometry> shape = geometry_at(source, volume_offset, volume_offset, boot_sector_bytes);
    if (shape || volume_offset > most_bytes) {
        return shape;
    }
    for (const std::uint64_t distance : backup_distances) {
        if (const auto backup = backup_at(source, volume_offset, length_available, distance)) {
            told.warn("boot-backup", where::boot_sector, shape.error().why + "; the backup is used");
            return *backup;
        }
    }
    return shape;
}

}  // namespace quarry::exact
