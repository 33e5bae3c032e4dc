#include "support/temp_dir.h"
#include "support/volume_builder.h"
#include "unit/volume/allocation_counter.h"
#include "volume/ntfs_open.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::size_t bytes_per_sector_field = 11;
constexpr std::size_t sectors_per_cluster_field = 13;
constexpr std::size_t mft_lcn_field = 48;
constexpr std::size_t clusters_per_record_field = 64;
constexpr std::size_t allocated_size_field = 28;

// The volume that an image holds, null if it holds none. The image's file is gone by then; the volume reads
// on.
std::unique_ptr<CNtfs> opened(const bytes& image, std::uint64_t offset = 0,
                              security_loader loader = nullptr) {
    const temp_dir dir;
    write_file(dir / "image", image);
    std::unique_ptr<CNtfs> volume;
    const bool accepted = open_by_image((dir / "image").wstring(), offset, volume, false, loader);
    EXPECT_EQ(accepted, volume != nullptr);
    return volume;
}

bytes image_with_boot(std::size_t offset, unsigned width, std::uint64_t value) {
    volume_builder volume;
    volume.force_boot(offset, width, value);
    return volume.image();
}

// Puts a descriptor whose reads all fail in place of the source's.
void break_source(const CNtfs& volume) {
    const int failing = ::open("/", O_RDONLY | O_DIRECTORY);
    ASSERT_NE(failing, -1);
    ASSERT_EQ(::dup2(failing, volume.m_disk->m_fd), volume.m_disk->m_fd);
    ::close(failing);
}

TEST(validate, the_geometry_follows_from_the_boot_sector) {
    const auto volume = opened(volume_builder({.total_clusters = 100}).image());
    ASSERT_NE(volume, nullptr);
    EXPECT_TRUE(volume->is_valid());
    EXPECT_EQ(volume->get_bytes_per_sector(), 512u);
    EXPECT_EQ(volume->get_sectors_per_cluster(), 8u);
    EXPECT_EQ(volume->m_sectors_per_cluster, 8u);
    EXPECT_EQ(volume->m_cluster_size, 4096);
    EXPECT_EQ(volume->m_total_clusters, 100);
    EXPECT_EQ(volume->m_mft_file_pos, 16384);
    EXPECT_EQ(volume->get_mft_record_size(), 1024u);
    EXPECT_EQ(volume->m_mft_cluster_per_record_fixed, 0) << "a record is smaller than a cluster";
    EXPECT_EQ(volume->m_record_alloc, 1024u);
    EXPECT_EQ(volume->get_num_entries(), 64u);
    EXPECT_EQ(volume->m_mft_record.size(), 1024u);
    EXPECT_EQ(volume->source_size(), 100u * 4096);
    EXPECT_EQ(volume->disk_origin(), 0u);
}

TEST(validate, a_record_of_two_clusters_is_as_long_as_they_are) {
    const auto volume = opened(volume_builder({.sectors_per_cluster = 1}).image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_boot.clusters_per_record, 2);
    EXPECT_EQ(volume->m_cluster_size, 512);
    EXPECT_EQ(volume->m_mft_record_size, 1024u);
    EXPECT_EQ(volume->m_mft_cluster_per_record_fixed, 2);
    EXPECT_EQ(volume->get_num_entries(), 64u);
}

TEST(validate, volumes_of_all_usual_shapes_open) {
    const geometry shapes[] = {
        {.sectors_per_cluster = 2},
        {.sectors_per_cluster = 8, .record_size = 4096},
        {.sectors_per_cluster = 128, .record_size = 1024},
        {.bytes_per_sector = 4096, .sectors_per_cluster = 1, .record_size = 4096},
        {.bytes_per_sector = 1024, .sectors_per_cluster = 3, .record_size = 1024, .stride = 1024},
    };
    for (const geometry& shape : shapes) {
        const auto volume = opened(volume_builder(shape).image());
        ASSERT_NE(volume, nullptr) << shape.bytes_per_sector << " x " << shape.sectors_per_cluster;
        EXPECT_EQ(volume->m_mft_record_size, shape.record_size);
        EXPECT_EQ(volume->m_cluster_size,
                  static_cast<std::int32_t>(shape.bytes_per_sector * shape.sectors_per_cluster));
        EXPECT_FALSE(volume->m_bitmap_runs.empty()) << "entry 6 was found";
    }
}

TEST(validate, any_change_to_the_eight_bytes_of_the_signature_refuses_the_volume) {
    for (std::size_t place = 3; place < 11; ++place) {
        EXPECT_EQ(opened(image_with_boot(place, 1, 0)), nullptr) << place;
        EXPECT_EQ(opened(image_with_boot(place, 1, 'x')), nullptr) << place;
    }
}

TEST(validate, nothing_else_makes_a_boot_sector_but_the_signature) {
    volume_builder volume;
    volume.force_boot(0, 3, 0);                   // jump
    volume.force_boot(21, 1, 0);                  // media descriptor
    volume.force_boot(28, 4, 0x99);               // hidden sectors
    volume.force_boot(40, 8, 0);                  // total sectors
    volume.force_boot(56, 8, ~std::uint64_t{0});  // mirror
    volume.force_boot(80, 4, 0xBAD);              // checksum
    volume.force_boot(510, 2, 0);                 // end marker
    const auto opened_volume = opened(volume.image());
    ASSERT_NE(opened_volume, nullptr);
    EXPECT_EQ(opened_volume->m_total_clusters, 0);
}

TEST(validate, without_a_source_nothing_is_valid) {
    CNtfs volume;
    volume.m_Validated = true;
    EXPECT_FALSE(volume.is_valid());
    std::int64_t position = 77;
    EXPECT_FALSE(volume.validate(position));
    EXPECT_FALSE(volume.m_Validated);
    EXPECT_EQ(position, 0);
    EXPECT_FALSE(volume.is_valid());
    EXPECT_EQ(volume.get_num_entries(), 0u);
    EXPECT_EQ(volume.get_mft_record_size(), 1024u) << "in place of 0";
    EXPECT_EQ(volume.get_disk(), nullptr);
    EXPECT_EQ(volume.source_size(), 0u);
    EXPECT_EQ(volume.disk_origin(), 0u);
}

TEST(validate, a_second_call_gives_the_same_position_and_reads_nothing) {
    const auto volume = opened(volume_builder().image());
    ASSERT_NE(volume, nullptr);
    break_source(*volume);
    std::int64_t position = 0;
    EXPECT_TRUE(volume->validate(position));
    EXPECT_EQ(position, 16384);
    std::vector<std::uint8_t> record;
    std::uint64_t place = 0;
    std::uint64_t length = 0;
    EXPECT_FALSE(volume->read_record(0, record, place, length)) << "the source is broken indeed";
}

TEST(validate, a_refused_volume_leaves_the_object_as_it_was_opened) {
    const temp_dir dir;
    write_file(dir / "image", image_with_boot(3, 1, 'n'));
    CNtfs volume;
    ASSERT_TRUE(volume.open_source(source_type_path, (dir / "image").wstring(), -1, 0, false));
    std::int64_t position = 77;
    EXPECT_FALSE(volume.validate(position));
    EXPECT_EQ(position, 0);
    EXPECT_EQ(volume.m_cluster_size, 0);
    EXPECT_EQ(volume.m_mft_record_size, 0u);
    EXPECT_FALSE(volume.is_valid());
    // A second attempt reads again.
    write_file(dir / "image", volume_builder().image());
    EXPECT_TRUE(volume.validate(position));
}

TEST(validate, the_volume_may_begin_anywhere_on_the_source) {
    const bytes image = volume_builder().image_at(1048576);
    const auto volume = opened(image, 1048576);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_mft_file_pos, 16384);
    EXPECT_EQ(volume->m_volume_offset, 1048576u);
    // Entry 0 came from byte 1,064,960 of the source: there it says FILE, and nothing is at 16,384.
    EXPECT_TRUE(byte_view(image).text_at(1064960, "FILE"));
    EXPECT_EQ(byte_view(image).u32(16384), 0u);
    std::vector<std::uint8_t> record;
    std::uint64_t position = 0;
    std::uint64_t length = 0;
    EXPECT_TRUE(volume->read_record(5, record, position, length));
    EXPECT_EQ(position, 16384u + 5 * 1024) << "positions count from the start of the volume";
    EXPECT_EQ(opened(image, 0), nullptr);
    EXPECT_EQ(opened(image, 1048577), nullptr);
    EXPECT_EQ(opened(image, std::uint64_t{1} << 63), nullptr);
    EXPECT_EQ(opened(image, ~std::uint64_t{0}), nullptr);
}

TEST(validate, a_record_0_that_is_longer_than_the_boot_sector_says_is_read_again_at_its_own_length) {
    volume_builder builder({.record_size = 4096});
    builder.force_boot(clusters_per_record_field, 1, 0xF6);
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_mft_record_size, 4096u);
    ASSERT_EQ(volume->m_mft_record.size(), 4096u);
    // The update sequence number is at the sector ends on disk, nothing in the unused end of the record.
    EXPECT_EQ(byte_view(builder.record_on_disk(0)).u16(4094), 0x0101);
    EXPECT_EQ(byte_view(volume->m_mft_record).u16(4094), 0) << "the last sector end was put back";
    EXPECT_EQ(volume->m_mft_cluster_per_record_fixed, 0) << "what the boot sector said is kept";
}

TEST(validate, a_record_0_that_says_it_is_longer_but_ends_with_the_source_opens_with_zeros) {
    volume_builder builder({.mft_runs = {{100, 16}}});
    builder.file(0).record().force(6, 2, 9);
    bytes image = builder.image();
    image.resize(100 * 4096 + 1024);  // record 0 and nothing after it
    const auto volume = opened(image);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_mft_record_size, 4096u);
    EXPECT_EQ(volume->m_mft_record.size(), 4096u);
    EXPECT_EQ(byte_view(volume->m_mft_record).u64(2000), 0u);
}

TEST(validate, a_count_of_0_never_enlarges_record_0) {
    volume_builder builder;
    builder.force_record(0, 6, 2, 0);
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_mft_record_size, 1024u);
}

TEST(validate, the_header_of_record_0_reports_the_step_from_record_to_record_whatever_the_boot_sector_says) {
    volume_builder builder({.record_size = 1024});
    builder.force_record(0, allocated_size_field, 4, 2048);
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_record_alloc, 2048u);
    EXPECT_EQ(volume->m_mft_record_size, 1024u);
    EXPECT_EQ(volume->entry_position(3), 16384u + 3 * 2048);
    EXPECT_EQ(volume->get_num_entries(), 32u);
}

TEST(validate, a_record_0_without_usable_attributes_opens_all_the_same) {
    volume_builder builder;
    builder.replace_record(0, builder.new_record(0).build());
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->get_num_entries(), 0u);
    EXPECT_EQ(volume->entry_position(5), 0u);
    EXPECT_TRUE(volume->m_bitmap_runs.empty());
    std::vector<std::uint8_t> record;
    std::uint64_t position = 0;
    std::uint64_t length = 0;
    EXPECT_TRUE(volume->read_record(0, record, position, length)) << "record 0 needs no runs";
    EXPECT_FALSE(volume->read_record(5, record, position, length));
}

TEST(validate, a_resident_mft_counts_as_one_cluster) {
    volume_builder builder;
    record_builder record = builder.new_record(0);
    record.add(attribute_builder::resident(0x80, bytes(100)));
    builder.replace_record(0, record.build());
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->get_num_entries(), 4u);
    EXPECT_EQ(volume->entry_position(1), 0u) << "no run holds any entry";
}

TEST(validate, record_0_must_be_a_record) {
    struct row {
        std::size_t offset;
        unsigned width;
        std::uint64_t value;
    };
    for (const row& each : {row{0, 4, 0}, {0, 4, 0x44414142}, {4, 2, 0x2A}, {6, 2, 10}, {20, 2, 0x50}}) {
        volume_builder builder;
        builder.force_record(0, each.offset, each.width, each.value);
        EXPECT_EQ(opened(builder.image()), nullptr) << each.offset;
    }
}

TEST(validate, the_place_of_mft_is_known_though_record_0_is_refused) {
    const temp_dir dir;
    volume_builder builder;
    builder.force_record(0, 0, 4, 0);
    builder.write_to(dir / "image");
    CNtfs volume;
    ASSERT_TRUE(volume.open_source(source_type_path, (dir / "image").wstring(), -1, 0, false));
    std::int64_t position = 77;
    EXPECT_FALSE(volume.validate(position));
    EXPECT_EQ(position, 16384);
    EXPECT_FALSE(volume.m_Validated);
    EXPECT_EQ(volume.m_boot.mft_lcn, 4u) << "the boot sector stays";
}

TEST(validate, the_mirror_of_mft_does_not_serve_where_record_0_is_damaged) {
    bytes image = volume_builder({.system_files = true}).image();
    ASSERT_NE(opened(image), nullptr);
    apply(image, {{16384, 4, 0}});
    const std::uint64_t mirror = byte_view(image).u64_or_zero(56) * 4096;
    ASSERT_TRUE(byte_view(image).text_at(mirror, "FILE")) << "the mirror is whole";
    EXPECT_EQ(opened(image), nullptr);
}

TEST(validate, a_record_0_whose_header_is_bad_once_it_is_read_at_its_own_length_is_refused) {
    // With sectors of 4 bytes the saved words of record 0 go over its header: the first one over "LE".
    bytes image = volume_builder().image();
    apply(image, {{bytes_per_sector_field, 2, 4}, {mft_lcn_field, 8, 16384 / (4 * 8)}});
    EXPECT_NE(opened(image), nullptr) << "the header was good when it was tested";
    // A record of 8 bytes does not reach to the saved words, and says that it is 1024 bytes long.
    apply(image, {{clusters_per_record_field, 1, 0xFD}});
    EXPECT_EQ(opened(image), nullptr);
}

TEST(validate, an_index_block_in_the_place_of_record_0_is_accepted_and_used_as_one) {
    volume_builder builder;
    builder.force_record(0, 0, 4, 0x58444E49);
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->get_num_entries(), 64u);
}

TEST(validate, an_index_block_in_the_place_of_record_0_may_name_any_first_attribute) {
    for (const std::uint64_t offset : {0u, 1u, 1020u, 1023u, 1024u, 65535u}) {
        volume_builder builder;
        builder.force_record(0, 0, 4, 0x58444E49);
        builder.force_record(0, 20, 2, offset);
        const auto volume = opened(builder.image());
        ASSERT_NE(volume, nullptr) << offset;
        EXPECT_EQ(volume->get_num_entries(), 0u) << offset;
    }
}

TEST(validate, a_torn_record_0_is_accepted) {
    volume_builder builder;
    builder.force_record(0, 510, 2, 0xDEAD);
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_NE(byte_view(volume->m_mft_record).u16(510), 0xDEAD);
}

TEST(validate, the_runs_of_the_bitmap_are_learned) {
    volume_builder builder;
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    // $MFT takes the clusters from 4 to 19, the bitmap the first free one after it.
    ASSERT_EQ(volume->m_bitmap_runs.size(), 1u);
    EXPECT_EQ(volume->m_bitmap_runs[0].lcn, 20u);
    EXPECT_EQ(volume->m_bitmap_runs[0].num_clusters, 1u);
    EXPECT_EQ(volume->get_bitmap_inode_runlist().size(), 1u);
    EXPECT_EQ(volume->get_mft_inode_stats().data_runs.size(), 1u);
    ASSERT_EQ(volume->get_mft_inode_bitmap_runlist().size(), 1u);
    EXPECT_TRUE(volume->get_mft_inode_bitmap_runlist()[0].resident);
}

TEST(validate, a_missing_or_damaged_entry_6_leaves_the_volume_valid) {
    for (const bytes& record : {bytes(), to_bytes("BAAD"), to_bytes("nothing of the kind")}) {
        volume_builder builder;
        builder.replace_record(6, record);
        const auto volume = opened(builder.image());
        ASSERT_NE(volume, nullptr);
        EXPECT_TRUE(volume->is_valid());
        EXPECT_TRUE(volume->m_bitmap_runs.empty());
    }
}

TEST(validate_death_test, what_was_learned_is_not_to_be_asked_of_an_object_that_is_not_valid) {
    const CNtfs volume;
    EXPECT_DEATH(static_cast<void>(volume.get_mft_inode_stats()), "m_Validated.*ntfs");
    EXPECT_DEATH(static_cast<void>(volume.get_mft_inode_bitmap_runlist()), "m_Validated.*ntfs");
    EXPECT_DEATH(static_cast<void>(volume.get_bitmap_inode_runlist()), "m_Validated.*ntfs");
}

int loads = 0;
bool load_nothing(CNtfs& volume) {
    ++loads;
    EXPECT_TRUE(volume.m_Validated);
    return false;
}

TEST(validate, the_security_id_of_entry_6_loads_the_security_descriptors) {
    loads = 0;
    volume_builder builder;
    builder.file(6).security_id(0x100);
    EXPECT_NE(opened(builder.image(), 0, load_nothing), nullptr);
    EXPECT_EQ(loads, 1);
}

TEST(validate, without_a_security_id_in_entry_6_no_descriptor_is_loaded) {
    loads = 0;
    volume_builder builder;
    builder.file(0).security_id(0x100);  // comes ahead of everything that is known
    EXPECT_NE(opened(builder.image(), 0, load_nothing), nullptr);
    EXPECT_EQ(loads, 0);
}

TEST(validate, a_size_of_0_that_something_would_be_divided_by_refuses_the_volume) {
    EXPECT_EQ(opened(image_with_boot(bytes_per_sector_field, 2, 0)), nullptr);
    EXPECT_EQ(opened(image_with_boot(sectors_per_cluster_field, 1, 0)), nullptr);
    volume_builder builder;
    builder.force_record(0, allocated_size_field, 4, 0);
    EXPECT_EQ(opened(builder.image()), nullptr);
}

TEST(validate, each_number_of_clusters_per_record_gives_its_size_or_refuses_the_volume) {
    struct row {
        std::uint64_t byte;
        std::uint32_t record_size;  // 0: refused
        std::int32_t clusters;
    };
    const row rows[] = {
        {0, 0, 0},               // nothing to read
        {1, 4096, 1},            //
        {2, 8192, 2},            //
        {127, 520192, 127},      //
        {0x80, 0, 0},            // one byte
        {0xD6, 1024, 0},         // 2^42, taken modulo 32
        {0xE0, 0, 0},            // one byte
        {0xE1, 524288, 524288},  // 2 GiB, of which no record needs more
        {0xE2, 524288, 262144},  // 1 GiB
        {0xEC, 524288, 256},     // 1 MiB
        {0xF4, 4096, 1},         //
        {0xF5, 2048, 0},         //
        {0xF6, 1024, 0},         //
        {0xF7, 1024, 0},         // 512 bytes, but the record says 1024
        {0xFA, 1024, 0},         // 64 bytes, as before
        {0xFB, 1024, 0},         // 32 bytes, less than a header
        {0xFD, 1024, 0},         // 8 bytes, enough to say 1024
        {0xFE, 0, 0},            // 4 bytes
        {0xFF, 0, 0},            // two bytes
    };
    for (const row& each : rows) {
        const auto volume = opened(image_with_boot(clusters_per_record_field, 1, each.byte));
        ASSERT_EQ(volume != nullptr, each.record_size != 0) << each.byte;
        if (volume != nullptr) {
            EXPECT_EQ(volume->m_mft_record_size, each.record_size) << each.byte;
            EXPECT_EQ(volume->m_mft_cluster_per_record_fixed, each.clusters) << each.byte;
            EXPECT_EQ(volume->m_mft_record.size(), each.record_size) << each.byte;
            EXPECT_EQ(volume->get_num_entries(), 64u) << "the rest is as it should be";
        }
    }
}

TEST(validate, any_sector_and_cluster_size_is_survived) {
    const bytes good = volume_builder().image();
    for (const std::uint64_t sector : {1u, 2u, 3u, 255u, 256u, 511u, 512u, 513u, 32768u, 65535u}) {
        for (std::uint64_t sectors = 1; sectors < 256; sectors += sectors < 9 ? 1 : 41) {
            bytes image = good;
            apply(image, {{bytes_per_sector_field, 2, sector}, {sectors_per_cluster_field, 1, sectors}});
            // $MFT where it is in truth, as far as clusters of this size allow.
            apply(image, {{mft_lcn_field, 8, 16384 / (sector * sectors)}});
            const auto volume = opened(image);
            if (volume != nullptr) {
                EXPECT_EQ(volume->m_cluster_size, static_cast<std::int32_t>(sector * sectors));
                EXPECT_LE(volume->m_mft_record.size(), longest_record);
            }
        }
    }
}

TEST(validate, a_place_of_mft_that_no_position_can_hold_refuses_the_volume) {
    for (const std::uint64_t lcn :
         {std::uint64_t{1} << 51, std::uint64_t{1} << 52, (std::uint64_t{1} << 52) + 4,
          std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        EXPECT_EQ(opened(image_with_boot(mft_lcn_field, 8, lcn)), nullptr) << lcn;
    }
    // The last one that can be held is not on the source.
    EXPECT_EQ(opened(image_with_boot(mft_lcn_field, 8, (std::uint64_t{1} << 51) - 1)), nullptr);
    EXPECT_EQ(opened(image_with_boot(mft_lcn_field, 8, 0)), nullptr) << "the boot sector is no record";
}

TEST(validate, an_allocated_size_of_any_kind_is_survived) {
    for (const std::uint64_t size : {1u, 16u, 1023u, 0x40000000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        volume_builder builder;
        builder.force_record(0, allocated_size_field, 4, size);
        const auto volume = opened(builder.image());
        ASSERT_NE(volume, nullptr) << size;
        EXPECT_EQ(volume->m_record_alloc, size);
        std::vector<std::uint8_t> record;
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        EXPECT_TRUE(volume->read_record(0, record, position, length)) << "record 0 is where it was";
        static_cast<void>(volume->read_record(1, record, position, length));
        EXPECT_LE(record.size(), longest_record);
    }
}

TEST(validate, an_image_cut_at_any_length_is_opened_or_refused) {
    const temp_dir dir;
    write_file(dir / "image", volume_builder().image());
    // Record 0 begins at 16,384. Its last field that must not be 0 ends with the byte 0x04 at 29.
    for (std::uintmax_t length = 18000; length > 0; --length) {
        std::filesystem::resize_file(dir / "image", length);
        std::unique_ptr<CNtfs> volume;
        EXPECT_EQ(open_by_image((dir / "image").wstring(), 0, volume, false, nullptr), length >= 16384 + 30)
            << length;
    }
}

TEST(validate, mapping_pairs_without_an_end_in_entries_0_and_6_end_with_their_attribute) {
    volume_builder builder;
    record_builder mft = builder.new_record(0);
    // The pairs fill the attribute; the next attribute begins with 0x31, which would be a pair too.
    mft.add(attribute_builder::with_pairs(0x80, from_hex("11 10 04 11 10 04 11 10")).length(72).real(65536));
    mft.add(attribute_builder::resident(0x31, bytes(8, 0x11)));
    builder.replace_record(0, mft.build());
    record_builder bitmap = builder.new_record(6);
    bitmap.add(attribute_builder::with_pairs(0x80, from_hex("01 01 01 01 01 01 01 01")));
    builder.replace_record(6, bitmap.build());
    const auto volume = opened(builder.image());
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(volume->m_mft_info.data_runs.size(), 2u);
    EXPECT_EQ(volume->m_bitmap_runs.size(), 4u);
}

// Whichever piece of memory is not there: the volume is refused, or what it lacks is the runs of the bitmap,
// without which it can be read.
TEST(validate, a_volume_for_which_there_is_no_memory_is_refused_and_may_be_opened_later) {
    const temp_dir dir;
    write_file(dir / "image", volume_builder().image());
    std::size_t refused = 0;
    std::size_t without_bitmap = 0;
    // Ends where so many pieces are not asked for.
    for (std::size_t count = 0;; ++count) {
        CNtfs volume;
        ASSERT_TRUE(volume.open_source(source_type_path, (dir / "image").wstring(), -1, 0, false));
        std::int64_t position = 77;
        bool valid = false;
        {
            const missing_memory memory(count);
            valid = volume.validate(position);
            if (!memory.was_missed()) {
                EXPECT_TRUE(valid);
                break;
            }
        }
        EXPECT_EQ(volume.is_valid(), valid) << count;
        if (valid) {
            EXPECT_EQ(volume.m_bitmap_runs.size(), 0u) << count;
            EXPECT_EQ(volume.get_num_entries(), 64u) << count;
            ++without_bitmap;
        } else {
            EXPECT_EQ(volume.get_num_entries(), 0u) << count;
            EXPECT_TRUE(volume.validate(position)) << count;
            EXPECT_EQ(volume.get_num_entries(), 64u) << count;
            EXPECT_EQ(volume.m_bitmap_runs.size(), 1u) << count;
            ++refused;
        }
    }
    EXPECT_GT(refused, 0u);
    EXPECT_GT(without_bitmap, 0u);
}

}  // namespace
}  // namespace quarry::test
