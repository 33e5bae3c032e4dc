#include "frontend/output/output_guard.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;

class output_guard_test : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : {"a", "b"}) {
            write_file(dir / name, {});
        }
    }
    [[nodiscard]] output_verdict on(const std::string& name, output_kind kind = output_kind::copy) const {
        return guard.look_at(dir / name, kind);
    }
    temp_dir dir;
    output_guard guard;
};

TEST_F(output_guard_test, leaves_free_what_nobody_protects) {
    EXPECT_EQ(on("a"), output_verdict::free);
    EXPECT_EQ(on("missing"), output_verdict::free);
    EXPECT_EQ(guard.look_at("/dev/null", output_kind::copy), output_verdict::free);
}

TEST_F(output_guard_test, knows_a_source_by_each_of_its_names) {
    fs::create_symlink("a", dir / "soft");
    fs::create_hard_link(dir / "a", dir / "hard");
    guard.add_source(dir / "soft");
    for (const char* name : {"a", "soft", "hard", "./a"}) {
        for (const output_kind kind :
             {output_kind::copy, output_kind::report, output_kind::log, output_kind::trial}) {
            EXPECT_EQ(on(name, kind), output_verdict::source) << name;
        }
    }
    EXPECT_EQ(on("b"), output_verdict::free);
    EXPECT_EQ(on("new"), output_verdict::free) << "a file beside the source is none";
}

TEST_F(output_guard_test, passes_over_a_source_that_does_not_exist) {
    guard.add_sources({"", dir / "missing"});
    EXPECT_EQ(on("missing"), output_verdict::free);
}

TEST_F(output_guard_test, gives_the_log_to_nothing_but_itself) {
    guard.protect_log(dir / "a");
    EXPECT_EQ(on("a"), output_verdict::taken);
    EXPECT_EQ(on("a", output_kind::report), output_verdict::taken);
    EXPECT_EQ(on("a", output_kind::trial), output_verdict::taken);
    EXPECT_EQ(on("a", output_kind::log), output_verdict::free);
}

TEST_F(output_guard_test, protects_the_files_after_the_standard_streams) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int before = ::dup(stream);
        const int file = ::open((dir / "a").c_str(), O_RDWR);
        ASSERT_GE(::dup2(file, stream), 0);
        guard = output_guard();
        ::dup2(before, stream);
        ::close(before);
        ::close(file);
        EXPECT_EQ(on("a"), output_verdict::taken) << stream;
        EXPECT_EQ(on("a", output_kind::log), output_verdict::taken) << stream;
        EXPECT_EQ(on("b"), output_verdict::free) << stream;
    }
}

TEST_F(output_guard_test, protects_no_device_after_the_standard_streams) {
    const int before = ::dup(STDIN_FILENO);
    const int null = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(::dup2(null, STDIN_FILENO), 0);
    guard = output_guard();
    ::dup2(before, STDIN_FILENO);
    ::close(before);
    ::close(null);
    EXPECT_EQ(guard.look_at("/dev/null", output_kind::copy), output_verdict::free);
}

TEST_F(output_guard_test, that_keeps_what_exists_leaves_only_new_names_free) {
    guard.keep_what_exists();
    EXPECT_EQ(on("a"), output_verdict::taken);
    EXPECT_EQ(on("a", output_kind::report), output_verdict::taken);
    EXPECT_EQ(on("new"), output_verdict::free);
}

TEST_F(output_guard_test, gives_a_path_that_took_a_report_to_no_copy_and_the_reverse) {
    guard.tell_reports_from_copies();
    guard.note(dir / "a", output_kind::report);
    guard.note(dir / "b", output_kind::copy);
    EXPECT_EQ(on("a"), output_verdict::taken);
    EXPECT_EQ(on("a", output_kind::report), output_verdict::free);
    EXPECT_EQ(on("b"), output_verdict::free);
    EXPECT_EQ(on("b", output_kind::report), output_verdict::taken);
}

TEST_F(output_guard_test, knows_a_report_by_each_of_its_names_and_by_its_path_when_it_is_gone) {
    guard.tell_reports_from_copies();
    guard.note(dir / "a", output_kind::report);
    fs::create_hard_link(dir / "a", dir / "hard");
    fs::create_symlink("a", dir / "soft");
    EXPECT_EQ(on("hard"), output_verdict::taken);
    EXPECT_EQ(on("soft"), output_verdict::taken);
    fs::remove(dir / "a");
    EXPECT_EQ(on("a"), output_verdict::taken);
}

TEST_F(output_guard_test, knows_the_relative_path_of_a_report_that_is_gone_by_its_absolute_one) {
    guard.tell_reports_from_copies();
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    guard.note("a", output_kind::report);
    fs::current_path(before);
    fs::remove(dir / "a");
    EXPECT_EQ(on("a"), output_verdict::taken);
    EXPECT_EQ(on("b"), output_verdict::free);
}

TEST_F(output_guard_test, forgets_the_path_of_what_got_another_name) {
    guard.tell_reports_from_copies();
    guard.note(dir / "a", output_kind::report);
    fs::rename(dir / "a", dir / "c");
    guard.forget(dir / "a");
    guard.note(dir / "c", output_kind::report);
    EXPECT_EQ(on("a"), output_verdict::free);
    EXPECT_EQ(on("c"), output_verdict::taken);
}

TEST_F(output_guard_test, does_not_distinguish_reports_from_copies_unless_it_was_asked) {
    guard.note(dir / "a", output_kind::report);
    EXPECT_EQ(on("a"), output_verdict::free);
}

}  // namespace
}  // namespace quarry::test
