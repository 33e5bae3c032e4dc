#include "exact/warm_directories.h"

#include "exact/path_walk.h"
#include "exact/volume_path.h"
#include "support/memory_source.h"
#include "support/opened_exact_volume.h"
#include "support/volume_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace quarry::exact;
using testing::ElementsAre;

test::geometry with_system_files() {
    test::geometry shape;
    shape.mft_entries = 512;
    shape.system_files = true;
    return shape;
}

// What one walk brought: the entry, what it told and warned of, and how often the source was read.
struct walk_result {
    std::uint64_t entry = 0;
    std::vector<std::string> log;
    std::vector<std::string> warnings;
    std::size_t reads = 0;
};

class walks {
  public:
    explicit walks(const bytes& image) : m_source(image) {
        notices told;
        m_volume = *exact_volume::open(m_source, "disk.img", 0, image.size(), told);
    }

    [[nodiscard]] walk_result walk(std::string_view path) {
        walk_result brought;
        walk_options options;
        options.volume_names = {u"C"};
        options.directories = &m_directories;
        options.tell = [&](const std::string& line) { brought.log.push_back(line); };
        notices told;
        const std::size_t before = m_source.reads();
        const auto walked = walk_path(*m_volume, parse_volume_path(path)->names, options, told);
        EXPECT_TRUE(walked) << path << (walked ? "" : walked.error().text());
        brought.entry = walked ? walked->file.base().entry() : 0;
        brought.reads = m_source.reads() - before;
        for (const notice& each : told.all()) {
            brought.warnings.push_back(each.code);
        }
        return brought;
    }

  private:
    memory_source m_source;
    std::unique_ptr<exact_volume> m_volume;
    warm_directories m_directories;
};

TEST(warm_directories, let_a_walk_read_nothing_but_the_file) {
    volume_builder volume(with_system_files());
    std::uint64_t directory = 5;
    for (const char* const name : {"a", "b", "c", "d", "e", "f"}) {
        directory = volume.add_directory(name, directory).entry();
    }
    const std::uint64_t one = volume.add_file("one", directory).entry();
    const std::uint64_t other = volume.add_file("other", directory).entry();
    walks warm(volume.image());
    const walk_result first = warm.walk("/a/b/c/d/e/f/one");
    const walk_result second = warm.walk("/a/b/c/d/e/f/other");
    EXPECT_EQ(first.entry, one);
    EXPECT_EQ(second.entry, other);
    EXPECT_GE(first.reads, 8u);
    EXPECT_EQ(second.reads, 1u);
}

TEST(warm_directories, change_nothing_of_what_is_told) {
    volume_builder volume(with_system_files());
    volume.add_directory("docs");
    volume.add_file("a.txt", 24);
    walks warm(volume.image());
    for (int time = 0; time < 2; ++time) {
        const walk_result walked = warm.walk("/DOCS/a.txt");
        EXPECT_EQ(walked.entry, 25u);
        EXPECT_THAT(walked.log, ElementsAre("name \"docs\" -> 24-1", "name \"a.txt\" -> 25-1"));
    }
}

TEST(warm_directories, warn_again_of_what_was_found_on_the_way) {
    volume_builder volume(with_system_files());
    file_builder& directory = volume.add_directory("docs").unindexed().without_names();
    file_name own;
    own.name = "docs";
    own.parent = 5;
    directory.attribute(attribute_builder::resident(0x30, own.build()));
    volume.root().extra_entry(name_entry(directory.file_reference(), own));
    volume.add_file("a.txt", 24);
    walks warm(volume.image());
    EXPECT_THAT(warm.walk("/docs/a.txt").warnings, ElementsAre("no-sequence"));
    EXPECT_THAT(warm.walk("/docs/a.txt").warnings, ElementsAre("no-sequence"));
}

TEST(warm_directories, are_read_anew_as_the_last_name_of_a_path) {
    volume_builder volume(with_system_files());
    volume.add_directory("docs");
    volume.add_file("a.txt", 24);
    walks warm(volume.image());
    EXPECT_EQ(warm.walk("/docs/a.txt").entry, 25u);
    EXPECT_EQ(warm.walk("/docs").entry, 24u);
    EXPECT_EQ(warm.walk("/").entry, 5u);
    EXPECT_EQ(warm.walk("/docs/a.txt").entry, 25u);
    EXPECT_EQ(warm.walk("/").entry, 5u);
}

TEST(warm_directories, hold_no_link) {
    volume_builder volume(with_system_files());
    volume.add_directory("docs");
    volume.add_file("a.txt", 24);
    test::reparse_point junction;
    junction.substitute_name = u"\\??\\C:\\docs";
    junction.print_name = u"C:\\docs";
    volume.add_directory("link").reparse(junction);
    walks warm(volume.image());
    for (int time = 0; time < 2; ++time) {
        const walk_result walked = warm.walk("/link/a.txt");
        EXPECT_EQ(walked.entry, 25u);
        EXPECT_THAT(walked.log, ElementsAre("name \"link\" -> 26-1", "link C:\\docs", "name \"docs\" -> 24-1",
                                            "name \"a.txt\" -> 25-1"));
    }
}

TEST(warm_directories, are_so_many_and_no_more) {
    volume_builder volume(with_system_files());
    for (int i = 0; i <= 64; ++i) {
        const std::string number = std::to_string(i);
        volume.add_file("file", volume.add_directory("d" + number).entry());
    }
    walks warm(volume.image());
    for (int i = 0; i <= 64; ++i) {
        EXPECT_GE(warm.walk("/d" + std::to_string(i) + "/file").reads, 2u);
    }
    EXPECT_EQ(warm.walk("/d64/file").reads, 1u);
    EXPECT_EQ(warm.walk("/d1/file").reads, 1u);
    // The first was not used for longest when the last one came.
    EXPECT_GE(warm.walk("/d0/file").reads, 2u);
    EXPECT_EQ(warm.walk("/d0/file").reads, 1u);
}

}  // namespace
}  // namespace quarry::test
