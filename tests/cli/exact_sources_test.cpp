// The exact mode where the host lets it down: sources that are none or change, sectors that fail, memory that
// runs out, times that cannot be set.
#include "cli/command_line.h"
#include "exact/failure.h"
#include "support/opened_exact_volume.h"
#include "support/requirements.h"
#include "support/system_files.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
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
    // A copy that is stopped once a file of the destination has `stop_at` bytes; then `change` is run and the
    // copy goes on. Standard input is the file "list". What is said is in the file "said".
    [[nodiscard]] program_result changed_in_between(std::size_t stop_at, const std::string& change,
                                                    words line) const {
        const std::string script =
            R"(program=$0 library=$1 change=$3; export SIGNAL_AT="$2" SIGNAL=19; shift 3
               LD_PRELOAD="$library" "$program" -exact -image volume "$@" <list 2>said >/dev/null &
               run=$!
               while [ -e /proc/$run ] && ! grep -q '^State:.T' /proc/$run/status; do :; done
               eval "$change"
               while [ -e /proc/$run ] && ! grep -q '^State:.Z' /proc/$run/status; do kill -CONT $run; done
               wait $run; echo $?)";
        static_assert(SIGSTOP == 19);
        line.insert(line.begin(), {"/bin/sh", "-c", script, QUARRY_PROGRAM, QUARRY_FAILING_HOST,
                                   std::to_string(stop_at), change});
        // The search for leaks at the end does not come through the signals.
        return run_program(line, {.directory = m_dir.path(), .leaks_allowed = true});
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
         {std::pair("fifo",
                    "Illegal seek; the source must be a file or a drive, copy what comes through a pipe to a "
                    "file first"),
          std::pair("socket", "No such device or address")}) {
        const program_result result = copy({"-image", name, "-src", "/a.txt", "-dst", "copy"},
                                           {.time_limit = std::chrono::seconds(10)});
        EXPECT_FALSE(result.timed_out) << name;
        EXPECT_EQ(result.status, 5) << name;
        EXPECT_EQ(result.err, std::string("err: source ") + name + ": cannot be opened: " + word + "\n");
    }
    ::close(socket);
    EXPECT_EQ(files(), (words{"fifo", "socket", "volume"}));
}

TEST_F(exact_source_of_a_host, that_is_a_container_is_refused_with_what_to_do) {
    const std::string raw =
        "; give a raw view of it, as share/doc/quarry/docs/limits.md shows under \"Other containers\"\n";
    const auto refused = [&](const bytes& content, const std::string& option) {
        write_file(m_dir / "disk", content);
        const program_result result = copy({option, "disk", "-src", "/a.txt", "-dst", "copy"});
        EXPECT_EQ(result.status, 5) << result.err;
        return result.err;
    };
    const auto beginning_with = [](std::string_view head) { return byte_writer(4096).text(0, head).take(); };
    const bytes aff4 = byte_writer(4096).text(0, "PK\x03\x04").u16(26, 11).text(30, "version.txt").take();
    const bytes vhd = byte_writer(4096).text(4096 - 512, "conectix").take();
    const bytes ewf = beginning_with(std::string_view("EVF\x09\x0d\x0a\xff\0", 8));
    for (const std::string option : {"-image", "-partition"}) {
        EXPECT_EQ(refused(beginning_with("QFI\xfb"), option), "err: source disk: is a QCOW image" + raw);
        EXPECT_EQ(refused(beginning_with("vhdxfile"), option), "err: source disk: is a VHDX image" + raw);
        EXPECT_EQ(refused(beginning_with("KDMV"), option), "err: source disk: is a VMDK; say -vmdk\n");
        EXPECT_EQ(refused(beginning_with("# Disk DescriptorFile"), option),
                  "err: source disk: is the description of a VMDK; say -vmdk\n");
        EXPECT_EQ(refused(aff4, option), "err: source disk: is an AFF4 image" + raw);
        EXPECT_EQ(refused(vhd, option), "err: source disk: is a VHD image" + raw);
    }
    EXPECT_EQ(refused(ewf, "-partition"), "err: source disk: is an EWF image; say -image\n");
    EXPECT_EQ(files(), (words{"disk", "volume"}));
}

TEST_F(exact_source_of_a_host, that_changes_during_the_copy_puts_it_in_doubt) {
    write_file(m_dir / "list", {});
    // By its size, and by the time of its last change alone.
    for (const std::string change : {"printf x >> volume", "touch -m -d 2001-02-03 volume"}) {
        const program_result result =
            changed_in_between(0, change, {"-src", "/long.bin", "-dst", "copy", "-overwrite"});
        EXPECT_EQ(result.out, "4\n") << change << result.err;
        const std::string said = text("said");
        EXPECT_NE(said.find("warning: source volume: changed while it was read\n"), std::string::npos)
            << change << said;
        EXPECT_NE(said.find("doubt: /long.bin -> copy (300000 bytes)\n"), std::string::npos) << said;
        EXPECT_TRUE(text("copy") == text_of(m_content));
    }
}

TEST_F(exact_source_of_a_host, that_changes_puts_the_lines_of_a_list_from_then_on_in_doubt) {
    std::filesystem::create_directory(m_dir / "out");
    write_file(m_dir / "list", to_bytes("/a.txt\n/long.bin\n/a.txt::$FILE_NAME\n"));
    const program_result result =
        changed_in_between(100000, "touch -m -d 2001-02-03 volume", {"-pipe", "-dst", "out/"});
    EXPECT_EQ(result.out, "4\n") << result.err;
    EXPECT_EQ(text("said"),
              "ok: /a.txt -> out/a.txt (6 bytes)\n"
              "warning: source volume: changed while it was read\n"
              "doubt: /long.bin -> out/long.bin (300000 bytes)\n"
              "warning: source volume: changed while it was read\n"
              "doubt: /a.txt::$FILE_NAME -> out/a.txt_$FILE_NAME (76 bytes)\n"
              "list: 3 asked, 1 complete, 2 in doubt, 0 failed, 0 kept\n");
}

// With so much memory that the program starts and no more it ends with 255; with a little more it copies.
TEST_F(exact_source_of_a_host, without_memory_ends_with_255_and_leaves_nothing) {
    const words line = {"-image", "volume", "-src", "/long.bin", "-dst", "copy"};
    // Before a volume is open, during the copy, and where the program itself has no room to say more.
    const std::set<std::string> last_words = {
        "err: source volume: memory ran out\n", "err: path \"/long.bin\": memory ran out\n",
        "quarry: std::bad_alloc\n",
        "quarry: memory ran out, or the program has a fault, at a place from where it cannot go on\n"};
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
            EXPECT_TRUE(last_words.contains(last_line(result.err))) << limit << ": " << result.err;
            without_memory += last_line(result.err).starts_with("err: path ") ? 1 : 0;
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

// Times on the volume are counted in units of 100 ns from 1601 on.
TEST_F(exact_source_of_a_host, that_keeps_times_gives_the_copy_those_of_the_file) {
    constexpr std::uint64_t modified = 128790414901234567;     // 2009-02-13 23:31:30.1234567 UTC
    constexpr std::uint64_t accessed = 126444736007654321;     // 2001-09-09 01:46:40.7654321 UTC
    constexpr std::uint64_t before_1970 = 116444735995000000;  // 1969-12-31 23:59:59.5 UTC
    const auto times_of_copy = [this](const file_times& stored) {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n")).times(stored);
        volume.write_to(m_dir / "volume");
        const program_result result =
            copy({"-image", "volume", "-src", "/a.txt", "-dst", "copy", "-overwrite", "-keep_times"});
        EXPECT_EQ(result.status, 0) << result.err;
        struct ::stat facts {};
        EXPECT_EQ(::stat((m_dir / "copy").c_str(), &facts), 0);
        return facts;
    };
    const std::time_t begun = std::time(nullptr) - 2;
    auto facts = times_of_copy({.created = 1, .modified = modified, .mft_changed = 2, .accessed = accessed});
    EXPECT_EQ(facts.st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(facts.st_mtim.tv_nsec, 123456700);
    EXPECT_EQ(facts.st_atim.tv_sec, 1000000000);
    EXPECT_EQ(facts.st_atim.tv_nsec, 765432100);
    facts = times_of_copy({.modified = before_1970, .accessed = 0});
    EXPECT_EQ(facts.st_mtim.tv_sec, -1);
    EXPECT_EQ(facts.st_mtim.tv_nsec, 500000000);
    EXPECT_GE(facts.st_atim.tv_sec, begun);
    facts = times_of_copy({.modified = 0, .accessed = accessed});
    EXPECT_GE(facts.st_mtim.tv_sec, begun);
    EXPECT_EQ(facts.st_atim.tv_sec, 1000000000);
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
    // The table is read in pieces of 32 KiB.
    result = with_bad_sector(upper_case, line);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(last_line(result.err),
              "err: record 10, $DATA \"\": VCN 0: 32768 bytes cannot be read: Input/output error, at stream "
              "byte 0x0 (source byte " +
                  exact::hex(upper_case) + ")\n");
    EXPECT_EQ(files(), words{"volume"});
}

TEST_F(exact_source_of_a_host, that_cannot_read_a_list_an_index_or_the_bitmap_fails_whatever_is_asked) {
    volume_builder volume({.system_files = true});
    volume.add_directory("many").index_in_blocks();
    volume.add_file("long.bin", 24).stored_data(m_content);
    file_builder& listed = volume.add_file("listed").list_in_clusters();
    listed.attribute(attribute_builder::resident(0x80, to_bytes("hello\n")), listed.add_extension());
    volume.write_to(m_dir / "volume");
    opened_exact_volume opened(volume);
    const auto place_of = [&](std::uint64_t entry, std::uint32_t type, std::u16string_view name) {
        exact::notices told;
        auto base = opened.volume().table().read(entry, told);
        const auto set = exact::attribute_set::of(opened.volume().table(), std::move(*base), told);
        return set->stored(opened.volume().shape(), type, name)
            ->place_of(opened.volume().bytes(), 0, 1, "")
            .source_byte(0)
            .value();
    };
    // The list begins with $STANDARD_INFORMATION, which is in record 26.
    const bytes first_item =
        from_hex("10 00 00 00  20 00 00 1A  00 00 00 00  00 00 00 00  1A 00 00 00  00 00 01 00");
    const std::size_t list = text("volume").find(text_of(first_item));
    ASSERT_NE(list, std::string::npos);
    ASSERT_EQ(list % cluster, 0u);
    const auto expect_failure = [this](std::uint64_t place, const std::string& path, const std::string& where,
                                       std::uint64_t needed_from = 0) {
        const program_result result = with_bad_sector(
            place, {"-partition", "volume", "-src", path, "-dst", "copy", "-zero_unreadable"});
        EXPECT_EQ(result.status, 1) << result.err;
        const std::string said = last_line(result.err);
        EXPECT_TRUE(said.starts_with("err: " + where + ": VCN 0: ")) << said;
        EXPECT_TRUE(said.ends_with(" bytes cannot be read: Input/output error, at stream byte " +
                                   exact::hex(needed_from) + " (source byte " +
                                   exact::hex(place + needed_from) + ")\n"))
            << said;
        EXPECT_EQ(files(), words{"volume"});
    };
    expect_failure(place_of(24, attr_index_allocation, u"$I30"), "/many/long.bin",
                   "record 24, $INDEX_ALLOCATION \"$I30\"");
    expect_failure(list, "/listed", "record 26, $ATTRIBUTE_LIST \"\"");
    // Of the bitmap the bits of the stream's own clusters are read.
    const std::size_t content = text("volume").find(text_of(m_content).substr(0, cluster));
    expect_failure(place_of(6, attr_data, {}), "/many/long.bin", "record 6, $DATA \"\"",
                   content / cluster / 8);
    // The builder writes no backup of the boot sector.
    const program_result result =
        with_bad_sector(0, {"-partition", "volume", "-src", "/listed", "-dst", "copy", "-zero_unreadable"});
    EXPECT_EQ(result.status, 5) << result.err;
    EXPECT_EQ(last_line(result.err),
              "err: source volume: 512 bytes cannot be read: Input/output error (source byte 0x0)\n");
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
