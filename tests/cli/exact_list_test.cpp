// Lists of the exact mode from outside: what each line brings, what the end says, and what is left when the
// run is ended in the middle.
#include "cli/command_line.h"
#include "support/requirements.h"

#include <algorithm>
#include <filesystem>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

class exact_list : public command_line_test {
  protected:
    // "volume":
    //
    //     entry 24  /a.txt   "hello\n", with a stream "Note" of "note\n"
    //     entry 25  /docs    entry 26  /docs/a.txt  "other\n"
    //     entry 27  /gone    of a deleted file: one cluster of "x"
    //     entry 28  /other   entry 29  /other/sub   entry 30  /other/sub/b.txt  with a stream "Note" of
    //     "deep\n"
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n")).stored_stream("Note", to_bytes("note\n"));
        volume.add_directory("docs");
        volume.add_file("a.txt", 25).stored_data(to_bytes("other\n"));
        volume.add_file("gone").data(to_bytes(std::string(4096, 'x'))).deleted();
        volume.add_directory("other");
        volume.add_directory("sub", 28);
        volume.add_file("b.txt", 29).stored_data({}).stored_stream("Note", to_bytes("deep\n"));
        write_file(m_dir / "volume", volume.image());
        fs::create_directory(m_dir / "out");
    }

    [[nodiscard]] program_result copy(const std::string& list, words more = {}) const {
        words line = {"-exact", "-image", "volume", "-pipe", "-dst", "out/"};
        line.insert(line.end(), more.begin(), more.end());
        return run(line, {.standard_input = list});
    }
    // The lines of standard error that begin so.
    [[nodiscard]] static words told(const program_result& result, const std::string& beginning) {
        words lines;
        std::string text = result.err;
        for (std::size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            if (text.starts_with(beginning)) {
                lines.push_back(text.substr(0, end));
            }
        }
        return lines;
    }
    [[nodiscard]] static std::string last_line(const std::string& text) {
        const std::size_t end = text.rfind('\n', text.size() - 2);
        return text.substr(end == std::string::npos ? 0 : end + 1);
    }
    // Everything in the directory of the destination.
    [[nodiscard]] words made() const {
        words names;
        for (const auto& entry : fs::recursive_directory_iterator(m_dir / "out")) {
            names.push_back(entry.path().lexically_relative(m_dir / "out").string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(exact_list, copies_paths_entries_and_lines_of_a_listing) {
    const program_result result = copy(
        "/a.txt\n"
        "\r\n"
        "24-1:Note\r\n"
        "\\docs\\A.TXT::$FILE_NAME\n"
        "25:$I30:$INDEX_ROOT\n"
        "24-1\ts\t5\t2026-11-22T00:35:43.6281234Z\t/a.txt::$STANDARD_INFORMATION");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(made(), (words{"a.txt", "a.txt_$FILE_NAME", "a.txt_$STANDARD_INFORMATION", "a.txt_Note",
                             "docs_$I30_$INDEX_ROOT"}));
    EXPECT_EQ(text("out/a.txt"), "hello\n");
    EXPECT_EQ(text("out/a.txt_Note"), "note\n");
    EXPECT_EQ(last_line(result.err), "list: 5 asked, 5 complete, 0 in doubt, 0 failed, 0 kept\n");
}

TEST_F(exact_list, tells_a_line_that_fails_and_goes_on) {
    const program_result result = copy("/none\n/a.txt\n/\xFF\n24-2\n25\n/a//b\n24-1:Note\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(
        told(result, "err: "),
        (words{"err: list, line 1: path \"/none\": no such name",
               "err: list, line 3: \"/\\xFF\": is not UTF-8",
               "err: list, line 4: record 24: has sequence number 1, the reference says 2 (source byte "
               "0xA010)",
               "err: list, line 5: record 25: is a directory; name a stream, or list its files with -list",
               "err: list, line 6: path \"/a//b\": has an empty name"}));
    EXPECT_EQ(told(result, "ok: "),
              (words{"ok: /a.txt -> out/a.txt (6 bytes)", "ok: 24-1:Note -> out/a.txt_Note (5 bytes)"}));
    EXPECT_EQ(last_line(result.err), "list: 7 asked, 2 complete, 0 in doubt, 5 failed, 0 kept\n");
    EXPECT_EQ(made(), (words{"a.txt", "a.txt_Note"}));
}

TEST_F(exact_list, ends_with_1_if_every_line_fails) {
    const program_result result = copy("/none\n/neither\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(last_line(result.err), "list: 2 asked, 0 complete, 0 in doubt, 2 failed, 0 kept\n");
    EXPECT_EQ(made(), words{});
}

TEST_F(exact_list, ends_with_4_if_a_copy_is_in_doubt_and_none_failed) {
    const program_result result = copy("/a.txt\n27\n");
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_EQ(last_line(result.err), "list: 2 asked, 1 complete, 1 in doubt, 0 failed, 0 kept\n");
    EXPECT_EQ(told(result, "doubt: "), words{"doubt: 27-1 -> out/gone (4096 bytes)"});
    EXPECT_EQ(copy("27\n/none\n", {"-overwrite"}).status, 3);
}

TEST_F(exact_list, of_no_line_is_complete) {
    for (const std::string list : {"", "\n\r\n", "\xEF\xBB\xBF"}) {
        const program_result result = copy(list);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(last_line(result.err), "list: 0 asked, 0 complete, 0 in doubt, 0 failed, 0 kept\n");
    }
}

TEST_F(exact_list, is_refused_in_utf_16_before_anything_is_read) {
    write_file(m_dir / "volume", to_bytes("no volume"));
    const program_result result = copy(std::string("\xFF\xFE/\0a\0\n\0", 8));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "err: list: is UTF-16; it must be UTF-8\n");
}

TEST_F(exact_list, takes_a_byte_order_mark_of_utf_8) {
    EXPECT_EQ(copy("\xEF\xBB\xBF/a.txt\n").status, 0);
    EXPECT_EQ(made(), words{"a.txt"});
}

TEST_F(exact_list, needs_a_directory) {
    const words start = {"-exact", "-image", "volume", "-pipe"};
    const auto refusal = [&](words more) {
        more.insert(more.begin(), start.begin(), start.end());
        const program_result result = run(more, {.standard_input = "/a.txt\n"});
        EXPECT_EQ(result.status, 2);
        return result.err;
    };
    EXPECT_EQ(refusal({"-dst", "out"}), "err: -pipe needs a directory; say -dst DIR/\n");
    EXPECT_EQ(refusal({}), "err: no destination; say -dst\n");
    EXPECT_EQ(refusal({"-dst", "none/"}),
              "err: destination none/: No such file or directory; make the directory first\n");
    EXPECT_EQ(refusal({"-dst", "out/", "-src", "/a.txt"}), "err: -pipe and -src exclude each other\n");
}

TEST_F(exact_list, does_not_copy_a_listing_of_another_volume) {
    const program_result result = copy("24-1\tf\t6\t2026-11-22T00:35:43.6281234Z\t/docs/b.txt\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        told(result, "err: "),
        words{"err: list, line 1: record 24: is not at \"/docs/b.txt\"; the list may be of another volume"});
    EXPECT_EQ(made(), words{});
}

TEST_F(exact_list, says_so_where_a_listing_names_a_record_that_the_volume_has_not) {
    const program_result result = copy("5000-1\tf\t6\t-\t/a.txt\n");
    EXPECT_EQ(result.status, 1);
    const words told_of = told(result, "err: ");
    ASSERT_EQ(told_of.size(), 1u);
    EXPECT_TRUE(told_of[0].starts_with("err: list, line 1: record 5000: $MFT has ")) << told_of[0];
    EXPECT_TRUE(told_of[0].ends_with(" entries; the list may be of another volume")) << told_of[0];
    EXPECT_FALSE(copy("5000\n").err.find("another volume") != std::string::npos);
}

TEST_F(exact_list, believes_no_directory_that_a_listing_gives_a_file) {
    const std::string head = "24-1\tf\t6\t-\t";
    for (const std::string path : {"/docs/a.txt", "/Users/victim/a.txt", "/?/a.txt", "/", "/?/24-1"}) {
        const program_result result = copy(head + path + "\n", {"-tree"});
        EXPECT_EQ(result.status, 1) << path;
        EXPECT_EQ(told(result, "err: "), words{"err: list, line 1: record 24: is not at \"" + path +
                                               "\"; the list may be of another volume"});
    }
    EXPECT_EQ(made(), words{});
    const program_result result = copy("26-1\tf\t6\t-\t/docs/a.txt\n", {"-tree", "-diags", "log"});
    EXPECT_EQ(told(result, "ok: "), words{"ok: /docs/a.txt -> out/docs/a.txt (6 bytes)"});
    EXPECT_NE(text("log").find("->info: path /docs/a.txt\n"), std::string::npos);
}

TEST_F(exact_list, never_replaces_a_copy_of_the_same_run) {
    const std::string list = "/a.txt\n/docs/a.txt\n";
    const words refused = {"err: list, line 2: destination out/a.txt: was made by line 1 of this list"};
    for (const words& more : {words{}, words{"-overwrite"}}) {
        fs::remove(m_dir / "out/a.txt");
        const program_result result = copy(list, more);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(told(result, "err: "), refused);
        EXPECT_EQ(text("out/a.txt"), "hello\n");
    }
    // A copy of an earlier run is another matter.
    EXPECT_EQ(told(copy("/docs/a.txt\n"), "err: "),
              words{"err: list, line 1: destination out/a.txt: exists; say -overwrite"});
    EXPECT_EQ(copy("/docs/a.txt\n", {"-overwrite"}).status, 0);
    EXPECT_EQ(text("out/a.txt"), "other\n");
}

TEST_F(exact_list, never_replaces_a_copy_that_it_kept) {
    ASSERT_EQ(copy("/a.txt\n", {"-manifest", "m.jsonl"}).status, 0);
    const program_result result =
        copy("/a.txt\n/docs/a.txt\n", {"-manifest", "m.jsonl", "-resume", "-overwrite"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(told(result, "kept: "), words{"kept: /a.txt"});
    EXPECT_EQ(told(result, "err: "),
              words{"err: list, line 2: destination out/a.txt: was made by line 1 of this list"});
    EXPECT_EQ(text("out/a.txt"), "hello\n");
}

TEST_F(exact_list, with_a_tree_is_not_held_up_by_a_file_beside_it) {
    write_file(m_dir / "out/a.txt", to_bytes("mine"));
    EXPECT_EQ(run({"-exact", "-image", "volume", "-src", "/docs/a.txt", "-dst", "out/", "-tree"}).status, 0);
    EXPECT_EQ(text("out/docs/a.txt"), "other\n");
    EXPECT_EQ(text("out/a.txt"), "mine");
}

TEST_F(exact_list, quiet_says_errors_only_and_logs_all) {
    const program_result result = copy("/a.txt\n/none\n", {"-quiet", "-diags", "log"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "err: list, line 2: path \"/none\": no such name\n");
    const std::string log = text("log");
    EXPECT_EQ(log.substr(log.find("->info: path /a.txt")),
              "->info: path /a.txt\n"
              "->info: name \"a.txt\" -> 24-1\n"
              "->info: stream \"\" type $DATA, allocated 4096, size 6, valid 6, runs 1, flags 0x0\n"
              "->info: copied 6 bytes to out/a.txt\n"
              "->ok: /a.txt -> out/a.txt (6 bytes)\n"
              "->info: result complete\n"
              "->info: path /none\n"
              "->err: list, line 2: path \"/none\": no such name\n"
              "->info: result failed\n"
              "->list: 2 asked, 1 complete, 0 in doubt, 1 failed, 0 kept\n"
              "->exit: 3\n");
}

TEST_F(exact_list, of_hostile_names_reaches_no_terminal_and_no_other_directory) {
    volume_builder volume({.system_files = true});
    volume.add_file("a/b").stored_data(to_bytes("1"));
    volume.add_file("\x1B[2J").stored_data(to_bytes("2"));
    volume.add_file("..").stored_data(to_bytes("3"));
    write_file(m_dir / "volume", volume.image());
    const program_result result = copy("24\n25\n26\n/a\\u002Fb:none\n");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(made(), (words{"\\u001B[2J", "a\\u002Fb"}));
    EXPECT_EQ(result.err.find('\x1B'), std::string::npos);
    EXPECT_EQ(told(result, "err: list, line 3: "),
              words{"err: list, line 3: destination \"..\": is no name for a file; name the file with -dst"});
}

TEST_F(exact_list, with_tree_makes_the_directories_of_each_path) {
    const std::string list =
        "/a.txt\n"
        "/docs/a.txt\n"
        "26-1::$FILE_NAME\n"
        "30-1\ts\t5\t2026-11-22T00:35:43.6281234Z\t/other/sub/b.txt:Note\n"
        "27\n";
    const program_result result = copy(list, {"-tree"});
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_EQ(made(), (words{"a.txt", "docs", "docs/a.txt", "docs/a.txt_$FILE_NAME", "gone", "other",
                             "other/sub", "other/sub/b.txt_Note"}));
    EXPECT_EQ(text("out/docs/a.txt"), "other\n");
    EXPECT_EQ(told(result, "ok: /docs"), words{"ok: /docs/a.txt -> out/docs/a.txt (6 bytes)"});
}

TEST_F(exact_list, with_tree_goes_by_long_names_however_a_path_was_typed) {
    volume_builder volume({.system_files = true});
    const std::uint64_t directory = volume.add_directory("Long directory").short_name("LONGDI~1").entry();
    volume.add_file("long name.txt", directory).short_name("LONGNA~1.TXT").stored_data(to_bytes("hello\n"));
    write_file(m_dir / "volume", volume.image());
    const program_result result = copy("/LONGDI~1/LONGNA~1.TXT\n", {"-tree", "-manifest", "m.jsonl"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(made(), (words{"Long directory", "Long directory/long name.txt"}));
    EXPECT_NE(
        text("m.jsonl").find(R"("asked":"/LONGDI~1/LONGNA~1.TXT","path":"/Long directory/long name.txt")"),
        std::string::npos)
        << text("m.jsonl");
}

TEST_F(exact_list, with_tree_makes_no_directory_for_what_is_not_there_and_follows_no_link) {
    fs::create_directory(m_dir / "elsewhere");
    fs::create_symlink("../elsewhere", m_dir / "out/docs");
    const program_result result = copy("/docs/none\n/docs/a.txt\n/a.txt\n", {"-tree"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(told(result, "err: "), (words{"err: list, line 1: path \"/docs/none\": no such name",
                                            "err: list, line 2: destination out/docs: is a link"}));
    EXPECT_EQ(made(), (words{"a.txt", "docs"}));
    EXPECT_TRUE(fs::is_empty(m_dir / "elsewhere"));
}

TEST_F(exact_list, with_tree_removes_the_directories_that_it_made_for_a_copy_that_failed) {
    fs::create_directory(m_dir / "out/docs");
    const auto copy_with_room = [this](const std::string& room) {
        return run({"-exact", "-image", "volume", "-pipe", "-dst", "out/", "-tree"},
                   {.standard_input = "/docs/a.txt\n/other/sub/b.txt:Note\n",
                    .environment = {{"LD_PRELOAD", QUARRY_FAILING_HOST}, {"ROOM", room}}});
    };
    // Of 6 and 5 bytes neither has room; "docs" was there before.
    const program_result result = copy_with_room("3");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(told(result, "err: "),
              (words{"err: list, line 1: destination out/docs/: No space left on device",
                     "err: list, line 2: destination out/other/sub/: No space left on device"}));
    EXPECT_EQ(made(), words{"docs"});
    EXPECT_EQ(copy_with_room("5").status, 3);
    EXPECT_EQ(made(), (words{"docs", "other", "other/sub", "other/sub/b.txt_Note"}));
}

TEST_F(exact_list, with_tree_makes_no_directory_of_a_path_that_is_too_long_for_the_host) {
    volume_builder volume({.system_files = true});
    std::uint64_t parent = 5;
    for (int level = 0; level < 17; ++level) {
        parent = volume.add_directory(std::string(240, 'd'), parent).entry();
    }
    volume.add_file("a.txt", parent).stored_data(to_bytes("hello\n"));
    write_file(m_dir / "volume", volume.image());
    const program_result result = copy(std::to_string(parent + 1) + "\n", {"-tree"});
    EXPECT_EQ(result.status, 1);
    // 4 bytes of "out/", 17 times 241, and the temporary name of 6.
    EXPECT_EQ(told(result, "err: "),
              words{"err: list, line 1: destination out/: with the directories of the path the name has 4107 "
                    "bytes, 4095 are possible; leave -tree out"});
    EXPECT_EQ(made(), words{});
    EXPECT_EQ(copy(std::to_string(parent + 1) + "\n").status, 0);
}

TEST_F(exact_list, with_tree_puts_what_has_lost_its_way_below_a_question_mark) {
    volume_builder volume({.system_files = true});
    volume.add_directory("old").deleted();
    volume.add_file("a.txt", 24).stored_data(to_bytes("hello\n")).deleted();
    volume.add_file("b.txt", 60).stored_data(to_bytes("hello\n")).deleted();
    write_file(m_dir / "volume", volume.image());
    const program_result result = copy("25\n26\n", {"-tree"});
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_EQ(made(), (words{"?", "?/b.txt", "old", "old/a.txt"}));
}

TEST_F(exact_list, that_a_signal_ends_leaves_whole_copies_and_no_temporary_file) {
    QUARRY_NEEDS_PROGRAM("strace");
    for (const std::string call : {"openat", "write", "fsync", "renameat2"}) {
        for (int time = 1; time <= 6; ++time) {
            fs::remove_all(m_dir / "out");
            fs::create_directory(m_dir / "out");
            const program_result result =
                run_program({"strace", "-o", "/dev/null", "-P", (m_dir / "out").string(), "-P", "out/", "-e",
                             "inject=" + call + ":signal=SIGTERM:when=" + std::to_string(time),
                             QUARRY_PROGRAM, "-exact", "-image", "volume", "-pipe", "-dst", "out/"},
                            {.standard_input = "/a.txt\n24:Note\n25:$I30:$INDEX_ROOT\n",
                             .directory = m_dir.path(),
                             .leaks_allowed = true});
            for (const std::string& name : made()) {
                EXPECT_FALSE(name.starts_with("_")) << call << time << name;
            }
            EXPECT_TRUE(result.exited ? result.status == 0 : result.signal == SIGTERM) << call << time;
        }
    }
}

}  // namespace
}  // namespace quarry::test
