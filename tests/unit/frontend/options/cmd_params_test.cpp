#include "frontend/options/cmd_params.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <memory>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::bytes;
using test::read_file;
using test::temp_dir;
using test::to_bytes;
using test::write_file;

std::string text_of(const fs::path& path) {
    const bytes content = read_file(path);
    return {content.begin(), content.end()};
}

class cmd_params_test : public testing::Test {
  protected:
    // Parses, and keeps what was said on standard error in `said`.
    bool parse(arg_list words) {
        args = std::move(words);
        args.insert(args.begin(), "/usr/bin/quarry.real");
        testing::internal::CaptureStderr();
        const bool good = opts->parse(args);
        said = testing::internal::GetCapturedStderr();
        return good;
    }
    [[nodiscard]] bool nothing_left() const { return args.size() == 1; }
    [[nodiscard]] std::string path(const char* name) const { return (dir / name).string(); }

    temp_dir dir;
    std::unique_ptr<cmd_params> opts = std::make_unique<cmd_params>();
    arg_list args;
    std::string said;
};

TEST_F(cmd_params_test, begins_with_its_defaults) {
    EXPECT_EQ(opts->m_date_format, "yyyy-mm-dd");
    EXPECT_EQ(opts->m_time_format, "hh:mm:ss.xxx");
    EXPECT_TRUE(opts->m_console);
    EXPECT_TRUE(opts->m_verbose);
    EXPECT_FALSE(opts->m_hex_output);
    EXPECT_FALSE(opts->m_pair_datetime);
    EXPECT_FALSE(opts->m_profile);
    EXPECT_FALSE(opts->m_pipe);
    EXPECT_FALSE(opts->m_enum);
    EXPECT_FALSE(opts->m_log.is_on());
    EXPECT_EQ(opts->m_log.m_level, 0);
    EXPECT_EQ(opts->m_log.path(), "");
    EXPECT_EQ(opts->m_num_subdirs, 0U);
    EXPECT_FALSE(opts->m_time_range.is_on());
}

TEST_F(cmd_params_test, an_empty_list_is_refused) {
    EXPECT_FALSE(opts->parse(args));
    EXPECT_EQ(opts->m_command_line, "");
}

TEST_F(cmd_params_test, keeps_the_command_line_and_the_programs_name) {
    EXPECT_TRUE(parse({"-src", "/a b", "-quiet"}));
    EXPECT_EQ(opts->m_command_line, "/usr/bin/quarry.real -src \"/a b\" -quiet");
    EXPECT_EQ(opts->m_program_name, "quarry");
    EXPECT_EQ(args, (arg_list{"/usr/bin/quarry.real", "-src", "/a b"}));
}

TEST_F(cmd_params_test, a_command_line_that_is_known_already_stays) {
    opts->m_command_line = "before";
    opts->m_program_name = "me";
    EXPECT_TRUE(parse({}));
    EXPECT_EQ(opts->m_command_line, "before");
    EXPECT_EQ(opts->m_program_name, "me");
}

TEST_F(cmd_params_test, switches_work_in_any_case_and_are_taken_out) {
    EXPECT_TRUE(parse({"-PAIR_datetime", "-Profile", "-PIPE", "-Base16", "-V", "-verbose", "-QUIET"}));
    EXPECT_TRUE(opts->m_pair_datetime);
    EXPECT_TRUE(opts->m_profile);
    EXPECT_TRUE(opts->m_pipe);
    EXPECT_TRUE(opts->m_hex_output);
    EXPECT_TRUE(opts->m_verbose);
    EXPECT_FALSE(opts->m_console);
    EXPECT_TRUE(nothing_left());
    EXPECT_TRUE(opts->m_time_layout.paired);
}

TEST_F(cmd_params_test, base10_takes_base16_back_only_if_base16_is_not_given_too) {
    EXPECT_TRUE(parse({"-base16", "-base10"}));
    EXPECT_TRUE(opts->m_hex_output);
    EXPECT_TRUE(parse({"-base10"}));
    EXPECT_FALSE(opts->m_hex_output);
}

TEST_F(cmd_params_test, values_are_taken_along) {
    setenv("QUARRY_WALK", "/walk", 1);
    EXPECT_TRUE(parse({"-enumdir", "%QUARRY_WALK%/x", "-num_subdirs", "0x10", "-signal", "done"}));
    EXPECT_TRUE(opts->m_enum);
    EXPECT_EQ(opts->m_enum_dir, "/walk/x");
    EXPECT_EQ(opts->m_num_subdirs, 16U);
    EXPECT_EQ(opts->m_signal, "done");
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, a_number_of_subdirectories_that_is_none_counts_as_0) {
    for (const char* text : {"", "abc", "x", "-"}) {
        EXPECT_TRUE(parse({"-num_subdirs", text})) << text;
        EXPECT_EQ(opts->m_num_subdirs, 0U) << text;
    }
}

TEST_F(cmd_params_test, an_option_with_a_value_that_is_last_is_silently_absent) {
    for (const char* option :
         {"-diags", "-out", "-outfile", "-enumdir", "-num_subdirs", "-filter_skip", "-filter", "-filter_sig",
          "-cmd_start_time", "-cmd_stop_time", "-dateformat", "-timeformat", "-signal"}) {
        EXPECT_TRUE(parse({option})) << option;
        EXPECT_EQ(said, "") << option;
        EXPECT_EQ(args.size(), 2U) << option;
    }
    EXPECT_FALSE(opts->m_enum);
}

TEST_F(cmd_params_test, options_that_it_does_not_know_stay) {
    EXPECT_TRUE(parse({"-unknown", "-raw", "x", "-threads", "4", "-csv"}));
    EXPECT_EQ(args, (arg_list{"/usr/bin/quarry.real", "-unknown", "-raw", "x"}));
}

TEST_F(cmd_params_test, a_date_format_has_8_or_10_characters_and_is_lowered) {
    EXPECT_TRUE(parse({"-dateformat", "YYYY/MM/DD"}));
    EXPECT_EQ(opts->m_date_format, "yyyy/mm/dd");
    EXPECT_EQ(opts->m_time_layout.separator, '/');
    EXPECT_TRUE(parse({"-dateformat", "dd-mm-yy"}));
    EXPECT_EQ(opts->m_date_format, "dd-mm-yy");
    for (const char* text : {"", "yymmdd", "yyyymmdd1", "mmm dd, yyyy"}) {
        EXPECT_TRUE(parse({"-dateformat", text}));
        EXPECT_EQ(said, std::string("invalid ") + text + ", using default format\n");
        EXPECT_EQ(opts->m_date_format, "dd-mm-yy");
        EXPECT_TRUE(nothing_left());
    }
}

TEST_F(cmd_params_test, a_time_format_has_8_or_12_to_18_characters_with_a_colon) {
    for (const char* text : {"hh:mm:ss", "hh:mm:ss.xxx", "hh:mm:ss.xxxxxxxxx"}) {
        EXPECT_TRUE(parse({"-timeformat", text}));
        EXPECT_EQ(said, "");
        EXPECT_EQ(opts->m_time_format, text);
    }
    EXPECT_TRUE(parse({"-timeformat", "HH:MM:SS"}));
    EXPECT_EQ(opts->m_time_format, "hh:mm:ss");
    for (const char* text :
         {"", "hhmmssxxxxxx", "hh.mm.ss", "hh:mm:ss.", "hh:mm:ss.xx", "hh:mm:ss.xxxxxxxxxx"}) {
        EXPECT_TRUE(parse({"-timeformat", text}));
        EXPECT_EQ(said, std::string("invalid ") + text + ", using default format\n");
        EXPECT_EQ(opts->m_time_format, "hh:mm:ss");
    }
}

TEST_F(cmd_params_test, a_pattern_that_cannot_be_read_is_no_error) {
    EXPECT_TRUE(parse({"-dateformat", "xxxxxxxx"}));
    EXPECT_EQ(said, "");
    EXPECT_EQ(opts->m_date_format, "xxxxxxxx");
}

TEST_F(cmd_params_test, filters_add_up_in_the_order_of_their_places) {
    EXPECT_TRUE(parse({"-filter", "a|b", "-filter_skip", "s", "-FILTER", "c", "-filter_sig", "4d5a|2"}));
    ASSERT_EQ(opts->m_filter.size(), 4U);
    EXPECT_EQ(opts->m_filter[0].name, L"a");
    EXPECT_EQ(opts->m_filter[1].name, L"b");
    EXPECT_EQ(opts->m_filter[2].name, L"c");
    EXPECT_EQ(opts->m_filter[3].signature, (bytes{0x4D, 0x5A}));
    EXPECT_EQ(opts->m_filter[3].sig_offset, 2U);
    ASSERT_EQ(opts->m_filter_skip.size(), 1U);
    EXPECT_EQ(opts->m_filter_skip[0].name, L"s");
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, a_filter_path_is_set_on_all_entries_of_the_list_before_it) {
    EXPECT_TRUE(parse({"-filter", "a|b", "-filter_path", "/dir"}));
    ASSERT_EQ(opts->m_filter.size(), 2U);
    for (const filter_entry& entry : opts->m_filter) {
        EXPECT_EQ(entry.path, L"/dir");
        EXPECT_EQ(entry.path_length, 4U);
    }
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, a_filter_path_without_a_filter_is_not_looked_at) {
    EXPECT_TRUE(parse({"-filter_path", "/dir"}));
    EXPECT_EQ(args.size(), 3U);
}

TEST_F(cmd_params_test, a_time_range_that_cannot_be_read_is_ignored_with_a_message) {
    EXPECT_TRUE(parse({"-cmd_start_time", "2020/13/01"}));
    EXPECT_EQ(said, "invalid start time, ignoring\n");
    EXPECT_FALSE(opts->m_time_range.is_on());
    EXPECT_TRUE(parse({"-cmd_start_time", "2020/01/02", "-cmd_stop_time", "2020/01/01"}));
    EXPECT_EQ(said, "invalid stop time, ignoring\n");
    EXPECT_TRUE(opts->m_time_range.m_range_start_on);
    EXPECT_FALSE(opts->m_time_range.m_range_stop_on);
    EXPECT_TRUE(parse({"-cmd_start_time", "2020/01/02", "-cmd_stop_time", "2021-01-01 12:00"}));
    EXPECT_EQ(said, "");
    EXPECT_TRUE(opts->m_time_range.m_range_stop_on);
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, a_time_range_without_a_date_ends_parsing_without_a_message) {
    EXPECT_FALSE(parse({"-cmd_start_time", "20200102"}));
    EXPECT_EQ(said, "");
    EXPECT_FALSE(parse({"-cmd_stop_time", "20200102"}));
    EXPECT_EQ(said, "");
}

TEST_F(cmd_params_test, an_out_file_that_can_be_written_is_made_and_removed_again) {
    for (const char* option : {"-out", "-OUTFILE"}) {
        write_file(dir / "o", to_bytes("old"));
        EXPECT_TRUE(parse({option, path("o")})) << option;
        EXPECT_EQ(said, "");
        EXPECT_TRUE(fs::is_empty(dir.path()));
        EXPECT_TRUE(nothing_left());
    }
    write_file(dir / "o", to_bytes("old"));
    EXPECT_TRUE(parse({"-out", path("o"), "-append"}));
    EXPECT_TRUE(fs::is_empty(dir.path()));
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, an_out_file_that_cannot_be_written_ends_parsing) {
    for (const char* bad : {"/no/such/dir/x", "/", ""}) {
        EXPECT_FALSE(parse({"-out", bad}));
        EXPECT_EQ(said, std::string("prob opening file ") + bad + " for output, aborting\n");
        EXPECT_FALSE(parse({"-append", "-out", bad}));
        EXPECT_EQ(said, std::string("prob opening file ") + bad + " for output, aborting\n");
    }
}

TEST_F(cmd_params_test, an_out_file_is_looked_at_before_the_pipe_flag) {
    EXPECT_FALSE(parse({"-pipe", "-out", "/no/such/dir/x"}));
    EXPECT_FALSE(opts->m_pipe);
}

TEST_F(cmd_params_test, an_out_file_that_is_a_source_is_refused_and_stays_whole) {
    write_file(dir / "image", to_bytes("evidence"));
    EXPECT_FALSE(parse({"-out", path("image"), "-image", path("image")}));
    EXPECT_EQ(said, "prob opening file " + path("image") + " for output, aborting\n");
    EXPECT_EQ(text_of(dir / "image"), "evidence");
}

TEST_F(cmd_params_test, an_out_file_that_is_the_log_is_refused_and_the_log_stays) {
    EXPECT_FALSE(parse({"-diags", path("log"), "-out", path("log")}));
    EXPECT_EQ(said, "prob opening file " + path("log") + " for output, aborting\n");
    EXPECT_TRUE(fs::exists(dir / "log"));
}

TEST_F(cmd_params_test, append_without_an_out_file_is_not_looked_at) {
    EXPECT_TRUE(parse({"-append"}));
    EXPECT_EQ(args.size(), 2U);
}

TEST_F(cmd_params_test, a_log_begins_with_the_command_line) {
    write_file(dir / "log", to_bytes("an older log, longer than the new one"));
    EXPECT_TRUE(parse({"-diags", path("log"), "-x", "a b"}));
    EXPECT_TRUE(opts->m_log.is_on());
    EXPECT_TRUE(opts->m_log.is_good());
    EXPECT_EQ(opts->m_log.path(), path("log"));
    EXPECT_EQ(text_of(dir / "log"), "->/usr/bin/quarry.real -diags " + path("log") + " -x \"a b\"\n");
}

TEST_F(cmd_params_test, each_line_of_a_log_is_flushed_at_once) {
    ASSERT_TRUE(parse({"-diags", path("log")}));
    const std::string first = text_of(dir / "log");
    opts->m_log.log("err: fixup: 0x%llx", 0x10ULL);
    EXPECT_EQ(text_of(dir / "log"), first + "->err: fixup: 0x10\n");
    opts->m_log.log_text("two\nlines");
    EXPECT_EQ(text_of(dir / "log"), first + "->err: fixup: 0x10\n->two\nlines\n");
}

TEST_F(cmd_params_test, a_message_above_the_buffer_size_is_cut_and_its_line_still_ends) {
    ASSERT_TRUE(parse({"-diags", path("log")}));
    const std::string first = text_of(dir / "log");
    opts->m_log.log("info: %s", std::string(1000, 'x').c_str());
    // The format has 8 characters; 254 more fit.
    EXPECT_EQ(text_of(dir / "log"), first + "->info: " + std::string(256, 'x') + "\n");
    EXPECT_EQ(std::string("info: ").size() + 256, 8U + 254U);
}

TEST_F(cmd_params_test, a_command_line_is_never_cut) {
    const std::string long_word(5000, 'y');
    ASSERT_TRUE(parse({"-diags", path("log"), long_word}));
    EXPECT_EQ(text_of(dir / "log"), "->/usr/bin/quarry.real -diags " + path("log") + " " + long_word + "\n");
}

TEST_F(cmd_params_test, a_log_that_cannot_be_opened_is_absent_without_a_word) {
    for (const char* bad : {"/no/such/dir/x", "/", "", "log\xFF"}) {
        EXPECT_TRUE(parse({"-diags", bad}));
        EXPECT_EQ(said, "");
        EXPECT_FALSE(opts->m_log.is_on());
        EXPECT_FALSE(opts->m_log.is_good());
        EXPECT_EQ(opts->m_log.path(), "");
        opts->m_log.log("into the void");
        EXPECT_TRUE(nothing_left());
    }
}

TEST_F(cmd_params_test, a_log_that_is_a_source_is_not_opened) {
    write_file(dir / "image", to_bytes("evidence"));
    fs::create_hard_link(dir / "image", dir / "link");
    for (const arg_list& words : {arg_list{"-diags", path("image"), "-image", path("image")},
                                  arg_list{"-image", path("image"), "-diags", path("link")},
                                  arg_list{"-diags", path("image"), "-partition", path("link")},
                                  arg_list{"-diags", path("image"), "-vmdk", "x | " + path("link")}}) {
        EXPECT_TRUE(parse(words));
        EXPECT_EQ(said, "");
        EXPECT_FALSE(opts->m_log.is_on());
        EXPECT_EQ(text_of(dir / "image"), "evidence");
    }
}

TEST_F(cmd_params_test, a_log_level_is_looked_at_only_after_an_open_log_and_the_lower_one_wins) {
    EXPECT_TRUE(parse({"-l2", "-l3"}));
    EXPECT_EQ(opts->m_log.m_level, 0);
    EXPECT_EQ(args.size(), 3U);
    EXPECT_TRUE(parse({"-L3", "-diags", path("log")}));
    EXPECT_EQ(opts->m_log.m_level, 3);
    EXPECT_TRUE(nothing_left());
    EXPECT_TRUE(parse({"-l3", "-l2", "-diags", path("log")}));
    EXPECT_EQ(opts->m_log.m_level, 2);
    EXPECT_TRUE(nothing_left());
}

TEST_F(cmd_params_test, a_log_that_fails_in_a_write_is_not_noticed) {
    ASSERT_TRUE(parse({"-diags", "/dev/full"}));
    EXPECT_TRUE(opts->m_log.is_on());
    EXPECT_FALSE(opts->m_log.is_good());
    opts->m_log.log("more");
}

TEST_F(cmd_params_test, knows_its_own_log) {
    const auto verdict = [this](const char* name) {
        return opts->m_guard.look_at(path(name), output_kind::copy);
    };
    ASSERT_TRUE(parse({"-diags", path("log")}));
    EXPECT_EQ(verdict("log"), output_verdict::taken);
    fs::create_symlink(dir / "log", dir / "link");
    EXPECT_EQ(verdict("link"), output_verdict::taken);
    EXPECT_EQ(verdict("other"), output_verdict::free);
}

}  // namespace
}  // namespace quarry
