#include "exact/path_walk.h"

#include "exact/volume_path.h"
#include "exact/warm_directories.h"
#include "support/memory_source.h"
#include "support/opened_exact_volume.h"
#include "support/run_program.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <ctime>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

// Seconds of the processor since the clock began. What else the machine does counts little.
double seconds_since(std::clock_t begun) {
    return static_cast<double>(std::clock() - begun) / CLOCKS_PER_SEC;
}

test::geometry with_system_files() {
    test::geometry shape;
    shape.mft_entries = 512;
    shape.system_files = true;
    return shape;
}

// A volume of a test, opened, and the walks over it.
class walked_volume {
  public:
    explicit walked_volume(const bytes& image) : m_source(image) {
        auto opened = exact_volume::open(m_source, "disk.img", 0, image.size(), m_told);
        EXPECT_TRUE(opened.has_value()) << opened.error().text();
        m_volume = std::move(*opened);
        m_options.tell = [this](const std::string& line) { m_log.push_back(line); };
    }

    result<walked_path> walk(std::string_view path) {
        m_log.clear();
        return walk_path(*m_volume, parse_volume_path(path).value().names, m_options, m_told);
    }
    // The entry number that a path leads to; 0 with the failure in the test's log if it leads nowhere.
    std::uint64_t entry(std::string_view path) {
        const auto walked = walk(path);
        EXPECT_TRUE(walked.has_value()) << path << ": " << (walked ? "" : walked.error().text());
        return walked ? walked->file.base().entry() : 0;
    }
    std::string failure_of(std::string_view path) {
        const auto walked = walk(path);
        EXPECT_FALSE(walked.has_value()) << path;
        return walked ? "" : std::string(code_text(walked.error().code)) + " | " + walked.error().text();
    }
    walk_options& options() { return m_options; }
    const std::vector<std::string>& log() const { return m_log; }
    const notices& told() const { return m_told; }

  private:
    memory_source m_source;
    notices m_told;
    std::unique_ptr<exact_volume> m_volume;
    walk_options m_options;
    std::vector<std::string> m_log;
};

test::reparse_point junction_to(const std::u16string& target) {
    test::reparse_point link;
    link.substitute_name = target;
    link.print_name = target;
    return link;
}

test::reparse_point relative_link_to(const std::u16string& target) {
    test::reparse_point link = junction_to(target);
    link.tag = 0xA000000C;
    link.with_flags_word = true;
    link.flags_word = 1;
    return link;
}

}  // namespace

TEST(path_walk, leads_from_the_root_through_directories_to_a_file) {
    volume_builder volume(with_system_files());
    const std::uint64_t directory = volume.add_directory("docs").entry();
    const std::uint64_t file = volume.add_file("letter.txt", directory).entry();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/docs/letter.txt"), file);
    EXPECT_EQ(walked.log(),
              (std::vector<std::string>{"name \"docs\" -> 24-1", "name \"letter.txt\" -> 25-1"}));
    EXPECT_EQ(walked.entry("/docs"), directory);
    EXPECT_EQ(walked.entry("/"), 5u);
    EXPECT_EQ(walked.entry("\\docs\\letter.txt"), file);
}

TEST(path_walk, takes_names_without_regard_to_case_as_the_volume_has_them) {
    volume_builder volume(with_system_files());
    const std::uint64_t directory = volume.add_directory("Docs").entry();
    const std::uint64_t file = volume.add_file("Letter.TXT", directory).entry();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/dOCS/lETTER.txt"), file);
    EXPECT_EQ(walked.walk("/docs/letter.txt")->names, (std::vector<std::u16string>{u"Docs", u"Letter.TXT"}));
}

TEST(path_walk, says_which_name_is_missing) {
    volume_builder volume(with_system_files());
    volume.add_directory("docs");
    volume.add_file("a.txt");
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/docs/letter.txt"), "name | path \"/docs/letter.txt\": no such name");
    EXPECT_EQ(walked.failure_of("/dcs/letter.txt"), "name | path \"/dcs\": no such name");
    EXPECT_EQ(walked.failure_of("/a.txt/b"), "not-directory | path \"/a.txt\": is no directory");
}

TEST(path_walk, finds_each_of_many_names_in_index_blocks) {
    volume_builder volume(with_system_files());
    const std::uint64_t directory = volume.add_directory("many").entry();
    volume.file(directory).index_in_blocks();
    std::vector<std::uint64_t> files;
    for (int i = 0; i < 300; ++i) {
        files.push_back(volume.add_file("name " + std::to_string(i) + ".txt", directory).entry());
    }
    walked_volume walked(volume.image());
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(walked.entry("/many/NAME " + std::to_string(i) + ".txt"),
                  files[static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(walked.failure_of("/many/name 300.txt"), "name | path \"/many/name 300.txt\": no such name");
}

TEST(path_walk, takes_a_short_name_for_the_long_one) {
    volume_builder volume(with_system_files());
    const std::uint64_t file = volume.add_file("long name.txt").short_name("LONGNA~1.TXT").entry();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/longna~1.txt"), file);
    EXPECT_EQ(walked.entry("/Long Name.txt"), file);
}

TEST(path_walk, gives_the_long_names_of_all_that_were_named_by_short_ones) {
    volume_builder volume(with_system_files());
    const std::uint64_t directory = volume.add_directory("Long directory").short_name("LONGDI~1").entry();
    const std::uint64_t other = volume.add_directory("other").entry();
    // A name in another directory is none of this path.
    volume.add_file("first link.txt", other)
        .hard_link("long name.txt", directory)
        .hard_link("LONGNA~1.TXT", directory, dos_namespace);
    volume.add_file("ONLY~1.TXT", directory).name_space(dos_namespace);
    walked_volume walked(volume.image());
    warm_directories kept;
    walked.options().directories = &kept;
    // The second time the directory is known.
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(walked.walk("/LONGDI~1/LONGNA~1.TXT").value().names,
                  (std::vector<std::u16string>{u"Long directory", u"long name.txt"}));
    }
    EXPECT_EQ(walked.walk("/LONGDI~1/only~1.txt").value().names,
              (std::vector<std::u16string>{u"Long directory", u"ONLY~1.TXT"}));
}

TEST(path_walk, gives_no_hard_link_of_the_same_directory_for_a_short_name) {
    volume_builder volume(with_system_files());
    volume.add_file("a link.txt")
        .name_space(posix_namespace)
        .hard_link("long name.txt", 5)
        .hard_link("LONGNA~1.TXT", 5, dos_namespace);
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.walk("/LONGNA~1.TXT").value().names, std::vector<std::u16string>{u"long name.txt"});
}

TEST(path_walk, prefers_the_same_units_among_names_that_differ_in_case) {
    volume_builder volume(with_system_files());
    const std::uint64_t large = volume.add_file("A.txt").name_space(0).entry();
    const std::uint64_t small = volume.add_file("a.txt").name_space(0).entry();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/a.txt"), small);
    EXPECT_EQ(walked.entry("/A.txt"), large);
    EXPECT_EQ(walked.failure_of("/a.TXT"),
              "ambiguous | path \"/a.TXT\": several names differ only in case: A.txt, a.txt");
}

TEST(path_walk, follows_a_junction_if_the_volume_bears_its_name) {
    volume_builder volume(with_system_files());
    const std::uint64_t users = volume.add_directory("Users").entry();
    const std::uint64_t file = volume.add_file("a.txt", users).entry();
    volume.add_directory("Documents and Settings").reparse(junction_to(u"\\??\\C:\\Users"));
    walked_volume walked(volume.image());
    EXPECT_EQ(
        walked.failure_of("/Documents and Settings/a.txt"),
        "link | path \"/Documents and Settings\": leads to C:\\Users; say -letter C if that is this volume");
    walked.options().volume_names = {u"c"};
    EXPECT_EQ(walked.entry("/documents and settings/a.txt"), file);
    EXPECT_EQ(walked.walk("/documents and settings/a.txt")->names,
              (std::vector<std::u16string>{u"Users", u"a.txt"}));
    EXPECT_EQ(walked.walk("/documents and settings/a.txt")->links, std::vector<std::string>{"C:\\Users"});
    EXPECT_EQ(walked.entry("/documents and settings"), users);
}

TEST(path_walk, follows_a_junction_to_a_volume_that_is_named_by_its_number_in_any_letter_case) {
    const std::u16string target = u"Volume{01234567-89ab-cdef-0123-456789abcdef}";
    volume_builder volume(with_system_files());
    const std::uint64_t users = volume.add_directory("Users").entry();
    const std::uint64_t file = volume.add_file("a.txt", users).entry();
    volume.add_directory("link").reparse(junction_to(u"\\??\\" + target + u"\\Users"));
    walked_volume walked(volume.image());
    walked.options().volume_names = {u"Volume{01234567-89ab-cdef-0123-456789abcdee}"};
    EXPECT_EQ(
        walked.failure_of("/link/a.txt"),
        "link | path \"/link\": leads to Volume{01234567-89ab-cdef-0123-456789abcdef}\\Users; say -letter "
        "Volume{01234567-89ab-cdef-0123-456789abcdef} if that is this volume");
    for (const std::u16string& name :
         {target, std::u16string(u"vOLUME{01234567-89AB-CDEF-0123-456789ABCDEF}")}) {
        walked.options().volume_names = {name};
        EXPECT_EQ(walked.entry("/link/a.txt"), file);
        EXPECT_EQ(walked.entry("/link"), users);
    }
}

TEST(path_walk, follows_a_relative_link_from_its_own_directory) {
    volume_builder volume(with_system_files());
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t other = volume.add_directory("other").entry();
    const std::uint64_t file = volume.add_file("a.txt", other).entry();
    volume.add_file("link", docs).reparse(relative_link_to(u"..\\other\\.\\a.txt"));
    volume.add_file("from root", docs).reparse(relative_link_to(u"\\other\\a.txt"));
    volume.add_file("too high", docs).reparse(relative_link_to(u"..\\..\\a.txt"));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/docs/link"), file);
    EXPECT_EQ(walked.entry("/docs/from root"), file);
    EXPECT_EQ(walked.failure_of("/docs/too high"),
              "link | path \"/docs/too high\": leads to ..\\..\\a.txt, which is above the root");
}

TEST(path_walk, leaves_the_last_link_where_it_is_if_told_so) {
    volume_builder volume(with_system_files());
    volume.add_file("a.txt");
    const std::uint64_t link = volume.add_file("link").reparse(relative_link_to(u"a.txt")).entry();
    walked_volume walked(volume.image());
    walked.options().follow_last = false;
    EXPECT_EQ(walked.entry("/link"), link);
}

TEST(path_walk, ends_after_64_links) {
    volume_builder volume(with_system_files());
    volume.add_file("a").reparse(relative_link_to(u"b"));
    volume.add_file("b").reparse(relative_link_to(u"a"));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/a"), "link | path \"/a\": more than 64 links on the way");
}

TEST(path_walk, passes_through_cloud_directories_and_no_other_reparse_points) {
    volume_builder volume(with_system_files());
    test::reparse_point cloud = junction_to(u"x");
    cloud.tag = 0x9000101A;
    test::reparse_point projected = junction_to(u"x");
    projected.tag = 0xA0000022;
    test::reparse_point other = junction_to(u"x");
    other.tag = 0x80000013;
    const std::uint64_t drive = volume.add_directory("OneDrive").reparse(cloud).entry();
    const std::uint64_t file = volume.add_file("a.txt", drive).entry();
    volume.add_file("a.txt", volume.add_directory("projected").reparse(projected).entry());
    volume.add_file("a.txt", volume.add_directory("other").reparse(other).entry());
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/OneDrive/a.txt"), file);
    EXPECT_EQ(walked.log()[1], "reparse tag 0x9000101A (CLOUD_1) of \"OneDrive\" passed through");
    EXPECT_EQ(walked.failure_of("/projected/a.txt"),
              "tag | path \"/projected\": reparse tag 0xA0000022 (PROJFS_TOMBSTONE): the names below are not "
              "in this directory");
    EXPECT_EQ(
        walked.failure_of("/other/a.txt"),
        "tag | path \"/other\": reparse tag 0x80000013 (DEDUP): the names below are not in this directory");
}

TEST(path_walk, takes_no_file_for_plain_whose_reparse_point_has_a_name) {
    volume_builder volume(with_system_files());
    const attribute_builder point =
        attribute_builder::resident(0xC0, byte_writer(24).u32(0, 0x80000017).take());
    volume.add_file("a.txt").attribute(attribute_builder(point).named("ab"));
    volume.add_file("b.txt").attribute(point).attribute(attribute_builder(point).named("ab"));
    volume.add_directory("c").attribute(attribute_builder(point).named("ab"));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/a.txt"), "layout | record 24: has a $REPARSE_POINT with a name");
    EXPECT_EQ(walked.failure_of("/b.txt"), "layout | record 25: has a $REPARSE_POINT with a name");
    EXPECT_EQ(walked.failure_of("/c/d.txt"), "layout | record 26: has a $REPARSE_POINT with a name");
}

// A damaged type of the attribute would make a link a directory, and a compressed file plain.
TEST(path_walk, takes_no_file_for_plain_whose_reparse_point_is_gone) {
    volume_builder volume(with_system_files());
    volume.add_file("a.txt").attributes(0x400);
    volume.add_directory("b").attributes(0x10000400);
    volume.add_file("c.txt").attributes(0x400).without_standard_information();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/a.txt"),
              "layout | record 24: has no $REPARSE_POINT, and $STANDARD_INFORMATION says that it has one");
    EXPECT_EQ(walked.failure_of("/b/d.txt"),
              "layout | record 25: has no $REPARSE_POINT, and $STANDARD_INFORMATION says that it has one");
    EXPECT_EQ(walked.entry("/c.txt"), 26u);
}

TEST(path_walk, wants_index_and_record_to_agree) {
    volume_builder volume(with_system_files());
    const std::uint64_t other = volume.add_directory("other").entry();
    const std::uint64_t file = volume.add_file("z.txt", other).unindexed().entry();
    file_name key;
    key.name = "z.txt";
    volume.root().extra_entry(name_entry(0x0001000000000000 | file, key));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/z.txt"), "index | record 25: has no $FILE_NAME \"z.txt\" in directory 5-5");
}

TEST(path_walk, wants_the_sequence_number_of_the_index) {
    volume_builder volume(with_system_files());
    const std::uint64_t file = volume.add_file("z.txt").unindexed().entry();
    file_name key;
    key.name = "z.txt";
    volume.root().extra_entry(name_entry(0x0007000000000000 | file, key));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/z.txt").substr(0, 10), "sequence |");
}

TEST(path_walk, finds_no_deleted_file) {
    volume_builder volume(with_system_files());
    volume.add_file("a.txt").deleted_but_indexed();
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.failure_of("/a.txt"), "unused | record 24: is not in use (source byte 0xA016)");
}

namespace {

// So many names "a\\..\\", then the last.
std::u16string there_and_back(std::size_t pairs, const std::u16string& last) {
    std::u16string target;
    for (std::size_t i = 0; i < pairs; ++i) {
        target += u"a\\..\\";
    }
    return target + last;
}

}  // namespace

TEST(path_walk, ends_after_16384_names) {
    // A link that leads to itself by way of 721 names: 22 of them are 15,862 names, 23 are 16,583.
    volume_builder volume({.record_size = 8192, .system_files = true});
    volume.add_directory("a");
    test::reparse_point bomb = relative_link_to(there_and_back(360, u"bomb"));
    bomb.print_name = u"";
    volume.add_file("bomb").reparse(bomb);
    walked_volume walked(volume.image());
    const std::clock_t begun = std::clock();
    EXPECT_EQ(walked.failure_of("/bomb"), "link | path \"/bomb\": more than 16384 names on the way");
    EXPECT_LT(seconds_since(begun), 20.0 * time_allowance());
    EXPECT_EQ(std::count(walked.log().begin(), walked.log().end(), "name \"a\" -> 24-1"), 22 * 360);
}

TEST(path_walk, goes_down_long_ways_without_writing_each_of_them_out) {
    // A directory that is its own child.
    volume_builder volume(with_system_files());
    const std::uint64_t a = volume.add_directory("a").entry();
    volume.file(a).hard_link("a", a);
    walked_volume walked(volume.image());
    std::string path;
    for (int i = 0; i < 30000; ++i) {
        path += "/a";
    }
    const std::clock_t begun = std::clock();
    EXPECT_EQ(walked.walk(path)->names.size(), 30000u);
    EXPECT_LT(seconds_since(begun), 20.0 * time_allowance());
}

TEST(path_walk, warns_of_a_name_whose_directory_has_no_sequence_number) {
    volume_builder volume(with_system_files());
    file_builder& file = volume.add_file("z.txt").unindexed().without_names();
    file_name own;
    own.name = "z.txt";
    own.parent = 5;
    file.attribute(attribute_builder::resident(0x30, own.build()));
    volume.root().extra_entry(name_entry(file.file_reference(), own));
    walked_volume walked(volume.image());
    EXPECT_EQ(walked.entry("/z.txt"), 24u);
    EXPECT_EQ(text_of(walked.told()),
              "no-sequence record 24: its $FILE_NAME refers to directory 5 without a sequence number\n");
}

}  // namespace quarry::test
