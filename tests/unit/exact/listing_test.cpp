#include "exact/listing.h"

#include "exact/volume_path.h"
#include "support/opened_exact_volume.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

// Files of these volumes have the time 2020-01-02 03:04:05 unless they are given another.
const std::string at = "\t2020-01-02T03:04:05.0000000Z\t";

struct listing {
    std::string lines;
    std::string damage;
    std::string failed;
    std::string told;
};

class listed_volume {
  public:
    explicit listed_volume(const volume_builder& volume) : m_opened(volume) {}
    explicit listed_volume(bytes image) : m_opened(std::move(image)) {}

    [[nodiscard]] listing list(std::string_view path, bool recurse = false) {
        return collect([&](const listing_outputs& outputs, notices& told) {
            const auto parsed = parse_volume_path(path);
            return walk_path(m_opened.volume(), parsed->names, {}, told).and_then([&](walked_path start) {
                return list_path(m_opened.volume(), std::move(start), recurse, outputs, told);
            });
        });
    }
    [[nodiscard]] listing deleted() {
        return collect([&](const listing_outputs& outputs, notices& told) {
            return list_deleted(m_opened.volume(), outputs, told);
        });
    }
    // The lines of the files that a test added: those of the volume's own files are left out.
    [[nodiscard]] std::string user_lines(std::string_view path, bool recurse = false) {
        std::string out;
        std::string rest = list(path, recurse).lines;
        while (!rest.empty()) {
            const std::string line = rest.substr(0, rest.find('\n') + 1);
            rest.erase(0, line.size());
            out += line.find("\t/$") == std::string::npos ? line : "";
        }
        return out;
    }
    // Lines after which the output takes no more; negative for no limit.
    void refuse_after(int lines) { m_limit = lines; }
    [[nodiscard]] memory_source& source() { return m_opened.source(); }

  private:
    template <typename List>
    [[nodiscard]] listing collect(List list) {
        listing out;
        notices told;
        int lines = 0;
        const listing_outputs outputs{[&](std::string_view line) -> result<void> {
                                          if (lines++ == m_limit) {
                                              return fail(failure_code::write, "output", "is full");
                                          }
                                          out.lines.append(line).push_back('\n');
                                          return {};
                                      },
                                      [&](const failure& each) { out.damage += each.text() + "\n"; }};
        if (const auto listed = list(outputs, told); !listed) {
            out.failed = text_of(listed.error());
        }
        out.told = text_of(told);
        return out;
    }

    opened_exact_volume m_opened;
    int m_limit = -1;
};

test::geometry with_system_files() {
    return {.mft_entries = 128, .system_files = true};
}

attribute_builder reparse_attribute(std::uint32_t tag) {
    return attribute_builder::resident(0xC0, byte_writer().u32(0, tag).u16(4, 0).u16(6, 0).take());
}

}  // namespace

TEST(listing, has_a_line_for_every_long_name_and_every_named_stream_in_the_order_of_the_index) {
    volume_builder volume(with_system_files());
    volume.add_file("zebra").data("twelve bytes");
    volume.add_file("Long name.txt").data("1").short_name("LONGNA~1.TXT");
    volume.add_file("anna.exe").stream("Zone.Identifier", "26 bytes of a named stream").data("x");
    volume.add_file("both").name_space(win32_and_dos_namespace);
    volume.add_file("posix").name_space(posix_namespace);
    volume.add_directory("docs").stream("note", "four");
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/"), "26-1\tf\t1" + at +
                                          "/anna.exe\n"
                                          "26-1\ts\t26" +
                                          at +
                                          "/anna.exe:Zone.Identifier\n"
                                          "27-1\tf\t0" +
                                          at +
                                          "/both\n"
                                          "29-1\td\t0" +
                                          at +
                                          "/docs\n"
                                          "29-1\ts\t4" +
                                          at +
                                          "/docs:note\n"
                                          "25-1\tf\t1" +
                                          at +
                                          "/Long name.txt\n"
                                          "28-1\tf\t0" +
                                          at +
                                          "/posix\n"
                                          "24-1\tf\t12" +
                                          at + "/zebra\n");
    EXPECT_EQ(listed.list("/").damage, "");
    EXPECT_EQ(listed.list("/").lines.find("\t/.\n"), std::string::npos);
    EXPECT_NE(listed.list("/").lines.find("\t/$MFT\n"), std::string::npos);
}

TEST(listing, has_a_line_for_a_short_name_only_where_the_file_has_no_other) {
    volume_builder volume(with_system_files());
    volume.add_file("ONLY~1.TXT").data("1").name_space(dos_namespace);
    const std::uint64_t directory = volume.add_directory("ONLYDI~1").name_space(dos_namespace).entry();
    volume.add_file("Long name.txt", directory).short_name("LONGNA~1.TXT");
    // Its long name is in another directory.
    volume.add_file("LINKED~1.TXT", directory).name_space(dos_namespace).hard_link("Linked.txt", 5);
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/"), "27-1\tf\t0" + at +
                                          "/Linked.txt\n"
                                          "25-1\td\t0" +
                                          at +
                                          "/ONLYDI~1\n"
                                          "24-1\tf\t1" +
                                          at + "/ONLY~1.TXT\n");
    EXPECT_EQ(listed.user_lines("/ONLYDI~1"), "26-1\tf\t0" + at + "/ONLYDI~1/Long name.txt\n");
    EXPECT_EQ(listed.list("/").damage, "");
}

TEST(listing, of_a_tree_goes_depth_first_and_of_a_file_is_the_file) {
    volume_builder volume(with_system_files());
    const std::uint64_t b = volume.add_directory("b").stream("own", "1").entry();  // 24
    const std::uint64_t c = volume.add_directory("c", b).entry();                  // 25
    volume.add_file("deep.txt", c).data("12345").short_name("DEEP~1.TXT");         // 26
    volume.add_file("z", b);                                                       // 27
    volume.add_file("a");                                                          // 28
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), "28-1\tf\t0" + at +
                                                "/a\n"
                                                "24-1\td\t0" +
                                                at +
                                                "/b\n"
                                                "24-1\ts\t1" +
                                                at +
                                                "/b:own\n"
                                                "25-1\td\t0" +
                                                at +
                                                "/b/c\n"
                                                "26-1\tf\t5" +
                                                at +
                                                "/b/c/deep.txt\n"
                                                "27-1\tf\t0" +
                                                at + "/b/z\n");
    EXPECT_EQ(listed.list("/B").lines, "24-1\ts\t1" + at +
                                           "/b:own\n"
                                           "25-1\td\t0" +
                                           at +
                                           "/b/c\n"
                                           "27-1\tf\t0" +
                                           at + "/b/z\n");
    EXPECT_EQ(listed.list("/b/c/DEEP~1.TXT", true).lines, "26-1\tf\t5" + at + "/b/c/deep.txt\n");
    EXPECT_EQ(listed.list("\\b\\c").lines, "26-1\tf\t5" + at + "/b/c/deep.txt\n");
    EXPECT_EQ(listed.list("/none").failed, "name path \"/none\": no such name");
}

TEST(listing, writes_names_so_that_they_are_one_field_of_one_line_and_can_be_given_back) {
    volume_builder volume(with_system_files());
    const std::vector<std::u16string> names{u"tab\there",
                                            u"line\nfeed",
                                            u"a/b",
                                            u"a:b",
                                            u"a\\b",
                                            std::u16string(1, char16_t{0xD800}) + u"x",
                                            std::u16string(u"y") + char16_t{0xDC00},
                                            u"\u202Etxt.exe"};
    for (const std::u16string& name : names) {
        volume.add_file(name).stream(u"s" + name, "1");
    }
    listed_volume listed(volume);
    const std::string lines = listed.user_lines("/");
    for (const char* const shown : {R"(tab\u0009here)", R"(line\u000Afeed)", R"(a\u002Fb)", R"(a\:b)",
                                    R"(a\\b)", R"(\uD800x)", R"(y\uDC00)", R"(\u202Etxt.exe)"}) {
        EXPECT_NE(lines.find("\t/" + std::string(shown) + "\n"), std::string::npos) << shown;
        EXPECT_NE(lines.find("\t/" + std::string(shown) + ":s" + shown + "\n"), std::string::npos) << shown;
        EXPECT_NE(listed.list("/" + std::string(shown)).lines, "") << shown;
    }
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 16);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\t'), 64);
}

TEST(listing, has_the_size_that_counts_and_the_time_as_it_is_stored) {
    volume_builder volume(with_system_files());
    volume.add_file("decoded.exe")
        .data(runs({{hole, 3}}), {.real = 8193, .flags = 0x8000})
        .stream("WofCompressedData", "1234567")
        .attribute(reparse_attribute(0x80000017));
    volume.add_file("fraction").times({.modified = default_filetime + 1234567});
    volume.add_file("later").times({.modified = 2650467744000000000});
    volume.add_file("never").times({.modified = 0});
    volume.add_file("streams only").stream("s", "12");
    volume.add_file("undated").without_standard_information();
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/"), "24-1\tf\t8193" + at +
                                          "/decoded.exe\n"
                                          "24-1\ts\t7" +
                                          at +
                                          "/decoded.exe:WofCompressedData\n"
                                          "25-1\tf\t0\t2020-01-02T03:04:05.1234567Z\t/fraction\n"
                                          "26-1\tf\t0\t2650467744000000000\t/later\n"
                                          "27-1\tf\t0\t-\t/never\n"
                                          "28-1\tf\t0" +
                                          at +
                                          "/streams only\n"
                                          "28-1\ts\t2" +
                                          at +
                                          "/streams only:s\n"
                                          "29-1\tf\t0\t-\t/undated\n");
    EXPECT_EQ(listed.list("/").damage, "");
}

TEST(listing, follows_no_link_and_enters_directories_of_cloud_files) {
    volume_builder volume(with_system_files());
    const auto add = [&](const char* name, std::uint32_t tag) {
        const std::uint64_t directory = volume.add_directory(name).attribute(reparse_attribute(tag)).entry();
        volume.add_file("child", directory);
    };
    add("cloud", 0x9000101A);                                                 // 24, 25
    add("dedup", 0x80000013);                                                 // 26, 27
    add("junction", 0xA0000003);                                              // 28, 29
    add("projected", 0xA0000022);                                             // 30, 31
    add("surrogate", 0xB000001A);                                             // 32, 33
    volume.add_file("symlink").attribute(reparse_attribute(0xA000000C));      // 34
    volume.add_file("wsl symlink").attribute(reparse_attribute(0xA000001D));  // 35
    volume.add_file("x archived").attribute(reparse_attribute(0x80000013));   // 36
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), "24-1\td\t0" + at +
                                                "/cloud\n"
                                                "25-1\tf\t0" +
                                                at +
                                                "/cloud/child\n"
                                                "26-1\tl\t0" +
                                                at +
                                                "/dedup\n"
                                                "28-1\tl\t0" +
                                                at +
                                                "/junction\n"
                                                "30-1\tl\t0" +
                                                at +
                                                "/projected\n"
                                                "32-1\tl\t0" +
                                                at +
                                                "/surrogate\n"
                                                "34-1\tl\t0" +
                                                at +
                                                "/symlink\n"
                                                "35-1\tl\t0" +
                                                at +
                                                "/wsl symlink\n"
                                                "36-1\tf\t0" +
                                                at + "/x archived\n");
    EXPECT_EQ(listed.list("/projected").lines, "30-1\tl\t0" + at + "/projected\n");
}

TEST(listing, tells_of_a_torn_record_by_the_name_that_is_lost_and_goes_on) {
    volume_builder volume(with_system_files());
    const std::uint64_t docs = volume.add_directory("docs").entry();
    const std::uint64_t torn = volume.add_file("b.txt", docs).entry();
    volume.add_file("a.txt", docs);
    volume.add_file("c.txt", docs);
    bytes image = volume.image();
    const auto position = static_cast<std::size_t>(volume.record_position(torn));
    image[position + 510] ^= 0x40;
    listed_volume listed(image);
    const listing all = listed.list("/docs", true);
    EXPECT_EQ(all.lines, "26-1\tf\t0" + at + "/docs/a.txt\n27-1\tf\t0" + at + "/docs/c.txt\n");
    EXPECT_EQ(all.damage.rfind("path \"/docs/b.txt\": record 25: torn: sector 0 ends in ", 0), 0u)
        << all.damage;
    EXPECT_NE(all.damage.find(" (source byte " + hex(position + 510) + ")\n"), std::string::npos);
    EXPECT_EQ(std::count(all.damage.begin(), all.damage.end(), '\n'), 1);
}

TEST(listing, tells_of_names_whose_file_has_another_sequence_number_or_another_name) {
    volume_builder volume(with_system_files());
    volume.add_file("good.txt");
    volume.add_file("other.txt").unindexed();
    file_name key;
    key.name = "stale.txt";
    volume.root().extra_entry(name_entry(test::reference(24, 7), key));
    key.name = "z.txt";
    volume.root().extra_entry(name_entry(test::reference(25, 1), key));
    listed_volume listed(volume);
    // The file under the wrong name is there and can be copied by its entry.
    EXPECT_EQ(listed.user_lines("/"), "24-1\tf\t0" + at + "/good.txt\n25-1\tf\t0" + at + "/z.txt\n");
    const std::string damage = listed.list("/").damage;
    EXPECT_EQ(damage.rfind("path \"/stale.txt\": record 24: has sequence number 1, the reference says 7", 0),
              0u)
        << damage;
    EXPECT_NE(damage.find("\nrecord 25: has no $FILE_NAME \"z.txt\" in directory 5-5\n"), std::string::npos);
}

TEST(listing, tells_of_what_is_wrong_with_the_facts_of_a_line) {
    volume_builder volume(with_system_files());
    // Of the stream only a later piece is there.
    volume.add_file("gap").attribute(
        attribute_builder::non_resident(0x80, {{100, 2}}).named("s").lowest_vcn(4));   // 24
    volume.add_file("times").attribute(attribute_builder::resident(0x10, bytes(72)));  // 25
    volume.add_file("link").attribute(attribute_builder::resident(0xC0, bytes(3)));    // 26
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/"), "24-1\tf\t0" + at + "/gap\n" +  //
                                          "24-1\ts\t0" + at +
                                          "/gap:s\n"  //
                                          "26-1\tf\t0" +
                                          at + "/link\n25-1\tf\t0\t-\t/times\n");
    const std::string damage = listed.list("/").damage;
    EXPECT_NE(damage.find("record 24, $DATA \"s\": piece at VCN 4, expected 0 (source byte 0x"),
              std::string::npos)
        << damage;
    EXPECT_NE(damage.find("record 25: has not one resident, unnamed $STANDARD_INFORMATION (source byte 0x"),
              std::string::npos)
        << damage;
    EXPECT_NE(damage.find("record 26: "), std::string::npos) << damage;
    EXPECT_EQ(std::count(damage.begin(), damage.end(), '\n'), 3) << damage;
}

TEST(listing, tells_of_a_directory_whose_index_cannot_be_opened_and_goes_on) {
    volume_builder volume(with_system_files());
    volume.add_directory("a").without_index();  // 24
    volume.add_file("b");                       // 25
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), "24-1\td\t0" + at + "/a\n25-1\tf\t0" + at + "/b\n");
    const std::string damage = listed.list("/", true).damage;
    EXPECT_EQ(damage.rfind("path \"/a\": index root of record 24: 0 attributes $INDEX_ROOT", 0), 0u)
        << damage;
    EXPECT_EQ(std::count(damage.begin(), damage.end(), '\n'), 1) << damage;
}

TEST(listing, enters_no_directory_that_denies_its_name) {
    // The index of "a" calls "docs" "b": its names under "/a/b" would have paths that do not exist.
    volume_builder volume(with_system_files());
    file_builder& a = volume.add_directory("a");                      // 24
    const std::uint64_t docs = volume.add_directory("docs").entry();  // 25
    volume.add_file("a.txt", docs);                                   // 26
    a.extra_entry(name_entry(test::reference(docs, 1), {.name = "b"}));
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), "24-1\td\t0" + at + "/a\n" +         //
                                                "25-1\td\t0" + at + "/a/b\n" +   //
                                                "25-1\td\t0" + at + "/docs\n" +  //
                                                "26-1\tf\t0" + at + "/docs/a.txt\n");
    EXPECT_EQ(listed.list("/", true).damage, "record 25: has no $FILE_NAME \"b\" in directory 24-1\n");
}

TEST(listing, enters_each_directory_once) {
    // "a" holds itself under the name "again", and the root under "up".
    volume_builder volume(with_system_files());
    const std::uint64_t a = volume.add_directory("a").entry();
    volume.file(a).hard_link("again", a);
    volume.root().hard_link("up", a);
    volume.add_file("z", a);
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), "24-1\td\t0" + at + "/a\n" +            //
                                                "24-1\td\t0" + at + "/a/again\n" +  //
                                                "5-5\td\t0" + at + "/a/up\n" +      //
                                                "25-1\tf\t0" + at + "/a/z\n");
    EXPECT_EQ(listed.list("/", true).damage,
              "path \"/a/again\": directory 24-1 was listed before under another path\n"
              "path \"/a/up\": directory 5-5 was listed before under another path\n");
}

TEST(listing, of_trees_deeper_than_what_is_kept_open_has_every_name_on_the_way_back_too) {
    constexpr std::uint64_t depth = 40;
    volume_builder volume(with_system_files());
    std::uint64_t directory = root_entry;
    std::string path;
    std::string down;
    std::string up;
    for (std::uint64_t level = 0; level < depth; ++level) {
        // In each directory "d" and, after it, "z".
        const std::string d = std::to_string(24 + 2 * level) + "-1\td\t0" + at + path + "/d\n";
        up = std::to_string(25 + 2 * level) + "-1\tf\t0" + at + path + "/z\n" + up;
        path += "/d";
        down += d;
        const std::uint64_t below = volume.add_directory("d", directory).entry();
        volume.add_file("z", directory);
        directory = below;
    }
    listed_volume listed(volume);
    EXPECT_EQ(listed.user_lines("/", true), down + up);
    EXPECT_EQ(listed.list("/", true).damage, "");
}

TEST(listing, ends_at_paths_longer_than_the_system_knows) {
    // 200 directories, one in the other, with names of 255 units: 127 of them are 32,512 units, 128 are
    // 32,768.
    volume_builder volume({.mft_entries = 256, .system_files = true});
    std::uint64_t directory = root_entry;
    for (int level = 0; level < 200; ++level) {
        directory = volume.add_directory(std::string(255, 'd'), directory).entry();
    }
    listed_volume listed(volume);
    const std::string lines = listed.user_lines("/", true);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 128);
    const std::string damage = listed.list("/", true).damage;
    EXPECT_NE(damage.find("the path has 32768 units, more than the system knows"), std::string::npos);
    EXPECT_EQ(std::count(damage.begin(), damage.end(), '\n'), 1);
}

TEST(listing, goes_on_after_a_torn_block) {
    volume_builder volume({.mft_entries = 256, .system_files = true});
    const std::uint64_t many = volume.add_directory("many").entry();
    volume.file(many).index_in_blocks();
    for (int i = 0; i < 150; ++i) {
        volume.add_file("name " + std::to_string(1000 + i), many);
    }
    volume.add_file("z");
    bytes image = volume.image();
    const std::string whole = listed_volume(image).list("/", true).lines;
    EXPECT_NE(whole.find("/many/name 1149\n"), std::string::npos);
    // The root has the first block of the image, "many" the second one, a leaf.
    const std::string mark = "INDX";
    const auto of_root = std::search(image.begin(), image.end(), mark.begin(), mark.end());
    const auto block = std::search(of_root + 1, image.end(), mark.begin(), mark.end());
    ASSERT_NE(block, image.end());
    block[510] ^= 1;
    const listing rest = listed_volume(image).list("/", true);
    EXPECT_EQ(rest.damage.rfind("index block ", 0), 0u) << rest.damage;
    EXPECT_EQ(std::count(rest.damage.begin(), rest.damage.end(), '\n'), 1);
    EXPECT_NE(rest.lines.find("\t/z\n"), std::string::npos);
    EXPECT_LT(rest.lines.size(), whole.size());
    EXPECT_GT(rest.lines.size(), whole.size() / 2);
}

// A directory whose index is in these clusters: a root with one child, the first of them.
void add_directory_on(volume_builder& volume, const std::string& name, std::uint64_t lcn,
                      std::uint64_t clusters) {
    volume.add_directory(name)
        .without_index()
        .attribute(attribute_builder::resident(0x90, build_index_root({{.flags = 3, .sub_node = 0}}, true))
                       .named("$I30"))
        .attribute(
            attribute_builder::non_resident(0xA0, {{static_cast<std::int64_t>(lcn), clusters}}).named("$I30"))
        .attribute(attribute_builder::resident(0xB0, bytes(8, 0xFF)).named("$I30"));
}

// An index of a block with so many children less one short names, which have no line, between them. The
// children are empty nodes.
bytes blocks_of_short_names(std::uint64_t children) {
    index_block_builder top;
    bytes leaves;
    for (std::uint64_t i = 0; i < children; ++i) {
        index_entry name = name_entry(
            reference(10, 10),
            {.name = std::u16string(1, static_cast<char16_t>(u'A' + i)), .name_space = dos_namespace});
        name.flags = 1;
        name.sub_node = i + 1;
        top.add(i + 1 < children ? name : index_entry{.flags = 3, .sub_node = i + 1});
        const bytes leaf = index_block_builder().vcn(i + 1).build();
        leaves.insert(leaves.end(), leaf.begin(), leaf.end());
    }
    // The node header's flag: there are children.
    bytes blocks = top.force(36, 1, 1).build();
    blocks.insert(blocks.end(), leaves.begin(), leaves.end());
    return blocks;
}

// 200 directories with the same 17 blocks are 3,400. A source of 4 MiB, and 1 MiB beside it, have room for
// 1,280: for those of the root and of 74 directories or so.
TEST(listing, ends_where_directories_share_more_index_blocks_than_the_source_has_room_for) {
    volume_builder volume({.mft_entries = 512, .total_clusters = 1024, .system_files = true});
    volume.write_clusters(900, blocks_of_short_names(16));
    for (int i = 0; i < 200; ++i) {
        add_directory_on(volume, "d" + std::to_string(1000 + i), 900, 17);
    }
    const bytes image = volume.image();
    ASSERT_EQ(image.size(), 4u << 20);
    listed_volume listed(image);
    const listing all = listed.list("/", true);
    EXPECT_EQ(all.damage, "");
    EXPECT_EQ(all.failed.rfind("index index block ", 0), 0u) << all.failed;
    EXPECT_NE(all.failed.find(
                  ": the directories have more index blocks than the source has room for, so they share "
                  "some; the listing ends here"),
              std::string::npos)
        << all.failed;
    EXPECT_NE(all.lines.find("\t/d1069\n"), std::string::npos);
    EXPECT_EQ(all.lines.find("\t/d1080\n"), std::string::npos);
    // Without the tree below there is nothing to share.
    EXPECT_EQ(listed.list("/").failed, "");
}

TEST(listing, of_a_volume_that_is_nearly_all_index_is_whole) {
    volume_builder volume({.mft_entries = 512, .system_files = true});
    for (int i = 0; i < 200; ++i) {
        const auto own = static_cast<std::uint64_t>(volume.clusters().allocate(17).lcn);
        volume.write_clusters(own, blocks_of_short_names(16));
        add_directory_on(volume, "d" + std::to_string(1000 + i), own, 17);
    }
    const bytes image = volume.image();
    // 200 times 17 blocks of 4 KiB, and less than 2 MiB of all else.
    ASSERT_GT(image.size(), 13'926'400u);
    ASSERT_LT(image.size(), 16'023'552u);
    const listing all = listed_volume(image).list("/", true);
    EXPECT_EQ(all.failed, "");
    EXPECT_EQ(all.damage, "");
    EXPECT_NE(all.lines.find("\t/d1199\n"), std::string::npos);
}

// A file of 64 extension records of 64 KiB under 400 names, which is 1.7 GB to read. A source of 7 MiB or so
// has room for 1.3 GB: for 300 names.
TEST(listing, ends_where_files_have_more_extension_records_for_all_names_than_any_sound_volume) {
    volume_builder volume({.record_size = 65536, .mft_entries = 96, .system_files = true});
    file_builder& file = volume.add_file("f000").list_in_clusters();
    for (int i = 0; i < 64; ++i) {
        file.attribute(attribute_builder::resident(0x80, to_bytes("s")).named("s" + std::to_string(i)),
                       file.add_extension());
    }
    for (int i = 1; i < 400; ++i) {
        file.hard_link("f" + std::to_string(1000 + i).substr(1), root_entry);
    }
    const bytes image = volume.image();
    ASSERT_LT(image.size(), 8u << 20);
    const listing all = listed_volume(image).list("/");
    EXPECT_EQ(all.damage, "");
    EXPECT_EQ(all.failed,
              "list record 24: the files have more extension records for all of their names than any sound "
              "volume; the listing ends here");
    EXPECT_NE(all.lines.find("\t/f250\n"), std::string::npos);
    EXPECT_EQ(all.lines.find("\t/f320\n"), std::string::npos);
}

TEST(listing, ends_when_its_lines_cannot_be_written) {
    volume_builder volume(with_system_files());
    const std::uint64_t docs = volume.add_directory("docs").entry();
    volume.add_file("a", docs).stream("s", "1");
    volume.add_file("b", docs).deleted();
    for (const int lines : {0, 1}) {
        listed_volume listed(volume);
        listed.refuse_after(lines);
        EXPECT_EQ(listed.list("/docs").failed, "write output: is full");
        EXPECT_EQ(listed.list("/docs/a").failed, "write output: is full");
    }
    listed_volume listed(volume);
    listed.refuse_after(0);
    EXPECT_EQ(listed.deleted().failed, "write output: is full");
}

TEST(listing, of_deleted_files_has_every_name_in_order_of_entry) {
    volume_builder volume(with_system_files());
    const std::uint64_t docs = volume.add_directory("docs").entry();            // 24
    const std::uint64_t gone = volume.add_directory("gone").deleted().entry();  // 25
    volume.add_file("live.txt", docs);                                          // 26
    volume.add_file("old.txt", docs).deleted().data("123").stream("s", "1");    // 27
    volume.add_file("below.txt", gone).deleted();                               // 28
    volume.add_file("two.txt", docs)
        .deleted()
        .hard_link("also.txt", root_entry, 0)  // 29
        .short_name("TWO~1.TXT");
    volume.add_file("short.txt").name_space(dos_namespace).deleted();            // 30
    volume.add_file("link").attribute(reparse_attribute(0xA000000C)).deleted();  // 31
    volume.add_file("x").without_names().deleted();                              // 32
    listed_volume listed(volume);
    const listing all = listed.deleted();
    EXPECT_EQ(all.lines, "25-1\tD\t0" + at +
                             "/gone\n"
                             "27-1\tF\t3" +
                             at +
                             "/docs/old.txt\n"
                             "27-1\tS\t1" +
                             at +
                             "/docs/old.txt:s\n"
                             "28-1\tF\t0" +
                             at +
                             "/gone/below.txt\n"
                             "29-1\tF\t0" +
                             at +
                             "/docs/two.txt\n"
                             "29-1\tF\t0" +
                             at +
                             "/also.txt\n"
                             "30-1\tF\t0" +
                             at +
                             "/short.txt\n"
                             "31-1\tL\t0" +
                             at +
                             "/link\n"
                             "32-1\tF\t0" +
                             at + "/?/32-1\n");
    EXPECT_EQ(all.damage, "");
}

TEST(listing, of_deleted_files_puts_a_question_mark_for_what_is_lost_of_a_path) {
    volume_builder volume(with_system_files());
    // The entry of the directory was given away: its sequence number is another.
    const std::uint64_t reused = volume.add_directory("reused").entry();  // 24
    volume.add_file("a.txt", reused).deleted();                           // 25
    volume.file(reused).sequence(9);
    // A directory below it, whose own place is lost.
    const std::uint64_t middle = volume.add_directory("middle", reused).deleted().entry();  // 26
    volume.add_file("b.txt", middle).deleted();                                             // 27
    bytes image = volume.image();
    // The builder writes references with the sequence number that the directory has now.
    listed_volume listed(image);
    const std::string before = listed.deleted().lines;
    EXPECT_NE(before.find("/reused/a.txt"), std::string::npos);
    const auto record = static_cast<std::size_t>(volume.record_position(reused));
    image[record + 16] = 5;
    EXPECT_EQ(listed_volume(image).deleted().lines, "25-1\tF\t0" + at +
                                                        "/?/a.txt\n"
                                                        "26-1\tD\t0" +
                                                        at +
                                                        "/?/middle\n"
                                                        "27-1\tF\t0" +
                                                        at + "/?/middle/b.txt\n");
}

TEST(listing, of_deleted_files_tells_of_torn_records_and_passes_over_what_was_never_written) {
    volume_builder volume(with_system_files());
    volume.add_file("a").deleted();                                     // 24
    const std::uint64_t torn = volume.add_file("b").deleted().entry();  // 25
    const std::uint64_t live = volume.add_file("c").entry();            // 26
    const std::uint64_t bad = volume.add_file("d").deleted().entry();   // 27
    const std::uint64_t lost = volume.add_file("e").deleted().entry();  // 28
    volume.add_file("f").deleted();                                     // 29
    bytes image = volume.image();
    const auto position = [&](std::uint64_t entry) {
        return static_cast<std::size_t>(volume.record_position(entry));
    };
    image[position(torn) + 510] ^= 1;
    image[position(live) + 510] ^= 1;
    const std::string mark = "BAAD";
    std::copy(mark.begin(), mark.end(), image.begin() + static_cast<std::ptrdiff_t>(position(bad)));
    listed_volume listed(image);
    listed.source().unreadable(position(lost), 512);
    const listing all = listed.deleted();
    EXPECT_EQ(all.lines, "24-1\tF\t0" + at + "/a\n29-1\tF\t0" + at + "/f\n");
    const std::string& damage = all.damage;
    EXPECT_EQ(damage.rfind("record 25: torn: ", 0), 0u) << damage;
    EXPECT_NE(damage.find("\nrecord 27: begins with \"BAAD\", not \"FILE\""), std::string::npos) << damage;
    EXPECT_NE(damage.find(" bytes cannot be read"), std::string::npos) << damage;
    EXPECT_EQ(std::count(damage.begin(), damage.end(), '\n'), 3) << damage;
}

TEST(listing, of_deleted_files_tells_of_one_whose_records_are_lost) {
    volume_builder volume(with_system_files());
    file_builder& file = volume.add_file("a").deleted();
    const std::size_t place = file.add_extension(40);
    file.attribute(attribute_builder::resident(0x80, to_bytes("12")).named("s"), place);
    volume.add_file("b").deleted();
    volume.replace_record(40, {});
    listed_volume listed(volume);
    const listing all = listed.deleted();
    EXPECT_EQ(all.lines, "25-1\tF\t0" + at + "/b\n");
    EXPECT_EQ(all.damage.rfind("record 40: ", 0), 0u) << all.damage;
    EXPECT_EQ(std::count(all.damage.begin(), all.damage.end(), '\n'), 1) << all.damage;
}

TEST(listing, of_deleted_files_has_no_directories_on_a_path_longer_than_the_system_knows) {
    // 127 directories of 255 units and the slashes before them are 32,512 units, 128 are 32,768.
    volume_builder volume({.mft_entries = 256, .system_files = true});
    std::uint64_t directory = root_entry;
    for (int level = 0; level < 128; ++level) {
        directory = volume.add_directory(std::string(255, 'd'), directory).entry();
        if (level == 126) {
            volume.add_file_at(200, "near", directory).deleted();
        }
    }
    volume.add_file_at(201, "far", directory).deleted();
    const std::string lines = listed_volume(volume).deleted().lines;
    std::string path;
    for (int level = 0; level < 127; ++level) {
        path += "/" + std::string(255, 'd');
    }
    EXPECT_EQ(lines, "200-1\tF\t0" + at + path + "/near\n201-1\tF\t0" + at + "/?/far\n");
}

TEST(listing, of_deleted_files_goes_no_further_through_directories_than_a_sound_volume_wants) {
    // 1,024 records take 65,536 steps and 65,536 more. Neighbours in the table are in different directories,
    // so that each path is looked for anew: 601 steps and 602 in turn. File 217 takes the last of them.
    volume_builder volume({.mft_entries = 1024, .system_files = true});
    std::uint64_t directory = root_entry;
    std::uint64_t above = root_entry;
    for (int level = 0; level < 601; ++level) {
        above = directory;
        directory = volume.add_directory("d", directory).entry();
    }
    for (int i = 0; i < 230; ++i) {
        volume.add_file("f" + std::to_string(i), i % 2 == 0 ? above : directory).deleted();
    }
    const listing all = listed_volume(volume).deleted();
    EXPECT_EQ(
        all.damage,
        "record 624: the directories lie deeper than those of any sound volume; from here on the paths of "
        "deleted files are not looked for\n");
    EXPECT_NE(all.lines.find("/d/f217\n"), std::string::npos);
    EXPECT_NE(all.lines.find("/?/f218\n"), std::string::npos);
    EXPECT_NE(all.lines.find("/?/f229\n"), std::string::npos);
    EXPECT_EQ(all.lines.find("/?/f217\n"), std::string::npos);
}

TEST(listing, of_deleted_files_ends_where_the_table_was_never_written) {
    volume_builder volume(with_system_files());
    volume.add_file("a").deleted();             // 24
    volume.add_file_at(40, "b").deleted();      // before the end of what is valid
    volume.add_file_at(41, "after").deleted();  // after it
    const bytes record = volume.record_on_disk(0);
    std::uint64_t offset = byte_view(record).u16_or_zero(20);
    while (byte_view(record).u32_or_zero(offset) != 0x80) {
        offset += byte_view(record).u32_or_zero(offset + 4);
    }
    volume.force_record(0, static_cast<std::size_t>(offset) + 56, 8, 41 * 1024);
    EXPECT_EQ(listed_volume(volume).deleted().lines, "24-1\tF\t0" + at + "/a\n40-1\tF\t0" + at + "/b\n");
}

TEST(listing, of_deleted_files_leaves_out_extension_records_and_entries_that_never_held_a_file) {
    volume_builder volume(with_system_files());
    file_builder& file = volume.add_file("a").deleted();
    const std::size_t place = file.add_extension(40);
    file.attribute(attribute_builder::resident(0x80, to_bytes("12")).named("s"), place);
    record_builder empty = volume.new_record(50);
    volume.replace_record(50, empty.build());
    listed_volume listed(volume);
    EXPECT_EQ(listed.deleted().lines, "24-1\tF\t0" + at + "/a\n24-1\tS\t2" + at + "/a:s\n");
}

}  // namespace quarry::test
