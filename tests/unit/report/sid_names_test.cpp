#include "report/sid_names.h"

#include "support/security_builder.h"

#include <cstdint>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace quarry {
namespace {

using test::bytes;
using test::sid;

std::string text_of(const bytes& bytes_of_sid, std::uint64_t available_bytes) {
    std::string text = "before";
    const bool whole = sid_to_text(text, byte_view(bytes_of_sid), available_bytes);
    EXPECT_EQ(whole, !text.empty());
    return text;
}

std::string text_of(const bytes& bytes_of_sid) {
    return text_of(bytes_of_sid, bytes_of_sid.size());
}

std::string name_of(std::uint8_t authority, const std::vector<std::uint32_t>& sub_authorities) {
    return std::string(sid_name(byte_view(sid(authority, sub_authorities))));
}

TEST(sid_text, revision_authority_and_sub_authorities_are_in_decimal) {
    EXPECT_EQ(text_of(sid(5, {18})), "S-1-5-18");
    EXPECT_EQ(text_of(sid(5, {32, 544})), "S-1-5-32-544");
    EXPECT_EQ(text_of(sid(5, {21, 1, 2, 3, 1001})), "S-1-5-21-1-2-3-1001");
}

TEST(sid_text, sub_authorities_are_unsigned_32_bit_numbers) {
    EXPECT_EQ(text_of(sid(5, {21, 0xFFFFFFFF, 0x80000000})), "S-1-5-21-4294967295-2147483648");
}

TEST(sid_text, the_revision_is_shown_whatever_it_is) {
    bytes value = sid(5, {18});
    value[0] = 255;
    EXPECT_EQ(text_of(value), "S-255-5-18");
}

TEST(sid_text, only_the_lowest_byte_of_the_authority_is_shown_not_all_six) {
    bytes value = sid(15, {18});
    value[6] = 1;  // authority 0x10F
    value[2] = 0xFF;
    EXPECT_EQ(text_of(value), "S-1-15-18");
}

TEST(sid_text, fewer_than_12_available_bytes_are_no_sid) {
    const bytes value = sid(5, {18});
    EXPECT_EQ(text_of(value, 12), "S-1-5-18");
    for (std::uint64_t available = 0; available < 12; ++available) {
        EXPECT_EQ(text_of(value, available), "") << available;
    }
}

TEST(sid_text, a_sid_longer_than_the_available_bytes_is_none) {
    const bytes value = sid(5, {21, 1, 2, 3, 513});
    EXPECT_EQ(text_of(value, 28), "S-1-5-21-1-2-3-513");
    EXPECT_EQ(text_of(value, 27), "");
}

TEST(sid_text, a_sid_is_cut_at_no_length_of_its_bytes) {
    const bytes value = sid(5, {21, 1, 2, 3, 513});
    for (std::size_t length = 0; length < value.size(); ++length) {
        const bytes cut(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(text_of(cut, 0xFFFFFFFFFFFFFFFF), "") << length;
    }
}

TEST(sid_text, a_sid_with_255_sub_authorities_needs_all_its_bytes) {
    bytes value = sid(5, std::vector<std::uint32_t>(255, 7));
    ASSERT_EQ(value.size(), 1028u);
    const std::string whole = text_of(value);
    EXPECT_EQ(whole.size(), 5u + 255 * 2);
    value.pop_back();
    EXPECT_EQ(text_of(value), "");
    const bytes alone(value.begin(), value.begin() + 12);  // count 255, one sub-authority
    EXPECT_EQ(text_of(alone, 4096), "");
}

TEST(sid_text, a_sid_without_sub_authorities_needs_12_available_bytes_of_which_it_has_8) {
    const bytes value = sid(5, {});
    EXPECT_EQ(text_of(value, 12), "S-1-5");
    EXPECT_EQ(text_of(value, 11), "");
    EXPECT_EQ(text_of(value), "");
}

TEST(sid_text, no_bytes_are_no_sid) {
    EXPECT_EQ(text_of({}, 100), "");
}

TEST(sid_name, one_sub_authority_is_named_by_the_authority) {
    EXPECT_EQ(name_of(0, {0}), "null");
    EXPECT_EQ(name_of(1, {0}), "World");
    EXPECT_EQ(name_of(2, {0}), "Local");
    EXPECT_EQ(name_of(1, {99}), "World");
    EXPECT_EQ(name_of(4, {0}), "unk");
    EXPECT_EQ(name_of(6, {18}), "unk");
    EXPECT_EQ(name_of(255, {18}), "unk");
}

TEST(sid_name, creators_have_four_names) {
    EXPECT_EQ(name_of(3, {0}), "Owner");
    EXPECT_EQ(name_of(3, {1}), "Group");
    EXPECT_EQ(name_of(3, {2}), "Owner Server");
    EXPECT_EQ(name_of(3, {3}), "Group Server");
    EXPECT_EQ(name_of(3, {4}), "unk");
    EXPECT_EQ(name_of(3, {0xFFFFFFFF}), "unk");
}

TEST(sid_name, every_index_of_the_system_table_has_its_name) {
    const std::map<std::uint32_t, std::string> named = {
        {1, "Dialup"},
        {2, "Network"},
        {3, "Batch"},
        {4, "Interactive"},
        {5, "Logon Ids"},
        {6, "Service"},
        {7, "Anonymous Logon"},
        {8, "Proxy"},
        {9, "Server Logon [Domain Controllers]"},
        {10, "Principal Self"},
        {11, "Authenticated User"},
        {12, "Restricted Code"},
        {13, "Terminal Server Users"},
        {18, "Local System"},
        {19, "Local Service"},
        {20, "Network Service"},
        {21, "NT Non Unique"},
        {32, "Builtin Domain"},
    };
    for (std::uint32_t index = 0; index < 300; ++index) {
        const auto row = named.find(index);
        EXPECT_EQ(name_of(5, {index}), row == named.end() ? "unk" : row->second) << index;
    }
    EXPECT_EQ(name_of(5, {0xFFFFFFFF}), "unk");
}

TEST(sid_name, every_relative_id_of_the_table_has_its_name) {
    const std::map<std::uint32_t, std::string> named = {
        {0x1F4, "User Admin"},
        {0x1F5, "User Guest"},
        {0x1F6, "KRBTGT [key distrib center]"},
        {0x200, "Domain Admin"},
        {0x201, "Domain Users"},
        {0x202, "Domain Guests"},
        {0x203, "Domain Computers"},
        {0x204, "Domain Controllers"},
        {0x205, "Domain Certificate Publishers"},
        {0x206, "Domain Schema Admins"},
        {0x207, "Domain Server Admins"},
        {0x208, "Domain Policy Creater/Owner"},
        {0x215, "Domain RAS & IAS Servers"},
        {0x220, "Admins"},
        {0x221, "Users"},
        {0x222, "Guests"},
        {0x223, "Power Users"},
        {0x224, "Account Operators"},
        {0x225, "Server Operators"},
        {0x226, "Print Operators"},
        {0x227, "Backup Operators"},
        {0x228, "Replicators"},
        {0x229, "RAS Services"},
        {0x22A, "Pre Win2k Compatible Access"},
        {0x22B, "Remote Desktop Users"},
        {0x22C, "Network Configuration Operators"},
        {0x22D, "Incoming Trust Forest Builders"},
        {0x22E, "Performance Monitor Users"},
        {0x22F, "Performance Log Users"},
        {0x230, "Windows Authorization Access Group"},
        {0x231, "Terminal Server License Servers"},
    };
    for (std::uint32_t id = 0; id < 2000; ++id) {
        const auto row = named.find(id);
        EXPECT_EQ(name_of(5, {32, id}), row == named.end() ? "unk" : row->second) << id;
    }
    EXPECT_EQ(name_of(5, {32, 0xFFFFFFFF}), "unk");
}

TEST(sid_name, only_the_last_of_several_sub_authorities_is_looked_at) {
    EXPECT_EQ(name_of(5, {32, 544}), "Admins");
    EXPECT_EQ(name_of(5, {21, 1, 2, 3, 513}), "Domain Users");
    EXPECT_EQ(name_of(9, {7, 513}), "Domain Users");
    EXPECT_EQ(name_of(5, {544, 18}), "unk");
    EXPECT_EQ(name_of(5, {21, 1, 2, 3, 1001}), "unk");
}

TEST(sid_name, a_sid_without_sub_authorities_or_with_missing_ones_is_unknown) {
    EXPECT_EQ(name_of(1, {}), "unk");
    EXPECT_EQ(sid_name(byte_view()), "unk");
    const bytes whole = sid(1, {0});
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_EQ(sid_name(byte_view(whole.data(), length)), "unk") << length;
    }
}

}  // namespace
}  // namespace quarry
