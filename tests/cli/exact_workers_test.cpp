// -threads from outside: nothing that is written or said depends on it, no file is left over, and the
// threads have no more rights than the process.
#include "cli/command_line.h"
#include "frontend/confinement.h"
#include "support/long_streams.h"
#include "support/requirements.h"

#include <filesystem>
#include <map>
#include <regex>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

constexpr std::size_t unit = 65536;

class workers : public command_line_test {
  protected:
    void SetUp() override {
        fs::create_directory(m_dir / "out");
        write_file(m_dir / "volume", m_streams.image());
    }

    [[nodiscard]] std::string content(const std::string& name) const {
        const bytes& plain = m_streams.content(name);
        return {plain.begin(), plain.end()};
    }

    [[nodiscard]] program_result exact(words line, program_options options = {}) const {
        line.insert(line.begin(), {"-exact", "-image", "volume"});
        return run(std::move(line), std::move(options));
    }

    // Everything that a list of all files writes and says with so many workers.
    struct everything {
        int status = 0;
        std::string messages;
        std::string log;
        std::string manifest;
        std::map<std::string, std::string> copies;
        bool operator==(const everything&) const = default;
    };
    [[nodiscard]] everything copy_all(const std::string& number, const words& more) const {
        words line = {"-pipe", "-dst",      "out/",    "-sha256", "-threads",
                      number,  "-manifest", "m.jsonl", "-diags",  "log"};
        line.insert(line.end(), more.begin(), more.end());
        const program_result result =
            exact(line, {.standard_input = "/plain\n/holes\n/lznt1\n/lznt1-broken\n/lznt1-short\n/xpress\n"
                                           "/xpress-broken\n/lzx\n/lznt1-lost\n"});
        everything all{result.status, result.err, text("log"), text("m.jsonl"), {}};
        // What is of this run and no other: its command line and its times.
        all.log.erase(0, all.log.find("->info: exact source"));
        const std::regex of_this_run(R"re("(started|finished)":"[^"]*"|"arguments":\[[^\]]*\])re");
        all.manifest = std::regex_replace(all.manifest, of_this_run, "");
        for (const auto& entry : fs::directory_iterator(m_dir / "out")) {
            all.copies[entry.path().filename().string()] = text("out/" + entry.path().filename().string());
            fs::remove(entry.path());
        }
        fs::remove(m_dir / "m.jsonl");
        fs::remove(m_dir / "log");
        return all;
    }

  private:
    long_streams m_streams;
};

TEST_F(workers, change_no_byte_no_message_no_line_of_log_or_manifest) {
    const everything alone = copy_all("1", {});
    EXPECT_EQ(alone.status, 3);
    for (const char* const name : {"plain", "holes", "lznt1", "lznt1-short", "xpress", "lzx"}) {
        ASSERT_EQ(alone.copies.count(name), 1u) << name << "\n" << alone.messages;
        EXPECT_TRUE(alone.copies.at(name) == content(name)) << name;
    }
    EXPECT_EQ(alone.copies.size(), 6u);
    // The first damage of each stream is what is reported.
    for (const char* const part :
         {"unit 20: chunk 0: its header has no mark\n", "\"WofCompressedData\": chunk 100: ",
          "unit 33: chunk 0: ends before its 4,096th byte; zeros follow\n", "ends at byte "}) {
        EXPECT_NE(alone.messages.find(part), std::string::npos) << part << "\n" << alone.messages;
    }
    EXPECT_EQ(alone.messages.find("unit 21"), std::string::npos);
    EXPECT_EQ(alone.messages.find("chunk 101"), std::string::npos);
    for (const char* const number : {"2", "4", "64"}) {
        const everything many = copy_all(number, {});
        EXPECT_EQ(many.status, 3);
        EXPECT_EQ(many.messages, alone.messages) << number;
        EXPECT_EQ(many.log, alone.log) << number;
        EXPECT_EQ(many.manifest, alone.manifest) << number;
        EXPECT_TRUE(many.copies == alone.copies) << number;
    }
}

TEST_F(workers, change_nothing_where_zeros_replace_what_cannot_be_read) {
    const everything alone = copy_all("1", {"-zero_unreadable", "-sparse", "-keep_times"});
    EXPECT_EQ(alone.copies.size(), 7u) << alone.messages;
    EXPECT_TRUE(alone.copies.at("lznt1-lost").starts_with(content("lznt1-lost").substr(0, 40 * unit)));
    EXPECT_NE(alone.messages.find(" are zeros\n"), std::string::npos) << alone.messages;
    for (const char* const number : {"2", "64"}) {
        const everything many = copy_all(number, {"-zero_unreadable", "-sparse", "-keep_times"});
        EXPECT_TRUE(many == alone) << many.messages << "\nnot\n" << alone.messages;
    }
}

TEST_F(workers, give_the_same_name_by_md5) {
    words names;
    for (const char* const number : {"1", "4"}) {
        EXPECT_EQ(exact({"-src", "/plain", "-dst", "out/", "-md5", "-sha256", "-threads", number}).status, 0);
        for (const auto& entry : fs::directory_iterator(m_dir / "out")) {
            names.push_back(entry.path().filename().string());
            EXPECT_TRUE(text("out/" + names.back()) == content("plain"));
            fs::remove(entry.path());
        }
    }
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0], names[1]);
}

TEST_F(workers, start_as_many_threads_as_are_asked_for_and_none_for_little) {
    QUARRY_NEEDS_PROGRAM("strace");
    const auto started = [&](words line) {
        line.insert(line.begin(), {"strace", "-f", "-o", "trace", "-e", "trace=clone,clone3,fork,vfork",
                                   QUARRY_PROGRAM, "-image", "volume"});
        const program_result result = run_program(
            line, {.directory = m_dir.path(), .environment = {{"ASAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_EQ(result.status, 0) << result.err;
        const std::string trace = text("trace");
        const std::regex call("clone3?\\([^\n]*\\) *= *[1-9]|resumed>[^\n]*= [1-9]");
        return std::distance(std::sregex_iterator(trace.begin(), trace.end(), call), std::sregex_iterator());
    };
    EXPECT_EQ(started({"-exact", "-src", "/plain", "-dst", "a", "-sha256", "-threads", "1"}), 0);
    EXPECT_EQ(started({"-exact", "-src", "/plain", "-dst", "b", "-sha256", "-threads", "4"}), 3);
    EXPECT_EQ(started({"-exact", "-src", "/lzx", "-dst", "l", "-threads", "4"}), 3);
    EXPECT_EQ(started({"-exact", "-src", "/lznt1", "-dst", "m", "-threads", "4"}), 3);
    EXPECT_EQ(started({"-exact", "-src", "/lznt1", "-dst", "n", "-raw", "-threads", "4"}), 0);
    EXPECT_EQ(started({"-exact", "-src", "/plain", "-dst", "p", "-threads", "4"}), 0);
    EXPECT_EQ(started({"-exact", "-src", "/plain", "-dst", "c", "-sha256", "-threads", "64"}), 63);
    EXPECT_EQ(started({"-exact", "-src", "/$Boot", "-dst", "d", "-sha256", "-threads", "4"}), 0);
    EXPECT_EQ(started({"-src", "/plain", "-dst", "e"}), 0);
}

#ifdef QUARRY_CONFINE
// A thread has the rights of the one that starts it, at that time.
TEST_F(workers, are_started_after_the_process_gave_up_its_rights) {
    QUARRY_NEEDS_PROGRAM("strace");
    QUARRY_NEEDS(kernel_calls().landlock_version() >= 1, "the kernel has no Landlock");
    const program_result result = run_program(
        {"strace", "-f", "-o", "trace", "-e", "trace=clone,clone3,landlock_restrict_self", QUARRY_PROGRAM,
         "-exact", "-image", "volume", "-src", "/plain", "-dst", "out/", "-sha256", "-threads", "4"},
        {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string trace = text("trace");
    const std::size_t restricted = trace.find("landlock_restrict_self(");
    ASSERT_NE(restricted, std::string::npos) << trace;
    EXPECT_EQ(trace.find("clone"), trace.find("clone", restricted)) << trace;
    EXPECT_NE(trace.find("clone"), std::string::npos);
}
#endif

TEST_F(workers, are_done_without_where_the_system_starts_no_thread) {
    QUARRY_NEEDS_PROGRAM("strace");
    for (const char* const when : {"1+", "3+"}) {
        fs::remove(m_dir / "copy");
        const program_result result = run_program(
            {"strace", "-f", "-o", "/dev/null", "-e",
             std::string("inject=clone,clone3:error=EAGAIN:when=") + when, QUARRY_PROGRAM, "-exact", "-image",
             "volume", "-src", "/lznt1", "-dst", "copy", "-sha256", "-threads", "8"},
            {.directory = m_dir.path(), .environment = {{"ASAN_OPTIONS", "detect_leaks=0"}}});
        EXPECT_EQ(result.status, 0) << when << result.err;
        EXPECT_TRUE(text("copy") == content("lznt1")) << when;
    }
}

TEST_F(workers, have_the_rights_of_the_process_and_leave_its_signals_to_it) {
    volume_builder volume({.total_clusters = 400, .system_files = true});
    volume.add_file("hole").data(runs({{hole, std::uint64_t{1} << 28}}), {.flags = 0x8000});
    write_file(m_dir / "volume", volume.image());
    // The digests of 2^40 zeros take longer than anybody waits. Each line: how many threads, and the kinds of
    // what the system says of them.
    const std::string script =
        R"sh("$0" -exact -image volume -src /hole -dst out/ -sparse -md5 -sha256 -threads 4 2>/dev/null >/dev/null &
           run=$!
           until [ "$(ls /proc/$run/task | wc -l)" -ge 4 ]; do :; done
           ls /proc/$run/task | wc -l
           cat /proc/$run/task/*/status | grep '^NoNewPrivs:' | sort | uniq -c | tr -s ' \t' ' '
           grep -l '^SigBlk:.0*$' /proc/$run/task/*/status | sed "s|/proc/$run/task/$run/|owner |"
           kill -$1 $run; wait $run; echo $?)sh";
    for (const auto& [signal, status] : std::map<std::string, std::string>{{"TERM", "143"}, {"INT", "130"}}) {
        // A shell without job control starts what is in the background with SIGINT ignored.
        const program_result result = run_program(
            {"/bin/bash", "-c", "set -m; " + script, QUARRY_PROGRAM, signal}, {.directory = m_dir.path()});
#ifdef QUARRY_CONFINE
        const std::string gave_up = kernel_calls().landlock_version() >= 1 ? "1" : "0";
        EXPECT_EQ(result.out, "4\n 4 NoNewPrivs: " + gave_up + "\nowner status\n" + status + "\n");
#else
        EXPECT_NE(result.out.find("owner status\n" + status + "\n"), std::string::npos) << result.out;
#endif
        EXPECT_TRUE(fs::is_empty(m_dir / "out"));
    }
}

}  // namespace
}  // namespace quarry::test
