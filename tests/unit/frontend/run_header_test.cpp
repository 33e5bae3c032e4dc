#include "frontend/run_header.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

// 2026-11-20 18:22:41 UTC: 155,551 days and 66,161 seconds after 1601-01-01.
constexpr std::uint64_t a_moment = (155'551ULL * 86'400 + 66'161) * 10'000'000;

std::string header_of(const arg_list& args, std::string_view date_pattern) {
    return run_header(args, ql::time(a_moment, ql::type_time::filetime), date_pattern, "lab1",
                      "Linux;a;b;64");
}

TEST(run_header, reports_what_ran_when_and_where_and_how_it_was_called_in_three_lines) {
    EXPECT_EQ(header_of({"quarry", "-image", "x"}, "mm/dd/yyyy"),
              "quarry ver: 1.14\n"
              "run time: 11/20/2026 18:22:41 UTC; host: lab1; platform: Linux;a;b;64\n"
              "\"command: quarry -image x\"\n");
}

TEST(run_header, takes_the_date_pattern_as_typed) {
    EXPECT_NE(header_of({"quarry"}, "yyyy-mm-dd").find("run time: 2026-11-20 18:22:41 UTC"),
              std::string::npos);
    EXPECT_NE(header_of({"quarry"}, "dd/mm/yy").find("run time: 20/11/26 18:22:41 UTC"), std::string::npos);
    // Upper case holds none of the letters that a pattern is made of.
    EXPECT_NE(header_of({"quarry"}, "YYYY-MM-DD").find("run time: 11/20/2026 18:22:41 UTC"),
              std::string::npos);
}

TEST(run_header, puts_arguments_with_a_blank_in_single_quotes) {
    EXPECT_NE(header_of({"quarry", "-src", "/a b"}, "").find("\"command: quarry -src '/a b'\"\n"),
              std::string::npos);
}

TEST(run_header, shows_that_a_pipe_run_reads_a_list_of_files) {
    EXPECT_NE(header_of({"quarry", "-PIPE"}, "").find("\"command: <filelist> ... | quarry -PIPE\"\n"),
              std::string::npos);
    EXPECT_NE(header_of({"-pipe", "x"}, "").find("\"command: -pipe x\"\n"), std::string::npos);
}

TEST(run_header, a_clock_that_cannot_be_shown_leaves_date_and_time_empty) {
    EXPECT_EQ(run_header({"quarry"}, ql::time(0, ql::type_time::filetime), "mm/dd/yyyy", "h", "p"),
              "quarry ver: 1.14\nrun time:   UTC; host: h; platform: p\n\"command: quarry\"\n");
}

TEST(run_header, of_this_host_takes_its_pattern_from_dateformat_and_keeps_the_default_without_a_value) {
    const ql::time now(a_moment, ql::type_time::filetime);
    EXPECT_NE(run_header({"quarry", "-DateFormat", "yyyy-mm-dd"}, now).find("run time: 2026-11-20 18:22:41"),
              std::string::npos);
    EXPECT_NE(run_header({"quarry", "a", "-dateformat"}, now).find("run time: 11/20/2026 18:22:41"),
              std::string::npos);
    EXPECT_NE(run_header({"-dateformat", "yyyy-mm-dd"}, now).find("run time: 11/20/2026 18:22:41"),
              std::string::npos);
}

TEST(run_header, of_this_host_names_host_and_kernel) {
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
    utsname kernel{};
    ASSERT_EQ(uname(&kernel), 0);
    const std::string header = run_header({"quarry"}, ql::time(a_moment, ql::type_time::filetime));
    EXPECT_NE(header.find(std::string("; host: ") + host + "; platform: " + kernel.sysname + ";"),
              std::string::npos);
    EXPECT_NE(header.find(std::string(";") + kernel.release + ";"), std::string::npos);
}

TEST(platform_text, joins_system_version_release_and_word_size) {
    EXPECT_EQ(platform_text({"Linux", "#1 SMP", "6.1.0", "x86_64"}, {}), "Linux;#1 SMP;6.1.0;64");
    EXPECT_EQ(platform_text({"Linux", "v", "r", "AARCH64"}, {}), "Linux;v;r;64");
    EXPECT_EQ(platform_text({"Linux", "v", "r", "i686"}, {}), "Linux;v;r;32");
}

TEST(platform_text, turns_its_separator_inside_of_a_text_into_a_blank) {
    EXPECT_EQ(platform_text({"A;B", "c;d;", ";e", "i686"}, {}), "A B;c d ; e;32");
}

TEST(platform_text, of_an_unknown_kernel_says_linux) {
    EXPECT_EQ(platform_text({}, {}), "Linux;;;32");
}

TEST(platform_text, marks_a_program_that_lies_on_the_network_or_on_a_stick) {
    const kernel_facts kernel = {"Linux", "v", "r", "x86_64"};
    EXPECT_EQ(platform_text(kernel, {true, false}), "Linux;v;r;64; <~>");
    EXPECT_EQ(platform_text(kernel, {false, true}), "Linux;v;r;64; :=");
    EXPECT_EQ(platform_text(kernel, {true, true}), "Linux;v;r;64; <~>:=");
}

TEST(program_place, network_file_systems_are_nfs_smb_fuse_and_cifs) {
    for (const std::uint64_t type :
         {0x6969ULL, 0x517BULL, 0x65735546ULL, 0xFF534D42ULL, 0xFFFFFFFFFF534D42ULL}) {
        EXPECT_TRUE(is_network_file_system(type)) << type;
    }
    EXPECT_FALSE(is_network_file_system(0xEF53));
    EXPECT_FALSE(is_network_file_system(0));
}

TEST(program_place, a_device_path_with_usb_in_it_is_on_usb) {
    EXPECT_TRUE(is_usb_device_path("../../devices/pci0000:00/0000:00:14.0/usb1/1-2/block/sdb/sdb1"));
    EXPECT_FALSE(is_usb_device_path("../../devices/pci0000:00/0000:00:1f.2/ata1/block/sda/sda1"));
    EXPECT_FALSE(is_usb_device_path(""));
}

}  // namespace
}  // namespace quarry
