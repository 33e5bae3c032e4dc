#include "frontend/exact/exact_confinement.h"

#include "frontend/exact/destination_tree.h"
#include "frontend/exact/sealed_file.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class exact_confinement : public testing::Test {
  protected:
    void SetUp() override {
        write_file(m_dir / "base", to_bytes("x"));
        write_file(m_dir / "snapshot", to_bytes("y"));
        write_file(m_dir / "other", to_bytes("z"));
        std::filesystem::create_directories(m_dir / "out");
        write_file(m_dir / "out/earlier", to_bytes("earlier"));
        m_options.source = {source_kind::virtual_disk, {at("base"), at("snapshot")}};
        m_options.destination = at("out/");
    }
    [[nodiscard]] std::string at(const char* name) const { return (m_dir / name).string(); }
    [[nodiscard]] bool seals(const char* name, bool overwrite) const {
        exact::sealed_file file(at("out"), false);
        return file.create(5)
            .and_then([&] { return file.append(to_bytes("hello")); })
            .and_then([&] { return file.seal(name, overwrite); })
            .has_value();
    }
    [[nodiscard]] bool opens(const char* name, int flags) const {
        return ::open(at(name).c_str(), flags | O_CLOEXEC, 0600) >= 0;
    }

    temp_dir m_dir;
    exact::exact_options m_options;
};

TEST_F(exact_confinement, needs_the_files_of_the_source_and_the_directory_of_the_destination) {
    const needed_files files = exact::files_needed_by(m_options, m_options.source.paths);
    EXPECT_FALSE(files.reads_any_file);
    EXPECT_THAT(files.sources, ElementsAre(at("base"), at("snapshot")));
    EXPECT_THAT(files.read_dirs, ElementsAre("/dev", "/proc", "/sys"));
    EXPECT_THAT(files.sealed_dirs, ElementsAre(at("out/")));
    EXPECT_FALSE(files.makes_dirs);
    EXPECT_FALSE(files.reads_sealed);
    m_options.resume = true;
    EXPECT_TRUE(exact::files_needed_by(m_options, m_options.source.paths).reads_sealed);
    EXPECT_THAT(files.outputs, IsEmpty());
    EXPECT_THAT(files.output_dirs, IsEmpty());
}

TEST_F(exact_confinement, of_a_listing_writes_nowhere_and_of_a_bare_name_here) {
    m_options.destination = "";
    EXPECT_THAT(exact::files_needed_by(m_options, m_options.source.paths).sealed_dirs, IsEmpty());
    m_options.destination = "copy";
    EXPECT_THAT(exact::files_needed_by(m_options, m_options.source.paths).sealed_dirs, ElementsAre("./"));
}

TEST_F(exact_confinement, with_directories_of_the_path_makes_some_below_the_destination_and_nowhere_else) {
    m_options.tree = true;
    EXPECT_TRUE(exact::files_needed_by(m_options, m_options.source.paths).makes_dirs);
    const ::pid_t child = ::fork();
    if (child == 0) {
        kernel_calls kernel;
        int answer = confine_files(exact::files_needed_by(m_options, m_options.source.paths), kernel) ? 1 : 0;
        const auto made = exact::open_tree(at("out/"), {u"docs", u"old"}, output_guard());
        answer |= made ? 2 : 0;
        answer |= ::mkdir(at("elsewhere").c_str(), 0700) == 0 ? 4 : 0;
        {
            const auto for_nothing = exact::open_tree(at("out/"), {u"docs", u"new"}, output_guard());
            const exact::made_directories removed(*for_nothing);
        }
        ::_exit(answer);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    kernel_calls kernel;
    EXPECT_EQ(WEXITSTATUS(status), kernel.landlock_version() >= 1 ? 3 : 6);
    EXPECT_TRUE(std::filesystem::is_directory(m_dir / "out/docs/old"));
    EXPECT_FALSE(std::filesystem::exists(m_dir / "out/docs/new"));
}

// In a process of its own, since none of it can be taken back. Each attempt is a bit of the answer.
TEST_F(exact_confinement, lets_a_copy_be_sealed_and_stops_what_is_elsewhere_as_the_kernel_has_it) {
    const ::pid_t child = ::fork();
    if (child == 0) {
        kernel_calls kernel;
        int answer = confine_files(exact::files_needed_by(m_options, m_options.source.paths), kernel) ? 1 : 0;
        answer |= seals("new", false) ? 2 : 0;
        answer |= seals("earlier", true) ? 4 : 0;
        answer |= opens("base", O_RDONLY) && opens("snapshot", O_RDONLY) ? 8 : 0;
        answer |= opens("base", O_WRONLY) || opens("made", O_WRONLY | O_CREAT) ? 16 : 0;
        answer |= opens("other", O_RDONLY) ? 32 : 0;
        ::_exit(answer);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(read_file(m_dir / "out/new"), to_bytes("hello"));
    EXPECT_EQ(read_file(m_dir / "out/earlier"), to_bytes("hello"));
    kernel_calls kernel;
    EXPECT_EQ(WEXITSTATUS(status), kernel.landlock_version() >= 1 ? 0b001111 : 0b111110);
    EXPECT_EQ(std::filesystem::exists(m_dir / "made"), kernel.landlock_version() < 1);
}

}  // namespace
}  // namespace quarry::test
