// Reports beside copies by path and by entry, to the byte, of records that are built in view.

#include "cli/command_line.h"
#include "support/requirements.h"
#include "support/security_builder.h"

#include <sys/stat.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

// Entry 24 is 24 records of 1,024 bytes after the start of $MFT, which is cluster 4 of 4,096 bytes.
const std::string head =
    "\n"
    "Misc stats:\n"
    "  cluster size:         0x00001000\n"
    "  sectors/cluster:      0x00000008\n"
    "  MFT entry LCN:offset: 0x0000000a:0x0000 [10:0]\n"
    "  start of partition:   0x000000000000 bytes [0x0 sectors]\n"
    "\n";

// Of everything that a test gives no time.
const std::string times =
    "  modified:  2020-01-02 03:04:05.000\n"
    "  accessed:  2020-01-02 03:04:05.000\n"
    "  created:   2020-01-02 03:04:05.000\n"
    "  mft mod:   2020-01-02 03:04:05.000\n";

const std::string usual_information = "Standard Info Attrib: (ARCHIVE)\n" + times +
                                      "  secure id: 0x00000000\n"
                                      "\n";

std::string usual_name(const std::string& name) {
    return "Filename Attrib: " + name +
           ", (indexed)\n"
           "  parnt mft: 0x00000005 [5]\n" +
           times + "\n";
}

class reports : public command_line_test {
  protected:
    // The report of one copy; what was copied is in "o" afterwards, if anything was.
    [[nodiscard]] std::string report_of(const std::vector<std::string>& object, int status = 0) {
        volume.write_to(m_dir / "image");
        std::vector<std::string> line = {"-image", "image", "-dst", "o", "-meta"};
        line.insert(line.end(), object.begin(), object.end());
        const program_result result = run(line);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        return text("o.meta.txt");
    }

    volume_builder volume{{.total_clusters = 300}};
};

TEST_F(reports, of_a_path_are_headed_by_the_path_as_it_was_found) {
    volume.add_file("letter to all.txt")
        .times({.created = default_filetime,
                .modified = default_filetime + 10000000,
                .mft_changed = default_filetime + 20000000,
                .accessed = default_filetime + 39999999})
        .attributes(0x2021)
        .security_id(0x107)
        .short_name("LETTER~1.TXT")
        .resident_data(to_bytes("0123456789abcdef"))
        .stream("draft", runs({{100, 8}, {hole, 16}}), {.real = 0x17FFF, .flags = 0x8000});
    const std::string four_times =
        "  modified:  2020-01-02 03:04:06.000\n"
        "  accessed:  2020-01-02 03:04:08.999\n"
        "  created:   2020-01-02 03:04:05.000\n"
        "  mft mod:   2020-01-02 03:04:07.000\n";
    EXPECT_EQ(report_of({"-src", "/LETTER to all.txt"}),
              "\\LETTER to all.txt\n" + head +
                  "File Record: \n"
                  "  MFT entry: 0x00000018 [24]\n"
                  "  Seq Num:   0x0001 [1]\n"
                  "  Type:      file\n"
                  "  Ref Count: 2\n"
                  "\n"
                  "Standard Info Attrib: (READ_ONLY, ARCHIVE, CONTENT_NOT_INDEXED)\n" +
                  four_times +
                  "  secure id: 0x00000107\n"
                  "\n"
                  "Filename Attrib: LETTER~1.TXT\n"
                  "  parnt mft: 0x00000005 [5]\n" +
                  four_times +
                  "\n"
                  "Filename Attrib: letter to all.txt, (indexed)\n"
                  "  parnt mft: 0x00000005 [5]\n" +
                  four_times +
                  "\n"
                  "Data Attrib: (unnamed)\n"
                  "  valid size:  0x0010 [16]\n"
                  "  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 \n"
                  "  \n"
                  "\n"
                  "Data Attrib: draft, sparse clusters\n"
                  "  allocated:  0x000000018000 [98304]\n"
                  "  file size:  0x000000017fff [98303]\n"
                  "  valid data: 0x000000017fff [98303]\n"
                  "  cluster runs\n"
                  "    0000000000000064 : 000000000000006b\n"
                  "    0000000000000000 : 000000000000000f [sparsed]\n"
                  "\n");
    EXPECT_EQ(text("o"), "0123456789abcdef");
}

TEST_F(reports, are_not_forged_by_the_names_of_a_file_and_its_streams) {
    const std::string forged = "a\n\nFile Record\n  MFT entry 5";
    const std::string shown = "a\\u000A\\u000AFile Record\\u000A  MFT entry 5";
    volume.add_file(forged).name_space(0).stream("\x1b[2J", "text");
    EXPECT_EQ(report_of({"-src", "/" + forged}), "\\" + shown + "\n" + head +
                                                     "File Record: \n"
                                                     "  MFT entry: 0x00000018 [24]\n"
                                                     "  Seq Num:   0x0001 [1]\n"
                                                     "  Type:      file\n"
                                                     "  Ref Count: 1\n"
                                                     "\n" +
                                                     usual_information + "Filename Attrib: " + shown +
                                                     "\n"
                                                     "  parnt mft: 0x00000005 [5]\n" +
                                                     times +
                                                     "\n"
                                                     "Data Attrib: \\u001B[2J\n"
                                                     "  valid size:  0x0004 [4]\n"
                                                     "  74 65 78 74 \n"
                                                     "\n");
}

TEST_F(reports, and_logs_of_a_copy_through_a_link_are_not_forged_by_its_target) {
    volume.add_file("a\n->done").name_space(0).data("text");
    volume.add_directory("link").reparse(
        {.substitute_name = "\\??\\C:\\a\n->done", .print_name = "C:\\a\n->done"});
    const std::string report = report_of({"-src", "/link", "-diags", "log"});
    EXPECT_EQ(report.substr(0, report.find('\n')), "\\C:\\a\\u000A->done");
    const std::string log = text("log");
    EXPECT_NE(log.find("\n->seg: a\\u000A->done\n"), std::string::npos) << log;
    EXPECT_EQ(log.find("\n->done"), std::string::npos) << log;
    EXPECT_EQ(text("o"), "text");
}

TEST_F(reports, of_an_entry_show_every_kind_of_attribute_in_the_order_of_their_ids) {
    QUARRY_NEEDS_ROOT();
    const bytes admins = sid(5, {32, 544});
    volume.add_file("all")
        .attribute(attribute_builder::resident(0x40, from_hex("33221100 5544 7766 8899aabbccddeeff")))
        .attribute(attribute_builder::resident(
            0x50, security_descriptor{.owner = sid(5, {18}),
                                      .group = admins,
                                      .dacl = acl({ace(1, 0x00010000, admins), ace(0, 0x001F01FF, admins),
                                                   ace(0, 0x001200A9, sid(1, {0}))})}
                      .build()))
        .attribute(attribute_builder::resident(0x60, ntfs_name("AB").on_disk()))
        .attribute(attribute_builder::resident(0x70, volume_information(3, 1)))
        .attribute(attribute_builder::non_resident(0x80, runs({{200, 4}, {hole, 12}}))
                       .unit(4)
                       .flags(0xC001)
                       .real(0xABCD)
                       .initialized(0xABCC)
                       .compressed(0x4000))
        .attribute(attribute_builder::resident(0xB0, {0xFF}).named("$I30"))
        .attribute(attribute_builder::resident(
            0xC0, reparse_point{.substitute_name = R"(\??\C:\x)", .print_name = R"(C:\x)"}.build()))
        .attribute(attribute_builder::resident(0xD0, bytes(8, 1)))
        .attribute(attribute_builder::resident(0xE0, bytes(8, 1)))
        .attribute(attribute_builder::resident(0x100, {1, 2, 3}).named("$TXF_DATA"));
    EXPECT_EQ(report_of({"-mft", "24"}),
              "\n" + head +
                  "File Record: \n"
                  "  MFT entry: 0x00000018 [24]\n"
                  "  Seq Num:   0x0001 [1]\n"
                  "  Type:      file\n"
                  "  Ref Count: 1\n"
                  "\n" +
                  usual_information + usual_name("all") +
                  "Object ID Attrib: { 00112233-4455-6677-8899-aabbccddeeff }\n"
                  "\n"
                  "Security Descriptor Attrib: \n"
                  "  Security Identifiers\n"
                  "  owner sid [S-1-5-18]\n"
                  "  group sid [S-1-5-32-544]\n"
                  "\n"
                  "  Discretionary Access Control List\n"
                  "  access allowed  World           READ_CONTROL | SYNCHRONIZE\n"
                  "  access allowed  Admins          DELETE | READ_CONTROL | WRITE_DAC | WRITE_OWNER | "
                  "SYNCHRONIZE\n"
                  "  access denied   Admins          DELETE\n"
                  "\n"
                  "Volume Name Attrib: 0000 0000:  41 00 42 00 " +
                  std::string(37, ' ') +
                  " A.B.\n"
                  "\n"
                  "Volume Info Attrib: major:minor ver = 3:1 (WinXP)\n"
                  "\n"
                  "Data Attrib: (unnamed), data compressed, sparse clusters\n"
                  "  allocated:  0x000000010000 [65536]\n"
                  "  file size:  0x00000000abcd [43981]\n"
                  "  valid data: 0x00000000abcc [43980]\n"
                  "  compressed size: 0x000000004000\n"
                  "  cluster runs\n"
                  "    00000000000000c8 : 00000000000000cb\n"
                  "    0000000000000000 : 000000000000000b [sparsed]\n"
                  "\n"
                  "Bitmap Attrib: $I30\n"
                  "  valid size:  0x0001 [1]\n"
                  "  ff \n"
                  "\n"
                  "Reparse Point Attrib: \n"
                  "\n"
                  "\n"  // 0xD0 and 0xE0 have no text
                  "\n"
                  "Logged Utility Stream Attrib: $TXF_DATA\n"
                  "  valid size:  0x0003 [3]\n"
                  "  01 02 03 \n"
                  "\n");
}

TEST_F(reports, of_a_deleted_directory_show_its_index_in_the_layout_of_streams) {
    QUARRY_NEEDS_ROOT();
    volume.add_directory("folder").index_in_blocks().deleted();
    volume.add_file("child", 24);
    EXPECT_EQ(report_of({"-mft", "24", "-src", "/any path"}),
              "/any path\n" + head +
                  "File Record: \n"
                  "  MFT entry: 0x00000018 [24]\n"
                  "  Seq Num:   0x0001 [1]\n"
                  "  Type:      directory\n"
                  "  deleted\n"
                  "  Ref Count: 1\n"
                  "\n"
                  "Standard Info Attrib: (DIRECTORY)\n" +
                  times +
                  "  secure id: 0x00000000\n"
                  "\n" +
                  usual_name("folder") +
                  "Index Root Attrib: $I30\n"
                  "  valid size:  0x0038 [56]\n"
                  "  30 00 00 00 01 00 00 00 00 10 00 00 01 00 00 00 \n"
                  "  10 00 00 00 28 00 00 00 28 00 00 00 01 00 00 00 \n"
                  "  00 00 00 00 00 00 00 00 18 00 00 00 03 00 00 00 \n"
                  "  00 00 00 00 00 00 00 00 \n"
                  "\n"
                  "Index Allocation Attrib: $I30\n"
                  "  allocated:  0x000000001000 [4096]\n"
                  "  file size:  0x000000001000 [4096]\n"
                  "  valid data: 0x000000001000 [4096]\n"
                  "  cluster runs\n"
                  "    0000000000000014 : 0000000000000014\n"
                  "\n"
                  "Bitmap Attrib: $I30\n"
                  "  valid size:  0x0008 [8]\n"
                  "  01 00 00 00 00 00 00 00 \n"
                  "\n");
    EXPECT_FALSE(fs::exists(m_dir / "o")) << "a directory has no unnamed stream";
}

TEST_F(reports, of_an_extension_record_show_the_whole_reference_to_its_base) {
    QUARRY_NEEDS_ROOT();
    file_builder& file = volume.add_file_at(23, "base").resident_data({}).sequence(5);
    file.attribute(attribute_builder::resident(0x80, {0x41}).named("notes"), file.add_extension());
    ASSERT_EQ(file.extension_entry(1), 24u);
    EXPECT_EQ(report_of({"-mft", "24"}), "\n" + head +
                                             "File Record: \n"
                                             "  MFT entry: 0x00000018 [24]\n"
                                             "  Seq Num:   0x0001 [1]\n"
                                             "  Type:      file\n"
                                             "  references mft entry: 0x5000000000017\n"
                                             "  Ref Count: 0\n"
                                             "\n"
                                             "Data Attrib: notes\n"
                                             "  valid size:  0x0001 [1]\n"
                                             "  41 \n"
                                             "\n");
}

TEST_F(reports, of_a_file_include_what_is_in_its_extension_records_and_not_its_list) {
    file_builder& file = volume.add_file("base").resident_data({});
    file.attribute(attribute_builder::resident(0x80, {0x41}).named("notes"), file.add_extension());
    // An empty stream is no copy; the report is kept even so. The ids of the extension begin at 0.
    EXPECT_EQ(report_of({"-src", "/base"}, 255), "\\base\n" + head +
                                                     "File Record: \n"
                                                     "  MFT entry: 0x00000018 [24]\n"
                                                     "  Seq Num:   0x0001 [1]\n"
                                                     "  Type:      file\n"
                                                     "  Ref Count: 1\n"
                                                     "\n" +
                                                     usual_information + usual_name("base") +
                                                     "Data Attrib: notes\n"
                                                     "  valid size:  0x0001 [1]\n"
                                                     "  41 \n"
                                                     "\n"
                                                     "Data Attrib: (unnamed)\n"
                                                     "  valid size:  0x0000 [0]\n"
                                                     "\n");
}

TEST_F(reports, of_values_of_odd_lengths_show_only_sizes) {
    volume.add_file("odd")
        .attribute(attribute_builder::resident(0x40, bytes(64, 0xEE)))
        .attribute(attribute_builder::non_resident(0x50, runs({{200, 1}})))
        .attribute(attribute_builder::resident(0x60, {}))
        .attribute(attribute_builder::resident(0x80, bytes(8, 0x41)).force(16, 4, 1024));
    EXPECT_EQ(report_of({"-src", "/odd"}, 255),
              "\\odd\n" + head +
                  "File Record: \n"
                  "  MFT entry: 0x00000018 [24]\n"
                  "  Seq Num:   0x0001 [1]\n"
                  "  Type:      file\n"
                  "  Ref Count: 1\n"
                  "\n" +
                  usual_information + usual_name("odd") +
                  "Object ID Attrib: { 00000040-0000-0000-0000-000000000000 }\n"
                  "\n"
                  "Security Descriptor Attrib: \n"
                  "\n"
                  "Volume Name Attrib: none specified\n"
                  "\n"
                  "Data Attrib: (unnamed)\n"
                  "  valid size:  0x0400 [1024]\n"
                  "\n");
}

TEST_F(reports, of_names_mark_those_of_the_win32_name_space_and_leave_invalid_times_blank) {
    volume.add_file("posix")
        .name_space(posix_namespace)
        .times({.created = 1, .accessed = 0})
        .hard_link("DOS", 5, dos_namespace)
        .hard_link("both", 5, win32_and_dos_namespace)
        .data("text");
    const std::string blank_times =
        "  modified:  2020-01-02 03:04:05.000\n"
        "  accessed:   \n"
        "  created:    \n"
        "  mft mod:   2020-01-02 03:04:05.000\n";
    EXPECT_EQ(report_of({"-src", "/posix"}), "\\posix\n" + head +
                                                 "File Record: \n"
                                                 "  MFT entry: 0x00000018 [24]\n"
                                                 "  Seq Num:   0x0001 [1]\n"
                                                 "  Type:      file\n"
                                                 "  Ref Count: 3\n"
                                                 "\n"
                                                 "Standard Info Attrib: (ARCHIVE)\n" +
                                                 blank_times +
                                                 "  secure id: 0x00000000\n"
                                                 "\n"
                                                 "Filename Attrib: DOS\n"
                                                 "  parnt mft: 0x00000005 [5]\n" +
                                                 blank_times +
                                                 "\n"
                                                 "Filename Attrib: both, (indexed)\n"
                                                 "  parnt mft: 0x00000005 [5]\n" +
                                                 blank_times +
                                                 "\n"
                                                 "Filename Attrib: posix\n"
                                                 "  parnt mft: 0x00000005 [5]\n" +
                                                 blank_times +
                                                 "\n"
                                                 "Data Attrib: (unnamed)\n"
                                                 "  valid size:  0x0004 [4]\n"
                                                 "  74 65 78 74 \n"
                                                 "\n");
}

TEST_F(reports, of_a_file_with_many_links_show_their_count_modulo_16_and_15_as_minus_one) {
    volume.add_file("a.txt").data("text");
    const std::pair<std::uint64_t, const char*> shown[] = {{14, "14"}, {15, "-1"},   {16, "0"},
                                                           {17, "1"},  {1023, "-1"}, {0, "0"}};
    for (const auto& [links, word] : shown) {
        volume.force_record(24, 18, 2, links);
        EXPECT_NE(report_of({"-src", "/a.txt"})
                      .find("  Type:      file\n  Ref Count: " + std::string(word) + "\n\nStandard"),
                  std::string::npos)
            << links;
    }
}

TEST_F(reports, under_md5_are_whole_beside_the_named_copy) {
    volume.add_file("a.txt").data("hello world\n");
    volume.write_to(m_dir / "image");
    EXPECT_EQ(run({"-image", "image", "-dst", "o", "-meta", "-md5", "-src", "/a.txt"}).status, 0);
    const std::string copy = "01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4";
    EXPECT_EQ(files(), (std::vector<std::string>{copy, copy + "_meta.txt", "image"}));
    EXPECT_EQ(text(copy), "hello world\n");
    EXPECT_EQ(text(copy + "_meta.txt"), "\\a.txt\n" + head +
                                            "File Record: \n"
                                            "  MFT entry: 0x00000018 [24]\n"
                                            "  Seq Num:   0x0001 [1]\n"
                                            "  Type:      file\n"
                                            "  Ref Count: 1\n"
                                            "\n" +
                                            usual_information + usual_name("a.txt") +
                                            "Data Attrib: (unnamed)\n"
                                            "  valid size:  0x000c [12]\n"
                                            "  68 65 6c 6c 6f 20 77 6f 72 6c 64 0a \n"
                                            "\n");
}

TEST_F(reports, of_a_failed_copy_under_md5_stay_where_they_are) {
    volume.add_file("a.txt").data("");
    volume.write_to(m_dir / "image");
    EXPECT_EQ(run({"-image", "image", "-dst", "o", "-meta", "-md5", "-src", "/a.txt"}).status, 255);
    EXPECT_EQ(files(), (std::vector<std::string>{"image", "o.meta.txt"}));
}

TEST_F(reports, show_where_the_partition_starts_only_on_a_virtual_disk) {
    const auto start = [this](const std::vector<std::string>& source_words) {
        std::vector<std::string> line = {"-src", "/a.txt", "-dst", "o", "-meta"};
        line.insert(line.end(), source_words.begin(), source_words.end());
        EXPECT_EQ(run(line).status, 0);
        const std::string report = text("o.meta.txt");
        const std::size_t at = report.find("  start of");
        return report.substr(at, report.find('\n', at) - at);
    };
    source("mbr");
    source("volume.vmdk");
    EXPECT_EQ(start({"-image", "mbr", "-offset", "0x100000"}),
              "  start of partition:   0x000000000000 bytes [0x0 sectors]");
    EXPECT_EQ(start({"-vmdk", "volume.vmdk"}),
              "  start of partition:   0x000000100000 bytes [0x800 sectors]");
}

TEST_F(reports, on_a_full_device_stop_no_copy) {
    volume.add_file("a.txt").data("hello world\n");
    volume.write_to(m_dir / "image");
    fs::create_symlink("/dev/full", m_dir / "o.meta.txt");
    EXPECT_EQ(run({"-image", "image", "-dst", "o", "-meta", "-src", "/a.txt"}).status, 0);
    EXPECT_EQ(text("o"), "hello world\n");
}

TEST_F(reports, whose_name_is_too_long_stop_no_copy) {
    volume.add_file("a.txt").data("hello world\n");
    volume.write_to(m_dir / "image");
    const std::string name(250, 'x');  // a name has room for 255
    EXPECT_EQ(run({"-image", "image", "-dst", name, "-meta", "-src", "/a.txt"}).status, 0);
    EXPECT_EQ(text(name), "hello world\n");
    EXPECT_EQ(files(), (std::vector<std::string>{"image", name}));
}

TEST_F(reports, on_a_pipe_are_not_written_and_stop_no_copy) {
    volume.add_file("a.txt").data("hello world\n");
    volume.write_to(m_dir / "image");
    ASSERT_EQ(::mkfifo((m_dir / "o.meta.txt").c_str(), 0600), 0);
    EXPECT_EQ(run({"-image", "image", "-dst", "o", "-meta", "-src", "/a.txt"},
                  {.time_limit = std::chrono::seconds(10)})
                  .status,
              0);
    EXPECT_EQ(text("o"), "hello world\n");
    EXPECT_TRUE(fs::is_fifo(m_dir / "o.meta.txt"));
}

TEST_F(reports, of_clusters_on_a_full_device_stop_no_copy) {
    QUARRY_NEEDS_ROOT();
    volume.write_clusters(200, bytes(8192, 0x41));
    volume.write_to(m_dir / "image");
    fs::create_symlink("/dev/full", m_dir / "o.meta.txt");
    EXPECT_EQ(run({"-image", "image", "-dst", "o", "-meta", "-cluster", "200", "2"}).status, 0);
    EXPECT_EQ(text("o"), std::string(8192, 'A'));
}

}  // namespace
}  // namespace quarry::test
