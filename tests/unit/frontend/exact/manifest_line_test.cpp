#include "frontend/exact/manifest_line.h"

#include "support/opened_exact_volume.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

const run_facts lab_run = {0, "lab1", "/cases", {"quarry", "-exact"}};
const source_facts source = {"image", {{"disk.dd", 10}}};

// The line of a file with this time of creation.
std::string line_with(std::uint64_t created) {
    manifest_entry entry{lab_run, source};
    entry.outcome = "complete";
    entry.object.entry = entry_facts{};
    entry.object.entry->standard = four_times{created, 0, 0, 0};
    return manifest_line(entry);
}

bool has(const std::string& line, const std::string& part) {
    return line.find(part) != std::string::npos;
}

}  // namespace

TEST(manifest_line, writes_times_at_their_edges) {
    EXPECT_TRUE(has(line_with(0), R"("standard":{"created":null,"modified":null)"));
    EXPECT_TRUE(has(line_with(1), R"("created":"1601-01-01T00:00:00.0000001Z")"));
    EXPECT_TRUE(has(line_with(2650467743999999999), R"("created":"9999-12-31T23:59:59.9999999Z")"));
    EXPECT_TRUE(has(line_with(2650467744000000000), R"("created":2650467744000000000,)"));
    EXPECT_TRUE(has(line_with(0xFFFFFFFFFFFFFFFF), R"("created":18446744073709551615,)"));
}

TEST(manifest_line, is_one_line_whatever_the_words_hold) {
    manifest_entry entry{lab_run, source};
    entry.object.asked = "/a\nb\xFF\x01";
    const std::string line = manifest_line(entry);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_TRUE(has(line, "\"asked\":\"/a\\nb\xEF\xBF\xBD\\u0001\""));
}

TEST(manifest_line, keeps_the_bytes_of_a_path_that_is_no_utf_8) {
    const source_facts odd = {"image", {{"d\xFF", 10}}};
    manifest_entry entry{lab_run, odd};
    const std::string line = manifest_line(entry);
    EXPECT_TRUE(has(line, "{\"path\":\"d\xEF\xBF\xBD\",\"path_bytes\":\"64ff\",\"size\":10,"));
    EXPECT_FALSE(has(manifest_line(manifest_entry{lab_run, source}), "path_bytes"));
}

TEST(manifest_line, has_no_directory_where_the_host_named_none) {
    const run_facts nowhere = {0, "lab1", "", {"quarry"}};
    EXPECT_TRUE(has(manifest_line(manifest_entry{nowhere, source}), R"("host":"lab1","directory":null)"));
    EXPECT_FALSE(has(manifest_line(manifest_entry{lab_run, source}), R"("directory":null)"));
}

TEST(manifest_line, keeps_the_bytes_of_whatever_was_typed_in_no_utf_8) {
    // The first is a surrogate without a partner.
    const run_facts odd = {0, "lab1", "/c\xED\xA0\x80", {"quarry", "-src", "/\xFF"}};
    manifest_entry entry{odd, source};
    entry.object.asked = "/\xFF";
    const std::string line = manifest_line(entry);
    EXPECT_TRUE(has(line, R"("directory_bytes":"2f63eda080",)"));
    EXPECT_TRUE(has(line, R"("arguments_bytes":["717561727279","2d737263","2fff"],)"));
    EXPECT_TRUE(has(line, R"("asked_bytes":"2fff",)"));
    EXPECT_FALSE(has(manifest_line(manifest_entry{lab_run, source}), "_bytes"));
}

TEST(manifest_line, has_the_digests_of_the_source_beside_its_first_file) {
    source_facts ewf = {"ewf", {{"d.E01", 10}, {"d.E02", 5}}};
    ewf.acquired_md5 = "0123";
    ewf.acquired_sha1 = "4567";
    ewf.sha256_told = "89ab";
    const std::string line = manifest_line(manifest_entry{lab_run, ewf});
    EXPECT_TRUE(has(line,
                    R"("files":[{"path":"d.E01","size":10,"acquired_md5":"0123","acquired_sha1":"4567",)"
                    R"("sha256_told":"89ab"},{"path":"d.E02","size":5,"acquired_md5":null,)"
                    R"("acquired_sha1":null,"sha256_told":null}])"))
        << line;
}

TEST(manifest_line, says_which_boot_sector_was_used) {
    bytes image = volume_builder().image();
    image.insert(image.end(), image.begin(), image.begin() + 512);
    opened_exact_volume opened(image);
    manifest_entry entry{lab_run, source};
    entry.volume = &opened.volume();
    EXPECT_TRUE(has(manifest_line(entry), R"("boot":"primary","mft":"primary")"));
    std::fill_n(image.begin(), 512, std::uint8_t{0});
    opened_exact_volume without_first(image);
    entry.volume = &without_first.volume();
    EXPECT_TRUE(has(manifest_line(entry), R"("boot":"backup","mft":"primary")"));
}

}  // namespace quarry::test
