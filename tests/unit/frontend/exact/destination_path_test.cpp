#include "frontend/exact/destination_path.h"

#include "support/temp_dir.h"
#include "volume/attribute_layout.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;
namespace fs = std::filesystem;

std::string name_of(std::u16string_view file, std::u16string_view stream = {},
                    std::uint32_t type = attr_data) {
    const auto name = name_on_host(file, stream, type);
    return name ? *name : "refused: " + name.error().why;
}

// A directory with what destinations may meet.
class destination_path : public testing::Test {
  protected:
    [[nodiscard]] std::string in_dir(const std::string& name) const { return (m_dir / name).string(); }

    void make_file(const std::string& name) const { std::ofstream(in_dir(name)) << "before"; }

    [[nodiscard]] std::string answer(const std::string& name, bool overwrite = false,
                                     const std::vector<std::string>& sources = {},
                                     const std::string& log = {}) const {
        output_guard guard;
        guard.add_sources(sources);
        if (!log.empty()) {
            guard.protect_log(log);
        }
        const auto checked = check_destination(split_destination(in_dir(name)), overwrite, guard);
        return checked ? "good" : std::string(code_text(checked.error().code)) + ": " + checked.error().why;
    }

    temp_dir m_dir;
};

}  // namespace

TEST(split_destination, takes_everything_to_the_last_slash_as_the_directory) {
    EXPECT_EQ(split_destination("a.txt").directory, "./");
    EXPECT_EQ(split_destination("a.txt").path(), "a.txt");
    EXPECT_EQ(split_destination("a.txt").name, "a.txt");
    EXPECT_EQ(split_destination("out/a.txt").directory, "out/");
    EXPECT_EQ(split_destination("out/a.txt").name, "a.txt");
    EXPECT_EQ(split_destination("/a.txt").directory, "/");
    EXPECT_EQ(split_destination("out/sub/").directory, "out/sub/");
    EXPECT_EQ(split_destination("out/sub/").name, "");
}

TEST(name_on_host, is_the_name_of_the_file) {
    EXPECT_EQ(name_of(u"letter.txt"), "letter.txt");
    EXPECT_EQ(name_of(u"\u00E4\u20AC\U0001F600"), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(name_of(u"a\\b:c"), "a\\b:c");
}

TEST(name_on_host, adds_the_stream_and_a_type_that_is_not_data) {
    EXPECT_EQ(name_of(u"a.txt", u"Note"), "a.txt_Note");
    EXPECT_EQ(name_of(u".", u"$I30", attr_index_root), "._$I30_$INDEX_ROOT");
    EXPECT_EQ(name_of(u"a.txt", u"", attr_reparse_point), "a.txt_$REPARSE_POINT");
}

TEST(name_on_host, escapes_what_would_leave_the_directory_or_act) {
    EXPECT_EQ(name_of(u"../a"), "..\\u002Fa");
    EXPECT_EQ(name_of(std::u16string_view(u"a\0b\x1b\x7f\x9f\xa0", 7)),
              "a\\u0000b\\u001B\\u007F\\u009F\xC2\xA0");
    EXPECT_EQ(name_of(u"a", u"x/y"), "a_x\\u002Fy");
}

TEST(name_on_host, escapes_surrogates_without_a_partner) {
    const std::u16string high(1, 0xD83D);
    const std::u16string low(1, 0xDE00);
    EXPECT_EQ(name_of(high), "\\uD83D");
    EXPECT_EQ(name_of(low + high), "\\uDE00\\uD83D");
    EXPECT_EQ(name_of(high + high + low), "\\uD83D\xF0\x9F\x98\x80");
}

TEST(name_on_host, refuses_what_is_no_name_for_a_file) {
    EXPECT_EQ(name_of(u""), "refused: is no name for a file; name the file with -dst");
    EXPECT_EQ(name_of(u"."), "refused: is no name for a file; name the file with -dst");
    EXPECT_EQ(name_of(u".."), "refused: is no name for a file; name the file with -dst");
    EXPECT_EQ(name_of(u"..."), "...");
}

TEST(name_on_host, refuses_more_than_255_bytes) {
    EXPECT_EQ(name_of(std::u16string(255, u'a')), std::string(255, 'a'));
    EXPECT_EQ(name_of(std::u16string(256, u'a')),
              "refused: the name has 256 bytes, 255 are possible; name the file with -dst");
    // Three bytes each.
    EXPECT_EQ(name_of(std::u16string(86, u'\u20AC')),
              "refused: the name has 258 bytes, 255 are possible; name the file with -dst");
    EXPECT_EQ(name_of(std::u16string(250, u'a'), u"bcdef"),
              "refused: the name has 256 bytes, 255 are possible; name the file with -dst");
}

TEST(name_with_digest, has_the_time_in_front_and_the_digest_at_the_end) {
    const std::string md5(32, '0');
    EXPECT_EQ(*name_with_digest(0x01D5C1194AC40080, "a.txt", md5), "01d5c1194ac40080_a.txt_" + md5);
    EXPECT_EQ(*name_with_digest(0, "a", md5), "0000000000000000_a_" + md5);
    EXPECT_TRUE(name_with_digest(0, std::string(205, 'a'), md5));
    EXPECT_FALSE(name_with_digest(0, std::string(206, 'a'), md5));
}

TEST_F(destination_path, a_new_name_is_good) {
    EXPECT_EQ(answer("new"), "good");
    EXPECT_EQ(answer("new", true), "good");
}

TEST_F(destination_path, a_directory_that_is_missing_is_refused) {
    EXPECT_EQ(answer("sub/new"), "create: No such file or directory; make the directory first");
    EXPECT_EQ(answer("sub/"), "create: No such file or directory; make the directory first");
    make_file("file");
    EXPECT_EQ(answer("file/new"), "create: Not a directory");
}

TEST_F(destination_path, a_directory_is_good_if_it_is_written_as_one) {
    fs::create_directory(in_dir("sub"));
    EXPECT_EQ(answer("sub/"), "good");
    EXPECT_EQ(answer("sub"), "exists: is a directory; say " + in_dir("sub") + "/");
    EXPECT_EQ(answer("sub", true), "exists: is a directory; say " + in_dir("sub") + "/");
}

TEST_F(destination_path, an_earlier_file_is_refused_unless_it_is_to_be_replaced) {
    make_file("file");
    EXPECT_EQ(answer("file"), "exists: exists; say -overwrite");
    EXPECT_EQ(answer("file", true), "good");
}

TEST_F(destination_path, a_link_is_never_replaced_nor_followed) {
    make_file("file");
    fs::create_symlink(in_dir("file"), in_dir("link"));
    fs::create_symlink(in_dir("nothing"), in_dir("dangling"));
    for (const bool overwrite : {false, true}) {
        EXPECT_EQ(answer("link", overwrite), "exists: is a link; links are not followed, name a file");
        EXPECT_EQ(answer("dangling", overwrite), "exists: is a link; links are not followed, name a file");
    }
}

TEST_F(destination_path, only_a_regular_file_is_replaced) {
    ASSERT_EQ(::mkfifo(in_dir("fifo").c_str(), 0600), 0);
    EXPECT_EQ(answer("fifo"), "exists: is no regular file");
    EXPECT_EQ(answer("fifo", true), "exists: is no regular file");
}

TEST_F(destination_path, a_file_of_the_run_is_refused_under_any_of_its_names) {
    make_file("source");
    fs::create_hard_link(in_dir("source"), in_dir("same"));
    fs::create_symlink(in_dir("source"), in_dir("link"));
    for (const std::string name : {"source", "same", "link"}) {
        EXPECT_EQ(answer(name, true, {in_dir("source")}),
                  "exists: is a file of this run: a source, the log, the manifest or a standard stream");
        EXPECT_EQ(
            answer(name, true, {}, in_dir("source")),
            name == "link"
                ? "exists: is a link; links are not followed, name a file"
                : "exists: is a file of this run: a source, the log, the manifest or a standard stream");
    }
    make_file("other");
    EXPECT_EQ(answer("other", true, {in_dir("source")}), "good");
}

}  // namespace quarry::test
