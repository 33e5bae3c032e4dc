#include "frontend/confinement.h"

#include "foundation/descriptor_io.h"
#include "foundation/ql_string.h"
#include "support/byte_writer.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <linux/landlock.h>
#include <map>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;

constexpr std::uint64_t read_rights = 0x000C;   // files and directories
constexpr std::uint64_t write_rights = 0x4122;  // write, truncate, make and remove an ordinary file
constexpr std::uint64_t write_a_file = 0x4002;  // write and truncate
constexpr std::uint64_t read_a_file = 0x0004;

// A kernel that notes what it is asked for, with a descriptor that is none of a ruleset.
class noting_kernel : public kernel_calls {
  public:
    int m_version = 7;
    int m_rule_error = 0;
    governed_rights m_governed;
    int m_rule_count = 0;
    std::map<std::string, std::uint64_t> m_rules;  // what a path was opened to, and the rights to it
    std::vector<std::string> m_order;

    int landlock_version() override { return m_version; }
    int create_ruleset(const governed_rights& governed) override {
        m_order.emplace_back("create");
        m_governed = governed;
        return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    int add_rule(int, const landlock_path_beneath_attr& rule) override {
        ++m_rule_count;
        const std::string link = "/proc/self/fd/" + std::to_string(rule.parent_fd);
        m_rules[std::filesystem::read_symlink(link).string()] |= rule.allowed_access;
        errno = m_rule_error;
        return m_rule_error == 0 ? 0 : -1;
    }
    int restrict_self(int) override {
        m_order.emplace_back("restrict");
        return 0;
    }
    int give_up_new_rights() override {
        m_order.emplace_back("no new rights");
        return 0;
    }
};

class confinement : public testing::Test {
  protected:
    void SetUp() override {
        write_file(m_dir / "image", to_bytes("x"));
        std::filesystem::create_directories(m_dir / "out");
        std::filesystem::create_directories(m_dir / "elsewhere");
    }
    [[nodiscard]] std::string at(const char* name) const { return (m_dir / name).string(); }
    [[nodiscard]] std::uint64_t rights_to(const char* name) const {
        const auto found = m_kernel.m_rules.find(at(name));
        return found == m_kernel.m_rules.end() ? 0 : found->second;
    }

    temp_dir m_dir;
    noting_kernel m_kernel;
};

TEST_F(confinement, gives_sources_for_reading_and_the_directories_of_outputs_for_writing) {
    ASSERT_TRUE(confine_files(
        {.sources = {at("image"), at("missing")}, .outputs = {at("out/a"), at("out/b")}}, m_kernel));
    EXPECT_EQ(m_kernel.m_governed.files, 0x7FFFU);
    EXPECT_EQ(m_kernel.m_rules,
              (std::map<std::string, std::uint64_t>{{at("image"), read_a_file}, {at("out"), write_rights}}));
    EXPECT_THAT(m_kernel.m_order, ElementsAre("create", "no new rights", "restrict"));
}

TEST_F(confinement, gives_everything_for_reading_where_a_path_may_name_anything) {
    ASSERT_TRUE(confine_files({.reads_any_file = true}, m_kernel));
    EXPECT_EQ(m_kernel.m_rules, (std::map<std::string, std::uint64_t>{{"/", read_rights}}));
}

TEST_F(confinement, gives_what_an_output_that_is_a_link_leads_to) {
    write_file(m_dir / "elsewhere/there", to_bytes("x"));
    std::filesystem::create_symlink(at("elsewhere/there"), m_dir / "out/to_a_file");
    std::filesystem::create_symlink("../image.d/new", m_dir / "out/to_nothing");
    std::filesystem::create_directories(m_dir / "image.d");
    ASSERT_TRUE(confine_files({.outputs = {at("out/to_a_file"), at("out/to_nothing")}}, m_kernel));
    EXPECT_EQ(rights_to("elsewhere/there"), write_a_file);
    EXPECT_EQ(rights_to("elsewhere"), 0U);
    EXPECT_EQ(rights_to("image.d"), write_rights);
}

TEST_F(confinement, gives_what_the_links_in_a_directory_of_outputs_lead_to) {
    write_file(m_dir / "elsewhere/there", to_bytes("x"));
    std::filesystem::create_symlink(at("elsewhere/there"), m_dir / "out/a.txt");
    ASSERT_TRUE(confine_files({.output_dirs = {at("out/")}}, m_kernel));
    EXPECT_EQ(m_kernel.m_rules, (std::map<std::string, std::uint64_t>{{at("elsewhere/there"), write_a_file},
                                                                      {at("out"), write_rights}}));
}

TEST_F(confinement, gives_the_nearest_directory_for_an_output_whose_own_does_not_exist) {
    ASSERT_TRUE(confine_files({.outputs = {at("out/later/deep/a")}}, m_kernel));
    EXPECT_EQ(m_kernel.m_rules, (std::map<std::string, std::uint64_t>{{at("out"), write_rights}}));
}

TEST_F(confinement, asks_an_older_kernel_only_for_what_it_knows) {
    m_kernel.m_version = 1;
    ASSERT_TRUE(confine_files({.outputs = {at("out/a")}}, m_kernel));
    EXPECT_EQ(m_kernel.m_governed.files, 0x1FFFU);
    EXPECT_EQ(rights_to("out"), 0x0122U);
    m_kernel.m_version = 2;
    ASSERT_TRUE(confine_files({}, m_kernel));
    EXPECT_EQ(m_kernel.m_governed.files, 0x3FFFU);
}

TEST_F(confinement, asks_a_newer_kernel_for_tcp_and_other_processes_too) {
    for (const auto& [version, tcp, processes] :
         {std::array{3, 0, 0}, std::array{4, 3, 0}, std::array{5, 3, 0}, std::array{6, 3, 3},
          std::array{7, 3, 3}}) {
        m_kernel.m_version = version;
        ASSERT_TRUE(confine_files({}, m_kernel));
        EXPECT_EQ(m_kernel.m_governed.tcp, static_cast<std::uint64_t>(tcp)) << version;
        EXPECT_EQ(m_kernel.m_governed.processes, static_cast<std::uint64_t>(processes)) << version;
    }
}

// Each rule is time that every run pays.
TEST_F(confinement, gives_nothing_twice) {
    write_file(m_dir / "out/a", to_bytes("x"));
    ASSERT_TRUE(confine_files({.sources = {at("image"), at("image")},
                               .read_dirs = {at("elsewhere"), at("elsewhere")},
                               .outputs = {at("out/a"), at("out/b")}},
                              m_kernel));
    EXPECT_EQ(m_kernel.m_rules,
              (std::map<std::string, std::uint64_t>{
                  {at("image"), read_a_file}, {at("elsewhere"), read_rights}, {at("out"), write_rights}}));
    EXPECT_EQ(m_kernel.m_rule_count, 3);
}

TEST_F(confinement, gives_nothing_for_an_output_that_is_a_directory) {
    std::filesystem::create_directory_symlink(at("elsewhere"), m_dir / "out/link");
    ASSERT_TRUE(confine_files({.outputs = {at("elsewhere"), at("out/link")}}, m_kernel));
    EXPECT_TRUE(m_kernel.m_rules.empty());
}

TEST_F(confinement, is_absent_without_a_word_where_the_kernel_has_none) {
    m_kernel.m_version = -1;
    EXPECT_FALSE(confine_files({.sources = {at("image")}, .outputs = {at("out/a")}}, m_kernel));
    EXPECT_TRUE(m_kernel.m_order.empty());
    EXPECT_TRUE(m_kernel.m_rules.empty());
}

TEST_F(confinement, is_given_up_where_the_kernel_does_not_take_a_rule) {
    m_kernel.m_rule_error = EINVAL;
    EXPECT_FALSE(confine_files({.outputs = {at("out/a")}}, m_kernel));
    EXPECT_THAT(m_kernel.m_order, ElementsAre("create"));
}

TEST_F(confinement, holds_though_a_pipe_cannot_have_a_rule) {
    m_kernel.m_rule_error = EBADFD;
    EXPECT_TRUE(confine_files({.outputs = {at("out/a")}}, m_kernel));
    EXPECT_THAT(m_kernel.m_order, ElementsAre("create", "no new rights", "restrict"));
}

// In a process of its own, since none of it can be taken back. Each attempt is a bit of the answer.
int attempts_of_a_confined_child(const needed_files& files, const std::vector<std::string>& written,
                                 const std::vector<std::string>& read) {
    const ::pid_t child = ::fork();
    if (child == 0) {
        kernel_calls kernel;
        int answer = confine_files(files, kernel) ? 1 : 0;
        int bit = 2;
        for (const std::string& path : written) {
            answer |= ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600) >= 0 ? bit : 0;
            bit *= 2;
        }
        for (const std::string& path : read) {
            answer |= ::open(path.c_str(), O_RDONLY | O_CLOEXEC) >= 0 ? bit : 0;
            bit *= 2;
        }
        ::_exit(answer);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Confined, in, elsewhere, into the source; read the source, read elsewhere.
TEST_F(confinement, stops_what_is_elsewhere_or_is_absent_as_the_kernel_has_it) {
    write_file(m_dir / "elsewhere/read", to_bytes("x"));
    const int attempts = attempts_of_a_confined_child({.sources = {at("image")}, .outputs = {at("out/a")}},
                                                      {at("out/a"), at("elsewhere/a"), at("image")},
                                                      {at("image"), at("elsewhere/read")});
    kernel_calls kernel;
    if (kernel.landlock_version() >= 1) {
        EXPECT_EQ(attempts, 0b010011);
        EXPECT_FALSE(std::filesystem::exists(m_dir / "elsewhere/a"));
    } else {
        EXPECT_EQ(attempts, 0b111110);
        EXPECT_TRUE(std::filesystem::exists(m_dir / "elsewhere/a"));
    }
}

TEST(files_needed, are_the_source_the_outputs_and_where_the_host_describes_itself) {
    quarry_opts opts;
    opts.m_source = source::of_image(L"/cases/disk.dd", 0);
    opts.m_dst = L"out/a";
    const temp_dir dir;
    const std::string log = (dir / "log").string();
    ASSERT_TRUE(opts.m_run.m_log.open(opts.m_run.m_guard, log));
    const needed_files files = files_needed_by(opts);
    EXPECT_FALSE(files.reads_any_file);
    EXPECT_THAT(files.sources, ElementsAre("/cases/disk.dd"));
    EXPECT_THAT(files.read_dirs, ElementsAre("/dev", "/proc", "/sys"));
    EXPECT_THAT(files.outputs, ElementsAre("out/a", "out/a.meta.txt", log));
    EXPECT_TRUE(files.output_dirs.empty());
}

TEST(files_needed, are_the_chosen_source_once_and_whatever_else_the_source_options_name) {
    quarry_opts opts;
    opts.m_source = source::of_image(L"/cases/disk.dd", 0);
    opts.m_run.m_source_files = {"/cases/disk.dd", "/cases/a/../disk.dd", "/cases/other.dd"};
    // Where a directory on the way is a link, ".." leads to another file.
    EXPECT_THAT(files_needed_by(opts).sources,
                ElementsAre("/cases/disk.dd", "/cases/a/../disk.dd", "/cases/other.dd"));
    // As it is typed in the directory that it is in.
    const std::string here = std::filesystem::current_path().string();
    opts.m_source = source::of_image(widen(here + "/disk.dd"), 0);
    opts.m_run.m_source_files = {"disk.dd"};
    EXPECT_THAT(files_needed_by(opts).sources, ElementsAre(here + "/disk.dd"));
}

TEST(files_needed, of_a_virtual_disk_are_all_of_its_files) {
    quarry_opts opts;
    opts.m_source = source::of_virtual_disk({L"/cases/base.vmdk", L"snap.vmdk"}, 0);
    opts.m_dst = L"out/";
    const needed_files files = files_needed_by(opts);
    EXPECT_THAT(files.sources, IsSupersetOf({"/cases/base.vmdk", "snap.vmdk"}));
    EXPECT_THAT(files.output_dirs, ElementsAre("out/"));
}

TEST(files_needed, of_a_drive_and_a_volume_with_a_letter_are_what_is_opened_for_them) {
    quarry_opts opts;
    opts.m_source = source::of_drive(2, 0);
    EXPECT_THAT(files_needed_by(opts).sources, Contains("/dev/sdc"));
    opts.m_source = source::of_partition(L"c:/x");
    EXPECT_THAT(files_needed_by(opts).sources, Contains("c:"));
}

TEST(files_needed, are_any_where_a_path_a_walk_or_a_signature_may_name_them) {
    const quarry_opts live;
    EXPECT_TRUE(files_needed_by(live).reads_any_file);
    quarry_opts walk;
    walk.m_source = source::of_drive(0, 0);
    walk.m_run.m_enum = true;
    EXPECT_TRUE(files_needed_by(walk).reads_any_file);
    quarry_opts signature;
    signature.m_source = source::of_drive(0, 0);
    filter_entry entry;
    entry.signature = {0x4D, 0x5A};
    signature.m_run.m_filter = {entry};
    EXPECT_TRUE(files_needed_by(signature).reads_any_file);
    quarry_opts name;
    name.m_source = source::of_drive(0, 0);
    name.m_run.m_filter = {filter_entry{}};
    EXPECT_FALSE(files_needed_by(name).reads_any_file);
}

// Something that a process taken over might do.
struct attempt {
    const char* what;
    int stopped_since;                 // the version of Landlock
    std::function<void()> prepare;     // before rights are given up
    std::function<bool()> has_effect;  // after
};

// In a process of its own, since none of it can be taken back.
bool has_effect_in_a_child(const attempt& tried, bool confined) {
    const ::pid_t child = ::fork();
    if (child == 0) {
        tried.prepare();
        kernel_calls kernel;
        if (confined && confine_files({.reads_any_file = true}, kernel) != (kernel.landlock_version() >= 1)) {
            ::_exit(2);
        }
        ::_exit(tried.has_effect() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << tried.what << status;
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

// A child that waits until its parent ends.
::pid_t waiting_child() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return -1;
    }
    const ::pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[1]);
        char nothing = 0;
        ::_exit(::read(ends[0], &nothing, 1) == 0 ? 0 : 1);
    }
    return child;
}

bool starts_a_program() {
    const ::pid_t child = ::fork();
    if (child == 0) {
        ::execl("/bin/true", "true", static_cast<char*>(nullptr));
        ::_exit(1);
    }
    int status = 1;
    ::waitpid(child, &status, 0);
    return status == 0;
}

// Whether the kernel looks for the other end, which is nowhere, instead of refusing to.
bool calls_a_tcp_port() {
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    address.sin_port = ::htons(9);
    const owned_descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket.get() >= 0 &&
           (::connect(socket.get(), reinterpret_cast<const ::sockaddr*>(&address), sizeof(address)) == 0 ||
            errno == ECONNREFUSED);
}

bool waits_at_a_tcp_port() {
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    const owned_descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket.get() >= 0 &&
           ::bind(socket.get(), reinterpret_cast<const ::sockaddr*>(&address), sizeof(address)) == 0;
}

// An abstract socket of this process.
::sockaddr_un abstract_address() {
    ::sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "quarry-test-" + std::to_string(::getppid()) + "-" + std::to_string(::getpid());
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    return address;
}

TEST(a_confined_process, does_not_what_landlock_governs_and_what_it_does_elsewhere) {
    const temp_dir dir;
    const ::sockaddr_un abstract = abstract_address();
    const auto* const abstract_bytes = reinterpret_cast<const ::sockaddr*>(&abstract);
    const owned_descriptor listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(listening.get(), abstract_bytes, sizeof(abstract)), 0);
    ASSERT_EQ(::listen(listening.get(), 2), 0);
    ::pid_t other = -1;
    const auto nothing = [] {};
    const auto start_other = [&other] { other = waiting_child(); };
    const std::vector<attempt> attempts = {
        {"start a program", 1, nothing, starts_a_program},
        {"trace a process", 1, start_other,
         [&] { return other > 0 && ::ptrace(PTRACE_SEIZE, other, nullptr, nullptr) == 0; }},
        // In namespaces of its own, so that it is allowed to whoever runs the tests and seen by nobody.
        {"mount", 1, [] { static_cast<void>(::unshare(CLONE_NEWUSER | CLONE_NEWNS)); },
         [&] { return ::mount("none", dir.path().c_str(), "tmpfs", 0, nullptr) == 0; }},
        {"connect by TCP", 4, nothing, calls_a_tcp_port},
        {"bind a TCP port", 4, nothing, waits_at_a_tcp_port},
        {"send a signal", 6, start_other, [&] { return other > 0 && ::kill(other, SIGURG) == 0; }},
        {"connect to an abstract socket", 6, nothing,
         [&] {
             const owned_descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
             return ::connect(socket.get(), abstract_bytes, sizeof(abstract)) == 0;
         }},
    };
    kernel_calls kernel;
    const int version = kernel.landlock_version();
    for (const attempt& tried : attempts) {
        // A host may have other reasons to refuse: no loopback, no namespaces for ordinary users.
        const bool otherwise = has_effect_in_a_child(tried, false);
        EXPECT_EQ(has_effect_in_a_child(tried, true), otherwise && version < tried.stopped_since)
            << tried.what;
    }
    EXPECT_TRUE(has_effect_in_a_child(attempts.front(), false)) << "nothing can be shown here";
}

}  // namespace
}  // namespace quarry::test
