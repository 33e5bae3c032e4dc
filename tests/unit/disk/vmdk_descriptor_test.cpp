#include "disk/vmdk_descriptor.h"

#include "support/byte_writer.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

vmdk_descriptor parsed(const std::string& text) {
    vmdk_descriptor descriptor;
    descriptor.parse(to_bytes(text));
    return descriptor;
}

TEST(vmdk_descriptor, four_lines_have_a_meaning_and_all_are_kept) {
    const vmdk_descriptor descriptor = parsed(
        "# Disk DescriptorFile\nversion=1\nencoding=\"UTF-8\"\nCID=1234abcd\nparentCID=ffffffff\n\n"
        "parentFileNameHint=\"base.vmdk\"\nRW 8 SPARSE \"a.vmdk\"\n");
    EXPECT_EQ(descriptor.m_encoding, "\"UTF-8\"");
    EXPECT_EQ(descriptor.m_cid, "1234abcd");
    EXPECT_EQ(descriptor.m_parent_cid, "ffffffff");
    EXPECT_EQ(descriptor.m_parent_hint, "\"base.vmdk\"");
    EXPECT_EQ(descriptor.m_descriptor_lines,
              (std::vector<std::wstring>{L"# Disk DescriptorFile", L"version=1", L"encoding=\"UTF-8\"",
                                         L"CID=1234abcd", L"parentCID=ffffffff",
                                         L"parentFileNameHint=\"base.vmdk\"", L"RW 8 SPARSE \"a.vmdk\""}));
}

TEST(vmdk_descriptor, keys_are_found_in_any_case_and_values_keep_theirs) {
    const vmdk_descriptor descriptor =
        parsed("CID=AbCd\nPARENTCID=FFFFFFFF\nEncoding=Windows-1252\nPARENTFILENAMEHINT=Base.VMDK\n");
    EXPECT_EQ(descriptor.m_cid, "AbCd");
    EXPECT_EQ(descriptor.m_parent_cid, "FFFFFFFF");
    EXPECT_EQ(descriptor.m_encoding, "Windows-1252");
    EXPECT_EQ(descriptor.m_parent_hint, "Base.VMDK");
}

TEST(vmdk_descriptor, with_carriage_returns_in_the_line_ends_the_values_end_in_one) {
    const vmdk_descriptor descriptor = parsed("CID=12\r\nparentCID=ffffffff\r\n\r\nencoding=x\r\n");
    EXPECT_EQ(descriptor.m_cid, "12\r");
    EXPECT_EQ(descriptor.m_parent_cid, "ffffffff\r");
    EXPECT_EQ(descriptor.m_encoding, "x\r");
    EXPECT_EQ(descriptor.m_descriptor_lines,
              (std::vector<std::wstring>{L"CID=12\r", L"parentCID=ffffffff\r", L"\r", L"encoding=x\r"}));
}

TEST(vmdk_descriptor, a_key_counts_only_at_the_start_of_its_line_and_with_its_equals_sign) {
    const vmdk_descriptor descriptor = parsed(" CID=1\nxCID=2\nCID =3\nCID:4\nddb.longContentID = \"5\"\n");
    EXPECT_EQ(descriptor.m_cid, "");
    EXPECT_EQ(descriptor.m_descriptor_lines.size(), 5u);
}

TEST(vmdk_descriptor, the_last_of_several_lines_with_one_key_counts) {
    EXPECT_EQ(parsed("CID=1\ncid=2\nCID=3").m_cid, "3");
    EXPECT_EQ(parsed("CID=1\nCID=\n").m_cid, "");
}

TEST(vmdk_descriptor, the_text_ends_at_its_first_zero_byte_or_with_its_bytes) {
    EXPECT_EQ(parsed(std::string("CID=1\0CID=2\nCID=3\n", 18)).m_cid, "1");
    EXPECT_EQ(parsed("CID=1").m_cid, "1");
    EXPECT_TRUE(parsed("").m_descriptor_lines.empty());
    EXPECT_TRUE(parsed(std::string("\0CID=1\n", 7)).m_descriptor_lines.empty());
}

TEST(vmdk_descriptor, a_text_cut_at_any_length_gives_what_is_before_the_cut) {
    const std::string text = "a\nCID=12\n";
    const std::string expected[] = {"", "", "", "", "", "", "", "1", "12", "12"};
    for (std::size_t length = 0; length <= text.size(); ++length) {
        EXPECT_EQ(parsed(text.substr(0, length)).m_cid, expected[length]) << length;
    }
}

TEST(vmdk_descriptor, a_line_that_is_no_utf8_is_kept_as_far_as_it_is_and_its_value_whole) {
    const vmdk_descriptor descriptor = parsed("CID=\xC3\x84\xFFz\n");
    EXPECT_EQ(descriptor.m_cid, "\xC3\x84\xFFz");
    EXPECT_EQ(descriptor.m_descriptor_lines, (std::vector<std::wstring>{L"CID=\x00C4"}));
}

TEST(vmdk_descriptor, lines_after_a_very_long_one_are_found) {
    const vmdk_descriptor descriptor = parsed(std::string(0x3FFF0, 'x') + "\nCID=1\n");
    EXPECT_EQ(descriptor.m_cid, "1");
    EXPECT_EQ(descriptor.m_descriptor_lines[0].size(), 0x3FFF0u);
    EXPECT_EQ(descriptor.m_descriptor_lines[1], L"CID=1");
}

TEST(vmdk_descriptor, lines_of_more_than_256_kibibytes_in_all_are_looked_at_and_not_kept) {
    const std::string long_line = std::string(0x20000, 'x') + "\n";
    const vmdk_descriptor descriptor =
        parsed(long_line + "CID=" + std::string(0x100000, 'y') + "\n" + long_line + "a\nparentCID=2\n");
    EXPECT_EQ(descriptor.m_cid, std::string(0x100000, 'y'));
    EXPECT_EQ(descriptor.m_parent_cid, "2");
    EXPECT_EQ(descriptor.m_descriptor_lines,
              (std::vector<std::wstring>{std::wstring(0x20000, L'x'), std::wstring(0x20000, L'x')}));
}

TEST(vmdk_descriptor, of_more_lines_than_any_real_one_has_only_the_first_are_kept_and_all_are_looked_at) {
    std::string text;
    for (int i = 0; i < 0x4000; ++i) {
        text += "x\n";
    }
    EXPECT_EQ(parsed(text).m_descriptor_lines.size(), 0x4000u);
    const vmdk_descriptor descriptor = parsed(text + "CID=1\n");
    EXPECT_EQ(descriptor.m_descriptor_lines.size(), 0x4000u);
    EXPECT_EQ(descriptor.m_descriptor_lines.back(), L"x");
    EXPECT_EQ(descriptor.m_cid, "1");
}

TEST(vmdk_descriptor, a_key_that_fills_its_line_or_is_cut_there_gives_no_value) {
    EXPECT_EQ(parsed("parentFileNameHint=\n").m_parent_hint, "");
    EXPECT_EQ(parsed("parentFileNameHint=x\nparentFileNameHint\n").m_parent_hint, "x");
}

}  // namespace
}  // namespace quarry::test
