// What must never happen: a source written over, a temporary file left, words in a copy, a run that hangs or
// takes all memory.

#include "cli/command_line.h"
#include "frontend/confinement.h"
#include "support/file_opens.h"
#include "support/requirements.h"

#include <algorithm>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

// Address space for a whole run, its program and libraries included.
constexpr std::uint64_t most_memory = 64ULL << 20;

using words = std::vector<std::string>;

class source_files : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        before = text("disk");
        fs::create_hard_link(m_dir / "disk", m_dir / "hard");
        fs::create_symlink("disk", m_dir / "soft");
    }
    void TearDown() override { EXPECT_TRUE(text("disk") == before); }
    std::string before;
};

TEST_F(source_files, are_no_destination_under_any_name) {
    for (const char* name : {"disk", "hard", "soft", "./disk", "disk/../disk"}) {
        for (const words& more :
             {words{"-src", "/a.txt"}, words{"-src", "/a.txt", "-md5"}, words{"-src", "/a.txt", "-quiet"}}) {
            words line = {"-image", "disk", "-dst", name};
            line.insert(line.end(), more.begin(), more.end());
            EXPECT_EQ(run(line).status, 255) << name;
            ASSERT_TRUE(text("disk") == before) << name;
        }
    }
}

TEST_F(source_files, are_opened_for_reading_only) {
    source("mbr");
    source("base.vmdk");
    source("snap.vmdk");
    const struct {
        std::string file;
        words line;
    } cases[] = {
        {"disk", {"-image", "disk", "-src", "/a.txt", "-dst", "o"}},
        {"disk", {"-image", "disk", "-cluster", "5", "1", "-dst", "o"}},
        {"mbr", {"-image", "mbr"}},
        {"mbr", {"-image", "mbr", "-offset", "0x100000", "-src", "/a.txt", "-dst", "o"}},
        {"base.vmdk", {"-vmdk", "base.vmdk,snap.vmdk", "-offset", "0x200000", "-src", "/a.txt", "-dst", "o"}},
        {"snap.vmdk", {"-vmdk", "base.vmdk,snap.vmdk"}},
        {"snap.vmdk", {"-vmdk", "snap.vmdk"}},
    };
    for (const auto& [file, line] : cases) {
        const file_opens opens(m_dir / file);
        static_cast<void>(run(line));
        const file_opens::kinds seen = opens.take();
        EXPECT_TRUE(seen.reading) << file;
        EXPECT_FALSE(seen.writing) << file;
    }
}

TEST_F(source_files, are_no_destination_of_clusters_and_of_lists) {
    QUARRY_NEEDS_ROOT();
    EXPECT_EQ(run({"-image", "disk", "-cluster", "5", "1", "-dst", "hard"}).status, 255);
    EXPECT_EQ(run({"-partition", "disk", "-src", "/a.txt", "-dst", "soft"}).status, 255);
    const program_result list =
        run({"-image", "disk", "-pipe", "-dst", "hard"}, {.standard_input = "/a.txt\n/many/b.txt\n"});
    EXPECT_TRUE(list.err.starts_with("failed: /a.txt\nfailed: /many/b.txt\n")) << list.err;
}

// A list that is missing hides the image, and only the first of two images is read. What is left of the words
// then counts as a path and its destination.
TEST_F(source_files, are_no_destination_either_when_a_slip_leaves_their_option_to_nobody) {
    source("mbr");
    const std::string other = text("mbr");
    for (const words& line : {words{"-image", "disk", "-vmdk"}, words{"-image", "soft", "-vmdk"},
                              words{"-image", "mbr", "-offset", "0x100000", "-image", "disk"},
                              words{"-image", "disk", "-image", "mbr"},
                              words{"-image", "mbr", "-offset", "0x100000", "-partition", "disk"}}) {
        const program_result result = run(line);
        EXPECT_EQ(result.status, 255) << line.back();
        EXPECT_TRUE(text("disk") == before) << line.back();
        EXPECT_TRUE(text("mbr") == other) << line.back();
    }
    const program_result told = run({"-image", "disk", "-image", "mbr"});
    EXPECT_NE(told.out.find("err: source and destination are the same\n"), std::string::npos) << told.out;
}

TEST_F(source_files, are_no_status_log_and_no_out_file) {
    for (const char* name : {"disk", "hard", "soft"}) {
        EXPECT_EQ(run({"-diags", name, "-image", "disk", "-src", "/a.txt", "-dst", "o"}).status, 0);
        EXPECT_EQ(text("o"), "hello world\n");
        const program_result out = run({"-out", name, "-src", "/a.txt", "-dst", "o", "-image", "disk"});
        EXPECT_EQ(out.err, std::string("prob opening file ") + name + " for output, aborting\n");
        ASSERT_TRUE(text("disk") == before) << name;
    }
}

TEST_F(source_files, are_no_report) {
    fs::create_symlink("disk", m_dir / "o.meta.txt");
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.txt", "-dst", "o", "-meta"}).status, 0);
    EXPECT_EQ(text("o"), "hello world\n");
    EXPECT_TRUE(fs::is_symlink(m_dir / "o.meta.txt"));
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.txt", "-dst", "o", "-meta", "-md5"}).status, 0);
    EXPECT_TRUE(fs::is_symlink(m_dir / "o.meta.txt"));
}

TEST_F(source_files, are_not_replaced_by_a_copy_of_their_name) {
    const std::string name = "01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4";
    fs::create_hard_link(m_dir / "disk", m_dir / name);
    EXPECT_EQ(run({"-image", name, "-src", "/a.txt", "-dst", "o", "-md5"}).status, 255);
    EXPECT_TRUE(text(name) == before);
    EXPECT_EQ(files(), (words{name, "disk", "hard", "soft"}));
}

TEST_F(source_files, leave_their_place_to_no_copy_and_neither_does_the_status_log) {
    const std::string name = "01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4";
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.txt", "-dst", "o", "-md5", "-diags", name}).status, 255);
    EXPECT_NE(text(name).find("->err: copy failed\n->exit: -1\n"), std::string::npos) << text(name);
    EXPECT_EQ(files(), (words{name, "disk", "hard", "soft"}));
}

class standard_streams : public command_line_test {
  protected:
    void SetUp() override { source("disk"); }
    void expect_named_copy() const {
        EXPECT_EQ(files(), (words{"01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4", "disk"}));
        EXPECT_EQ(text("01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4"), "hello world\n");
    }
    const words copy = {"-image", "disk", "-src", "/a.txt", "-dst", "o", "-md5"};
};

TEST_F(standard_streams, that_are_closed_lend_their_descriptors_to_no_file) {
    for (const output_end out : {output_end::captured, output_end::closed}) {
        for (const output_end err : {output_end::captured, output_end::closed}) {
            fs::remove(m_dir / "01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4");
            const program_result result =
                run(copy, {.close_standard_input = true, .standard_output = out, .standard_error = err});
            EXPECT_EQ(result.status, 0);
            expect_named_copy();
        }
    }
}

TEST_F(standard_streams, that_nobody_reads_stop_no_copy) {
    EXPECT_EQ(run(copy, {.standard_output = output_end::broken}).status, 0);
    expect_named_copy();
    EXPECT_EQ(run(copy, {.standard_output = output_end::broken, .standard_error = output_end::broken}).status,
              0);
    expect_named_copy();
}

TEST_F(standard_streams, that_nobody_reads_leave_no_temporary_file_after_a_failed_copy) {
    const program_result result = run({"-image", "disk", "-src", "/empty.txt", "-dst", "o", "-md5"},
                                      {.standard_output = output_end::broken});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(files(), words{"disk"});
}

class small_disks : public command_line_test {
  protected:
    void SetUp() override { source("disk"); }
};

TEST_F(small_disks, make_a_copy_named_by_its_digest_fail_and_leave_no_file) {
    const program_result result = run({"-image", "disk", "-src", "/Windows/notepad.exe", "-dst", "o", "-md5"},
                                      {.file_size_limit = 50000});
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(small_disks, cut_any_other_copy_which_still_counts_as_done) {
    const program_result result =
        run({"-image", "disk", "-src", "/Windows/notepad.exe", "-dst", "o"}, {.file_size_limit = 50000});
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(text("o") == notepad_content().substr(0, 50000));
}

class odd_sources : public command_line_test {};

TEST_F(odd_sources, that_are_pipes_or_sockets_neither_block_nor_count) {
    ASSERT_EQ(::mkfifo((m_dir / "fifo").c_str(), 0600), 0);
    const program_result result =
        run({"-image", "fifo", "-src", "/a.txt", "-dst", "o"}, {.time_limit = std::chrono::seconds(10)});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.err, "couldn't find any partitions on disk\n\n");
}

TEST_F(odd_sources, of_endless_zeros_hold_no_volume) {
    const program_result result =
        run({"-image", "/dev/zero", "-src", "/a.txt", "-dst", "o"}, {.time_limit = std::chrono::seconds(10)});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.err, "couldn't find any partitions on disk\n\n");
}

// A number in the boot sector or in record 0 that no volume has.
struct damage {
    const char* name;
    std::size_t offset;
    unsigned width;
    std::uint64_t value;
};
class damaged_boot_sectors : public command_line_test, public testing::WithParamInterface<damage> {};

TEST_P(damaged_boot_sectors, are_no_volume) {
    volume_builder volume;
    volume.add_file("a.txt").data("hello world\n");
    volume.force_boot(GetParam().offset, GetParam().width, GetParam().value);
    volume.write_to(m_dir / "image");
    const program_result result = run({"-image", "image", "-src", "/a.txt", "-dst", "o", "-diags", "log"},
                                      {.time_limit = std::chrono::seconds(10)});
    ASSERT_TRUE(result.exited) << result.signal;
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(text("log").find("->err: pNTFS\n->err: copy failed\n->exit: -1\n"), std::string::npos)
        << text("log");
    EXPECT_EQ(files(), (words{"image", "log"}));
}

INSTANTIATE_TEST_SUITE_P(
    boot, damaged_boot_sectors,
    testing::Values(damage{"no_bytes_per_sector", 11, 2, 0}, damage{"no_sectors_per_cluster", 13, 1, 0},
                    damage{"no_clusters_per_record", 64, 1, 0},
                    damage{"a_file_table_beyond_the_end", 48, 8, 0x7FFFFFFF},
                    damage{"a_file_table_at_the_last_cluster_there_can_be", 48, 8, 0xFFFFFFFFFFFFFFFF}),
    [](const auto& damaged) { return std::string(damaged.param.name); });

class hostile_claims : public command_line_test {
  protected:
    // Copies /a.txt with a report and expects that it takes little time and memory, whatever comes of it.
    void copy_in_little_memory(volume_builder& volume) const {
        volume.add_file("a.txt").data("hello world\n");
        volume.write_to(m_dir / "image");
        ASSERT_LE(fs::file_size(m_dir / "image"), 1U << 20);
        const program_result result =
            run({"-image", "image", "-src", "/a.txt", "-dst", "o", "-meta"},
                {.time_limit = std::chrono::seconds(20), .memory_limit = most_memory});
        EXPECT_TRUE(result.exited) << result.signal << result.err;
        EXPECT_FALSE(result.timed_out);
    }
};

TEST_F(hostile_claims, of_a_security_stream_of_a_tebibyte_take_little_memory) {
    volume_builder volume;
    volume.add_file_at(9, "$Secure")
        .stream("$SDS", runs({{hole, 0x10000000}}), {.real = 1ULL << 40, .initialized = 1ULL << 40});
    volume.file(6).security_id(0x100);
    copy_in_little_memory(volume);
    EXPECT_EQ(text("o"), "hello world\n");
}

TEST_F(hostile_claims, of_records_of_two_gibibytes_take_little_memory) {
    volume_builder volume;
    volume.force_boot(64, 1, 0xE1);
    copy_in_little_memory(volume);
}

TEST_F(hostile_claims, of_an_allocated_record_size_of_a_gibibyte_take_little_memory) {
    volume_builder volume;
    volume.force_record(0, 28, 4, 0x40000000);
    copy_in_little_memory(volume);
}

TEST_F(hostile_claims, of_an_index_of_a_tebibyte_take_little_memory) {
    volume_builder volume;
    volume.root().index_in_blocks();
    volume.root().attribute(attribute_builder::non_resident(0xA0, runs({{hole, 0x10000000}}))
                                .named("$I30")
                                .cluster_size(volume.cluster_size()));
    copy_in_little_memory(volume);
}

TEST_F(hostile_claims, of_a_run_of_2_to_the_32_clusters_end_where_the_source_does) {
    volume_builder volume({.total_clusters = 128});
    volume.add_file("a.txt").data(runs({{100, 0xFFFFFFFF}}), {.real = 1ULL << 43, .initialized = 1ULL << 43});
    volume.write_to(m_dir / "image");
    const program_result result = run({"-image", "image", "-src", "/a.txt", "-dst", "o"},
                                      {.time_limit = std::chrono::seconds(20), .memory_limit = most_memory});
    EXPECT_EQ(result.status, 0);
    EXPECT_GE(text("image").size(), 128U * 4096);
    EXPECT_TRUE(text("o") == text("image").substr(100UL * 4096));
}

TEST_F(hostile_claims, of_a_hole_of_2_to_the_32_clusters_fill_the_destination_and_no_memory) {
    volume_builder volume;
    volume.add_file("a.txt").data(runs({{hole, 0xFFFFFFFF}}),
                                  {.real = 1ULL << 43, .initialized = 1ULL << 43});
    volume.write_to(m_dir / "image");
    const program_result result = run(
        {"-image", "image", "-src", "/a.txt", "-dst", "o"},
        {.time_limit = std::chrono::seconds(20), .memory_limit = most_memory, .file_size_limit = 3'000'000});
    EXPECT_TRUE(result.exited);
    EXPECT_FALSE(result.timed_out);
    EXPECT_TRUE(text("o") == std::string(3'000'000, '\0'));
}

TEST_F(hostile_claims, of_an_image_cut_at_any_length_are_survived) {
    source("disk");
    const std::string whole = text("disk");
    for (std::size_t length = 0; length < whole.size(); length += 40'009) {
        fs::resize_file(m_dir / "disk", whole.size());
        write_file(m_dir / "disk", to_bytes(std::string_view(whole).substr(0, length)));
        const program_result result =
            run({"-image", "disk", "-src", "/Windows/notepad.exe", "-dst", "o", "-quiet"},
                {.time_limit = std::chrono::seconds(10)});
        ASSERT_TRUE(result.exited) << length;
        if (result.status == 0) {
            EXPECT_TRUE(notepad_content().starts_with(text("o"))) << length;
            fs::remove(m_dir / "o");
        } else {
            EXPECT_EQ(result.status, 255) << length;
        }
    }
}

class long_lists : public command_line_test {
  protected:
    void SetUp() override { source("disk"); }
    // A run over `count` lines, all alike.
    program_result run_over(const std::string& line, std::size_t count, const words& more) {
        std::string input;
        for (std::size_t i = 0; i < count; ++i) {
            input += line;
        }
        words all = {"-image", "disk", "-pipe"};
        all.insert(all.end(), more.begin(), more.end());
        program_result result = run(all, {.standard_input = std::move(input),
                                          .time_limit = std::chrono::minutes(5),
                                          .memory_limit = most_memory});
        EXPECT_TRUE(result.exited);
        EXPECT_EQ(result.status, 0);
        return result;
    }
};

// A kilobyte kept of each line would be more than there is.
TEST_F(long_lists, of_100000_copies_take_no_more_memory_than_short_ones) {
    const program_result result = run_over("/a.txt\n", 100'000, {"-dst", "/dev/null"});
    std::string expected;
    for (int i = 0; i < 100'000; ++i) {
        expected += "success: /a.txt\n";
    }
    EXPECT_TRUE(result.err == expected + emptied_status_line);
}

TEST_F(long_lists, of_dropped_lines_end_soon) {
    run_over("/nothing/to/see\n", 500'000, {"-dst", "o", "-filter", "*.none"});
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(long_lists, of_10000000_empty_lines_end_soon) {
    EXPECT_EQ(run_over("\n", 10'000'000, {"-dst", "o"}).err, emptied_status_line);
    EXPECT_EQ(files(), words{"disk"});
}

TEST_F(long_lists, may_come_from_a_closed_standard_input) {
    const program_result result =
        run({"-image", "disk", "-pipe", "-dst", "o"}, {.close_standard_input = true});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, emptied_status_line);
    EXPECT_EQ(files(), words{"disk"});
}

class want_of_memory : public command_line_test {};

// The destination grows with each of its references until there is no room left.
TEST_F(want_of_memory, ends_the_run_with_a_word_and_leaves_no_file) {
    source("disk");
    const program_result result =
        run({"-image", "disk", "-src", "/a.txt", "-dst", "%QUARRY_GROWS%", "-md5"},
            {.environment = {{"QUARRY_GROWS", std::string(100'000, 'x') + "%QUARRY_GROWS%"}},
             .memory_limit = most_memory});
    EXPECT_TRUE(result.exited) << result.signal;
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(files(), words{"disk"});
    if (memory_limit_works()) {
        EXPECT_EQ(result.err, "quarry: std::bad_alloc\n");
    }
}

// A copy of the program in the directory of the test, with an owner, a group and a mode of its own.
class installation : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        m_program = m_dir / "quarry";
        fs::copy_file(QUARRY_PROGRAM, m_program);
        struct ::statvfs file_system {};
        ASSERT_EQ(::statvfs(m_program.c_str(), &file_system), 0);
        QUARRY_NEEDS((file_system.f_flag & ST_NOSUID) == 0, "the temporary directory is mounted nosuid");
    }
    void install(::uid_t owner, ::gid_t group, ::mode_t mode) const {
        ASSERT_EQ(::chown(m_program.c_str(), owner, group), 0);
        ASSERT_EQ(::chmod(m_program.c_str(), mode), 0);
    }
    [[nodiscard]] program_result start(words line) const {
        line.insert(line.begin(), m_program.string());
        return run_program(line, {.directory = m_dir.path()});
    }
    fs::path m_program;
};

TEST_F(installation, with_the_rights_of_somebody_else_does_not_run) {
    QUARRY_NEEDS_ROOT();
    constexpr unsigned nobody = 65534;
    const struct {
        ::uid_t owner;
        ::gid_t group;
        ::mode_t mode;
    } borrowed[] = {{nobody, 0, 04755}, {0, nobody, 02755}, {nobody, nobody, 06755}};
    for (const auto& [owner, group, mode] : borrowed) {
        install(owner, group, mode);
        for (const words& line : {words{"-image", "disk", "-src", "/a.txt", "-dst", "o"}, words{"-h"}}) {
            const program_result result = start(line);
            const std::string refusal =
                "quarry is installed setuid or setgid, which gives its rights away: refusing to run\n";
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err.substr(0, refusal.size()), refusal);
            // LeakSanitizer, where it is built in, fails in such a program: it adds its words and sets the
            // status.
            if (!leak_check_is_built_in()) {
                EXPECT_EQ(result.status, 255) << std::oct << mode;
                EXPECT_EQ(result.err, refusal);
            }
        }
    }
    EXPECT_EQ(files(), (words{"disk", "quarry"}));
}

TEST_F(installation, with_the_rights_of_its_caller_runs) {
    install(::geteuid(), ::getegid(), 06755);
    EXPECT_EQ(start({"-image", "disk", "-src", "/a.txt", "-dst", "o"}).status, 0);
    EXPECT_EQ(text("o"), "hello world\n");
}

// Too long for the room that is kept for its name.
class deep_directories : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        m_deep = m_dir.path();
        for (int level = 0; level < 3; ++level) {
            m_deep /= std::string(200, 'd');
        }
        fs::create_directories(m_deep);
        m_program = fs::canonical(QUARRY_PROGRAM);
    }
    [[nodiscard]] program_result run_deep(words line) const {
        line.insert(line.begin(), {m_program.string(), "-image", m_dir / "disk"});
        return run_program(line, {.directory = m_deep});
    }
    [[nodiscard]] std::string deep_text(const std::string& name) const {
        const bytes content = read_file(m_deep / name);
        return {content.begin(), content.end()};
    }
    fs::path m_deep;
    fs::path m_program;
};

TEST_F(deep_directories, take_a_copy_under_a_relative_name_as_it_was_typed) {
    fs::create_directory(m_deep / "sub");
    for (const char* name : {"o", "./o", "sub/o", "../o"}) {
        const program_result result = run_deep({"-src", "/a.txt", "-dst", name});
        EXPECT_EQ(result.status, 0) << result.out;
        EXPECT_EQ(deep_text(name), "hello world\n") << name;
    }
    EXPECT_EQ(run_deep({"-src", "/a.txt", "-dst", "sub/"}).status, 0);
    EXPECT_EQ(deep_text("sub/a.txt"), "hello world\n");
    EXPECT_EQ(run_deep({"-src", "/a.txt", "-dst", "o", "-md5"}).status, 0);
    EXPECT_EQ(deep_text("01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4"), "hello world\n");
}

TEST_F(deep_directories, take_no_report_under_a_relative_name) {
    EXPECT_EQ(run_deep({"-src", "/a.txt", "-dst", "o", "-meta"}).status, 0);
    EXPECT_EQ(deep_text("o"), "hello world\n");
    EXPECT_FALSE(fs::exists(m_deep / "o.meta.txt"));
    EXPECT_EQ(run_deep({"-src", "/a.txt", "-dst", m_dir / "o", "-meta"}).status, 0);
    EXPECT_TRUE(fs::exists(m_dir / "o.meta.txt"));
}

TEST_F(deep_directories, make_no_destination_of_blanks) {
    const program_result result = run_deep({"-src", "/a.txt", "-dst", " \" "});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(behind_header(result.out), "err: prob understanding destination of  \" \n");
}

class empty_words : public command_line_test {};

TEST_F(empty_words, are_words_like_any_other) {
    source("disk");
    EXPECT_EQ(behind_header(run({""}).out), "err: -dst <filename> was not specified\n");
    EXPECT_EQ(run({"-image", "disk", "-src", "", "-dst", ""}).status, 255);
    EXPECT_EQ(run({"-offset", "", "-image", "disk", "-src", "/a.txt", "-dst", "o"}).status, 0);
    EXPECT_EQ(text("o"), "hello world\n");
}

class words_that_look_like_options : public command_line_test {};

TEST_F(words_that_look_like_options, are_values_like_any_other) {
    source("disk");
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.txt", "-dst", "-o"}).status, 0);
    EXPECT_EQ(text("-o"), "hello world\n");
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.txt", "-dst", "-src"}).status, 0);
    EXPECT_EQ(text("-src"), "hello world\n");
    EXPECT_EQ(files(), (words{"-o", "-src", "disk"}));
}

// The lookup that comes first has the word, and what is left of the other option is a path.
TEST_F(words_that_look_like_options, go_to_the_option_that_is_looked_up_first) {
    source("disk");
    const program_result result = run({"-image", "disk", "-src", "/a.txt", "-dst", "-meta"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(behind_header(result.out), "err: -dst <filename> was not specified\n");
    EXPECT_EQ(files(), words{"disk"});
}

class links_made_during_a_list : public command_line_test {};

// Somebody who can write into the directory of the copies points the second one elsewhere once the first is
// there.
TEST_F(links_made_during_a_list, lead_no_copy_out_of_its_directory_where_the_kernel_can_stop_it) {
    source("disk");
    fs::create_directories(m_dir / "out");
    fs::create_directories(m_dir / "elsewhere");
    const std::string script =
        "{ echo /a.txt; until [ -s out/a.txt ]; do :; done; ln -s ../elsewhere/b.txt out/b.txt; echo "
        "/many/b.txt; } | " +
        std::string(QUARRY_PROGRAM) + " -image disk -pipe -dst out/";
    program_options options;
    options.directory = m_dir.path();
    options.time_limit = std::chrono::seconds(60);
    const program_result result = run_program({"/bin/bash", "-c", script}, options);
    ASSERT_TRUE(result.exited && !result.timed_out);
#ifdef QUARRY_CONFINE
    const bool stopped = kernel_calls().landlock_version() >= 1;
#else
    const bool stopped = false;
#endif
    EXPECT_EQ(result.err, std::string("success: /a.txt\n") + (stopped ? "failed" : "success") +
                              ": /many/b.txt\n" + emptied_status_line);
    EXPECT_EQ(fs::exists(m_dir / "elsewhere/b.txt"), !stopped);
    EXPECT_EQ(text("out/a.txt"), "hello world\n");
}

TEST_F(links_made_during_a_list, lead_its_copies_elsewhere_if_they_were_there_before) {
    source("disk");
    fs::create_directories(m_dir / "out");
    fs::create_directories(m_dir / "elsewhere");
    fs::create_symlink("../elsewhere/b.txt", m_dir / "out/b.txt");
    const program_result result =
        run({"-image", "disk", "-pipe", "-dst", "out/"}, {.standard_input = "/a.txt\n/many/b.txt\n"});
    EXPECT_EQ(result.err, std::string("success: /a.txt\nsuccess: /many/b.txt\n") + emptied_status_line);
    EXPECT_EQ(text("elsewhere/b.txt"), "b\n");
}

}  // namespace
}  // namespace quarry::test
