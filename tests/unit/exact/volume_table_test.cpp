#include "exact/volume_table.h"

#include "support/disk_builder.h"
#include "support/gpt_builder.h"
#include "support/memory_source.h"
#include "support/volume_builder.h"

#include <array>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;

std::string listing_of(memory_source& bytes, std::optional<std::uint32_t> sector_size = std::nullopt) {
    const exact_source source(bytes, "disk.dd");
    notices told;
    const auto table = volume_table::read(source, sector_size, told);
    return table ? table->listing() : "err: " + table.error().text();
}

std::string listing_of(const disk_builder& disk) {
    memory_source source(disk.image());
    return listing_of(source);
}

std::string choice_of(const disk_builder& disk, std::optional<std::uint64_t> number = std::nullopt) {
    memory_source bytes(disk.image());
    const exact_source source(bytes, "disk.dd");
    notices told;
    const auto chosen =
        volume_table::read(source, std::nullopt, told).and_then([&](const volume_table& table) {
            return table.choose(number);
        });
    return chosen ? hex(chosen->place.offset)
                  : std::string(code_text(chosen.error().code)) + ": " + chosen.error().text();
}

// The boot sector of a volume that is nothing else.
bytes boot_with_serial(std::uint64_t serial) {
    return byte_writer(ntfs_boot_sector(1000)).u64(72, serial).take();
}

bytes named_sector(std::size_t offset, std::string_view name) {
    return byte_writer(512).text(offset, name).u16(510, 0xAA55).take();
}

// A whole volume and, in one sector more, the backup of its boot sector.
bytes volume_with_backup() {
    volume_builder volume;
    volume.add_file("a.txt");
    volume.force_boot(72, 8, 0x6F462FC17DF91EB8);
    bytes image = volume.image();
    const bytes boot(image.begin(), image.begin() + 512);
    image.insert(image.end(), boot.begin(), boot.end());
    return image;
}

}  // namespace

TEST(volume_probe, names_the_kinds_of_volumes) {
    EXPECT_EQ(probe_volume(byte_view(named_sector(3, "NTFS    "))), volume_kind::ntfs);
    EXPECT_EQ(probe_volume(byte_view(named_sector(3, "-FVE-FS-"))), volume_kind::bitlocker);
    EXPECT_EQ(probe_volume(byte_view(named_sector(3, "EXFAT   "))), volume_kind::exfat);
    EXPECT_EQ(probe_volume(byte_view(named_sector(54, "FAT12   "))), volume_kind::fat);
    EXPECT_EQ(probe_volume(byte_view(named_sector(54, "FAT16   "))), volume_kind::fat);
    EXPECT_EQ(probe_volume(byte_view(named_sector(82, "FAT32   "))), volume_kind::fat);
    EXPECT_EQ(probe_volume(byte_view(ext_volume_head(100, 0))), volume_kind::ext);
    EXPECT_EQ(probe_volume(byte_view(named_sector(4, "NTFS    "))), volume_kind::unknown);
    EXPECT_EQ(probe_volume(byte_view(named_sector(3, "NTFS"))), volume_kind::unknown);
    EXPECT_EQ(probe_volume({}), volume_kind::unknown);
}

TEST(volume_table, lists_a_line_for_each_partition) {
    // Only the table says where the volumes end.
    disk_builder disk(0x3000);
    disk.table(
        0, {{0x06, 0x800, 0x8000}, {0x07, 0x1000, 0x30000}, {0x07, 0x1800, 0x100000}, {0x83, 0x2000, 100}});
    disk.put(0x800, fat16_boot_sector(0x8000));
    disk.put(0x1000, boot_with_serial(0x26A7A1E93D3A46ED));
    disk.put(0x1800, named_sector(3, "-FVE-FS-"));
    memory_source source(disk.image());
    source.unreadable(0x2000 * 512, 512);
    EXPECT_EQ(listing_of(source),
              "   -  offset 0x0000000000100000        16 MiB  fat\n"
              "   1  offset 0x0000000000200000        96 MiB  ntfs  serial 26A7A1E93D3A46ED\n"
              "   -  offset 0x0000000000300000       512 MiB  enciphered (BitLocker)\n"
              "   -  offset 0x0000000000400000        50 KiB  unreadable\n");
}

TEST(volume_table, numbers_volumes_in_the_order_of_their_offsets) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 3000, 10}, {0x07, 1000, 10}, {0x07, 2000, 10}});
    disk.put(3000, boot_with_serial(3)).put(1000, boot_with_serial(1)).put(2000, ext_volume_head(100, 0));
    EXPECT_EQ(listing_of(disk),
              "   1  offset 0x000000000007D000         5 KiB  ntfs  serial 0000000000000001\n"
              "   -  offset 0x00000000000FA000         5 KiB  ext\n"
              "   2  offset 0x0000000000177000         5 KiB  ntfs  serial 0000000000000003\n");
    EXPECT_EQ(choice_of(disk, 1), "0x7D000");
    EXPECT_EQ(choice_of(disk, 2), "0x177000");
}

TEST(volume_table, counts_a_volume_by_what_it_holds_and_not_by_its_type) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 1000, 10}, {0x83, 2000, 10}});
    disk.put(1000, exfat_boot_sector(10, 9, 3)).put(2000, boot_with_serial(7));
    EXPECT_EQ(listing_of(disk),
              "   -  offset 0x000000000007D000         5 KiB  exfat\n"
              "   1  offset 0x00000000000FA000         5 KiB  ntfs  serial 0000000000000007\n");
}

TEST(volume_table, one_volume_is_taken_several_must_be_chosen_from) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 1000, 10}, {0x07, 2000, 10}});
    EXPECT_EQ(choice_of(disk),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
    EXPECT_EQ(choice_of(disk, 2),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
    disk.put(1000, boot_with_serial(1));
    EXPECT_EQ(choice_of(disk), "0x7D000");
    disk.put(2000, boot_with_serial(2));
    EXPECT_EQ(choice_of(disk),
              "several-volumes: source disk.dd: holds 2 NTFS volumes; choose one with -ntfsvol");
    EXPECT_EQ(choice_of(disk, 2), "0xFA000");
    EXPECT_EQ(choice_of(disk, 3),
              "no-such-volume: source disk.dd: has no NTFS volume 3; -volumes lists the 2 that it has");
}

TEST(volume_table, an_enciphered_volume_is_named_as_one) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 1000, 10}}).put(1000, named_sector(3, "-FVE-FS-"));
    EXPECT_EQ(choice_of(disk), "enciphered: source disk.dd: is enciphered (BitLocker)");
    EXPECT_EQ(choice_of(disk, 1), "enciphered: source disk.dd: is enciphered (BitLocker)");
}

TEST(volume_table, a_source_that_begins_with_a_boot_sector_is_one_bare_volume) {
    disk_builder disk(64);
    disk.table(0, {{0x07, 10, 10}});
    const bytes boot = byte_writer(boot_with_serial(9)).u16(510, 0xAA55).take();
    disk.put(0, boot);
    EXPECT_EQ(listing_of(disk),
              "   1  offset 0x0000000000000000        32 KiB  ntfs  serial 0000000000000009\n");
    disk.put(0, fat32_boot_sector(64));
    EXPECT_EQ(listing_of(disk), "   -  offset 0x0000000000000000        32 KiB  fat\n");
}

TEST(volume_table, a_bare_volume_whose_first_sector_is_lost_is_found_by_its_backup) {
    const std::string line =
        "   1  offset 0x0000000000000000  serial 6F462FC17DF91EB8  (boot sector from its backup)\n";
    bytes image = volume_with_backup();
    auto without_size = [](const std::string& text) {
        return text.substr(0, 31) + text.substr(text.find("  serial"));
    };
    std::fill(image.begin(), image.begin() + 512, std::uint8_t{0});
    memory_source zeroed(image);
    EXPECT_EQ(without_size(listing_of(zeroed)), line);
    // The mark of a table does not make a table of it.
    image[510] = 0x55;
    image[511] = 0xAA;
    memory_source marked(image);
    EXPECT_EQ(without_size(listing_of(marked)), line);
    memory_source unreadable(volume_with_backup());
    unreadable.unreadable(0, 512);
    EXPECT_EQ(without_size(listing_of(unreadable)), line);
}

TEST(volume_table, a_backup_of_the_whole_source_gives_way_to_a_volume_that_the_table_leads_to) {
    // What is left of a volume that filled the source, a volume after it, and the backup of the first.
    const bytes left = volume_with_backup();
    const bytes volume = volume_with_backup();
    const auto sectors = static_cast<std::uint32_t>(volume.size() / 512);
    const auto listed = [&](const bytes& second) {
        disk_builder disk(2 * sectors + 1);
        disk.put(1, bytes(left.begin() + 512, left.end())).table(0, {{0x07, sectors, sectors}});
        disk.put(sectors, second);
        const bytes boot(left.begin(), left.begin() + 512);
        disk.put(2 * sectors, byte_writer(boot).u64(40, std::uint64_t{2} * sectors).take());
        const std::string listing = listing_of(disk);
        return listing.substr(0, 31) + listing.substr(listing.find("  serial"));
    };
    std::array<char, 17> offset{};
    std::snprintf(offset.data(), offset.size(), "%016llX", 512ull * sectors);
    EXPECT_EQ(listed(volume), "   1  offset 0x" + std::string(offset.data()) + "  serial 6F462FC17DF91EB8\n");
    EXPECT_EQ(listed(bytes(512)),
              "   1  offset 0x0000000000000000  serial 6F462FC17DF91EB8  (boot sector from its backup)\n");
}

TEST(volume_table, a_partition_whose_first_sector_is_lost_is_found_by_its_backup) {
    bytes volume = volume_with_backup();
    std::fill(volume.begin(), volume.begin() + 512, std::uint8_t{0});
    const std::uint32_t sectors = static_cast<std::uint32_t>(volume.size() / 512);
    disk_builder disk(100 + sectors);
    disk.table(0, {{0x07, 100, sectors}}).put(100, volume);
    EXPECT_EQ(choice_of(disk), "0xC800");
    // One sector less, and the backup is not where it must be.
    disk.table(0, {{0x07, 100, sectors - 1}});
    EXPECT_EQ(choice_of(disk),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
}

TEST(volume_table, a_first_sector_that_cannot_be_read_is_no_disk_without_volumes) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 1000, 1000}}).put(1000, boot_with_serial(1));
    memory_source source(disk.image());
    source.unreadable(0, 512);
    notices told;
    const auto table = volume_table::read(exact_source(source, "disk.dd"), std::nullopt, told);
    ASSERT_FALSE(table.has_value());
    EXPECT_EQ(code_text(table.error().code), "source-read");
    EXPECT_EQ(table.error().text(),
              "source disk.dd: 512 bytes cannot be read: Input/output error (source byte 0x0)");
}

TEST(volume_table, a_volume_that_cannot_be_read_is_not_told_as_none) {
    disk_builder disk(4096);
    disk.table(0, {{0x07, 1000, 10}, {0x83, 2000, 10}}).put(2000, ext_volume_head(100, 0));
    memory_source source(disk.image());
    source.unreadable(1000 * 512, 512);
    notices told;
    const auto table = volume_table::read(exact_source(source, "disk.dd"), std::nullopt, told);
    ASSERT_TRUE(table.has_value());
    const auto chosen = table->choose(std::nullopt);
    ASSERT_FALSE(chosen.has_value());
    EXPECT_EQ(code_text(chosen.error().code), "source-read");
    EXPECT_EQ(chosen.error().source_byte, 512000u);
}

TEST(volume_table, a_table_that_leads_to_a_sound_volume_counts_whatever_text_is_beside_it) {
    const bytes volume = volume_with_backup();
    const auto sectors = static_cast<std::uint32_t>(volume.size() / 512);
    const auto choice_beside = [&](std::size_t offset, std::string_view text, const bytes& content) {
        disk_builder disk(100 + sectors);
        disk.table(0, {{0x07, 100, sectors}}).put(100, content);
        bytes first = disk.image();
        first.resize(512);
        return choice_of(disk.put(0, byte_writer(first).text(offset, text).take()));
    };
    EXPECT_EQ(choice_beside(54, "FAT16   ", volume), "0xC800");
    EXPECT_EQ(choice_beside(82, "FAT32   ", volume), "0xC800");
    EXPECT_EQ(choice_beside(3, "-FVE-FS-", volume), "0xC800");
    EXPECT_EQ(choice_beside(3, "EXFAT   ", volume), "0xC800");
    EXPECT_EQ(choice_beside(3, "NTFS    ", volume), "0xC800");
    // An entry that leads only to a name proves no table.
    const bytes name_alone = named_sector(3, "NTFS    ");
    EXPECT_EQ(choice_beside(54, "FAT16   ", name_alone),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
    EXPECT_EQ(choice_beside(3, "-FVE-FS-", name_alone),
              "enciphered: source disk.dd: is enciphered (BitLocker)");
}

TEST(volume_table, a_source_without_anything_known_is_one_line) {
    disk_builder disk(4);
    EXPECT_EQ(listing_of(disk), "   -  offset 0x0000000000000000         2 KiB  unknown\n");
    EXPECT_EQ(choice_of(disk),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
}

TEST(volume_table, an_empty_source_holds_no_volume) {
    EXPECT_EQ(choice_of(disk_builder(0)),
              "no-volume: source disk.dd: holds no NTFS volume; -volumes shows what it holds");
}

}  // namespace quarry::test
