#include "disk/vmdk_source.h"

#include "disk/file_source.h"
#include "support/plain_vmdk_chain.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using testing::HasSubstr;

namespace {

// A chain of files on disk, the base first.
class chain {
  public:
    explicit chain(const std::vector<vmdk_builder>& files) {
        for (const vmdk_builder& each : files) {
            const std::filesystem::path path = m_dir / (std::to_string(m_paths.size()) + ".vmdk");
            each.write(path);
            m_paths.push_back(path.wstring());
        }
    }
    [[nodiscard]] std::string fault() {
        open();
        std::string why;
        m_source = vmdk_source::open(m_open, why);
        return m_source ? "" : why;
    }
    void open() {
        m_open.clear();
        m_files.clear();
        for (const std::wstring& path : m_paths) {
            int error = 0;
            m_files.push_back(file_source::open(std::filesystem::path(path), error));
            ASSERT_EQ(error, 0);
            m_open.push_back({path, m_files.back()->descriptor()});
        }
    }
    // What the files that are open already hold.
    [[nodiscard]] std::unique_ptr<vmdk_source> source_of_open_files() const {
        std::string why;
        auto source = vmdk_source::open(m_open, why);
        EXPECT_EQ(why, "");
        return source;
    }
    [[nodiscard]] vmdk_source& source() {
        EXPECT_EQ(fault(), "");
        return *m_source;
    }
    [[nodiscard]] const temp_dir& dir() const { return m_dir; }

  private:
    temp_dir m_dir;
    std::vector<std::wstring> m_paths;
    std::vector<std::unique_ptr<file_source>> m_files;
    std::vector<open_vmdk_file> m_open;
    std::unique_ptr<vmdk_source> m_source;
};

vmdk_builder base() {
    vmdk_builder file;
    file.put_all(0, pattern(3 * 4096, 1)).put(10, pattern(4096, 2));
    return file;
}

vmdk_builder snapshot() {
    vmdk_builder file;
    file.cid = "c0000001";
    file.parent_cid = "c0000000";
    file.put(1, pattern(4096, 3));
    return file;
}

}  // namespace

TEST(vmdk_source, gives_the_grains_of_the_newest_file_that_has_them) {
    chain files({base(), snapshot()});
    vmdk_source& source = files.source();
    EXPECT_EQ(source.size(), 64u * 4096);
    EXPECT_EQ(source.sector_size(), 512u);
    bytes disk(64 * 4096, 0xEE);
    const read_outcome read = source.read(disk, 0);
    EXPECT_EQ(read.bytes, disk.size());
    EXPECT_EQ(read.error, 0);
    const std::vector<plain_vmdk_file> plain = {plain_vmdk_file(base().build()),
                                                plain_vmdk_file(snapshot().build())};
    EXPECT_TRUE(disk == read_plainly(plain, 0, disk.size()));
    bytes part(5000, 0xEE);
    EXPECT_EQ(source.read(part, 4000).bytes, 5000u);
    EXPECT_TRUE(part == bytes(disk.begin() + 4000, disk.begin() + 9000));
}

TEST(vmdk_source, reads_the_files_that_are_open_whatever_their_paths_lead_to_now) {
    chain files({base(), snapshot()});
    files.open();
    base().put(0, pattern(4096, 9)).write(files.dir() / "new.vmdk");
    std::filesystem::rename(files.dir() / "new.vmdk", files.dir() / "0.vmdk");
    std::filesystem::remove(files.dir() / "1.vmdk");
    const auto source = files.source_of_open_files();
    ASSERT_TRUE(source);
    bytes disk(2 * 4096);
    EXPECT_EQ(source->read(disk, 0).bytes, disk.size());
    EXPECT_EQ(disk, concat({pattern(4096, 1), pattern(4096, 3)}));
}

TEST(vmdk_source, ends_with_its_capacity) {
    chain files({base()});
    bytes buffer(100);
    EXPECT_EQ(files.source().read(buffer, 64 * 4096 - 10).bytes, 10u);
    EXPECT_EQ(files.source().read(buffer, 64 * 4096 - 10).error, 0);
    EXPECT_EQ(files.source().read(buffer, 64 * 4096).bytes, 0u);
    EXPECT_EQ(files.source().read(buffer, ~std::uint64_t{0}).bytes, 0u);
}

TEST(vmdk_source, reports_a_grain_that_its_file_does_not_have) {
    const vmdk_builder whole = base();
    const auto grain_10 = static_cast<std::size_t>(whole.grain_offset(10));
    chain cut({base().cut(grain_10 + 100)});
    bytes buffer(4096);
    EXPECT_EQ(cut.source().read(buffer, 10 * 4096).bytes, 100u);
    EXPECT_EQ(cut.source().read(buffer, 10 * 4096).error, EIO);
    chain outside({base().table_entry(5, 0x7FFFFFFF)});
    EXPECT_EQ(outside.source().read(buffer, 5 * 4096).bytes, 0u);
    EXPECT_EQ(outside.source().read(buffer, 5 * 4096).error, EIO);
}

TEST(vmdk_source, refuses_files_that_make_no_chain) {
    chain orphan({snapshot()});
    EXPECT_EQ(orphan.fault(), "the files make no chain");
    chain twice({base(), base()});
    EXPECT_EQ(twice.fault(), "two files have the same content ID");
    vmdk_builder second_child = snapshot();
    second_child.cid = "c0000002";
    chain fork({base(), snapshot(), second_child});
    EXPECT_EQ(fork.fault(), "the files make no chain");
    vmdk_builder other_base = base();
    other_base.cid = "d0000000";
    chain two_bases({base(), other_base});
    EXPECT_EQ(two_bases.fault(), "the files make no chain");
}

TEST(vmdk_source, refuses_what_is_no_sparse_file) {
    chain file({base()});
    write_file(file.dir() / "0.vmdk", to_bytes("text"));
    EXPECT_THAT(file.fault(), HasSubstr("0.vmdk is no sparse VMDK file that can be read"));
}

TEST(vmdk_source, refuses_grains_that_need_another_reader) {
    chain harmless({base().force(8, 4, 3)});
    EXPECT_EQ(harmless.fault(), "");
    for (const std::uint64_t flags : {0x4u, 0x10000u, 0x20000u, 0x10003u}) {
        chain flagged({base().force(8, 4, flags)});
        EXPECT_THAT(flagged.fault(), HasSubstr("0.vmdk has compressed grains, grains of zeros or markers"));
    }
}

TEST(vmdk_source, refuses_sizes_that_differ_from_file_to_file) {
    vmdk_builder grains = snapshot();
    grains.grain_sectors = 16;
    grains.grains = 32;
    chain other_grains({base(), grains});
    EXPECT_THAT(other_grains.fault(), HasSubstr("1.vmdk has grains of another size"));
    chain other_capacity({base(), snapshot().force(vmdk_builder::at_capacity, 8, 63 * 8)});
    EXPECT_THAT(other_capacity.fault(), HasSubstr("1.vmdk has another capacity"));
}

TEST(vmdk_source, refuses_tables_that_do_not_cover_the_capacity) {
    chain file({base().force(vmdk_builder::at_capacity, 8, std::uint64_t{100000} * 8)});
    EXPECT_THAT(file.fault(), HasSubstr("0.vmdk has too few grain tables for its capacity"));
}

TEST(vmdk_source, refuses_a_table_that_is_missing_or_lies_outside_of_its_file) {
    const auto second = static_cast<std::size_t>(base().directory_offset()) + 4;
    chain missing({base().force(second, 4, 0)});
    EXPECT_THAT(missing.fault(), HasSubstr("0.vmdk has no grain table 1 inside of it"));
    chain outside({base().force(second, 4, 0x100000)});
    EXPECT_THAT(outside.fault(), testing::AnyOf(HasSubstr("no grain table 1 inside of it"),
                                                HasSubstr("too few grain tables")));
}

}  // namespace quarry::test
