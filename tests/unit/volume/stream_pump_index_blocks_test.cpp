#include "unit/volume/pumped.h"
#include "volume/attribute.h"
#include "volume/stream_pump.h"

namespace quarry::test {
namespace {

TEST_F(pump_stream_test, puts_the_sector_ends_of_index_blocks_back) {
    bytes protected_block = pattern(4096, 3);
    byte_writer block(protected_block);
    block.text(0, "INDX").u16(4, 0x28).u16(6, 9).u16(0x28, 0x0101);
    for (std::size_t i = 1; i <= 8; ++i) {
        block.u16(0x28 + 2 * i, 0xA000 + i).u16(i * 512 - 2, 0x0101);
    }
    byte_writer restored(block.content());
    for (std::size_t i = 1; i <= 8; ++i) {
        restored.u16(i * 512 - 2, 0xA000 + i);
    }
    bytes image = m_image;
    std::copy(block.content().begin(), block.content().end(), image.begin() + 50 * cluster);
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}});
    item.type = attr_index_allocation;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, restored.content());
    EXPECT_EQ(test::pump(&volume.ntfs(), item, {.raw = true}).out, block.content());
    item.type = attr_data;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, block.content());
}

// One saved word for each sector of a block, four or one of them here.
TEST(pump_of_index_blocks, puts_one_sector_end_back_for_each_sector_of_the_volume) {
    for (const std::uint32_t sector : {1024u, 2048u, 4096u}) {
        geometry shape;
        shape.bytes_per_sector = sector;
        shape.sectors_per_cluster = 4096 / sector;
        shape.record_size = 4096;
        shape.stride = sector;
        shape.total_clusters = 100;
        bytes block(8192, 0x11);
        byte_writer writer(block);
        for (const std::size_t at : {0u, 4096u}) {
            writer.u16(at + 4, 0x28).u16(at + 6, 9);
            for (std::size_t word = 1; word <= 8; ++word) {
                writer.u16(at + 0x28 + 2 * word, 0xA000 + word);
            }
        }
        volume_builder volume(shape);
        volume.write_clusters(90, writer.content());
        opened_volume opened(volume);
        attr_item item = stored_item({{90, 2}});
        item.type = attr_index_allocation;
        byte_writer restored(writer.content());
        for (const std::size_t at : {0u, 4096u}) {
            for (std::size_t word = 1; word <= 4096 / sector; ++word) {
                restored.u16(at + word * sector - 2, 0xA000 + word);
            }
        }
        EXPECT_EQ(pump(&opened.ntfs(), item).out, restored.content()) << sector;
    }
}

TEST_F(pump_stream_test, looks_at_no_signature_of_an_index_block) {
    bytes block(4096, 0x11);
    byte_writer writer(block);
    writer.u16(4, 0x100).u16(6, 2).u16(0x102, 0x2222);
    bytes image = m_image;
    std::copy(writer.content().begin(), writer.content().end(), image.begin() + 50 * cluster);
    opened_volume volume(image);
    attr_item item = stored_item({{50, 1}});
    item.type = attr_index_allocation;
    bytes expected = writer.content();
    expected[510] = expected[511] = 0x22;
    EXPECT_EQ(test::pump(&volume.ntfs(), item).out, expected);
}

TEST_F(pump_stream_test, restores_nothing_in_a_block_with_a_count_below_2_or_a_part_of_a_block) {
    for (const unsigned count : {0u, 1u}) {
        bytes image = m_image;
        image[50 * cluster + 6] = static_cast<std::uint8_t>(count);
        image[50 * cluster + 7] = 0;
        opened_volume volume(image);
        attr_item item = stored_item({{50, 1}});
        item.type = attr_index_allocation;
        EXPECT_EQ(test::pump(&volume.ntfs(), item).out, part(image, 50 * cluster, cluster));
    }
    attr_item item = stored_item({{50, 1}}, 4095);
    item.type = attr_index_allocation;
    EXPECT_EQ(pump(item).out, part(clusters(50, 1), 0, 4095));
}

TEST_F(pump_stream_test, takes_no_byte_from_outside_a_block_whose_array_reaches_out_of_it) {
    for (const unsigned offset : {4090u, 4094u, 4095u, 4096u, 65535u}) {
        bytes image = m_image;
        image[50 * cluster + 4] = static_cast<std::uint8_t>(offset & 0xFF);
        image[50 * cluster + 5] = static_cast<std::uint8_t>(offset >> 8);
        image[50 * cluster + 6] = 0xFF;
        image[50 * cluster + 7] = 0xFF;
        opened_volume volume(image);
        attr_item item = stored_item({{50, 2}}, 4096);
        item.type = attr_index_allocation;
        bytes expected = part(image, 50 * cluster, cluster);
        // Words of the array that lie inside, each two bytes from the block's own end.
        for (std::size_t word = 1; offset + 2 * word + 2 <= 4096 && word <= 8; ++word) {
            expected[word * 512 - 2] = expected[offset + 2 * word];
            expected[word * 512 - 1] = expected[offset + 2 * word + 1];
        }
        EXPECT_EQ(test::pump(&volume.ntfs(), item).out, expected) << offset;
    }
}

}  // namespace
}  // namespace quarry::test
