#include "frontend/copy/named_by_hash.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <set>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::temp_dir;
using test::to_bytes;
using test::write_file;

// The digest of "abc" is in RFC 1321.
constexpr const char* final_name = "01d0c1a2b3c4d5e6_report.doc_900150983cd24fb0d6963f7d28e17f72";
constexpr std::uint64_t mod_time = 0x01D0C1A2B3C4D5E6;

class named_by_hash_test : public testing::Test {
  protected:
    void SetUp() override {
        item.type = 0x80;
        item.value = to_bytes("abc");
        item.value_size = 3;
        request.outputs.copy = (dir / "report.doc").wstring();
    }
    bool copy() {
        pump_context context{no_log()};
        CNtfs volume;
        return copy_named_by_hash(request, request.outputs.reports, &volume, item, mod_time, context, guard);
    }
    [[nodiscard]] std::set<std::string> names() const {
        std::set<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(dir.path())) {
            found.insert(entry.path().filename());
        }
        return found;
    }
    using name_set = std::set<std::string>;
    temp_dir dir;
    copy_request request;
    output_guard guard;
    attr_item item;
};

TEST_F(named_by_hash_test, the_name_carries_the_modification_time_and_the_digest) {
    EXPECT_TRUE(copy());
    EXPECT_EQ(names(), name_set{final_name});
    EXPECT_EQ(test::read_file(dir / final_name), to_bytes("abc"));
}

TEST_F(named_by_hash_test, an_earlier_file_of_the_final_name_is_replaced) {
    write_file(dir / final_name, to_bytes("old"));
    EXPECT_TRUE(copy());
    EXPECT_EQ(test::read_file(dir / final_name), to_bytes("abc"));
}

TEST_F(named_by_hash_test, without_a_directory_part_the_file_is_made_in_the_current_directory) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    request.outputs.copy = L"report.doc";
    EXPECT_TRUE(copy());
    fs::current_path(before);
    EXPECT_EQ(names(), name_set{final_name});
}

// A leading separator parts nothing, so the "/" ends up inside of the final name.
TEST_F(named_by_hash_test, a_destination_in_the_root_directory_fails_and_leaves_no_file) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    request.outputs.copy = L"/report.doc";
    EXPECT_FALSE(copy());
    fs::current_path(before);
    EXPECT_TRUE(names().empty());
}

TEST_F(named_by_hash_test, a_report_follows_the_copy) {
    request.outputs.reports = {{&text_report, (dir / "report.doc.meta.txt").wstring()}};
    write_file(dir / "report.doc.meta.txt", to_bytes("report"));
    EXPECT_TRUE(copy());
    EXPECT_EQ(names(), (name_set{final_name, std::string(final_name) + "_meta.txt"}));
}

TEST_F(named_by_hash_test, a_pump_that_failed_leaves_no_file_and_the_report_where_it_is) {
    request.outputs.reports = {{&text_report, (dir / "report.doc.meta.txt").wstring()}};
    write_file(dir / "report.doc.meta.txt", to_bytes("report"));
    item.value.clear();
    item.value_size = 0;
    EXPECT_FALSE(copy());
    EXPECT_EQ(names(), name_set{"report.doc.meta.txt"});
}

TEST_F(named_by_hash_test, a_destination_without_a_name_is_refused) {
    request.outputs.copy = dir.path().wstring() + L"/";
    EXPECT_FALSE(copy());
    request.outputs.copy = L"";
    EXPECT_FALSE(copy());
    EXPECT_TRUE(names().empty());
}

TEST_F(named_by_hash_test, a_directory_that_is_missing_is_refused) {
    request.outputs.copy = (dir / "missing/report.doc").wstring();
    EXPECT_FALSE(copy());
    EXPECT_TRUE(names().empty());
}

TEST_F(named_by_hash_test, a_copy_that_cannot_be_renamed_fails_and_leaves_no_file) {
    fs::create_directory(dir / final_name);
    EXPECT_FALSE(copy());
    EXPECT_EQ(names(), name_set{final_name});
    EXPECT_TRUE(fs::is_empty(dir / final_name));
}

TEST_F(named_by_hash_test, a_source_of_the_final_name_is_not_replaced) {
    write_file(dir / final_name, to_bytes("evidence"));
    guard.add_source(dir / final_name);
    EXPECT_FALSE(copy());
    EXPECT_EQ(names(), name_set{final_name});
    EXPECT_EQ(test::read_file(dir / final_name), to_bytes("evidence"));
}

TEST_F(named_by_hash_test, a_source_of_the_reports_final_name_is_not_replaced) {
    const std::string report = std::string(final_name) + "_meta.txt";
    write_file(dir / report, to_bytes("evidence"));
    write_file(dir / "report.doc.meta.txt", to_bytes("report"));
    request.outputs.reports = {{&text_report, (dir / "report.doc.meta.txt").wstring()}};
    guard.add_source(dir / report);
    EXPECT_TRUE(copy());
    EXPECT_EQ(test::read_file(dir / report), to_bytes("evidence"));
    EXPECT_TRUE(fs::exists(dir / "report.doc.meta.txt"));
}

}  // namespace
}  // namespace quarry
