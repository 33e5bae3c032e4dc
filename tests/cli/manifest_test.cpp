// Manifests from outside: what a line says, which files take one, and what happens when there is no room.
#include "cli/command_line.h"
#include "support/requirements.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

// Of "hello\n", by sha256sum.
const std::string hello_sha256 = "5891b5b522d5df086d0ff0b110fbd9d21bb4fc7163af34d08286a2e846f6be03";

class manifests : public command_line_test {
  protected:
    // "volume": entry 24 /a.txt "hello\n", entry 25 /b.txt "b\n".
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n"));
        volume.add_file("b.txt").stored_data(to_bytes("b\n"));
        write_file(m_dir / "volume", volume.image());
        fs::create_directory(m_dir / "out");
    }

    [[nodiscard]] program_result exact(words line, program_options options = {}) const {
        line.insert(line.begin(), "-exact");
        return run(std::move(line), std::move(options));
    }
    [[nodiscard]] program_result copy(const std::string& path, const words& more = {}) const {
        words line = {"-image", "volume", "-src", path, "-dst", "out/"};
        line.insert(line.end(), more.begin(), more.end());
        return exact(line);
    }
    [[nodiscard]] words lines(const std::string& name = "m.jsonl") const {
        words all;
        std::string rest = text(name);
        for (std::size_t end = 0; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
            all.push_back(rest.substr(0, end));
        }
        EXPECT_EQ(rest, "") << "the last line has no line feed";
        return all;
    }
    void expect_refused(const words& more, const std::string& message) const {
        const program_result result = copy("/a.txt", more);
        EXPECT_EQ(result.status, 2) << message;
        EXPECT_EQ(result.err, "err: " + message + "\n");
        EXPECT_TRUE(fs::is_empty(m_dir / "out")) << message;
    }
    static void expect_in(const std::string& line, const std::string& part) {
        EXPECT_NE(line.find(part), std::string::npos) << part << "\nis not in\n" << line;
    }
};

TEST_F(manifests, have_a_line_for_each_copy_and_for_each_that_failed) {
    EXPECT_EQ(copy("/A.txt", {"-manifest", "m.jsonl"}).status, 0);
    EXPECT_EQ(copy("/none", {"-manifest", "m.jsonl"}).status, 1);
    EXPECT_EQ(exact({"-image", "nothing", "-src", "/a", "-dst", "out/", "-manifest", "m.jsonl"}).status, 5);
    const words all = lines();
    ASSERT_EQ(all.size(), 3u);
    expect_in(all[0], R"("result":"complete","error":null)");
    expect_in(all[0], R"("object":{"asked":"/A.txt","path":"/a.txt","links":[],"entry":24,"sequence":1,)");
    expect_in(all[0], R"("copy":{"path":"out/a.txt","size":6,"md5":null,"sha256":")" + hello_sha256 + "\"");
    expect_in(all[1], R"("result":"failed","error":{"code":"name","where":"path \"/none\"",)"
                      R"("text":"path \"/none\": no such name"})");
    expect_in(all[1], R"("object":{"asked":"/none","path":null,)");
    expect_in(all[1], R"("copy":null,)");
    expect_in(all[2], R"("error":{"code":"source-open","where":"source nothing",)");
    expect_in(all[2], R"("line":null)");
    expect_in(all[2], R"("object":{"asked":"/a","path":null,)");
    expect_in(all[2], R"("volume":{"serial":null,"label":null,)");
}

TEST_F(manifests, print_the_sha256_that_they_note) {
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).err,
              "ok: /a.txt -> out/a.txt (6 bytes, sha256 " + hello_sha256 + ")\n");
    EXPECT_EQ(copy("/a.txt", {"-sha256", "-overwrite"}).err,
              "ok: /a.txt -> out/a.txt (6 bytes, sha256 " + hello_sha256 + ")\n");
    EXPECT_EQ(copy("/a.txt", {"-overwrite"}).err, "ok: /a.txt -> out/a.txt (6 bytes)\n");
    const program_result both = copy("/a.txt", {"-sha256", "-md5"});
    EXPECT_NE(both.err.find("(6 bytes, md5 b1946ac92492d2347c6235b4d2611184, sha256 " + hello_sha256 + ")"),
              std::string::npos)
        << both.err;
}

TEST_F(manifests, have_a_line_for_each_line_of_a_list) {
    const program_result result = exact({"-image", "volume", "-pipe", "-dst", "out/", "-manifest", "m.jsonl"},
                                        {.standard_input = "/a.txt\n\n/none\n25-1\n/a//b\n"});
    EXPECT_EQ(result.status, 3) << result.err;
    const words all = lines();
    ASSERT_EQ(all.size(), 4u);
    expect_in(all[0], R"("line":1},)");
    expect_in(all[0], R"("asked":"/a.txt")");
    expect_in(all[1], R"("line":3},)");
    expect_in(all[1], R"("result":"failed")");
    expect_in(all[2], R"("line":4},)");
    expect_in(all[2], R"("asked":"25-1","path":"/b.txt",)");
    expect_in(all[3], R"("line":5},)");
    expect_in(all[3], R"("code":"name")");
}

TEST_F(manifests, note_what_the_user_knows_of_the_source) {
    const std::string digest(64, 'A');
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl", "-source_sha256", digest}).status, 0);
    const words all = lines();
    ASSERT_EQ(all.size(), 1u);
    expect_in(all[0], R"("files":[{"path":"volume","size":)" +
                          std::to_string(fs::file_size(m_dir / "volume")) +
                          R"(,"acquired_md5":null,"acquired_sha1":null,"sha256_told":")" +
                          std::string(64, 'a') + R"("}])");
}

TEST_F(manifests, of_earlier_runs_are_appended_to) {
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).status, 0);
    const std::string first = text("m.jsonl");
    EXPECT_EQ(copy("/b.txt", {"-manifest", "m.jsonl", "-overwrite"}).status, 0);
    EXPECT_TRUE(text("m.jsonl").starts_with(first));
    EXPECT_EQ(lines().size(), 2u);
}

TEST_F(manifests, whose_last_line_is_not_whole_are_refused) {
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).status, 0);
    fs::remove(m_dir / "out/a.txt");
    fs::resize_file(m_dir / "m.jsonl", fs::file_size(m_dir / "m.jsonl") - 1);
    const std::string before = text("m.jsonl");
    expect_refused({"-manifest", "m.jsonl"},
                   "manifest m.jsonl: does not end with a line feed: its last line is not whole");
    EXPECT_EQ(text("m.jsonl"), before);
}

TEST_F(manifests, replace_and_extend_no_other_file) {
    write_file(m_dir / "notes", to_bytes("a note\n"));
    expect_refused({"-manifest", "notes"}, "manifest notes: exists and is no manifest");
    EXPECT_EQ(text("notes"), "a note\n");
    const std::string source = text("volume");
    expect_refused({"-manifest", "volume"}, "manifest volume: is the source or lies on it");
    EXPECT_EQ(text("volume"), source);
    fs::create_symlink("elsewhere", m_dir / "link");
    expect_refused({"-manifest", "link"}, "manifest link: is a link; links are not followed, name a file");
    expect_refused({"-manifest", "out"}, "manifest out: is no regular file");
    expect_refused({"-manifest", "/dev/null"}, "manifest /dev/null: is no regular file");
    ASSERT_EQ(::mkfifo((m_dir / "pipe").c_str(), 0600), 0);
    expect_refused({"-manifest", "pipe"}, "manifest pipe: is no regular file");
    expect_refused({"-manifest", "missing/m"},
                   "manifest missing/m: No such file or directory; make the directory first");
    expect_refused({"-diags", "log", "-manifest", "log"},
                   "manifest log: is the log, or standard input, output or error");
    EXPECT_FALSE(fs::exists(m_dir / "elsewhere"));
}

TEST_F(manifests, are_no_destination_of_their_own_run) {
    const words line = {"-image", "volume", "-src", "/a.txt", "-dst", "m.jsonl", "-manifest", "m.jsonl"};
    const std::string message =
        "err: destination m.jsonl: is a file of this run: a source, the log, the "
        "manifest or a standard stream\n";
    EXPECT_EQ(exact(line).err, message);
    words overwriting = line;
    overwriting.emplace_back("-overwrite");
    const program_result result = exact(overwriting);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(text("m.jsonl"), "");
    // The volume gives the copy its name, which is that of the manifest.
    const program_result list =
        exact({"-image", "volume", "-pipe", "-dst", "out/", "-overwrite", "-manifest", "out/a.txt"},
              {.standard_input = "/a.txt\n/b.txt\n"});
    EXPECT_EQ(list.status, 3);
    EXPECT_EQ(lines("out/a.txt").size(), 2u);
}

TEST_F(manifests, end_the_run_where_there_is_no_room_for_a_line) {
    // A line takes more than 1,000 bytes: the first has room, the second has not.
    ASSERT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).status, 0);
    const std::string before = text("m.jsonl");
    const program_result result =
        exact({"-image", "volume", "-pipe", "-dst", "out/", "-manifest", "m.jsonl", "-overwrite"},
              {.standard_input = "/a.txt\n/b.txt\n", .file_size_limit = before.size() + 100});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "err: manifest m.jsonl: the copy stands, its line is missing: No space left on device\n"
              "doubt: /a.txt -> out/a.txt (6 bytes, sha256 " +
                  hello_sha256 +
                  ")\n"
                  "list: 1 asked, 0 complete, 1 in doubt, 0 failed, 0 kept\n");
    // What was written of the line is gone again, and the copy is there.
    EXPECT_EQ(text("m.jsonl"), before);
    EXPECT_EQ(text("out/a.txt"), "hello\n");
    EXPECT_FALSE(fs::exists(m_dir / "out/b.txt"));
}

TEST_F(manifests, whose_line_a_kill_kept_back_get_it_from_the_run_that_goes_on) {
    const words resume = {"-manifest", "m.jsonl", "-resume"};
    ASSERT_EQ(copy("/a.txt", resume).status, 0);
    // As a kill leaves it after the copy got its name and before its line was written.
    fs::resize_file(m_dir / "m.jsonl", 0);
    const program_result result = copy("/a.txt", resume);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "warning: destination out/a.txt: was there already, with the same bytes, and has its "
              "line now\n"
              "ok: /a.txt -> out/a.txt (6 bytes, sha256 " +
                  hello_sha256 + ")\n");
    ASSERT_EQ(lines().size(), 1u);
    expect_in(lines()[0], R"("result":"complete")");
    expect_in(lines()[0], R"("copy":{"path":"out/a.txt","size":6,)");
    EXPECT_EQ(files(), (words{"m.jsonl", "out", "volume"}));
    EXPECT_EQ(copy("/a.txt", resume).err, "kept: /a.txt\n");
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(manifests, that_go_on_keep_a_file_with_other_bytes) {
    const words resume = {"-manifest", "m.jsonl", "-resume"};
    write_file(m_dir / "out/a.txt", to_bytes("jello\n"));
    write_file(m_dir / "out/b.txt", to_bytes("longer\n"));
    const program_result same_size = copy("/a.txt", resume);
    EXPECT_EQ(same_size.status, 1);
    EXPECT_EQ(same_size.err, "err: destination out/a.txt: exists with other bytes; say -overwrite\n");
    EXPECT_EQ(text("out/a.txt"), "jello\n");
    const program_result other_size = copy("/b.txt", resume);
    EXPECT_EQ(other_size.status, 1);
    EXPECT_EQ(other_size.err,
              "err: destination out/b.txt: exists with 7 bytes, the copy has 2; say -overwrite\n");
    // Without -resume it is refused as ever.
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).status, 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir / "out"), fs::directory_iterator()), 2);
}

TEST_F(manifests, that_go_on_compare_a_copy_of_a_source_that_was_named_otherwise) {
    const words resume = {"-manifest", "m.jsonl", "-resume"};
    ASSERT_EQ(copy("/a.txt", resume).status, 0);
    fs::rename(m_dir / "volume", m_dir / "moved");
    const auto from_moved = [&](const std::string& path) {
        return exact(
            {"-image", "moved", "-src", path, "-dst", "out/a.txt", "-manifest", "m.jsonl", "-resume"});
    };
    const program_result again = from_moved("/a.txt");
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.err,
              "warning: destination out/a.txt: was there already, with the same bytes, and has its "
              "line now\n"
              "ok: /a.txt -> out/a.txt (6 bytes, sha256 " +
                  hello_sha256 + ")\n");
    EXPECT_EQ(from_moved("/a.txt").err, "kept: /a.txt\n");
    // Another file is not taken for it.
    EXPECT_EQ(from_moved("/b.txt").err,
              "err: destination out/a.txt: exists with 6 bytes, the copy has 2; say -overwrite\n");
    write_file(m_dir / "out/a.txt", to_bytes("jello\n"));
    EXPECT_EQ(
        exact({"-image", "out/../moved", "-src", "/a.txt", "-dst", "out/", "-manifest", "m.jsonl", "-resume"})
            .err,
        "err: destination out/a.txt: exists with other bytes; say -overwrite\n");
    EXPECT_EQ(text("out/a.txt"), "jello\n");
}

TEST_F(manifests, that_go_on_leave_a_copy_in_doubt_as_it_is) {
    volume_builder volume({.system_files = true});
    volume.add_file("a.txt").stored_data(to_bytes("hello\n")).deleted();
    write_file(m_dir / "volume", volume.image());
    const words line = {"-image", "volume", "-mft",      "24",      "-dst",
                        "out/a",  "-quiet", "-manifest", "m.jsonl", "-resume"};
    for (std::size_t run = 1; run <= 3; ++run) {
        const program_result result = exact(line);
        EXPECT_EQ(result.status, 4) << result.err;
        EXPECT_EQ(result.err, "");
        ASSERT_EQ(lines().size(), run);
        expect_in(lines().back(), R"("result":"in doubt")");
        EXPECT_EQ(text("out/a"), "hello\n");
    }
}

TEST_F(manifests, end_a_run_of_one_copy_that_failed_where_there_is_no_room) {
    const program_result result =
        exact({"-image", "volume", "-src", "/none", "-dst", "out/", "-manifest", "m.jsonl"},
              {.file_size_limit = 100});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "err: path \"/none\": no such name\n"
              "err: manifest m.jsonl: its line is missing: No space left on device\n");
    EXPECT_EQ(text("m.jsonl"), "");
    const program_result unopened =
        exact({"-image", "nothing", "-src", "/none", "-dst", "out/", "-manifest", "m.jsonl"},
              {.file_size_limit = 100});
    EXPECT_EQ(unopened.status, 1);
    EXPECT_EQ(unopened.err,
              "err: source nothing: cannot be opened: No such file or directory\n"
              "err: manifest m.jsonl: its line is missing: No space left on device\n");
}

TEST_F(manifests, have_no_line_for_what_was_refused_before_anything_was_read) {
    write_file(m_dir / "out/a.txt", to_bytes("earlier"));
    EXPECT_EQ(copy("/a.txt", {"-manifest", "m.jsonl"}).status, 2);
    EXPECT_EQ(text("m.jsonl"), "");
    EXPECT_EQ(text("out/a.txt"), "earlier");
}

TEST_F(manifests, have_a_line_for_a_volume_that_is_not_there) {
    EXPECT_EQ(
        exact({"-image", "volume", "-ntfsvol", "2", "-src", "/a", "-dst", "out/", "-manifest", "m.jsonl"})
            .status,
        2);
    const words all = lines();
    ASSERT_EQ(all.size(), 1u);
    expect_in(all[0], R"("error":{"code":"no-such-volume","where":"source volume",)");
    expect_in(all[0], R"("volume_offset":null,)");
}

}  // namespace
}  // namespace quarry::test
