#include "foundation/ql_string.h"
#include "namespace/path_resolution.h"
#include "unit/namespace/path_lookup.h"

#include <random>

namespace quarry::test {
namespace {

class links_test : public path_resolution_test {
  protected:
    links_test() {
        m_volume.add_file("file", m_volume.add_directory("Sub", m_target).entry());
        m_volume.add_file("top.txt");
    }
    file_builder& add_link(const char* name, const char* target, std::uint64_t parent = 5) {
        return m_volume.add_directory(name, parent)
            .reparse({.substitute_name = std::string(R"(\??\)") + target, .print_name = target});
    }
    std::uint64_t m_target =
        m_volume.add_directory("Target").entry();  // 24, with "Sub" 25, "file" 26; "top.txt" 27
};

TEST_F(links_test, in_the_middle_of_a_path_restart_from_the_root_with_the_rest_of_it) {
    add_link("link", R"(C:\Target)");
    const lookup result = find(LR"(\link\Sub\file:stream)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 26u);
    EXPECT_EQ(result.parent, 25u);
    EXPECT_EQ(result.canonical, LR"(\C:\Target\Sub\file:stream)");
    EXPECT_EQ(result.log, (lines{R"(anal: \link\Sub\file:stream)",
                                 "root dir",
                                 "seg: link",
                                 "info: get children nodes",
                                 "info: # children [6]",
                                 "info: get children names",
                                 "info: restart segments [link]",
                                 "seg: target",
                                 "info: cache lookup",
                                 "info: inode found for seg: target : 0x18",
                                 "seg: sub",
                                 "info: get children nodes",
                                 "info: # children [1]",
                                 "info: get children names",
                                 "info: inode found for seg: sub : 0x19",
                                 "seg: file",
                                 "info: get children nodes",
                                 "info: # children [1]",
                                 "info: get children names",
                                 "info: inode found for seg: file : 0x1a"}));
}

TEST_F(links_test, at_the_end_of_a_path_lead_to_their_target) {
    add_link("link", R"(C:\Target\Sub)");
    const lookup result = find(LR"(link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(result.parent, 24u);
    EXPECT_EQ(result.canonical, LR"(C:\Target\Sub)");
}

TEST_F(links_test, below_a_directory_restart_from_the_root) {
    add_link("link", R"(C:\Target\Sub)", m_target);
    EXPECT_EQ(entry_of(LR"(\Target\link\file)"), 26u);
}

TEST_F(links_test, to_another_volume_are_resolved_on_this_one) {
    add_link("link", R"(X:\Target)");
    EXPECT_EQ(entry_of(LR"(\link\Sub)"), 25u);
}

TEST_F(links_test, without_a_drive_letter_begin_at_their_first_segment) {
    add_link("link", R"(\Target)");
    const lookup result = find(LR"(\link\Sub)");
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(result.canonical, LR"(\Target\Sub)");
}

TEST_F(links_test, split_the_rest_of_the_path_at_backslashes_too) {
    add_link("link", R"(C:\Target)");
    EXPECT_EQ(entry_of(LR"(link/Sub\file)"), 26u);
}

TEST_F(links_test, drop_the_stream_name_of_the_link_itself) {
    add_link("link", R"(C:\Target)");
    EXPECT_EQ(find(LR"(\link:$I30)").canonical, LR"(\C:\Target)");
}

TEST_F(links_test, are_not_followed_unless_asked_for) {
    const std::uint64_t link = add_link("link", R"(C:\Target)").entry();
    const lookup result = find(LR"(\link)", false);
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link);
    EXPECT_EQ(result.canonical, LR"(\link)");
    EXPECT_EQ(result.log.back(), "info: inode found for seg: link : 0x1c");
}

TEST_F(links_test, may_lead_to_links) {
    add_link("one", R"(C:\two)");
    add_link("two", R"(C:\Target)");
    const lookup result = find(LR"(\one\Sub)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 25u);
    EXPECT_EQ(std::count(result.log.begin(), result.log.end(), "info: restart segments [link]"), 2);
}

TEST_F(links_test, to_the_root_alone_lead_to_themselves_at_the_end_of_a_path) {
    const std::uint64_t link = add_link("link", R"(C:\)").entry();
    const lookup result = find(LR"(\link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link) << "no segment is left that would lead anywhere else";
    EXPECT_EQ(result.parent, 0u);
    EXPECT_EQ(result.canonical, LR"(\C:)");
    EXPECT_EQ(entry_of(LR"(\link\top.txt)"), 27u);
}

TEST_F(links_test, without_a_print_name_leave_the_rest_of_the_path) {
    m_volume.add_directory("link").reparse({.substitute_name = R"(\??\C:\Target)"});
    const lookup result = find(LR"(\link\top.txt)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, 27u);
    EXPECT_EQ(result.canonical, LR"(\top.txt)");
}

TEST_F(links_test, that_are_broken_fail_with_the_path_that_was_asked) {
    add_link("link", R"(C:\Nowhere)");
    const lookup result = find(LR"(\link\x)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(lines(result.log.end() - 5, result.log.end()),
              (lines{"info: restart segments [link]", "seg: nowhere", "info: cache lookup",
                     "err: no child nodes", R"(inode not found for \link\x)"}));
}

TEST_F(links_test, to_themselves_fail_after_64_restarts) {
    add_link("link", R"(C:\link)");
    const lookup result = find(LR"(\link\Sub)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(std::count(result.log.begin(), result.log.end(), "info: restart segments [link]"), 64);
    EXPECT_EQ(lines(result.log.end() - 3, result.log.end()),
              (lines{"seg: link", "info: cache lookup", R"(inode not found for \link\Sub)"}));
}

TEST_F(links_test, to_each_other_fail) {
    add_link("one", R"(C:\two\x)");
    add_link("two", R"(C:\one\x)");
    EXPECT_FALSE(find(LR"(\one)").found);
}

TEST_F(links_test, in_a_row_of_64_are_followed) {
    volume_builder volume({.mft_entries = 128});
    for (int i = 0; i < 64; ++i) {
        const std::string target = R"(C:\link)" + std::to_string(i + 1);
        volume.add_directory("link" + std::to_string(i))
            .reparse({.substitute_name = target, .print_name = target});
    }
    const std::uint64_t end = volume.add_file("link64").entry();
    opened_volume opened(volume);
    const lookup result = resolve(&opened.ntfs(), LR"(\link0)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, end);
}

TEST_F(links_test, whose_record_can_no_longer_be_read_are_none) {
    const std::uint64_t link = add_link("link", R"(C:\Target)").entry();
    ASSERT_TRUE(find(LR"(\link)").found);
    bytes image = m_volume.image();
    image[m_volume.record_position(link)] = 0;
    write_file(m_opened->path(), image);
    const lookup result = find(LR"(\link)");
    EXPECT_TRUE(result.found);
    EXPECT_EQ(result.entry, link);
}

TEST_F(links_test, whose_record_is_cut_by_the_end_of_the_source_are_none) {
    // $MFT lies after everything else, and half of its last record is missing.
    volume_builder volume({.mft_entries = 26, .mft_runs = runs({{40, 7}})});
    volume.add_file("target");
    volume.add_directory("link").reparse(
        {.substitute_name = R"(\??\C:\target)", .print_name = R"(C:\target)"});
    bytes image = volume.image();
    const std::size_t half = volume.record_position(25) + 512;
    for (const bool cut : {false, true}) {
        image.resize(cut ? half : image.size());
        opened_volume opened(image);
        know(opened.ntfs(), {{"link", 25}, {"target", 24}});
        EXPECT_EQ(resolve(&opened.ntfs(), LR"(\link)").entry, cut ? 25u : 24u);
    }
}

TEST_F(links_test, on_a_damaged_volume_end_with_an_answer) {
    add_link("link", R"(C:\Target\Sub)");
    add_link("self", R"(C:\self\x)");
    m_volume.root().index_in_blocks();
    const bytes image = m_volume.image();
    const std::size_t records = m_volume.record_position(24);
    opened_volume opened(m_volume);
    std::mt19937 random(23);
    for (int round = 0; round < 150; ++round) {
        bytes damaged = image;
        for (int i = 0; i < 20; ++i) {
            // The records of a test's own entries, or anything after $MFT, where the index of the root is.
            const std::size_t at = i % 2 == 0 ? records + random() % 8192
                                              : image.size() - 1 - random() % (image.size() - records);
            damaged[at] = static_cast<std::uint8_t>(random());
        }
        if (round % 5 == 0) {
            damaged.resize(records + random() % 8192);
        }
        write_file(opened.path(), damaged);
        opened->m_path_cache.clear();
        for (const wchar_t* path :
             {LR"(\link\file)", LR"(\self)", LR"(\Target\Sub\file)", LR"(\top.txt)", LR"(\top.txt\x)"}) {
            const lookup result = resolve(&opened.ntfs(), path);
            ASSERT_FALSE(result.log.empty());
            EXPECT_EQ(result.log.back() == "inode not found for " + narrow(path), !result.found);
        }
    }
}

}  // namespace
}  // namespace quarry::test
