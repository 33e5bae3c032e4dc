#include "disk/vmdk_disk.h"

#include "support/disk_builder.h"
#include "support/plain_vmdk_chain.h"
#include "support/reading_calls.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <limits>
#include <random>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t far_away = std::numeric_limits<std::uint64_t>::max();

// A file of a chain: number 0 is the base. The order of the content IDs is not that of the chain.
vmdk_builder link_of_chain(std::size_t number) {
    const auto cid = [](std::size_t index) { return std::to_string((index * 7 + 3) % 13 + 10) + "cid"; };
    vmdk_builder file;
    file.cid = cid(number);
    file.parent_cid = number == 0 ? "ffffffff" : cid(number - 1);
    return file;
}

// One read in place of several small ones: true if they may be joined and it brought all bytes.
bool read_joined(vmdk_disk& disk, std::uint8_t* buffer, std::uint64_t offset, std::uint64_t length) {
    return disk.reads_join() && disk.read({buffer, length}, offset).bytes == length;
}

class vmdk_disk_test : public ::testing::Test {
  protected:
    // Writes files under their numbers.
    void write(const std::vector<vmdk_builder>& files) {
        m_paths.clear();
        for (std::size_t i = 0; i < files.size(); ++i) {
            files[i].write(m_dir / std::to_string(i));
            m_paths.push_back((m_dir / std::to_string(i)).wstring());
        }
    }

    // Opens and links files; true if the chain is ready.
    bool open(const std::vector<std::wstring>& paths) {
        m_disk = std::make_unique<vmdk_disk>(false);
        return m_disk->add_files(paths) && m_disk->link() && m_disk->m_ready;
    }

    bool write_and_open(const std::vector<vmdk_builder>& files) {
        write(files);
        return open(m_paths);
    }

    bytes read(std::uint64_t offset, std::uint64_t length) {
        bytes buffer(length, 0xEE);
        EXPECT_TRUE(m_disk->read(buffer.data(), offset, length));
        EXPECT_EQ(length, buffer.size());
        return buffer;
    }

    // The newest file's number first.
    std::vector<std::string> chain_from_the_newest() const {
        std::vector<std::string> names;
        for (const vmdk_file* file = m_disk->m_newest; file != nullptr; file = file->m_parent) {
            names.push_back(std::filesystem::path(file->m_path).filename());
        }
        return names;
    }

    temp_dir m_dir;
    std::vector<std::wstring> m_paths;
    std::unique_ptr<vmdk_disk> m_disk;
    bytes m_buffer = bytes(4096);
};

TEST_F(vmdk_disk_test, a_single_base_file_is_a_chain_of_one) {
    vmdk_builder base;
    base.put(2, pattern(4096, 1));
    ASSERT_TRUE(write_and_open({base}));
    EXPECT_EQ(m_disk->m_chain, (std::vector<vmdk_file*>{m_disk->m_base}));
    EXPECT_EQ(m_disk->m_newest, m_disk->m_base);
    EXPECT_EQ(m_disk->m_base->m_parent, nullptr);
    EXPECT_EQ(read(2 * 4096, 4096), pattern(4096, 1));
}

TEST_F(vmdk_disk_test, every_order_of_the_list_makes_the_same_chain) {
    for (std::size_t length = 1; length <= 5; ++length) {
        std::vector<vmdk_builder> files;
        std::vector<std::string> expected;
        for (std::size_t number = 0; number < length; ++number) {
            files.push_back(
                link_of_chain(number).put(number, pattern(4096, static_cast<std::uint32_t>(number))));
            expected.insert(expected.begin(), std::to_string(number));
        }
        write(files);
        std::vector<std::wstring> order = m_paths;
        do {
            ASSERT_TRUE(open(order));
            ASSERT_EQ(chain_from_the_newest(), expected);
            ASSERT_EQ(m_disk->m_chain.size(), length);
            ASSERT_EQ(m_disk->m_chain.front(), m_disk->m_base);
            ASSERT_EQ(m_disk->m_chain.back(), m_disk->m_newest);
        } while (std::next_permutation(order.begin(), order.end()));
        EXPECT_EQ(order, m_paths) << "all orders were gone through";
    }
}

TEST_F(vmdk_disk_test, a_chain_of_twelve_is_the_same_disk_in_many_orders) {
    std::vector<vmdk_builder> files;
    bytes expected(64 * 4096);
    for (std::size_t number = 0; number < 12; ++number) {
        vmdk_builder file = link_of_chain(number);
        for (std::size_t grain = number; grain < 48; grain += number + 2) {
            const bytes content = pattern(4096, static_cast<std::uint32_t>(number * 100 + grain));
            file.put(grain, content);
            std::copy(content.begin(), content.end(),
                      expected.begin() + static_cast<std::ptrdiff_t>(grain * 4096));
        }
        files.push_back(file);
    }
    write(files);
    std::vector<std::wstring> order = m_paths;
    std::mt19937 random(12);  // NOLINT: the same orders in every run
    for (int round = 0; round < 60; ++round) {
        ASSERT_TRUE(open(order));
        ASSERT_EQ(m_disk->m_chain.size(), 12u);
        ASSERT_EQ(read(0, expected.size()), expected);
        std::shuffle(order.begin(), order.end(), random);
    }
}

TEST_F(vmdk_disk_test, a_grain_of_the_child_is_taken_before_one_of_the_base) {
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(3, pattern(4096, 1)).put(4, pattern(4096, 2)),
                                link_of_chain(1).put(3, pattern(4096, 3))}));
    EXPECT_EQ(read(3 * 4096, 4096), pattern(4096, 3));
    EXPECT_EQ(read(4 * 4096, 4096), pattern(4096, 2));
}

TEST_F(vmdk_disk_test, a_grain_in_no_file_is_zeros_and_the_read_succeeds) {
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(3, pattern(4096, 1)), link_of_chain(1)}));
    EXPECT_EQ(read(5 * 4096 + 7, 10000), bytes(10000));
    EXPECT_EQ(read(far_away - 9, 10), bytes(10));
}

TEST_F(vmdk_disk_test, a_read_over_grains_takes_each_from_its_own_holder) {
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(0, pattern(4096, 1)).put(2, pattern(4096, 2)),
                                link_of_chain(1).put(1, pattern(4096, 3)),
                                link_of_chain(2).put(4, pattern(4096, 4))}));
    const bytes expected =
        concat({pattern(4096, 1), pattern(4096, 3), pattern(4096, 2), bytes(4096), pattern(4096, 4)});
    EXPECT_EQ(read(0, 5 * 4096), expected);
    EXPECT_EQ(read(4095, 4098), bytes(expected.begin() + 4095, expected.begin() + 4095 + 4098));
}

TEST_F(vmdk_disk_test, what_lies_past_the_end_of_a_file_is_zeros) {
    vmdk_builder base = link_of_chain(0);
    base.put(0, pattern(4096, 1)).put(1, pattern(4096, 2)).put(2, pattern(4096, 3));
    base.table_entry(3, 0xFFFFFFFF);
    base.cut(base.grain_offset(1) + 100);
    ASSERT_TRUE(write_and_open({base}));
    bytes expected = concat({pattern(4096, 1), pattern(4096, 2)});
    expected.resize(4096 + 100);
    expected.resize(4 * 4096);
    EXPECT_EQ(read(0, 4 * 4096), expected);
    EXPECT_EQ(read(4096 + 99, 2), (bytes{expected[4096 + 99], 0}));
}

TEST_F(vmdk_disk_test, a_file_that_can_no_longer_be_read_gives_zeros_and_not_its_parents_grains) {
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(0, pattern(4096, 1)).put(1, pattern(4096, 2)),
                                link_of_chain(1).put(0, pattern(4096, 3))}));
    std::filesystem::resize_file(m_dir / "1", 0);
    EXPECT_EQ(read(0, 8192), concat({bytes(4096), pattern(4096, 2)}));
}

TEST_F(vmdk_disk_test, reads_are_refused_before_the_chain_is_ready_and_without_a_buffer_or_a_length) {
    write({link_of_chain(0)});
    vmdk_disk disk(false);
    ASSERT_TRUE(disk.add_files(m_paths));
    std::array<std::uint8_t, 16> buffer{};
    std::uint64_t length = 16;
    EXPECT_FALSE(disk.read(buffer.data(), 0, length));
    EXPECT_FALSE(read_joined(disk, buffer.data(), 0, 16));
    EXPECT_EQ(disk.disk_offset(), 0u);
    ASSERT_TRUE(disk.link());
    EXPECT_TRUE(disk.read(buffer.data(), 0, length));
    EXPECT_FALSE(disk.read(nullptr, 0, length));
    EXPECT_FALSE(disk.read(buffer.data(), far_away - 14, length));
    EXPECT_TRUE(disk.read(buffer.data(), far_away - 15, length));
    length = 0;
    EXPECT_FALSE(disk.read(buffer.data(), 0, length));
}

TEST_F(vmdk_disk_test, that_is_linked_again_with_a_file_whose_parent_is_missing_is_no_longer_ready) {
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(0, pattern(4096, 1))}));
    EXPECT_EQ(read(0, 4096), pattern(4096, 1));
    link_of_chain(2).write(m_dir / "orphan");
    ASSERT_TRUE(m_disk->add_file((m_dir / "orphan").wstring()));
    EXPECT_FALSE(m_disk->link());
    EXPECT_FALSE(m_disk->m_ready);
    EXPECT_EQ(m_disk->m_newest, nullptr);
    std::uint64_t length = 16;
    EXPECT_FALSE(m_disk->read(m_buffer.data(), 0, length));
}

// Three times 2^62 is more than 2^63 - 1.
TEST_F(vmdk_disk_test, the_bytes_of_all_its_files_are_at_most_half_of_the_largest_number) {
    ASSERT_TRUE(write_and_open({link_of_chain(0), link_of_chain(1), link_of_chain(2)}));
    for (const auto& [cid, file] : m_disk->m_files) {
        file->m_stored_bytes = 0x4000000000000000;
    }
    EXPECT_EQ(m_disk->stored_bytes(), 0x7FFFFFFFFFFFFFFFu);
}

TEST_F(vmdk_disk_test, a_file_that_cannot_be_opened_ends_the_adding) {
    write({link_of_chain(0), link_of_chain(1)});
    vmdk_disk disk(false);
    EXPECT_FALSE(disk.add_files({m_paths[0], (m_dir / "absent").wstring(), m_paths[1]}));
    EXPECT_EQ(disk.m_files.size(), 1u);
    EXPECT_TRUE(disk.add_file(m_paths[1]));
}

TEST_F(vmdk_disk_test, the_first_of_two_files_with_one_content_id_is_kept) {
    ASSERT_TRUE(
        write_and_open({vmdk_builder().put(0, pattern(4096, 1)), vmdk_builder().put(0, pattern(4096, 2))}));
    EXPECT_EQ(m_disk->m_files.size(), 1u);
    EXPECT_EQ(read(0, 4096), pattern(4096, 1));
}

TEST_F(vmdk_disk_test, a_missing_parent_or_a_missing_base_makes_no_chain) {
    EXPECT_FALSE(write_and_open({link_of_chain(0), link_of_chain(2)}));
    EXPECT_FALSE(m_disk->m_ready);
    EXPECT_FALSE(write_and_open({link_of_chain(1), link_of_chain(2)}));
    EXPECT_FALSE(write_and_open({}));
    vmdk_builder loop_a;
    vmdk_builder loop_b;
    loop_a.cid = loop_b.parent_cid = "a";
    loop_b.cid = loop_a.parent_cid = "b";
    EXPECT_FALSE(write_and_open({loop_a, loop_b}));
}

TEST_F(vmdk_disk_test, a_loop_beside_a_base_stays_out_of_the_chain) {
    vmdk_builder loop_a;
    vmdk_builder loop_b;
    loop_a.cid = loop_b.parent_cid = "a";
    loop_b.cid = loop_a.parent_cid = "b";
    vmdk_builder self;
    self.cid = self.parent_cid = "self";
    ASSERT_TRUE(write_and_open({link_of_chain(0), loop_a, loop_b, self}));
    EXPECT_EQ(m_disk->m_chain.size(), 1u);
    EXPECT_EQ(m_disk->m_newest, m_disk->m_base);
}

TEST_F(vmdk_disk_test, a_base_is_known_by_exactly_eight_letters_f) {
    for (const char* parent : {"FFFFFFFF", "\"ffffffff\"", "ffffffff\r", "ffffffff ", "fffffff"}) {
        vmdk_builder base;
        base.parent_cid = parent;
        EXPECT_FALSE(write_and_open({base})) << parent;
    }
    vmdk_builder with_line_ends;
    with_line_ends.line_end = "\r\n";
    EXPECT_FALSE(write_and_open({with_line_ends}));
}

TEST_F(vmdk_disk_test, of_two_children_the_later_by_content_id_is_in_the_chain) {
    vmdk_builder base;
    vmdk_builder first;
    vmdk_builder second;
    base.cid = first.parent_cid = second.parent_cid = "m";
    first.cid = "a";
    second.cid = "z";
    ASSERT_TRUE(write_and_open({second.put(0, pattern(4096, 2)), base, first.put(0, pattern(4096, 1))}));
    EXPECT_EQ(m_disk->m_newest->m_cid, "z");
    EXPECT_EQ(read(0, 4096), pattern(4096, 2));
}

TEST_F(vmdk_disk_test, of_two_bases_the_later_by_content_id_carries_the_chain) {
    vmdk_builder other;
    other.cid = "zz";
    vmdk_builder child;
    child.cid = "a";
    child.parent_cid = "zz";
    ASSERT_TRUE(write_and_open({vmdk_builder(), other, child}));
    EXPECT_EQ(m_disk->m_base->m_cid, "zz");
    EXPECT_EQ(m_disk->m_newest->m_cid, "a");
    EXPECT_EQ(m_disk->m_chain.size(), 3u);
}

TEST_F(vmdk_disk_test, the_disks_offset_is_the_first_partition_of_the_base_ntfs_or_not) {
    const bytes table = disk_builder(1).table(0, {{0x0C, 63, 100}, {7, 2048, 100}}).image();
    const bytes newer = disk_builder(1).table(0, {{7, 4096, 100}}).image();
    ASSERT_TRUE(write_and_open({link_of_chain(0).put(0, table), link_of_chain(1).put(0, newer)}));
    EXPECT_EQ(m_disk->disk_offset(), 63u * 512u);
    ASSERT_TRUE(write_and_open({link_of_chain(0), link_of_chain(1).put(0, newer)}));
    EXPECT_EQ(m_disk->disk_offset(), 0u);
}

TEST_F(vmdk_disk_test, a_joined_read_is_whole_only_where_the_files_give_all_that_they_hold) {
    vmdk_builder base = link_of_chain(0);
    const bytes content = pattern(5 * 4096, 1);
    base.put_all(1, content);
    const std::size_t size = base.build().size();
    base.cut(size - 10);
    ASSERT_TRUE(write_and_open({base, link_of_chain(1)}));
    bytes buffer(5 * 4096);
    EXPECT_TRUE(read_joined(*m_disk, buffer.data(), 4096, 4 * 4096 + 4086));
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.end() - 10, content.begin()));
    EXPECT_FALSE(read_joined(*m_disk, buffer.data(), 4096, 5 * 4096));
    EXPECT_TRUE(read_joined(*m_disk, buffer.data(), 6 * 4096, 4096)) << "zeros of no file are whole";
}

TEST_F(vmdk_disk_test, a_grain_that_its_file_does_not_hold_is_a_loss_as_far_as_it_reaches) {
    vmdk_builder base = link_of_chain(0);
    base.put_all(1, pattern(2 * 4096, 1));
    base.cut(base.build().size() - 10);
    ASSERT_TRUE(write_and_open({base, link_of_chain(1).put_all(3, pattern(4096, 2))}));
    EXPECT_EQ(m_disk->size(), 64u * 4096u);
    bytes buffer(3 * 4096, 0xEE);
    const read_outcome read = m_disk->read(buffer, 4096);
    EXPECT_EQ(read.bytes, 2 * 4096u - 10);
    EXPECT_EQ(read.error, EIO);
    EXPECT_EQ(read.lost, 10u);
    const read_outcome after = m_disk->read(buffer, 3 * 4096);
    EXPECT_EQ(after.bytes, buffer.size()) << "the rest of the disk is there";
    EXPECT_EQ(after.error, 0);
}

TEST_F(vmdk_disk_test, no_bytes_come_beyond_64_bits_and_before_the_chain_is_linked) {
    ASSERT_TRUE(write_and_open({link_of_chain(0)}));
    EXPECT_EQ(m_disk->read(m_buffer, far_away - 14).bytes, 0u);
    vmdk_disk unlinked(false);
    EXPECT_EQ(unlinked.read(m_buffer, 0).bytes, 0u);
    EXPECT_EQ(unlinked.size(), 0u);
}

TEST_F(vmdk_disk_test, grains_that_lie_in_a_row_in_one_file_cost_one_read) {
    QUARRY_NEEDS(reading_calls() != 0, "the system does not count reads");
    ASSERT_TRUE(write_and_open(
        {link_of_chain(0).put_all(0, pattern(20 * 4096, 1)), link_of_chain(1).put_all(8, pattern(8192, 2))}));
    bytes buffer(20 * 4096);
    std::uint64_t length = buffer.size();
    const std::uint64_t before = reading_calls();
    const std::uint64_t asking = reading_calls() - before;
    ASSERT_TRUE(m_disk->read(buffer.data(), 0, length));
    // Eight grains of the base, two of the child, ten of the base.
    EXPECT_EQ(reading_calls() - before, 2 * asking + 3);
}

TEST_F(vmdk_disk_test, a_read_goes_on_to_the_end_of_the_grain_it_found_over_a_newer_files_smaller_one) {
    vmdk_builder base = link_of_chain(0);
    base.grain_sectors = 16;
    base.put(0, pattern(8192, 1));
    ASSERT_TRUE(write_and_open({base, link_of_chain(1).put(1, pattern(4096, 2))}));
    EXPECT_EQ(read(0, 8192), pattern(8192, 1));
    EXPECT_EQ(read(4096, 4096), pattern(4096, 2));
    bytes buffer(8192);
    EXPECT_FALSE(read_joined(*m_disk, buffer.data(), 0, 8192)) << "small reads give other bytes";
}

TEST_F(vmdk_disk_test, places_in_a_grain_of_more_than_four_gibibytes_begin_anew_for_each_read) {
    vmdk_builder base = link_of_chain(0);
    base.put(0, pattern(4096, 1));
    base.force(vmdk_builder::at_grain_size, 8, 0x1000000);
    ASSERT_TRUE(write_and_open({base}));
    EXPECT_EQ(read(0x100000000, 4096), pattern(4096, 1));
    EXPECT_EQ(read(0xFFFFFFFF, 4096), bytes(4096));
    const bytes grain = pattern(4096, 1);
    EXPECT_EQ(read(0x100000001, 10), bytes(grain.begin() + 1, grain.begin() + 11));
    EXPECT_FALSE(read_joined(*m_disk, m_buffer.data(), 0x100000000, m_buffer.size()));
}

TEST_F(vmdk_disk_test, reads_join_in_grains_of_four_gibibytes_and_in_none_larger) {
    for (const auto& [grain_sectors, joins] : {std::pair(0x800000u, true), {0x800001u, false}}) {
        vmdk_builder base = link_of_chain(0);
        base.put(0, pattern(4096, 1)).force(vmdk_builder::at_grain_size, 8, grain_sectors);
        ASSERT_TRUE(write_and_open({base}));
        EXPECT_EQ(read_joined(*m_disk, m_buffer.data(), 0, m_buffer.size()), joins);
        EXPECT_EQ(read(0, 4096), pattern(4096, 1));
    }
}

// Chains with grains scattered over their files, in rows and apart, and with damage to tables and lengths.
class random_chains : public vmdk_disk_test {
  protected:
    std::uint64_t below(std::uint64_t limit) { return m_random() % limit; }

    vmdk_builder random_file(std::size_t number, bool same_grain_size) {
        vmdk_builder file = link_of_chain(number);
        const std::array<std::uint64_t, 5> sizes = {1, 2, 3, 4, 8};
        file.grain_sectors = same_grain_size ? 2 : sizes[below(sizes.size())];
        file.entries_per_table = static_cast<std::uint32_t>(1 + below(40));
        for (std::uint64_t grain = 0; grain < file.grains;) {
            const std::uint64_t row = 1 + below(8);
            if (below(3) != 0) {
                file.put_all(grain,
                             pattern(row * file.grain_bytes(), static_cast<std::uint32_t>(m_random())));
            }
            grain += row + below(3);
        }
        return file;
    }

    void damage(vmdk_builder& file) {
        const std::size_t size = file.build().size();
        for (std::uint64_t i = below(4); i != 0; --i) {
            const std::uint64_t entry = file.entry_offset(below(file.grains));
            file.force(entry, 4, below(2) == 0 ? below(size / 512 + 4) : m_random());
        }
        if (below(3) == 0) {
            file.force(file.directory_offset() + 4 * below(file.directory_entries()), 4,
                       below(size / 512 + 4));
        }
        if (below(3) == 0) {
            file.cut(file.directory_offset() + below(size - file.directory_offset()));
        }
    }

    static bool has_one_grain_size(const std::vector<vmdk_builder>& files) {
        return std::all_of(files.begin(), files.end(), [&files](const vmdk_builder& file) {
            return file.grain_sectors == files[0].grain_sectors;
        });
    }

    std::mt19937 m_random{45};  // NOLINT: the same chains in every run
};

TEST_F(random_chains, whole_and_damaged_they_read_as_grain_by_grain) {
    int opened = 0;
    for (int round = 0; round < 150; ++round) {
        const bool same_grain_size = round % 2 == 0;
        const std::size_t length = round % 10 == 0 ? 12 : 1 + below(4);
        std::vector<vmdk_builder> files;
        std::vector<plain_vmdk_file> plain;
        for (std::size_t number = 0; number < length; ++number) {
            files.push_back(random_file(number, same_grain_size));
            if (round % 3 != 0) {
                damage(files.back());
            }
            plain.emplace_back(files.back().build());
        }
        if (!write_and_open(files)) {
            continue;
        }
        ++opened;
        for (int reads = 0; reads < 60; ++reads) {
            const std::uint64_t offset = below(40000);
            const std::uint64_t size = 1 + below(reads % 2 == 0 ? 600 : 20000);
            const bytes expected = read_plainly(plain, offset, size);
            ASSERT_EQ(read(offset, size), expected) << "round " << round << ", " << offset << ", " << size;
            bytes whole(size);
            if (read_joined(*m_disk, whole.data(), offset, size)) {
                ASSERT_TRUE(has_one_grain_size(files));
                ASSERT_EQ(whole, expected);
            }
        }
    }
    EXPECT_GT(opened, 100);
}

TEST_F(random_chains, joined_reads_give_what_reads_of_any_size_give) {
    std::vector<vmdk_builder> files;
    std::vector<plain_vmdk_file> plain;
    for (std::size_t number = 0; number < 12; ++number) {
        files.push_back(random_file(number, true));
        plain.emplace_back(files.back().build());
    }
    ASSERT_TRUE(write_and_open(files));
    const std::uint64_t size = 64 * 1024;
    bytes whole(size);
    ASSERT_TRUE(read_joined(*m_disk, whole.data(), 0, size));
    for (const std::uint64_t step : {1u, 511u, 512u, 1000u, 4096u, 65536u}) {
        bytes pieces;
        for (std::uint64_t offset = 0; offset < size; offset += step) {
            const bytes piece = read(offset, std::min(step, size - offset));
            pieces.insert(pieces.end(), piece.begin(), piece.end());
        }
        EXPECT_EQ(pieces, whole) << step;
    }
    EXPECT_EQ(read_plainly(plain, 0, size), whole);
}

}  // namespace
}  // namespace quarry::test
