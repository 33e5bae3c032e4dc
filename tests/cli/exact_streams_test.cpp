// The standard streams and the log of the exact mode when they do not do what they are there for: closed,
// full, or led to a pipe that nobody reads.
#include "cli/command_line.h"

#include <filesystem>

namespace quarry::test {
namespace {

namespace fs = std::filesystem;
using words = std::vector<std::string>;

class exact_streams : public command_line_test {
  protected:
    // "volume": entry 24 /a.txt "hello\n".
    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("a.txt").stored_data(to_bytes("hello\n"));
        write_file(m_dir / "volume", volume.image());
        fs::create_directory(m_dir / "out");
        ASSERT_TRUE(fs::is_character_file("/dev/full"));
    }

    [[nodiscard]] program_result exact(words line, program_options options = {}) const {
        line.insert(line.begin(), {"-exact", "-image", "volume"});
        return run(std::move(line), std::move(options));
    }
};

TEST_F(exact_streams, a_list_that_was_closed_is_refused_and_is_no_empty_one) {
    const program_result result =
        exact({"-pipe", "-dst", "out/", "-manifest", "m.jsonl"}, {.close_standard_input = true});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "err: list: standard input is closed\n");
    EXPECT_EQ(text("m.jsonl"), "");
    EXPECT_EQ(exact({"-src", "/a.txt", "-dst", "a"}, {.close_standard_input = true}).status, 0);
}

TEST_F(exact_streams, standard_output_may_be_a_file_named_like_a_word_that_names_no_source) {
    const program_result result = run_program(
        {"/bin/sh", "-c", R"("$0" -exact -image volume -ntfsvol 1 -src /a.txt -dst copy >1)", QUARRY_PROGRAM},
        {.directory = m_dir.path()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(text("copy"), "hello\n");
    const std::string before = text("volume");
    const program_result refused =
        run_program({"/bin/sh", "-c", R"("$0" -exact -image volume -nonsense 1 >>volume)", QUARRY_PROGRAM},
                    {.directory = m_dir.path()});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err, "err: \"-nonsense\" is no option; -exact -h lists them\n");
    EXPECT_TRUE(text("volume") == before);
}

TEST_F(exact_streams, volumes_that_standard_output_does_not_take_are_a_failure) {
    for (const output_end end : {output_end::closed, output_end::broken}) {
        const program_result result = exact({"-volumes"}, {.standard_output = end});
        EXPECT_TRUE(result.exited);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.err.find("err: standard output: cannot be written: "), std::string::npos)
            << result.err;
    }
    const program_result full =
        run_program({"/bin/sh", "-c", "'" QUARRY_PROGRAM "' -exact -image volume -volumes >/dev/full"},
                    {.directory = m_dir.path()});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "err: standard output: cannot be written: No space left on device\n");
}

TEST_F(exact_streams, a_log_that_does_not_take_its_head_is_refused_before_anything_is_read) {
    const program_result result = exact({"-src", "/a.txt", "-dst", "a", "-diags", "/dev/full"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "err: log /dev/full: cannot be written: No space left on device\n");
    EXPECT_FALSE(fs::exists(m_dir / "a"));
}

TEST_F(exact_streams, a_log_that_ends_in_the_middle_is_told_once_and_makes_the_status_1) {
    ASSERT_EQ(exact({"-src", "/a.txt", "-dst", "a", "-diags", "log"}).status, 0);
    const std::string whole = text("log");
    const program_result result = exact({"-src", "/a.txt", "-dst", "b", "-diags", "log", "-quiet"},
                                        {.file_size_limit = whole.find("info: path")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "err: log log: cannot be written: File too large\n");
    // The copy is none the worse for it.
    EXPECT_EQ(text("b"), "hello\n");
    const program_result none = exact({"-src", "/none", "-dst", "c", "-diags", "log", "-quiet"},
                                      {.file_size_limit = whole.find("info: path")});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err,
              "err: log log: cannot be written: File too large\n"
              "err: path \"/none\": no such name\n");
}

TEST_F(exact_streams, an_option_after_another_that_needs_a_value_is_refused_even_if_it_asks_for_help) {
    const program_result result = exact({"-src", "-h", "-dst", "a"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "err: -src needs a value; \"-h\" is an option\n");
    EXPECT_EQ(exact({"-imgae", "-h"}).status, 0);
}

}  // namespace
}  // namespace quarry::test
