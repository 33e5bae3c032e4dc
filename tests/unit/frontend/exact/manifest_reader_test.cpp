#include "frontend/exact/manifest_reader.h"

#include "frontend/exact/manifest_file.h"
#include "support/opened_exact_volume.h"
#include "support/temp_dir.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace exact;

class manifest_reader : public testing::Test {
  protected:
    manifest_reader() : m_opened(volume_builder({.system_files = true})) {
        m_object.entry = entry_facts{};
        m_object.entry->self = {24, 1};
        m_object.stream = stream_facts{};
        m_object.stream->type = attr_data;
    }

    // The line of a copy of 6 bytes to out/a.txt; null for one that failed.
    [[nodiscard]] std::string line(std::string_view outcome, bool has_copy = true) {
        manifest_entry entry{m_run, m_source};
        entry.volume = &m_opened.volume();
        entry.line = 1;
        entry.outcome = outcome;
        entry.object = m_object;
        if (has_copy) {
            entry.copy = copy_facts{"out/a.txt", 6, "", "", false};
        }
        return manifest_line(entry);
    }
    [[nodiscard]] std::optional<std::uint64_t> size_of(const complete_copies& copies,
                                                       const std::string& path = "out/a.txt") {
        const auto key = key_of_copy(m_source, &m_opened.volume(), m_object, m_run.directory, path);
        return key ? copies.size_of(*key, m_run.directory, path) : std::nullopt;
    }
    // What reading a file of this text gives: the reason why it cannot be read.
    [[nodiscard]] std::string refusal_of(const std::string& text) const {
        write_file(m_dir / "m", to_bytes(text));
        const int fd = ::open((m_dir / "m").c_str(), O_RDONLY | O_CLOEXEC);
        const auto copies = complete_copies::read(fd, "manifest m");
        ::close(fd);
        return copies ? "" : copies.error().text();
    }

    temp_dir m_dir;
    opened_exact_volume m_opened;
    run_facts m_run = {0, "lab1", "/cases", {"quarry", "-exact"}};
    source_facts m_source = {"image", {{"disk.dd", 10}}};
    object_facts m_object;
};

TEST_F(manifest_reader, knows_a_complete_copy_by_its_source_its_object_and_its_path) {
    complete_copies copies;
    EXPECT_TRUE(copies.add_line(line("complete")));
    EXPECT_EQ(size_of(copies), 6u);
    EXPECT_EQ(size_of(copies, "/cases/./out//a.txt"), 6u);
    EXPECT_EQ(size_of(copies, "out/b.txt"), std::nullopt);
    m_object.entry->self.sequence = 2;
    EXPECT_EQ(size_of(copies), std::nullopt);
    m_object.entry->self.sequence = 1;
    m_object.raw = true;
    EXPECT_EQ(size_of(copies), std::nullopt);
    m_object.raw = false;
    m_source.files[0].size = 11;
    EXPECT_EQ(size_of(copies), std::nullopt);
}

TEST_F(manifest_reader, goes_by_the_last_line_of_a_path) {
    complete_copies copies;
    EXPECT_TRUE(copies.add_line(line("complete")));
    EXPECT_TRUE(copies.add_line(line("failed", false)));
    EXPECT_EQ(size_of(copies), 6u);
    EXPECT_TRUE(copies.add_line(line("in doubt")));
    EXPECT_EQ(size_of(copies), std::nullopt);
}

TEST_F(manifest_reader, knows_a_copy_in_directories_and_of_sources_that_are_no_utf_8) {
    m_run.directory = "/cases\xFF";
    m_source.files[0].path = "\xED\xA0\x80";
    complete_copies copies;
    EXPECT_TRUE(copies.add_line(line("complete")));
    EXPECT_EQ(size_of(copies), 6u);
    m_run.directory = "/cases\xFE";
    EXPECT_EQ(size_of(copies), std::nullopt);
}

TEST_F(manifest_reader, knows_no_copy_whose_line_lacks_a_part_of_what_it_is_known_by) {
    struct row {
        std::string_view stored;
        std::string_view instead;
    };
    for (const row& each :
         {row{R"("files":[)", R"("file":[)"}, row{R"("path":"disk.dd")", R"("path":1)"},
          row{R"("size":10)", R"("size":"10")"}, row{R"("volume_offset":0)", R"("volume_offset":-1)"},
          row{R"("serial":")", R"("number":")"}, row{R"("raw":false)", R"("raw":0)"},
          row{R"("entry":24)", R"("entry":"24")"}, row{R"("sequence":1)", R"("sequence":null)"},
          row{R"("type":")", R"("kind":")"}, row{R"("stream":"")", R"("stream":[])"},
          row{R"("size":6)", R"("size":6.0)"}}) {
        std::string text = line("complete");
        const std::size_t at = text.find(each.stored);
        ASSERT_NE(at, std::string::npos) << each.stored << text;
        text.replace(at, each.stored.size(), each.instead);
        complete_copies copies;
        EXPECT_TRUE(copies.add_line(text)) << each.instead;
        EXPECT_EQ(size_of(copies), std::nullopt) << each.instead;
    }
}

TEST_F(manifest_reader, knows_raw_copies_and_copies_of_clusters) {
    m_object.raw = true;
    complete_copies copies;
    EXPECT_TRUE(copies.add_line(line("complete")));
    EXPECT_EQ(size_of(copies), 6u);
    m_object = {};
    m_object.lcn = 100;
    m_object.clusters = 8;
    EXPECT_EQ(size_of(copies), std::nullopt);
    EXPECT_TRUE(copies.add_line(line("complete")));
    EXPECT_EQ(size_of(copies), 6u);
    std::string text = line("complete");
    const std::size_t at = text.find(R"("clusters":8)");
    ASSERT_NE(at, std::string::npos) << text;
    EXPECT_TRUE(copies.add_line(text.replace(at, 12, R"("clusters":"8")")));
    EXPECT_EQ(size_of(copies), std::nullopt);
}

TEST_F(manifest_reader, knows_no_object_of_which_a_part_is_unknown) {
    const auto is_known = [this](const exact_volume* volume) {
        return key_of_copy(m_source, volume, m_object, m_run.directory, "out/a.txt").has_value();
    };
    EXPECT_TRUE(is_known(&m_opened.volume()));
    EXPECT_FALSE(is_known(nullptr));
    m_object.stream.reset();
    EXPECT_FALSE(is_known(&m_opened.volume()));
    m_object.lcn = 100;
    EXPECT_FALSE(is_known(&m_opened.volume()));
    m_object.clusters = 8;
    EXPECT_TRUE(is_known(&m_opened.volume()));
    m_source.files[0].size.reset();
    EXPECT_FALSE(is_known(&m_opened.volume()));
}

TEST_F(manifest_reader, knows_no_path_whose_bytes_are_no_pairs_of_small_hexadecimal_digits) {
    // In each place a line takes the copy away that an earlier one had put there, if it is a line of that
    // path.
    const auto keeps_copy = [this](const std::string& digits) {
        complete_copies copies;
        EXPECT_TRUE(copies.add_line(line("complete")));
        EXPECT_TRUE(copies.add_line(R"({"schema":"quarry-manifest/1","run":{"directory":"/cases"},)"
                                    R"("copy":{"path_bytes":")" +
                                    digits + "\"}}"));
        return size_of(copies).has_value();
    };
    EXPECT_FALSE(keeps_copy("6f75742f612e747874"));
    EXPECT_TRUE(keeps_copy("6F75742F612E747874"));
    EXPECT_TRUE(keeps_copy("6f75742f612e74787"));
    EXPECT_TRUE(keeps_copy("6f75742f612e7478g4"));
    EXPECT_TRUE(keeps_copy("6f75742f612e7478/4"));
    EXPECT_TRUE(keeps_copy("6f75742f612e7478:4"));
}

TEST_F(manifest_reader, passes_over_objects_that_are_no_lines_of_its_own) {
    complete_copies copies;
    EXPECT_TRUE(copies.add_line("{}"));
    EXPECT_TRUE(copies.add_line(R"({"schema":"quarry-manifest/1","copy":{"path_bytes":"6"}})"));
    EXPECT_TRUE(copies.add_line(R"({"schema":"quarry-manifest/1","copy":{"path":1}})"));
    std::string other = line("complete");
    other.replace(other.find("manifest/1"), 10, "manifest/2");
    EXPECT_TRUE(copies.add_line(other));
    EXPECT_EQ(size_of(copies), std::nullopt);
    EXPECT_FALSE(copies.add_line(""));
    EXPECT_FALSE(copies.add_line("[]"));
    EXPECT_FALSE(copies.add_line(line("complete").substr(1)));
}

// Kept as they are in the line, a million empty arrays would take a hundred times its memory.
TEST_F(manifest_reader, keeps_of_a_line_what_a_copy_is_known_by) {
    const auto line_with = [&](const std::string& name, std::size_t arrays) {
        std::string many = line("complete");
        many.resize(many.size() - 2);
        many += ",\"" + name + "\":[";
        for (std::size_t i = 0; i < arrays; ++i) {
            many += "[],";
        }
        return many + "0]}";
    };
    complete_copies copies;
    EXPECT_TRUE(copies.add_line(line_with("unread", 1000000)));
    EXPECT_EQ(size_of(copies), 6u);
    EXPECT_TRUE(copies.add_line(line_with("volume", 100000)));
    EXPECT_FALSE(copies.add_line(line_with("volume", 1000000)));
}

TEST_F(manifest_reader, ends_at_a_line_that_is_no_object_and_at_one_that_is_too_long) {
    EXPECT_EQ(refusal_of(""), "");
    EXPECT_EQ(refusal_of(line("complete") + line("failed", false)), "");
    EXPECT_EQ(refusal_of(line("complete") + "x\n{}\n"), "manifest m: line 2 is no JSON object");
    const std::string longest = "{}" + std::string(16777214, ' ');
    EXPECT_EQ(refusal_of(longest + "\n"), "");
    EXPECT_EQ(refusal_of("{}\n" + longest + " \n"), "manifest m: line 2 is too long");
}

}  // namespace
}  // namespace quarry::test
