#include "disk/vmdk_check.h"

#include "disk/raw_disk_io.h"
#include "disk/vmdk_disk.h"
#include "disk/volume_detection.h"
#include "support/file_opens.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <ctime>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using paths = std::vector<std::wstring>;

constexpr const char* no_parent_words = "Child VMDK points to a parent VMDK that doesn't exist, aborting\n";

vmdk_builder file_of(const std::string& cid, const std::string& parent_cid, const std::string& hint = "") {
    vmdk_builder file;
    file.cid = cid;
    file.parent_cid = parent_cid;
    file.parent_hint = hint;
    return file;
}

class vmdk_check_test : public ::testing::Test {
  protected:
    std::wstring write(const std::string& name, const vmdk_builder& file) {
        file.write(m_dir / name);
        return at(name);
    }
    [[nodiscard]] std::wstring at(const std::string& name) const { return (m_dir / name).wstring(); }
    [[nodiscard]] std::string text_at(const std::string& name) const { return (m_dir / name).string(); }

    bool check(paths list) {
        std::ostringstream stream;
        m_suggested = {L"old"};
        const bool result = check_list(list, stream, m_suggested);
        m_words = stream.str();
        return result;
    }

    [[nodiscard]] std::string depends(const std::string& child, const std::string& hint) const {
        return "=> vmdk file: " + text_at(child) + "\n depends on parent vmdk " + hint + "\n";
    }

    // True if a check of the list opens the device. Other programs may open it meanwhile, and one of a few
    // checks is not disturbed.
    bool opens(const std::filesystem::path& device, const paths& list) {
        bool opened = true;
        for (int turn = 0; opened && turn < 5; ++turn) {
            const file_opens device_opens(device);
            EXPECT_FALSE(check(list));
            opened = device_opens.take().reading;
        }
        return opened;
    }

    temp_dir m_dir;
    paths m_suggested;
    std::string m_words;
};

TEST_F(vmdk_check_test, a_single_base_is_a_chain) {
    const paths list = {write("base", file_of("1", "ffffffff"))};
    EXPECT_TRUE(check(list));
    EXPECT_EQ(m_words, "");
    EXPECT_EQ(m_suggested, list);
}

TEST_F(vmdk_check_test, a_whole_chain_passes_in_every_order) {
    paths list = {write("0", file_of("5", "ffffffff")), write("1", file_of("3", "5")),
                  write("2", file_of("9", "3")), write("3", file_of("1", "9"))};
    std::sort(list.begin(), list.end());
    do {
        EXPECT_TRUE(check(list));
        EXPECT_EQ(m_words, "");
        EXPECT_EQ(m_suggested, list);
    } while (std::next_permutation(list.begin(), list.end()));
}

TEST_F(vmdk_check_test, an_empty_list_fails_without_words) {
    EXPECT_FALSE(check({}));
    EXPECT_EQ(m_words, "");
    EXPECT_TRUE(m_suggested.empty());
}

TEST_F(vmdk_check_test, a_file_that_cannot_be_opened_is_reported_in_utf8) {
    const std::wstring path = m_dir.path().wstring() + L"/\x00C4.vmdk";
    const paths list = {write("base", file_of("1", "ffffffff")), path};
    EXPECT_FALSE(check(list));
    EXPECT_EQ(m_words, m_dir.path().string() + "/\xC3\x84.vmdk can't be opened\n");
    EXPECT_EQ(m_suggested, list);
    write_file(m_dir / "text", to_bytes("# Disk DescriptorFile\nCID=1\n"));
    EXPECT_FALSE(check({at("text")}));
    EXPECT_EQ(m_words, text_at("text") + " can't be opened\n");
}

TEST_F(vmdk_check_test, a_parent_beside_the_snapshot_is_found_by_its_bare_name_and_suggested) {
    write("base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"base.vmdk\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"base.vmdk\""));
    EXPECT_EQ(m_suggested, (paths{snapshot, at("base.vmdk")}));
    EXPECT_TRUE(check(m_suggested));
}

TEST_F(vmdk_check_test, of_files_in_several_directories_the_first_ones_directory_is_looked_in) {
    std::filesystem::create_directory(m_dir / "one");
    std::filesystem::create_directory(m_dir / "two");
    write("one/base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot = write("one/snap", file_of("2", "1", "\"base.vmdk\""));
    const std::wstring newer = write("two/snap", file_of("3", "2", "\"snap\""));
    EXPECT_FALSE(check({snapshot, newer}));
    EXPECT_EQ(m_suggested, (paths{snapshot, newer, at("one/base.vmdk")}));
    EXPECT_TRUE(check(m_suggested));
}

TEST_F(vmdk_check_test, no_file_is_opened_for_writing) {
    write("base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"base.vmdk\""));
    const file_opens base_opens(m_dir / "base.vmdk");
    const file_opens snapshot_opens(m_dir / "snap.vmdk");
    EXPECT_FALSE(check({snapshot}));
    EXPECT_TRUE(check(m_suggested));
    for (const file_opens* opens : {&base_opens, &snapshot_opens}) {
        const file_opens::kinds seen = opens->take();
        EXPECT_TRUE(seen.reading);
        EXPECT_FALSE(seen.writing);
    }
}

TEST_F(vmdk_check_test, a_hint_with_a_path_of_another_machine_is_looked_for_beside_the_first_listed_file) {
    write("base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"/elsewhere/vm/base.vmdk\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"" + text_at("base.vmdk") + "\""));
    EXPECT_EQ(m_suggested, (paths{snapshot, at("base.vmdk")}));
}

TEST_F(vmdk_check_test, a_hint_with_a_windows_path_is_taken_apart_if_the_encoding_says_windows) {
    write("base.vmdk", file_of("1", "ffffffff"));
    vmdk_builder snapshot = file_of("2", "1", "\"C:\\vm\\base.vmdk\"");
    snapshot.encoding = "\"windows-1252\"";
    const std::wstring path = write("snap.vmdk", snapshot);
    EXPECT_FALSE(check({path}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"" + text_at("base.vmdk") + "\""));
    EXPECT_EQ(m_suggested, (paths{path, at("base.vmdk")}));
}

TEST_F(vmdk_check_test, a_hint_with_a_windows_path_is_a_bare_name_under_any_other_encoding) {
    write("base.vmdk", file_of("1", "ffffffff"));
    for (const char* encoding : {"", "\"UTF-8\"", "\"Windows-1252\""}) {
        vmdk_builder snapshot = file_of("2", "1", "\"C:\\vm\\base.vmdk\"");
        snapshot.encoding = encoding;
        const std::wstring path = write("snap.vmdk", snapshot);
        EXPECT_FALSE(check({path}));
        EXPECT_EQ(m_words, no_parent_words) << encoding;
        EXPECT_EQ(m_suggested, paths{path});
    }
}

TEST_F(vmdk_check_test, a_bare_name_under_a_windows_encoding_is_looked_for_beside_the_listed_files) {
    write("base.vmdk", file_of("1", "ffffffff"));
    vmdk_builder snapshot = file_of("2", "1", "\"base.vmdk\"");
    snapshot.encoding = "\"windows-1252\"";
    EXPECT_FALSE(check({write("snap.vmdk", snapshot)}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"base.vmdk\""));
}

TEST_F(vmdk_check_test, a_hint_with_a_path_that_is_there_is_taken_as_it_is) {
    std::filesystem::create_directory(m_dir / "other");
    write("other/base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot =
        write("snap.vmdk", file_of("2", "1", "\"" + text_at("other/base.vmdk") + "\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"" + text_at("other/base.vmdk") + "\""));
    EXPECT_EQ(m_suggested, (paths{snapshot, at("other/base.vmdk")}));
}

TEST_F(vmdk_check_test, a_hint_that_leads_upwards_is_followed_or_looked_for_beside_the_listed_files) {
    std::filesystem::create_directory(m_dir / "snaps");
    write("base.vmdk", file_of("1", "ffffffff"));
    const std::string upwards = text_at("snaps/../base.vmdk");
    EXPECT_FALSE(check({write("snaps/snap.vmdk", file_of("2", "1", "\"" + upwards + "\""))}));
    EXPECT_EQ(m_words, depends("snaps/snap.vmdk", "\"" + upwards + "\""));
    EXPECT_EQ(m_suggested[1], m_dir.path().wstring() + L"/snaps/../base.vmdk");
    EXPECT_FALSE(check({write("snap.vmdk", file_of("2", "1", "\"../../no/such/base.vmdk\""))}));
    EXPECT_EQ(m_suggested[1], at("base.vmdk"));
}

TEST_F(vmdk_check_test, all_missing_parents_are_worked_out_and_the_words_are_those_of_the_last) {
    write("first.vmdk", file_of("5", "ffffffff"));
    write("second.vmdk", file_of("3", "5", "\"first.vmdk\""));
    write("third.vmdk", file_of("9", "3", "\"second.vmdk\""));
    const std::wstring newest = write("fourth.vmdk", file_of("1", "9", "\"third.vmdk\""));
    EXPECT_FALSE(check({newest}));
    EXPECT_EQ(m_words, depends("second.vmdk", "\"first.vmdk\""));
    EXPECT_EQ(m_suggested, (paths{newest, at("third.vmdk"), at("second.vmdk"), at("first.vmdk")}));
    EXPECT_TRUE(check(m_suggested));
}

TEST_F(vmdk_check_test, a_parent_that_is_nowhere_is_reported) {
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"base.vmdk\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, no_parent_words);
    EXPECT_EQ(m_suggested, paths{snapshot});
}

TEST_F(vmdk_check_test, a_parent_of_another_machine_that_did_not_come_along_cannot_be_opened) {
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"/elsewhere/base.vmdk\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"" + text_at("base.vmdk") + "\"") + text_at("base.vmdk") +
                           " can't be opened\n");
    EXPECT_EQ(m_suggested, (paths{snapshot, at("base.vmdk")}));
}

TEST_F(vmdk_check_test, words_of_a_pass_give_way_to_those_of_the_next) {
    write("second.vmdk", file_of("3", "5", "\"gone.vmdk\""));
    EXPECT_FALSE(check({write("third.vmdk", file_of("9", "3", "\"second.vmdk\""))}));
    EXPECT_EQ(m_words, no_parent_words);
}

TEST_F(vmdk_check_test, without_a_directory_in_the_list_a_missing_parent_has_no_place_to_be_looked_for) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(m_dir.path());
    write("snap.vmdk", file_of("2", "1", "\"/elsewhere/base.vmdk\""));
    EXPECT_FALSE(check({L"snap.vmdk"}));
    EXPECT_EQ(m_words, no_parent_words);
    write("snap.vmdk", file_of("2", "1", "\"base.vmdk\""));
    write("base.vmdk", file_of("1", "ffffffff"));
    EXPECT_FALSE(check({L"snap.vmdk"}));
    EXPECT_EQ(m_words, "=> vmdk file: snap.vmdk\n depends on parent vmdk \"base.vmdk\"\n");
    EXPECT_EQ(m_suggested, (paths{L"snap.vmdk", L"base.vmdk"}));
    std::filesystem::current_path(before);
}

TEST_F(vmdk_check_test,
       a_parent_that_is_listed_by_name_but_not_by_its_content_id_passes_and_is_refused_when_opened) {
    for (const char* cid_of_base : {"1", "8"}) {  // before the child and after it
        const paths list = {write("base.vmdk", file_of(cid_of_base, "ffffffff")),
                            write("snap.vmdk", file_of("5", "4", "\"base.vmdk\""))};
        EXPECT_TRUE(check(list)) << cid_of_base;
        EXPECT_EQ(m_words, "");
        EXPECT_FALSE(RAW_DISK_IO(list, false, false).is_ok());
        std::ostringstream stream;
        std::uint64_t offset = 0;
        bool found = true;
        EXPECT_FALSE(locate_in_vmdk(stream, list, offset, found, false));
        EXPECT_EQ(stream.str(), "invalid disk collection of snaps \n");
        EXPECT_FALSE(found);
    }
}

TEST_F(vmdk_check_test, the_files_of_a_chain_that_passes_stay_open_and_are_not_opened_again) {
    vmdk_builder base = file_of("1", "ffffffff");
    base.put(0, pattern(4096, 1));
    source disk = source::of_virtual_disk({write("snap", file_of("5", "1")), write("base", base)}, 0);
    std::ostringstream stream;
    ASSERT_TRUE(check_virtual_disk(disk, stream, m_suggested));
    std::filesystem::remove(m_dir / "base");
    std::filesystem::remove(m_dir / "snap");
    for (int turn = 0; turn < 2; ++turn) {
        const source copied = disk;
        const auto opened = copied.open();
        ASSERT_NE(opened, nullptr);
        ASSERT_TRUE(opened->is_ok());
        bytes read(4096);
        std::uint64_t length = 4096;
        EXPECT_TRUE(opened->read(read.data(), length, 0));
        EXPECT_EQ(read, pattern(4096, 1));
    }
    EXPECT_FALSE(disk.open(true)->is_ok()) << "for writing it is opened anew";
}

TEST_F(vmdk_check_test, files_that_pass_and_make_no_chain_are_not_kept_open) {
    source disk = source::of_virtual_disk({write("base.vmdk", file_of("1", "ffffffff")),
                                           write("snap.vmdk", file_of("5", "4", "\"base.vmdk\""))},
                                          0);
    std::ostringstream stream;
    EXPECT_TRUE(check_virtual_disk(disk, stream, m_suggested));
    EXPECT_EQ(disk.kept_open, nullptr);
    EXPECT_FALSE(disk.open()->is_ok());
}

TEST_F(vmdk_check_test, a_child_without_a_hint_passes_after_a_base) {
    EXPECT_TRUE(check({write("base.vmdk", file_of("1", "ffffffff")), write("snap.vmdk", file_of("5", "4"))}));
}

TEST_F(vmdk_check_test, a_base_that_does_not_bear_the_hinted_name_does_not_hide_a_missing_parent) {
    write("middle.vmdk", file_of("4", "1", "\"base.vmdk\""));
    const std::wstring base = write("base.vmdk", file_of("1", "ffffffff"));
    const std::wstring snapshot = write("snap.vmdk", file_of("5", "4", "\"middle.vmdk\""));
    EXPECT_FALSE(check({base, snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"middle.vmdk\""));
    EXPECT_EQ(m_suggested, (paths{base, snapshot, at("middle.vmdk")}));
}

TEST_F(vmdk_check_test, a_listed_snapshot_whose_content_id_changed_passes_and_is_refused_when_opened) {
    const paths list = {write("base.vmdk", file_of("1", "ffffffff")),
                        write("middle.vmdk", file_of("4", "1", "\"base.vmdk\"")),
                        write("snap.vmdk", file_of("5", "3", "\"middle.vmdk\""))};
    EXPECT_TRUE(check(list));
    EXPECT_EQ(m_words, "");
    EXPECT_EQ(m_suggested, list);
    EXPECT_FALSE(RAW_DISK_IO(list, false, false).is_ok());
}

TEST_F(vmdk_check_test, of_two_files_one_may_bear_the_hinted_name_though_no_base_is_in_front) {
    const std::wstring base = write("base", file_of("5", "ffffffff"));
    EXPECT_TRUE(check({write("snap", file_of("1", "0", "\"bas\"")), base}));
    EXPECT_EQ(m_words, "");
}

// In the first pass the base comes before the child, in the second the child's parent is before both.
TEST_F(vmdk_check_test, a_base_is_in_front_only_in_a_pass_that_comes_by_it) {
    write("parent", file_of("3", "2", "\"newe\""));
    const std::wstring base = write("base", file_of("5", "ffffffff"));
    const std::wstring child = write("newest", file_of("9", "3", "\"parent\""));
    EXPECT_FALSE(check({base, child}));
    EXPECT_EQ(m_words, depends("newest", "\"parent\""))
        << "the newest bears the name that the parent hints at";
    EXPECT_EQ(m_suggested, (paths{base, child, at("parent")}));
}

TEST_F(vmdk_check_test, files_without_a_base_fail_without_words_if_one_bears_the_hinted_name) {
    const paths list = {write("middle.vmdk", file_of("4", "1", "\"base.vmdk\"")),
                        write("snap.vmdk", file_of("3", "2", "\"middle.vmdk\""))};
    EXPECT_FALSE(check(list));
    EXPECT_EQ(m_words, "");
    EXPECT_EQ(m_suggested, list);
}

TEST_F(vmdk_check_test, a_file_that_names_itself_as_its_parent_is_reported) {
    EXPECT_FALSE(check({write("a", file_of("1", "1"))}));
    EXPECT_EQ(m_words, "Child VMDK CID errors, aborting\n");
    EXPECT_FALSE(check({write("base", file_of("0", "ffffffff")), at("a")}));
    EXPECT_EQ(m_words, "Child VMDK CID errors, aborting\n");
}

TEST_F(vmdk_check_test, a_file_without_a_descriptor_has_an_empty_content_id_and_so_names_itself) {
    vmdk_builder file;
    file.force(vmdk_builder::at_descriptor_size, 8, 0);
    const paths list = {write("a", file)};
    EXPECT_FALSE(check(list));
    EXPECT_EQ(m_words, "Child VMDK CID errors, aborting\n");
    EXPECT_EQ(m_suggested, list);
}

TEST_F(vmdk_check_test, the_words_for_a_file_that_names_itself_replace_those_of_the_pass_before) {
    write("self", file_of("2", "2"));
    EXPECT_FALSE(check({write("a", file_of("1", "7", "\"self\""))}));
    EXPECT_EQ(m_words, depends("a", "\"self\"")) << "the file that leads to it comes first";
    write("self", file_of("0", "0"));
    EXPECT_FALSE(check({at("a")}));
    EXPECT_EQ(m_words, "Child VMDK CID errors, aborting\n");
}

TEST_F(vmdk_check_test, a_base_with_carriage_returns_in_its_line_ends_is_no_base) {
    vmdk_builder base;
    base.line_end = "\r\n";
    const std::wstring path = write("base.vmdk", base);
    EXPECT_FALSE(check({path}));
    // Without a hint the directory itself is looked at.
    EXPECT_EQ(m_words, depends("base.vmdk", "") + m_dir.path().string() + "/ can't be opened\n");
    EXPECT_EQ(m_suggested, (paths{path, m_dir.path().wstring() + L"/"}));
}

TEST_F(vmdk_check_test, a_hint_with_a_carriage_return_names_no_file) {
    write("base.vmdk", file_of("1", "ffffffff"));
    vmdk_builder snapshot = file_of("2", "1", "\"base.vmdk\"");
    snapshot.line_end = "\r\n";
    EXPECT_FALSE(check({write("snap.vmdk", snapshot)}));
    EXPECT_EQ(m_words, no_parent_words);
}

TEST_F(vmdk_check_test, names_that_hold_control_characters_are_shown_by_their_numbers) {
    write("base\x1b[2J", file_of("1", "ffffffff"));
    EXPECT_FALSE(check({write("child\x7f", file_of("2", "1", "base\x1b[2J"))}));
    EXPECT_EQ(m_words, depends("child\\u007F", "base\\u001B[2J"));
    EXPECT_FALSE(check({at("none\n")}));
    EXPECT_EQ(m_words, text_at("none\\u000A") + " can't be opened\n");
}

TEST_F(vmdk_check_test, a_hint_to_a_fifo_neither_blocks_nor_counts) {
    ASSERT_EQ(::mkfifo((m_dir / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(check({write("snap.vmdk", file_of("2", "1", "\"pipe\""))}));
    EXPECT_EQ(m_words, no_parent_words);
}

TEST_F(vmdk_check_test, a_hint_to_a_device_or_a_directory_is_suggested_and_then_cannot_be_opened) {
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"/dev/full\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"/dev/full\"") + "/dev/full can't be opened\n");
    EXPECT_EQ(m_suggested, (paths{snapshot, L"/dev/full"}));
    std::filesystem::create_directory(m_dir / "folder");
    EXPECT_FALSE(check({write("snap.vmdk", file_of("2", "1", "\"folder\""))}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"folder\"") + text_at("folder") + " can't be opened\n");
}

// Opening a device can act on it: /dev/loop-control makes a device, /dev/watchdog starts a clock.
TEST_F(vmdk_check_test, a_hint_to_a_device_or_a_directory_opens_nothing) {
    EXPECT_FALSE(opens("/dev/full", {write("snap.vmdk", file_of("2", "1", "\"/dev/full\""))}));
    std::filesystem::create_directory(m_dir / "folder");
    const file_opens folder(m_dir / "folder");
    EXPECT_FALSE(check({write("snap.vmdk", file_of("2", "1", "\"folder\""))}));
    EXPECT_FALSE(folder.take().reading);
    // A file that the user lists is opened, whatever it is.
    EXPECT_TRUE(opens("/dev/full", {L"/dev/full"}));
}

TEST_F(vmdk_check_test, a_hint_to_a_device_that_is_looked_for_beside_the_listed_files_opens_nothing) {
    std::filesystem::create_symlink("/dev/full", m_dir / "full");
    EXPECT_FALSE(opens("/dev/full", {write("snap.vmdk", file_of("2", "1", "\"/elsewhere/full\""))}));
    EXPECT_EQ(m_words,
              depends("snap.vmdk", "\"" + text_at("full") + "\"") + text_at("full") + " can't be opened\n");
}

TEST_F(vmdk_check_test, a_hint_to_an_empty_file_opens_nothing) {
    write_file(m_dir / "empty", {});
    const file_opens empty(m_dir / "empty");
    EXPECT_FALSE(check({write("snap.vmdk", file_of("2", "1", "\"empty\""))}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"empty\"") + text_at("empty") + " can't be opened\n");
    EXPECT_FALSE(empty.take().reading);
}

// Opening all files again for each one that is added took 20 s.
TEST_F(vmdk_check_test, of_800_files_that_hint_at_the_next_one_opens_each_once) {
    for (int i = 0; i < 800; ++i) {
        const std::string next = "\"/elsewhere/" + std::to_string((i + 1) % 800) + "\"";
        write(std::to_string(i), file_of(std::to_string(10000 + i), std::to_string(10001 + i), next));
    }
    const std::clock_t begin = std::clock();
    EXPECT_FALSE(check({at("0")}));
    const auto processor_seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    EXPECT_LT(processor_seconds, 3.0 * time_allowance());
    ASSERT_EQ(m_suggested.size(), 800U);
    EXPECT_EQ(m_suggested[799], at("799"));
}

TEST(as_shell_word, puts_a_backslash_before_what_a_shell_would_act_on) {
    std::string word;
    EXPECT_TRUE(as_shell_word(word, {L"a b", L"$(touch x)", L"`id`", L"say \"\\\""}));
    EXPECT_EQ(word, R"("a b | \$(touch x) | \`id\` | say \"\\\"")");
    EXPECT_TRUE(as_shell_word(word, {L"", L"\x00C4"}));
    EXPECT_EQ(word, "\" | \xC3\x84\"");
}

TEST(as_shell_word, of_a_path_with_a_control_character_is_none) {
    for (const wchar_t control : {L'\n', L'\x1B', L'\x1', L'\x7F', L'\x80', L'\x9F', L'\x61C', L'\x200E',
                                  L'\x200F', L'\x202A', L'\x202E', L'\x2066', L'\x2069'}) {
        std::string word = "as it was";
        EXPECT_FALSE(as_shell_word(word, {L"good", std::wstring(L"a") + control})) << int{control};
        EXPECT_EQ(word, "as it was");
    }
    std::string word;
    EXPECT_TRUE(as_shell_word(word, {std::wstring(L"\x20\x7E\xA0\x2029\x202F\x2065\x206A")}));
}

TEST(as_shell_word, of_a_path_that_a_shell_takes_for_its_history_is_none) {
    std::string word = "as it was";
    EXPECT_FALSE(as_shell_word(word, {L"good", L"p!!.vmdk"}));
    EXPECT_EQ(word, "as it was");
}

TEST_F(vmdk_check_test, a_worked_out_parent_that_is_not_the_one_is_looked_at_once) {
    write("base.vmdk", file_of("other", "ffffffff"));
    const std::wstring snapshot = write("snap.vmdk", file_of("2", "1", "\"/elsewhere/base.vmdk\""));
    EXPECT_FALSE(check({snapshot}));
    EXPECT_EQ(m_words, depends("snap.vmdk", "\"" + text_at("base.vmdk") + "\""));
    EXPECT_EQ(m_suggested, (paths{snapshot, at("base.vmdk")}));
    EXPECT_TRUE(check(m_suggested)) << "listed by name";
    EXPECT_EQ(m_words, "");
}

TEST_F(vmdk_check_test, hints_that_lead_to_each_other_come_to_an_end) {
    write("a", file_of("1", "7", "\"/elsewhere/b\""));
    write("b", file_of("2", "8", "\"/elsewhere/a\""));
    EXPECT_FALSE(check({at("a")}));
    EXPECT_EQ(m_words, depends("a", "\"" + text_at("b") + "\""));
    EXPECT_EQ(m_suggested, (paths{at("a"), at("b")}));
    EXPECT_FALSE(check({at("b")}));
    EXPECT_EQ(m_suggested, (paths{at("b"), at("a")}));
}

TEST_F(vmdk_check_test, one_file_listed_twice_is_one_file) {
    const std::wstring base = write("base", file_of("1", "ffffffff"));
    EXPECT_TRUE(check({base, base}));
}

}  // namespace
}  // namespace quarry::test
