// What must stay as it is, whatever a command line says: the source under any slip of the keyboard, the list
// of paths, the files that the output streams lead to, and what the run itself has made.

#include "cli/command_line.h"

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

const std::string same = "err: source and destination are the same\n";

std::string no_file(const std::string& name) {
    return "err: can't create the file: " + name + "\n";
}

class slips : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        before = text("disk");
    }
    void TearDown() override { EXPECT_TRUE(text("disk") == before); }
    std::string before;
};

TEST_F(slips, in_a_source_option_do_not_make_its_value_a_destination) {
    for (const char* option : {"--image", "-img", "-imgae", "-IMAGE=", "-imagee", "--vmdk", "--partition",
                               "\u2013image", "\u2014image"}) {
        const program_result result = run({option, "disk"});
        EXPECT_EQ(result.status, 255) << option;
        EXPECT_EQ(behind_header(result.out), same) << option;
        ASSERT_TRUE(text("disk") == before) << option;
    }
}

TEST_F(slips, in_a_source_option_with_a_sign_protect_what_follows_the_sign) {
    for (const char* word : {"-image=disk", "--image=disk", "-img=disk", "--vmdk=none;disk"}) {
        const program_result result = run({word, "-src", "/a.txt", "-dst", "disk"});
        EXPECT_EQ(result.status, 255) << word;
        EXPECT_EQ(behind_header(result.out), same) << word;
        ASSERT_TRUE(text("disk") == before) << word;
    }
}

TEST_F(slips, in_a_source_option_protect_its_value_from_the_log_and_the_out_file) {
    EXPECT_EQ(run({"--image", "disk", "-diags", "disk"}).status, 255);
    EXPECT_EQ(run({"-imag", "disk", "-out", "disk"}).err, "prob opening file disk for output, aborting\n");
}

// -raw is taken off the command line before the value of -image is looked up.
TEST_F(slips, that_put_an_option_between_a_source_option_and_its_value_protect_the_value) {
    EXPECT_EQ(run({"-image", "-raw", "disk", "-out", "disk"}).err,
              "prob opening file disk for output, aborting\n");
    static_cast<void>(run({"-image", "-raw", "disk", "-src", "/a.txt", "-dst", "o", "-diags", "disk"}));
    static_cast<void>(run({"-image", "-quiet", "disk", "-src", "/a.txt", "-dst", "o", "-diags", "disk"}));
    EXPECT_EQ(text("o"), "hello world\n");
}

// More than two letters away from any source option, so nobody knows what its value was meant to be.
TEST_F(slips, that_make_an_unknown_option_the_source_give_up_nothing_that_exists) {
    for (const words& line : {words{"-file", "disk"}, words{"--input", "disk"}, words{"-disk=x", "disk"}}) {
        const program_result result = run(line);
        EXPECT_EQ(result.status, 255) << line.front();
        EXPECT_EQ(behind_header(result.out), no_file("disk")) << line.front();
        ASSERT_TRUE(text("disk") == before) << line.front();
    }
    write_file(m_dir / "o", to_bytes("an earlier copy"));
    EXPECT_EQ(behind_header(run({"-image", "disk", "-dst", "o", "-sources"}).out), no_file("o"));
    EXPECT_EQ(text("o"), "an earlier copy");
}

TEST_F(slips, that_make_an_unknown_option_the_source_leave_a_new_destination_free) {
    const program_result result = run({"-image", "disk", "-dst", "o", "-unknown", "-diags", "log"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(behind_header(result.out), "");
    EXPECT_NE(text("log").find("->err: find inode\n"), std::string::npos) << text("log");
}

// A shell makes three words of "disk.00*".
TEST_F(slips, that_name_all_pieces_of_an_image_do_not_make_one_of_them_the_destination) {
    write_file(m_dir / "disk.002", to_bytes("the second piece"));
    write_file(m_dir / "disk.003", to_bytes("the third piece"));
    write_file(m_dir / "disk.004", to_bytes("the fourth piece"));
    for (const words& line : {words{"-image", "disk", "disk.002", "disk.003"},
                              words{"-image", "-raw", "disk", "disk.002", "disk.003"},
                              words{"-image", "disk", "disk.002", "disk.003", "disk.004"}}) {
        const program_result result = run(line);
        EXPECT_EQ(result.status, 255);
        EXPECT_NE(result.out.find(no_file("disk.003")), std::string::npos) << result.out;
        ASSERT_EQ(text("disk.002"), "the second piece");
        ASSERT_EQ(text("disk.003"), "the third piece");
        ASSERT_EQ(text("disk.004"), "the fourth piece");
    }
}

TEST_F(slips, that_leave_out_the_dash_of_a_source_option_do_not_make_its_value_a_destination) {
    for (const char* option : {"image", "IMAGE", "imgae", "/image", "vmdk", "partition"}) {
        const program_result result = run({option, "disk"});
        EXPECT_EQ(result.status, 255) << option;
        EXPECT_EQ(behind_header(result.out), no_file("disk")) << option;
        ASSERT_TRUE(text("disk") == before) << option;
    }
}

TEST_F(slips, that_are_none_change_nothing) {
    write_file(m_dir / "o", to_bytes("an earlier copy"));
    EXPECT_EQ(run({"-image", "disk", "/a.txt", "-md5", "o"}).status, 0);
    EXPECT_EQ(run({"-image", "disk", "/a.txt", "o"}).status, 0);
    EXPECT_EQ(text("o"), "hello world\n");
    // Two words of which nothing looks like a source: an earlier file is removed.
    EXPECT_EQ(run({"-image", "disk", "/image", "o"}).status, 255);
    EXPECT_FALSE(fs::exists(m_dir / "o"));
}

// A run whose standard streams are files.
class redirections : public command_line_test {
  protected:
    void SetUp() override {
        source("disk");
        write_file(m_dir / "list", to_bytes("/a.txt\n/many/b.txt\n"));
    }
    [[nodiscard]] program_result run_with(const std::string& streams, const words& more) const {
        words line = {"/bin/sh", "-c", "exec \"$0\" \"$@\" " + streams, QUARRY_PROGRAM, "-image", "disk"};
        line.insert(line.end(), more.begin(), more.end());
        return run_program(line, {.directory = m_dir.path()});
    }
};

TEST_F(redirections, are_not_replaced_by_a_copy) {
    const program_result list = run_with("<list", {"-pipe", "-dst", "list"});
    EXPECT_EQ(behind_header(list.out), no_file("list") + no_file("list"));
    EXPECT_TRUE(list.err.starts_with("failed: /a.txt\nfailed: /many/b.txt\n")) << list.err;
    EXPECT_EQ(text("list"), "/a.txt\n/many/b.txt\n");

    EXPECT_EQ(run_with(">out", {"-src", "/a.txt", "-dst", "out"}).status, 255);
    EXPECT_EQ(behind_header(text("out")), no_file("out"));

    fs::create_symlink("err", m_dir / "link");
    EXPECT_EQ(run_with("2>err", {"-src", "/a.txt", "-dst", "link", "-dateformat", "none"}).status, 255);
    EXPECT_TRUE(text("err").starts_with("invalid none, using default format\n")) << text("err");
}

TEST_F(redirections, are_not_replaced_by_a_report_a_log_or_an_out_file) {
    fs::create_symlink("list", m_dir / "o.meta.txt");
    EXPECT_EQ(run_with("<list", {"-src", "/a.txt", "-dst", "o", "-meta"}).status, 0);
    EXPECT_EQ(run_with("<list", {"-src", "/a.txt", "-dst", "o", "-diags", "list"}).status, 0);
    EXPECT_EQ(run_with("<list", {"-src", "/a.txt", "-dst", "o", "-out", "list"}).err,
              "prob opening file list for output, aborting\n");
    EXPECT_EQ(text("list"), "/a.txt\n/many/b.txt\n");
    EXPECT_EQ(text("o"), "hello world\n");
}

TEST_F(redirections, to_devices_stay_destinations) {
    EXPECT_EQ(run_with(">/dev/null 2>/dev/null </dev/null", {"-src", "/a.txt", "-dst", "/dev/null"}).status,
              0);
    const program_result result =
        run_with("", {"-src", "/a.txt", "-dst", "o", "-diags", "/dev/stderr", "-quiet"});
    EXPECT_NE(result.err.find("->exit: 0\n"), std::string::npos) << "a log in a pipe: " << result.err;
}

// A volume with a file that is called like the report of another one.
class reports_and_copies : public command_line_test {
  protected:
    void SetUp() override {
        volume_builder volume;
        volume.add_file("a").data("content of a");
        volume.add_file("a.meta.txt").data("evidence");
        volume.write_to(m_dir / "disk");
        fs::create_directory(m_dir / "out");
    }
    [[nodiscard]] program_result run_list(const std::string& list, const words& more = {}) const {
        words line = {"-image", "disk", "-pipe", "-dst", "out/", "-meta"};
        line.insert(line.end(), more.begin(), more.end());
        return run(line, {.standard_input = list});
    }
    [[nodiscard]] bool is_report(const std::string& name, const std::string& of) const {
        return text(name).find("Filename Attrib: " + of + ", ") != std::string::npos;
    }
};

TEST_F(reports_and_copies, of_one_list_do_not_replace_each_other_when_the_report_comes_first) {
    const program_result result = run_list("/a\n/a.meta.txt\n/a\n");
    EXPECT_EQ(result.err,
              std::string("success: /a\nfailed: /a.meta.txt\nsuccess: /a\n") + emptied_status_line);
    EXPECT_EQ(behind_header(result.out), no_file("out//a.meta.txt"));
    EXPECT_EQ(text("out/a"), "content of a");
    EXPECT_TRUE(is_report("out/a.meta.txt", "a")) << text("out/a.meta.txt");
    EXPECT_FALSE(fs::exists(m_dir / "out/a.meta.txt.meta.txt"));
}

TEST_F(reports_and_copies, of_one_list_do_not_replace_each_other_when_the_copy_comes_first) {
    const program_result result = run_list("/a.meta.txt\n/a\n");
    EXPECT_EQ(result.err, std::string("success: /a.meta.txt\nsuccess: /a\n") + emptied_status_line);
    EXPECT_EQ(text("out/a"), "content of a");
    EXPECT_EQ(text("out/a.meta.txt"), "evidence");
    EXPECT_TRUE(is_report("out/a.meta.txt.meta.txt", "a.meta.txt"));
}

// Copies of different runs, and those under digests, which keep reports apart by themselves.
TEST_F(reports_and_copies, of_different_runs_and_of_different_names_are_free) {
    EXPECT_EQ(run({"-image", "disk", "-src", "/a", "-dst", "out/a", "-meta"}).status, 0);
    EXPECT_EQ(run({"-image", "disk", "-src", "/a.meta.txt", "-dst", "out/a.meta.txt"}).status, 0);
    EXPECT_EQ(text("out/a.meta.txt"), "evidence");
    const program_result result = run_list("/a\n/a.meta.txt\n/a\n", {"-md5"});
    EXPECT_EQ(result.err,
              std::string("success: /a\nsuccess: /a.meta.txt\nsuccess: /a\n") + emptied_status_line);
}

}  // namespace
}  // namespace quarry::test
