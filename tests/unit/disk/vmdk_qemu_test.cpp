// Virtual disks that another program made, compared with the raw disk that they hold.
#include "disk/raw_disk_io.h"
#include "disk/vmdk_check.h"
#include "disk/vmdk_disk.h"
#include "support/disk_builder.h"
#include "support/requirements.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t mebibyte = 0x100000;
constexpr std::uint64_t disk_size = 40 * mebibyte;

class vmdk_of_qemu : public ::testing::Test {
  protected:
    void SetUp() override {
        QUARRY_NEEDS_PROGRAM("qemu-img");
        QUARRY_NEEDS_PROGRAM("qemu-io");
    }

    static void run(const std::vector<std::string>& arguments) {
        const program_result result = run_program(arguments);
        ASSERT_TRUE(result.exited && result.status == 0) << arguments[1] << ": " << result.err << result.out;
    }

    [[nodiscard]] std::string at(const std::string& name) const { return (m_dir / name).string(); }

    // A disk of mixed content, most of it never written.
    bytes scattered_disk() {
        bytes disk(disk_size);
        for (int i = 0; i < 60; ++i) {
            const bytes piece = pattern(1 + m_random() % 300000, static_cast<std::uint32_t>(m_random()));
            const std::size_t offset = m_random() % (disk_size - piece.size());
            std::copy(piece.begin(), piece.end(), disk.begin() + static_cast<std::ptrdiff_t>(offset));
        }
        return disk;
    }

    void convert(const std::string& raw, const std::string& vmdk) {
        run({"qemu-img", "convert", "-f", "raw", "-O", "vmdk", "-o", "subformat=monolithicSparse", at(raw),
             at(vmdk)});
    }

    // Writes over a snapshot and over the bytes that it is to give.
    void write_over(const std::string& vmdk, bytes& disk) {
        std::vector<std::string> arguments = {"qemu-io", "-f", "vmdk"};
        for (int i = 0; i < 12; ++i) {
            const std::uint64_t offset = m_random() % (disk_size / 512 - 800) * 512;
            const std::uint64_t length = (1 + m_random() % 800) * 512;
            const auto value = static_cast<std::uint8_t>(m_random());
            arguments.insert(arguments.end(),
                             {"-c", "write -P " + std::to_string(value) + " " + std::to_string(offset) + " " +
                                        std::to_string(length)});
            std::fill_n(disk.begin() + static_cast<std::ptrdiff_t>(offset), length, value);
        }
        arguments.push_back(at(vmdk));
        run(arguments);
    }

    // Reads of many sizes all over the disk, the ends included, give what is expected.
    void expect_reads(RAW_DISK_IO& disk, const bytes& expected) {
        ASSERT_TRUE(disk.is_ok());
        ASSERT_EQ(disk.size(), expected.size());
        for (int i = 0; i < 200; ++i) {
            const std::uint64_t largest = i % 2 == 0 ? 5000 : 300000;
            std::uint64_t length = 1 + m_random() % largest;
            std::uint64_t offset = m_random() % (expected.size() - length + 1);
            if (i < 2) {
                offset = i == 0 ? 0 : expected.size() - length;
            }
            bytes buffer(length, 0xEE);
            ASSERT_TRUE(disk.read(buffer.data(), length, offset));
            ASSERT_TRUE(std::equal(buffer.begin(), buffer.end(),
                                   expected.begin() + static_cast<std::ptrdiff_t>(offset)))
                << offset << ", " << length;
        }
    }

    std::mt19937 m_random{146};  // NOLINT: the same disks in every run
    temp_dir m_dir;
};

TEST_F(vmdk_of_qemu, a_converted_disk_reads_like_the_raw_one) {
    const bytes raw = scattered_disk();
    write_file(m_dir / "disk.raw", raw);
    convert("disk.raw", "disk.vmdk");
    const std::vector<std::wstring> list = {(m_dir / "disk.vmdk").wstring()};
    std::ostringstream words;
    std::vector<std::wstring> suggested;
    EXPECT_TRUE(check_list(list, words, suggested)) << words.str();
    RAW_DISK_IO disk(list, false, false);
    expect_reads(disk, raw);
    bytes whole(disk_size);
    ASSERT_TRUE(disk.read_whole(whole.data(), disk_size, 0));
    EXPECT_TRUE(whole == raw);
}

TEST_F(vmdk_of_qemu, a_disk_of_an_odd_size_reads_like_the_raw_one) {
    bytes raw = scattered_disk();
    raw.resize(3 * mebibyte + 512);
    write_file(m_dir / "disk.raw", raw);
    convert("disk.raw", "disk.vmdk");
    RAW_DISK_IO disk(std::vector<std::wstring>{(m_dir / "disk.vmdk").wstring()}, false, false);
    expect_reads(disk, raw);
}

TEST_F(vmdk_of_qemu, chains_of_two_and_of_twelve_read_like_the_raw_disk_in_any_order_of_the_list) {
    bytes expected = scattered_disk();
    write_file(m_dir / "0.raw", expected);
    convert("0.raw", "link0.vmdk");
    std::vector<std::wstring> list = {(m_dir / "link0.vmdk").wstring()};
    for (int number = 1; number < 12; ++number) {
        const std::string name = "link" + std::to_string(number) + ".vmdk";
        run({"qemu-img", "create", "-q", "-f", "vmdk", "-F", "vmdk", "-b",
             at("link" + std::to_string(number - 1) + ".vmdk"), at(name)});
        write_over(name, expected);
        list.push_back((m_dir / name).wstring());
        if (number == 1) {
            RAW_DISK_IO forwards(list, false, false);
            expect_reads(forwards, expected);
            RAW_DISK_IO backwards(std::vector<std::wstring>{list[1], list[0]}, false, false);
            expect_reads(backwards, expected);
        }
    }
    // The other program's own view of the newest snapshot.
    run({"qemu-img", "convert", "-f", "vmdk", "-O", "raw", at("link11.vmdk"), at("all.raw")});
    EXPECT_TRUE(read_file(m_dir / "all.raw") == expected);
    for (int round = 0; round < 6; ++round) {
        std::ostringstream words;
        std::vector<std::wstring> suggested;
        ASSERT_TRUE(check_list(list, words, suggested)) << words.str();
        RAW_DISK_IO disk(list, false, false);
        expect_reads(disk, expected);
        std::shuffle(list.begin(), list.end(), m_random);
    }
}

TEST_F(vmdk_of_qemu, the_files_of_a_chain_are_worked_out_from_its_newest) {
    write_file(m_dir / "0.raw", bytes(mebibyte));
    convert("0.raw", "base.vmdk");
    run({"qemu-img", "create", "-q", "-f", "vmdk", "-F", "vmdk", "-b", at("base.vmdk"), at("middle.vmdk")});
    run({"qemu-img", "create", "-q", "-f", "vmdk", "-F", "vmdk", "-b", at("middle.vmdk"), at("newest.vmdk")});
    std::ostringstream words;
    std::vector<std::wstring> suggested;
    EXPECT_FALSE(check_list({(m_dir / "newest.vmdk").wstring()}, words, suggested));
    EXPECT_EQ(words.str(), "=> vmdk file: " + at("middle.vmdk") + "\n depends on parent vmdk \"" +
                               at("base.vmdk") + "\"\n");
    EXPECT_EQ(suggested,
              (std::vector<std::wstring>{(m_dir / "newest.vmdk").wstring(), (m_dir / "middle.vmdk").wstring(),
                                         (m_dir / "base.vmdk").wstring()}));
}

// Kibibytes of memory that this process has in use.
std::uint64_t memory_in_use() {
    std::ifstream file("/proc/self/status");
    for (std::string word; file >> word;) {
        if (word == "VmRSS:") {
            std::uint64_t kibibytes = 0;
            file >> kibibytes;
            return kibibytes;
        }
    }
    return 0;
}

TEST_F(vmdk_of_qemu, a_disk_of_two_tebibytes_with_few_grains_takes_little_memory) {
    run({"qemu-img", "create", "-q", "-f", "vmdk", at("large.vmdk"), "2047G"});
    run({"qemu-io", "-f", "vmdk", "-c", "write -P 171 2000G 64k", at("large.vmdk")});
    const std::uint64_t before = memory_in_use();
    RAW_DISK_IO disk(std::vector<std::wstring>{(m_dir / "large.vmdk").wstring()}, false, false);
    // Its tables have 33,538,048 entries, which are 128 MiB.
    EXPECT_LT(memory_in_use(), before + 16384u);
    ASSERT_TRUE(disk.is_ok());
    EXPECT_EQ(disk.size(), 2047ull << 30);
    bytes buffer(65536 + 200);
    std::uint64_t length = buffer.size();
    ASSERT_TRUE(disk.read(buffer.data(), length, (2000ull << 30) - 100));
    EXPECT_EQ(buffer, concat({bytes(100), bytes(65536, 171), bytes(100)}));
}

}  // namespace
}  // namespace quarry::test
