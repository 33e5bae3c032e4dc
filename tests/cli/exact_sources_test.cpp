// The exact mode where the host lets it down: sources that are none or change, sectors that fail, memory that
// runs out, times that cannot be set.
#include "cli/command_line.h"
#include "exact/failure.h"
#include "support/requirements.h"
#include "support/system_files.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;
using settings = std::map<std::string, std::string>;

constexpr std::size_t cluster = 4096;

std::string text_of(const bytes& content) {
    return {content.begin(), content.end()};
}

class exact_source_of_a_host : public command_line_test {
  protected:
    // "volume" has /a.txt, entry 24, in its record, and /long.bin, entry 25, in 74 clusters.
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n"));
        volume.add_file("long.bin").stored_data(m_content);
        volume.write_to(m_dir / "volume");
        m_record = volume.record_position(24);
        m_image = text("volume");
    }
    [[nodiscard]] program_result copy(words line, program_options options = {}) const {
        line.insert(line.begin(), "-exact");
        return run(std::move(line), std::move(options));
    }
    [[nodiscard]] program_result with_bad_sector(std::size_t place, words line) const {
        const settings bad = {{"LD_PRELOAD", QUARRY_FAILING_HOST},
                              {"FAIL_READS_FROM", std::to_string(place)},
                              {"FAIL_READS_TO", std::to_string(place + 512)}};
        return copy(std::move(line), {.environment = bad});
    }
    // The last line of what was said.
    [[nodiscard]] static std::string last_line(const std::string& text) {
        const std::size_t end = text.empty() ? 0 : text.size() - 1;
        const std::size_t before = end == 0 ? std::string::npos : text.rfind('\n', end - 1);
        return text.substr(before == std::string::npos ? 0 : before + 1);
    }

    const bytes m_content = pattern(300000, 7);
    std::size_t m_record = 0;
    std::string m_image;
};

TEST_F(exact_source_of_a_host, that_is_a_pipe_or_a_socket_fails_at_once) {
    ASSERT_EQ(::mkfifo((m_dir / "fifo").c_str(), 0600), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ::sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (m_dir / "socket").string();
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    ASSERT_EQ(::bind(socket, reinterpret_cast<const ::sockaddr*>(&address), sizeof address), 0);
    for (const auto& [name, word] :
         {std::pair("fifo", "Illegal seek"), std::pair("socket", "No such device or address")}) {
        const program_result result = copy({"-image", name, "-src", "/a.txt", "-dst", "copy"},
                                           {.time_limit = std::chrono::seconds(10)});
        EXPECT_FALSE(result.timed_out) << name;
        EXPECT_EQ(result.status, 5) << name;
        EXPECT_EQ(result.err, std::string("err: source ") + name + ": cannot be opened: " + word + "\n");
    }
    ::close(socket);
    EXPECT_EQ(files(), (words{"fifo", "socket", "volume"}));
}

// The copy is stopped at its first write, and goes on when the source is another.
TEST_F(exact_source_of_a_host, that_changes_during_the_copy_puts_it_in_doubt) {
    const std::string script =
        R"(LD_PRELOAD="$1" SIGNAL_AT=0 SIGNAL=19 "$0" -exact -image volume -src /long.bin -dst copy 2>said >/dev/null &
           run=$!
           while [ -e /proc/$run ] && ! grep -q '^State:.T' /proc/$run/status; do :; done
           printf x >> volume
           while [ -e /proc/$run ] && ! grep -q '^State:.Z' /proc/$run/status; do kill -CONT $run; done
           wait $run; echo $?)";
    static_assert(SIGSTOP == 19);
    const program_result result = run_program({"/bin/sh", "-c", script, QUARRY_PROGRAM, QUARRY_FAILING_HOST},
                                              {.directory = m_dir.path()});
    EXPECT_EQ(result.out, "4\n") << result.err;
    const std::string said = text("said");
    EXPECT_NE(said.find("warning: source volume: changed while it was read\n"), std::string::npos) << said;
    EXPECT_NE(said.find("doubt: /long.bin -> copy (300000 bytes)\n"), std::string::npos) << said;
    EXPECT_TRUE(text("copy") == text_of(m_content));
}

// With so much memory that the program starts and no more it ends with 255; with a little more it copies.
TEST_F(exact_source_of_a_host, without_memory_ends_with_255_and_leaves_nothing) {
    const words line = {"-image", "volume", "-src", "/long.bin", "-dst", "copy"};
    int without_memory = 0;
    program_result result;
    for (std::uint64_t limit = 6 << 20; limit < (64 << 20); limit += 64 << 10) {
        result = copy(line, {.memory_limit = limit});
        if (result.exited && result.status == 0) {
            break;
        }
        EXPECT_EQ(files(), words{"volume"}) << limit;
        // Below that the system's loader gives up, in its own way.
        if (result.exited && result.status == 255) {
            EXPECT_EQ(last_line(result.err), "quarry: std::bad_alloc\n");
            ++without_memory;
        }
    }
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(text("copy") == text_of(m_content));
    if (memory_limit_works()) {
        EXPECT_GT(without_memory, 0);
    }
}

TEST_F(exact_source_of_a_host, that_refuses_the_times_has_a_copy_and_a_warning) {
    QUARRY_NEEDS_PROGRAM("strace");
    const program_result result =
        run_program({"strace", "-o", "/dev/null", "-e", "inject=utimensat:error=EPERM", QUARRY_PROGRAM,
                     "-exact", "-image", "volume", "-src", "/a.txt", "-dst", "copy", "-keep_times"},
                    {.directory = m_dir.path(), .leaks_allowed = true});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("warning: destination ./: the times cannot be kept: Operation not permitted\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(last_line(result.err), "ok: /a.txt -> copy (6 bytes)\n");
    EXPECT_EQ(text("copy"), "hello\n");
}

TEST_F(exact_source_of_a_host, that_cannot_read_a_sector_has_zeros_in_clusters_if_asked) {
    const std::size_t place = m_image.find(text_of(m_content).substr(0, cluster));
    ASSERT_NE(place, std::string::npos);
    const std::string first = std::to_string(place / cluster);
    words line = {"-image", "volume", "-cluster", first, "3", "-dst", "copy"};
    program_result result = with_bad_sector(place + cluster + 1024, line);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(last_line(result.err),
              "err: clusters from " + first +
                  ": VCN 1: 7168 bytes cannot be read: Input/output error, at stream byte 0x1400 "
                  "(source byte " +
                  exact::hex(place + cluster + 1024) + ")\n");
    EXPECT_EQ(files(), words{"volume"});
    line.emplace_back("-zero_unreadable");
    result = with_bad_sector(place + cluster + 1024, line);
    EXPECT_EQ(result.status, 4) << result.err;
    EXPECT_NE(result.err.find("512 bytes at 0x1400 are zeros\n"), std::string::npos) << result.err;
    EXPECT_TRUE(text("copy") == text_of(m_content).substr(0, 3 * cluster).replace(5120, 512, 512, '\0'));
}

// What a copy rests on is never made of zeros.
TEST_F(exact_source_of_a_host, that_cannot_read_a_structure_fails_whatever_is_asked) {
    const std::size_t upper_case = m_image.find(text_of(upper_case_table()).substr(0, 2048));
    ASSERT_NE(upper_case, std::string::npos);
    const words line = {"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-zero_unreadable"};
    program_result result = with_bad_sector(m_record + 512, line);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        last_line(result.err),
        "err: record 0, $DATA \"\": VCN 6: 512 bytes cannot be read: Input/output error, at stream byte "
        "0x6200 (source byte " +
            exact::hex(m_record + 512) + ")\n");
    result = with_bad_sector(upper_case, line);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(last_line(result.err),
              "err: record 10, $DATA \"\": VCN 0: 131072 bytes cannot be read: Input/output error, at stream "
              "byte 0x0 (source byte " +
                  exact::hex(upper_case) + ")\n");
    EXPECT_EQ(files(), words{"volume"});
}

// A journal that was never used is all 0xFF. What is written down of it rests on all of its bytes.
TEST_F(exact_source_of_a_host, that_has_an_unused_journal_is_read_to_its_end_where_that_is_written_down) {
    const auto said_of = [this](const bytes& journal, const words& more) {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n"));
        volume.add_file_at(2, "$LogFile").stored_data(journal);
        volume.write_to(m_dir / "volume");
        words line = {"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-overwrite"};
        line.insert(line.end(), more.begin(), more.end());
        const program_result result = copy(line);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.err;
    };
    bytes journal(0x40000, 0xFF);
    EXPECT_EQ(said_of(journal, {"-manifest", "empty"}).find("warning"), std::string::npos);
    EXPECT_NE(text("empty").find("\"journal\":\"empty\""), std::string::npos) << text("empty");
    journal.back() = 0xFE;
    EXPECT_NE(said_of(journal, {"-manifest", "other"})
                  .find("warning: record 2: $LogFile has no sound restart page"),
              std::string::npos);
    EXPECT_NE(text("other").find("\"journal\":\"unknown\""), std::string::npos) << text("other");
    EXPECT_NE(said_of(journal, {"-diags", "log"}).find("the state of the journal is unknown\n"),
              std::string::npos);
    EXPECT_NE(text("log").find("->info: journal unknown, dirty 0\n"), std::string::npos) << text("log");
}

}  // namespace
}  // namespace quarry::test
