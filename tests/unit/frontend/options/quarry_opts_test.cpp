#include "frontend/options/quarry_opts.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cstdlib>
#include <iterator>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::temp_dir;

class quarry_opts_test : public testing::Test {
  protected:
    void SetUp() override {
        test::volume_builder().write_to(dir / "image");
        image = (dir / "image").string();
        opts.m_admin = true;
    }
    bool parse(arg_list words) {
        args = std::move(words);
        args.insert(args.begin(), "quarry");
        testing::internal::CaptureStderr();
        const bool good = opts.parse(args, "ver: 9");
        said = testing::internal::GetCapturedStderr();
        return good;
    }
    temp_dir dir;
    std::string image;
    quarry_opts opts;
    arg_list args;
    std::string said;
};

TEST_F(quarry_opts_test, begins_with_its_defaults) {
    const quarry_opts fresh;
    EXPECT_FALSE(fresh.m_admin);
    EXPECT_FALSE(fresh.m_meta);
    EXPECT_FALSE(fresh.m_raw);
    EXPECT_FALSE(fresh.m_md5);
    EXPECT_FALSE(fresh.m_skip_sparse);
    EXPECT_FALSE(fresh.m_first_ntfsvol);
    EXPECT_FALSE(fresh.m_source.is_given());
    EXPECT_EQ(fresh.m_source.drive, -1);
    EXPECT_EQ(fresh.m_entry, 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(fresh.m_source.offset, 0U);
    EXPECT_EQ(fresh.m_clusters.start_lcn, 0U);
    EXPECT_EQ(fresh.m_clusters.count, 0U);
    EXPECT_EQ(fresh.m_src + fresh.m_dst, L"");
    EXPECT_EQ(fresh.m_cluster_text, "");
}

TEST_F(quarry_opts_test, keeps_the_version_and_the_tools_name_and_clears_output_formats) {
    opts.m_run.m_csv = true;
    opts.m_run.m_hex_output = true;
    EXPECT_TRUE(parse({}));
    EXPECT_EQ(opts.m_run.m_version, "ver: 9");
    EXPECT_EQ(opts.m_run.m_tool_name, "QUARRY");
    EXPECT_FALSE(opts.m_run.m_csv);
    EXPECT_FALSE(opts.m_run.m_hex_output);
}

TEST_F(quarry_opts_test, each_switch_sets_its_flag) {
    EXPECT_TRUE(parse({"-meta", "-SKIP_SPARSE_CLUSTERS", "-md5", "-Raw", "-first_ntfsvol"}));
    EXPECT_TRUE(opts.m_meta);
    EXPECT_TRUE(opts.m_skip_sparse);
    EXPECT_TRUE(opts.m_md5);
    EXPECT_TRUE(opts.m_raw);
    EXPECT_TRUE(opts.m_first_ntfsvol);
    EXPECT_EQ(args.size(), 1U);
}

TEST_F(quarry_opts_test, switches_that_choose_no_bytes_of_the_volume_are_for_everyone) {
    opts.m_admin = false;
    EXPECT_TRUE(parse({"-meta", "-md5"}));
    EXPECT_EQ(said, "");
    for (const char* gated : {"-first_ntfsvol", "-skip_sparse_clusters", "-raw"}) {
        EXPECT_FALSE(parse({"-meta", "-md5", gated})) << gated;
        EXPECT_EQ(said, "Need Admin privs to use this option\n") << gated;
    }
}

TEST_F(quarry_opts_test, a_pair_of_paths_is_not_looked_at_beside_src_or_dst) {
    EXPECT_TRUE(parse({"x", "-dst", "b", "y"}));
    EXPECT_EQ(opts.m_src, L"");
    EXPECT_EQ(opts.m_dst, L"b");
    opts.m_dst.clear();
    EXPECT_TRUE(parse({"x", "-src", "a", "y"}));
    EXPECT_EQ(opts.m_src, L"a");
    EXPECT_EQ(opts.m_dst, L"");
}

TEST_F(quarry_opts_test, without_a_source_option_only_the_path_names_the_volume) {
    EXPECT_TRUE(parse({"-src", "c:\\a", "-dst", "b"}));
    EXPECT_FALSE(opts.m_source.is_given());
    EXPECT_EQ(opts.m_src, L"c:\\a");
    EXPECT_EQ(opts.m_dst, L"b");
    EXPECT_EQ(said, "");
}

TEST_F(quarry_opts_test, a_partition_of_one_letter_gets_a_colon) {
    EXPECT_TRUE(parse({"-partition", "e"}));
    EXPECT_EQ(opts.m_source.partition(), L"e:");
    EXPECT_TRUE(parse({"-partition", "/dev/sdz1"}));
    EXPECT_EQ(opts.m_source.partition(), L"/dev/sdz1");
}

TEST_F(quarry_opts_test, a_partition_goes_before_an_image_which_is_never_looked_at) {
    EXPECT_TRUE(parse({"-image", "/no/such/image", "-partition", "y"}));
    EXPECT_EQ(opts.m_source.kind, source_kind::partition);
    EXPECT_EQ(args, (arg_list{"quarry", "-image", "/no/such/image"}));
}

TEST_F(quarry_opts_test, an_image_is_made_absolute_and_keeps_offset_0) {
    EXPECT_TRUE(parse({"-image", image, "-src", "a", "-dst", "b"}));
    EXPECT_EQ(opts.m_source.kind, source_kind::image);
    EXPECT_EQ(opts.m_source.paths, std::vector{std::wstring(image.begin(), image.end())});
    EXPECT_EQ(opts.m_source.offset, 0U);
}

TEST_F(quarry_opts_test, every_option_is_taken_with_its_value_in_any_case_of_its_letters) {
    const std::string log = (dir / "log").string();
    const std::string out = (dir / "out").string();
    std::istringstream text(
        "-PAIR_DATETIME -L2 -APPEND -ENUMDIR d -NUM_SUBDIRS 1 -PROFILE -PIPE -FILTER_SKIP s -FILTER f "
        "-FILTER_PATH p -FILTER_SIG 4d5a -CMD_START_TIME 2020/01/01 -CMD_STOP_TIME 2020/01/02 "
        "-BASE10 -BASE16 -DATEFORMAT yyyy-mm-dd -TIMEFORMAT hh:mm:ss -VERBOSE -V -QUIET -SIGNAL s "
        "-FIRST_NTFSVOL "
        "-META -SKIP_SPARSE_CLUSTERS -MD5 -RAW -OFFSET 0 -SRC a -DST b -MFT 5");
    arg_list words(std::istream_iterator<std::string>(text), {});
    words.insert(words.end(), {"-DIAGS", log, "-OUTFILE", out, "-IMAGE", image});
    EXPECT_TRUE(parse(words));
    EXPECT_EQ(said, "");
    EXPECT_EQ(args, arg_list{"quarry"});
    for (const arg_list& others :
         {arg_list{"-CLUSTER", "1", "2", "-DST", "b"}, arg_list{"-Cluster", "1", "-PARTITION", "e"},
          arg_list{"-DIAGS", log, "-L3", "-OUT", out}}) {
        EXPECT_TRUE(parse(others));
        EXPECT_EQ(args, arg_list{"quarry"}) << testing::PrintToString(others);
    }
}

TEST_F(quarry_opts_test, an_entry_may_be_given_beside_a_path) {
    EXPECT_TRUE(parse({"-mft", "5", "-src", "a", "-dst", "b"}));
    EXPECT_EQ(opts.m_entry, 5U);
    EXPECT_EQ(opts.m_src, L"a");
}

TEST_F(quarry_opts_test, an_entry_goes_before_clusters_and_words) {
    EXPECT_TRUE(parse({"-cluster", "1", "2", "-mft", "5", "-dst", "b", "x", "y"}));
    EXPECT_EQ(opts.m_entry, 5U);
    EXPECT_EQ(opts.m_cluster_text, "");
    EXPECT_EQ(opts.m_src, L"");
}

TEST_F(quarry_opts_test, clusters_have_a_start_and_a_count) {
    EXPECT_TRUE(parse({"-cluster", "100", "8", "-dst", "b"}));
    EXPECT_EQ(opts.m_clusters.start_lcn, 100U);
    EXPECT_EQ(opts.m_clusters.count, 8U);
    EXPECT_EQ(opts.m_cluster_text, "100");
}

TEST_F(quarry_opts_test, with_one_number_the_text_is_the_count_not_the_cluster) {
    EXPECT_TRUE(parse({"-cluster", "100", "-dst", "b"}));
    EXPECT_EQ(opts.m_clusters.start_lcn, 100U);
    EXPECT_EQ(opts.m_clusters.count, 1U);
    EXPECT_EQ(opts.m_cluster_text, "1");
}

TEST_F(quarry_opts_test, a_list_clears_the_source_and_needs_a_destination) {
    EXPECT_TRUE(parse({"-pipe", "-src", "a", "-dst", "b"}));
    EXPECT_EQ(opts.m_src, L"");
    EXPECT_TRUE(parse({"-pipe", "-dst", "b", "x", "y", "z"}));
    EXPECT_EQ(opts.m_src, L"");
    EXPECT_EQ(opts.m_dst, L"b");
    opts.m_dst.clear();
    EXPECT_FALSE(parse({"-pipe", "x"}));
    EXPECT_EQ(said, "option [-dst <destination file>] needed for this option\n");
}

TEST_F(quarry_opts_test, a_single_word_as_the_source_is_taken_as_typed) {
    setenv("QUARRY_A", "alpha", 1);
    EXPECT_TRUE(parse({"%QUARRY_A%"}));
    EXPECT_EQ(opts.m_src, L"%QUARRY_A%");
    EXPECT_EQ(opts.m_dst, L"");
    opts.m_src.clear();
    EXPECT_TRUE(parse({"%QUARRY_A%", "%QUARRY_A%b"}));
    EXPECT_EQ(opts.m_src, L"alpha");
    EXPECT_EQ(opts.m_dst, L"alphab");
}

TEST_F(quarry_opts_test, a_path_of_a_shadow_copy_can_be_written_with_vss) {
    EXPECT_TRUE(parse({"-src", "%vss%3\\x", "-dst", "b"}));
    EXPECT_EQ(opts.m_src, L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\x");
}

TEST_F(quarry_opts_test, no_option_is_an_error_by_itself) {
    EXPECT_TRUE(parse({}));
    EXPECT_FALSE(opts.m_source.is_given());
    EXPECT_TRUE(parse({"-unknown", "x", "y", "z"}));
    EXPECT_EQ(said, "");
}

TEST(is_administrator, is_who_runs_as_root) {
    EXPECT_EQ(is_administrator(), ::getuid() == 0 || ::geteuid() == 0);
}

}  // namespace
}  // namespace quarry
