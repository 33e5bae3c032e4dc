#include "frontend/copy/destination.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::temp_dir;
using test::to_bytes;
using test::write_file;

class destination_test : public testing::Test {
  protected:
    void SetUp() override {
        arg_list args = {"quarry", "-diags", dir / "log"};
        ASSERT_TRUE(opts.m_run.parse(args));
        fs::create_directory(dir / "out");
        rules.missing_words = "err: missing";
        opts.m_dst = (dir / "out/a").wstring();
    }
    // Settles, and keeps what was said on standard output and in the log.
    bool settle() {
        const std::string before = log_text();
        testing::internal::CaptureStdout();
        const bool good = settle_destination(target, opts, opts.m_src, rules);
        said = testing::internal::GetCapturedStdout();
        logged = log_text().substr(before.size());
        return good;
    }
    [[nodiscard]] std::string log_text() const {
        const test::bytes log = test::read_file(dir / "log");
        return {log.begin(), log.end()};
    }
    [[nodiscard]] std::string path(const char* name) const { return (dir / name).string(); }
    void expect_refusal(const std::string& words) {
        EXPECT_FALSE(settle());
        EXPECT_EQ(said, words + "\n");
        EXPECT_EQ(logged, "->" + words + "\n");
    }
    std::wstring directory_dst() {
        opts.m_dst = (dir / "out").wstring() + L"/";
        return opts.m_dst;
    }

    temp_dir dir;
    quarry_opts opts;
    destination_rules rules;
    destination target;
    std::string said;
    std::string logged;
};

TEST_F(destination_test, a_file_is_taken_as_it_is_and_logged) {
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/a").wstring());
    EXPECT_TRUE(target.outputs.reports.empty());
    EXPECT_EQ(said, "");
    EXPECT_EQ(logged, "->dst: " + path("out/a") + "\n");
    EXPECT_TRUE(fs::is_empty(dir / "out"));
}

TEST_F(destination_test, none_at_all_is_refused_in_the_callers_words) {
    opts.m_dst.clear();
    expect_refusal("err: missing");
}

TEST_F(destination_test, messages_of_a_quiet_run_stay_in_the_log) {
    opts.m_dst.clear();
    opts.m_run.m_console = false;
    EXPECT_FALSE(settle());
    EXPECT_EQ(said, "");
    EXPECT_EQ(logged, "->err: missing\n");
}

TEST_F(destination_test, one_of_blanks_and_quotes_is_not_understood) {
    opts.m_dst = L" \"\" ";
    expect_refusal("err: prob understanding destination of  \"\" ");
}

TEST_F(destination_test, a_relative_one_stays_relative_unless_its_absolute_form_is_kept) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    opts.m_dst = L"out/a";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, L"out/a");
    EXPECT_EQ(target.named, L"out/a");
    rules.keeps_absolute = true;
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (fs::current_path() / "out/a").wstring());
    EXPECT_EQ(target.named, target.outputs.copy);
    opts.m_dst = L"out/";
    opts.m_src = L"/x/name";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (fs::current_path() / "out/name").wstring());
    fs::current_path(before);
}

TEST_F(destination_test, a_directory_takes_the_name_of_the_source_with_its_stream) {
    directory_dst();
    opts.m_src = L"a/b:c?d";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/b_c_d").wstring());
}

TEST_F(destination_test, a_name_is_parted_at_the_last_backslash_if_there_is_one) {
    directory_dst();
    opts.m_src = L"\\dir\\name.txt";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/name.txt").wstring());
}

TEST_F(destination_test, a_name_never_leads_out_of_the_directory) {
    directory_dst();
    write_file(dir / "victim", to_bytes("victim"));
    opts.m_src = L"x\\../victim";
    expect_refusal("err: can't create the file: " + path("out/../victim"));
    EXPECT_EQ(test::read_file(dir / "victim"), to_bytes("victim"));
    fs::create_directory(dir / "out/b");
    opts.m_src = L"x\\b/..c";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/b/..c").wstring());
}

TEST_F(destination_test, a_name_of_two_dots_is_refused_also_after_the_first_success_of_a_list) {
    directory_dst();
    opts.m_src = L"..";
    rules.check_creation = false;
    EXPECT_FALSE(settle());
    const std::string words = "err: can't create the file: " + path("out/..");
    EXPECT_EQ(said, words + "\n");
    EXPECT_EQ(logged, "->dst: " + path("out/..") + "\n->" + words + "\n");
}

TEST_F(destination_test, without_a_source_path_a_directory_takes_the_cluster_text) {
    directory_dst();
    opts.m_cluster_text = "100";
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/100").wstring());
}

TEST_F(destination_test,
       a_copy_by_entry_number_alone_has_no_name_to_add_so_a_directory_cannot_be_created_as_a_file) {
    directory_dst();
    opts.m_entry = 5;
    EXPECT_FALSE(settle());
    EXPECT_EQ(said, "err: can't create the file: " + path("out/") + "\n");
    EXPECT_EQ(logged, "->dst: " + path("out/") + "\n->err: can't create the file: " + path("out/") + "\n");
}

TEST_F(destination_test, without_any_name_a_relative_directory_is_shown_by_its_absolute_form) {
    const fs::path before = fs::current_path();
    fs::current_path(dir.path());
    const std::string absolute = (fs::current_path() / "out/").string();
    opts.m_dst = L"out/";
    opts.m_entry = 5;
    EXPECT_FALSE(settle());
    fs::current_path(before);
    EXPECT_EQ(said, "err: can't create the file: " + absolute + "\n");
    EXPECT_EQ(logged, "->dst: " + absolute + "\n->err: can't create the file: " + absolute + "\n");
}

TEST_F(destination_test, the_directory_of_the_source_with_a_backslash_is_the_same) {
    opts.m_src = L"\\dir\\sub\\name";
    opts.m_dst = L"\\dir\\sub\\";
    expect_refusal("err: source and destination are the same");
}

TEST_F(destination_test, only_a_backslash_is_put_after_the_sources_directory_for_this_comparison) {
    directory_dst();
    opts.m_src = (dir / "out/name").wstring();
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.copy, (dir / "out/name").wstring());
}

TEST_F(destination_test, an_earlier_file_is_gone_after_the_check_and_stays_without_it) {
    write_file(dir / "out/a", to_bytes("old"));
    rules.check_creation = false;
    EXPECT_TRUE(settle());
    EXPECT_TRUE(fs::exists(dir / "out/a"));
    rules.check_creation = true;
    EXPECT_TRUE(settle());
    EXPECT_FALSE(fs::exists(dir / "out/a"));
}

TEST_F(destination_test, a_missing_directory_is_found_only_by_the_check) {
    opts.m_dst = (dir / "missing/a").wstring();
    EXPECT_FALSE(settle());
    EXPECT_EQ(said, "err: can't create the file: " + path("missing/a") + "\n");
    EXPECT_FALSE(fs::exists(dir / "missing"));
    rules.check_creation = false;
    EXPECT_TRUE(settle());
}

TEST_F(destination_test, a_file_of_the_source_is_refused_before_anything_is_opened) {
    write_file(dir / "image", to_bytes("evidence"));
    fs::create_hard_link(dir / "image", dir / "hard");
    fs::create_symlink(dir / "image", dir / "soft");
    opts.m_run.m_guard.add_sources({path("other"), path("image")});
    for (const char* name : {"image", "hard", "soft"}) {
        for (const bool check : {true, false}) {
            rules.check_creation = check;
            opts.m_dst = (dir / name).wstring();
            expect_refusal("err: source and destination are the same");
            EXPECT_EQ(test::read_file(dir / "image"), to_bytes("evidence"));
        }
    }
}

TEST_F(destination_test, a_name_added_to_a_directory_is_held_against_the_sources_too) {
    write_file(dir / "out/name", to_bytes("evidence"));
    opts.m_run.m_guard.add_sources({path("out/name")});
    directory_dst();
    opts.m_src = L"/x/name";
    expect_refusal("err: source and destination are the same");
    EXPECT_EQ(test::read_file(dir / "out/name"), to_bytes("evidence"));
}

TEST_F(destination_test, the_status_log_is_no_destination) {
    opts.m_dst = (dir / "log").wstring();
    EXPECT_FALSE(settle());
    EXPECT_EQ(said, "err: can't create the file: " + path("log") + "\n");
    EXPECT_TRUE(fs::exists(dir / "log"));
}

TEST_F(destination_test, a_report_lies_beside_the_copy) {
    opts.m_meta = true;
    EXPECT_TRUE(settle());
    EXPECT_EQ(target.outputs.report_path(text_report), (dir / "out/a.meta.txt").wstring());
}

TEST_F(destination_test, a_report_that_would_be_a_source_or_the_log_is_none) {
    opts.m_meta = true;
    write_file(dir / "out/a.meta.txt", to_bytes("evidence"));
    opts.m_run.m_guard.add_sources({path("out/a.meta.txt")});
    EXPECT_TRUE(settle());
    EXPECT_TRUE(target.outputs.reports.empty());
    fs::remove(dir / "out/a.meta.txt");
    fs::create_symlink(dir / "log", dir / "out/a.meta.txt");
    EXPECT_TRUE(settle());
    EXPECT_TRUE(target.outputs.reports.empty());
}

}  // namespace
}  // namespace quarry
