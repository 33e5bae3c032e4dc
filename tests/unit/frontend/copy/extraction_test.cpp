#include "frontend/copy/extraction.h"

#include "support/reading_calls.h"
#include "support/requirements.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::hole;
using test::runs;
using test::temp_dir;
using test::to_bytes;

class extraction_test : public testing::Test {
  protected:
    void SetUp() override {
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.parse(args));
        request.outputs.copy = (dir / "o").wstring();
    }
    // Writes the volume out as the image of the request.
    void use(test::volume_builder& volume) {
        volume.write_to(dir / "image");
        request.from = source::of_image((dir / "image").wstring(), 0);
    }
    // A volume whose file "/a.txt", of "text", is asked for.
    void use_a_text() {
        test::volume_builder volume;
        volume.add_file("a.txt").data("text");
        use(volume);
        request.path = L"/a.txt";
    }
    bool copy() { return extract_stream(ntfs, request, found, opts.m_log, opts.m_guard); }
    [[nodiscard]] std::string text(const char* name) const {
        const test::bytes content = test::read_file(dir / name);
        return {content.begin(), content.end()};
    }
    // The log after the command line.
    [[nodiscard]] std::string log() const {
        const std::string all = text("log");
        return all.substr(all.find('\n') + 1);
    }
    temp_dir dir;
    cmd_params opts;
    copy_request request;
    copy_findings found;
    std::unique_ptr<CNtfs> ntfs;
};

TEST_F(extraction_test, of_a_failed_out_stream_ends_at_once) {
    std::ostringstream out;
    out.setstate(std::ios_base::failbit);
    request.out_stream = &out;
    EXPECT_FALSE(copy());
    EXPECT_EQ(log(), "->err: out stream bad\n");
    EXPECT_EQ(ntfs, nullptr);
}

TEST_F(extraction_test, opens_the_volume_once_for_all_jobs) {
    use_a_text();
    EXPECT_TRUE(copy());
    const CNtfs* const opened = ntfs.get();
    request.from = source::of_image(L"/no/such/image", 0);
    request.outputs.copy = (dir / "p").wstring();
    EXPECT_TRUE(copy());
    EXPECT_EQ(ntfs.get(), opened);
    EXPECT_EQ(text("p"), "text");
}

TEST_F(extraction_test, leaves_the_statistics_of_the_entry_behind) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text").times(
        {.created = 11, .modified = 22, .mft_changed = 33, .accessed = 44});
    use(volume);
    request.path = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(found.stats.m_entry, 24U);
    EXPECT_EQ(found.stats.m_size, 4U);
    EXPECT_EQ(found.stats.m_modified, 22U);
    EXPECT_EQ(found.stats.m_created, 11U);
    EXPECT_EQ(found.stats.m_accessed, 44U);
    EXPECT_EQ(found.stats.m_mft_changed, 33U);
    EXPECT_EQ(found.stats.m_time_kind, ql::type_time::filetime);
    EXPECT_EQ(found.stats.m_mask, 4U);
    EXPECT_TRUE(found.stats.m_valid);
}

TEST_F(extraction_test, statistics_of_an_earlier_entry_do_not_outlive_a_failure) {
    use_a_text();
    EXPECT_TRUE(copy());
    request.entry = 9999;
    EXPECT_FALSE(copy());
    EXPECT_FALSE(found.stats.m_valid);
    EXPECT_EQ(found.stats.m_entry, 0U);
}

TEST_F(extraction_test,
       the_size_of_a_stream_in_clusters_is_its_initialized_size_and_its_place_that_of_its_first_run) {
    test::volume_builder volume;
    volume.add_file("a.txt").data(runs({{150, 2}}), {.real = 8000, .initialized = 5000});
    use(volume);
    request.path = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(found.stats.m_size, 5000U);
    EXPECT_EQ(found.data_position, 150U * 4096U);
    EXPECT_FALSE(found.wof_present);
}

TEST_F(extraction_test, a_file_that_the_system_compressed_is_noted) {
    test::volume_builder volume;
    volume.add_file("a.txt")
        .data(runs({{hole, 4}}), {.real = 16000})
        .stream("WofCompressedData", runs({{160, 2}}), {.real = 7000, .initialized = 6000});
    use(volume);
    request.path = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_TRUE(found.wof_present);
    EXPECT_EQ(found.wof_size, 7000U);
    EXPECT_EQ(found.wof_position, 160U * 4096U);
    EXPECT_EQ(text("o").size(), 7000U);
}

TEST_F(extraction_test, a_compressed_stream_that_is_resident_does_not_take_the_place_of_the_unnamed_one) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("plain").stream("WofCompressedData", "packed");
    use(volume);
    request.path = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_FALSE(found.wof_present);
    EXPECT_EQ(text("o"), "plain");
}

TEST_F(extraction_test, an_entry_without_standard_information_is_not_copied_and_no_failure) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text").without_standard_information();
    use(volume);
    request.path = L"/a.txt";
    EXPECT_TRUE(copy());
    EXPECT_FALSE(fs::exists(dir / "o"));
}

TEST_F(extraction_test, the_index_of_a_directory_is_a_stream) {
    test::volume_builder volume;
    test::file_builder& directory = volume.add_directory("dir").index_in_blocks();
    volume.add_file("a.txt", directory.entry()).data("text");
    use(volume);
    request.path = L"\\dir:$i30";
    EXPECT_TRUE(copy());
    EXPECT_EQ(text("o").size(), 4096U);
    EXPECT_EQ(text("o").substr(0, 4), "INDX");
}

TEST_F(extraction_test, a_report_is_written_for_any_entry_that_has_attributes) {
    use_a_text();
    request.path = L"/a.txt:nosuch";
    request.outputs.reports = {{&text_report, (dir / "report").wstring()}};
    EXPECT_TRUE(copy());
    EXPECT_FALSE(fs::exists(dir / "o"));
    EXPECT_EQ(text("report").substr(0, 15), "\\a.txt:nosuch\n\n");
}

TEST_F(extraction_test, a_report_reads_no_descriptors_since_it_prints_none) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text");
    // 16 MiB, which no read of records comes near to.
    volume.add_file_at(9, "$Secure").stream("$SDS", test::bytes(std::size_t{16} << 20));
    volume.file(6).security_id(0x100);
    use(volume);
    request.path = L"/a.txt";
    request.outputs.reports = {{&text_report, (dir / "report").wstring()}};
    QUARRY_NEEDS(test::bytes_read() != 0, "the system does not count what is read");
    const std::uint64_t before = test::bytes_read();
    EXPECT_TRUE(copy());
    EXPECT_LT(test::bytes_read() - before, std::uint64_t{4} << 20);
    EXPECT_EQ(text("o"), "text");
}

TEST_F(extraction_test, a_report_that_cannot_be_opened_stops_nothing) {
    use_a_text();
    request.outputs.reports = {{&text_report, (dir / "missing/report").wstring()}};
    EXPECT_TRUE(copy());
    EXPECT_EQ(text("o"), "text");
    EXPECT_TRUE(found.reports.empty());
}

TEST_F(extraction_test, an_older_report_that_cannot_be_replaced_is_not_passed_off_as_the_new_one) {
    use_a_text();
    request.md5 = true;
    fs::create_directory(dir / "report");
    request.outputs.reports = {{&text_report, (dir / "report").wstring()}};
    EXPECT_TRUE(copy());
    EXPECT_TRUE(fs::is_directory(dir / "report"));
}

TEST_F(extraction_test, a_destination_that_cannot_be_opened_fails) {
    use_a_text();
    request.outputs.copy = (dir / "missing/o").wstring();
    EXPECT_FALSE(copy());
}

TEST_F(extraction_test, a_path_that_is_found_becomes_the_path_as_it_is_on_the_volume) {
    use_a_text();
    request.path = L"c:/A.txt";
    EXPECT_TRUE(copy());
    EXPECT_EQ(found.entry, 24U);
    EXPECT_EQ(found.path, L"c:\\A.txt");
}

TEST_F(extraction_test, an_entry_that_cannot_be_read_is_told) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text");
    volume.replace_record(24, test::bytes(1024, 'x'));
    use(volume);
    request.entry = 24;
    EXPECT_FALSE(copy());
    EXPECT_NE(log().find("->info: inode \n->err: fixup: 0x18\n"), std::string::npos) << log();
}

// With records of 2048 bytes entry 12 lies where entry 24 does.
TEST_F(extraction_test, an_entry_that_is_larger_than_the_boot_sectors_record_size_is_not_read) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text");
    constexpr std::size_t allocated_size = 28;
    volume.force_record(0, allocated_size, 4, 2048);
    use(volume);
    request.entry = 12;
    EXPECT_FALSE(copy());
    EXPECT_NE(log().find("->info: inode \n->err: fixup: 0xc\n"), std::string::npos) << log();
    EXPECT_FALSE(fs::exists(dir / "o"));
}

// Record 0 is read from where the boot sector says, and categorised from where its own runs say.
TEST_F(extraction_test, an_entry_that_cannot_be_categorised_is_told) {
    constexpr std::size_t lcn_elsewhere = 120;
    constexpr std::size_t lcn_of_mft = 48;
    test::volume_builder volume;
    volume.add_file("a.txt").data("text");
    volume.force_boot(lcn_of_mft, 8, lcn_elsewhere);
    volume.write_clusters(lcn_elsewhere, test::bytes(4096));
    test::bytes image = volume.image();
    const auto mft = image.begin() + static_cast<std::ptrdiff_t>(volume.mft_lcn() * 4096);
    std::copy(mft, mft + 1024, image.begin() + static_cast<std::ptrdiff_t>(lcn_elsewhere * 4096));
    std::fill(mft, mft + 1024, std::uint8_t{0});
    test::write_file(dir / "image", image);
    request.from = source::of_image((dir / "image").wstring(), 0);
    request.entry = 0;
    EXPECT_FALSE(copy());
    EXPECT_NE(log().find("->err: categorize: 0x0\n"), std::string::npos) << log();
    EXPECT_FALSE(found.stats.m_valid);
    request.entry = 24;
    EXPECT_TRUE(copy());
    EXPECT_EQ(text("o"), "text");
}

TEST_F(extraction_test, an_entry_that_the_system_marked_as_bad_is_told) {
    test::volume_builder volume;
    volume.add_file("a.txt").data("text");
    volume.force_record(24, 0, 4, 0x44414142);  // "BAAD"
    use(volume);
    request.entry = 24;
    EXPECT_FALSE(copy());
    EXPECT_NE(log().find("->err: fixup: 0x18\n"), std::string::npos) << log();
}

TEST_F(extraction_test, an_image_that_shrinks_between_two_jobs_gives_what_is_left_and_zeros) {
    const test::bytes content = test::pattern(100'000);
    const std::string whole(content.begin(), content.end());
    test::volume_builder volume;
    volume.add_file("a.txt").data(runs({{150, 25}}), {.real = 100'000});
    volume.write_clusters(150, content);
    use(volume);
    request.entry = 24;
    EXPECT_TRUE(copy());
    EXPECT_EQ(text("o"), whole);
    fs::resize_file(dir / "image", 160U * 4096U);
    EXPECT_TRUE(copy());
    EXPECT_TRUE(text("o") == whole.substr(0, 40'960) + std::string(59'040, '\0'));
    fs::resize_file(dir / "image", 4096);
    EXPECT_FALSE(copy());
}

TEST_F(extraction_test, what_is_opened_is_logged_and_that_it_cannot_be) {
    request.from = source::of_partition(L"/no/such");
    EXPECT_FALSE(copy());
    EXPECT_EQ(log(), "->info: pNTFS part:/no/such, type:33\n->err: pNTFS\n");
}

}  // namespace
}  // namespace quarry
