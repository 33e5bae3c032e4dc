#include "foundation/ql_hex_view.h"

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ql {
namespace {

using bytes = std::vector<std::uint8_t>;

std::string dump(const bytes& content, std::uint32_t first, std::uint32_t count, std::uint64_t base_address) {
    std::ostringstream out;
    hex_dump(out, binary_data(content, false), first, count, base_address);
    return out.str();
}

std::string dump(const bytes& content) {
    return dump(content, 0, static_cast<std::uint32_t>(content.size()), 0);
}

bytes counted(std::size_t count) {
    bytes result;
    for (std::size_t i = 0; i < count; ++i) {
        result.push_back(static_cast<std::uint8_t>('A' + i % 26));
    }
    return result;
}

TEST(HexDump, AVolumeNameInUtf16ShowsADotAfterEachLetter) {
    EXPECT_EQ(dump({0x41, 0x00, 0x42, 0x00}), "0000 0000:  41 00 42 00 " + std::string(37, ' ') + " A.B.\n");
}

TEST(HexDump, AnEmptyViewPrintsNothing) {
    EXPECT_EQ(dump({}), "");
    EXPECT_EQ(dump({}, 0, 16, 0x1000), "");
}

TEST(HexDump, SixteenBytesPrintOneLineWithoutFilling) {
    EXPECT_EQ(dump(counted(16)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n");
}

TEST(HexDump, SeventeenBytesBeginASecondLineAtTheNextAddress) {
    EXPECT_EQ(dump(counted(17)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
              "0000 0010:  51 " +
                  std::string(46, ' ') + " Q\n");
}

TEST(HexDump, EightBytesAreFilledWith25Blanks) {
    EXPECT_EQ(dump(counted(8)),
              "0000 0000:  41 42 43 44 45 46 47 48 " + std::string(25, ' ') + " ABCDEFGH\n");
}

TEST(HexDump, NineBytesAreFilledWith21Blanks) {
    EXPECT_EQ(dump(counted(9)),
              "0000 0000:  41 42 43 44 45 46 47 48  49 " + std::string(21, ' ') + " ABCDEFGHI\n");
}

TEST(HexDump, TheCharacterColumnStandsInOnePlaceForEveryCount) {
    for (std::size_t count = 1; count <= 16; ++count) {
        const std::string line = dump(bytes(count, 'Z'));
        // 12 of the address, 16 pairs of 3, one between the groups, one before the characters.
        EXPECT_EQ(line.find('Z'), 62u) << count;
        EXPECT_EQ(line.size(), 62 + count + 1) << count;
    }
}

TEST(HexDump, OnlyPrintableAsciiShowsAsItself) {
    const std::string line = dump({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF, 0x00});
    EXPECT_EQ(line.substr(line.size() - 8), ". ~....\n");
}

TEST(HexDump, TheAddressGrowsByGroupsOfFourDigits) {
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFFFFFFFF).substr(0, 12), "ffff ffff:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0x100000000).substr(0, 17), "0001 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFFFF00000000).substr(0, 17), "ffff 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0x1000000000000).substr(0, 22), "0001 0000 0000 0000:  ");
    EXPECT_EQ(dump({0x41}, 0, 1, 0xFEDCBA9876543210).substr(0, 22), "fedc ba98 7654 3210:  ");
}

TEST(HexDump, TheLineBehindAnAddressWhoseUpperHalfIsZeroIsCountedInAllItsBits) {
    const std::string lines = dump(counted(17), 0, 17, 0xFFFFFFF0);
    EXPECT_EQ(lines.substr(0, 12), "ffff fff0:  ");
    EXPECT_EQ(lines.substr(79, 17), "0001 0000 0000:  ");
}

TEST(HexDump, ARangeBeginsAndEndsInsideTheView) {
    EXPECT_EQ(dump(counted(10), 2, 3, 0x20), "0000 0020:  43 44 45 " + std::string(40, ' ') + " CDE\n");
    EXPECT_EQ(dump(counted(10), 9, 100, 0), "0000 0000:  4a " + std::string(46, ' ') + " J\n");
    EXPECT_EQ(dump(counted(10), 10, 1, 0), "");
    EXPECT_EQ(dump(counted(10), 0xFFFFFFFF, 0xFFFFFFFF, 0), "");
    EXPECT_EQ(dump(counted(10), 0, 0, 0), "");
}

TEST(HexDump, TheStreamKeepsItsFlagsButNotItsFill) {
    std::ostringstream out;
    out << std::dec << std::left << std::setfill('*') << std::showbase;
    const std::ios_base::fmtflags before = out.flags();
    hex_dump(out, binary_data(counted(1), true), 0, 1, 0);
    EXPECT_EQ(out.flags(), before);
    EXPECT_EQ(out.fill(), '0');
}

TEST(HexDump, NumbersStayPlainInAStreamThatShowsBasesOrCapitals) {
    std::ostringstream out;
    out << std::showbase << std::uppercase << std::showpos;
    hex_dump(out, binary_data({0xAB}, true), 0, 1, 0xCD);
    EXPECT_EQ(out.str(), "0000 00cd:  ab " + std::string(46, ' ') + " .\n");
}

TEST(BinaryData, AViewLooksAtTheVectorAndACopyAtBytesOfItsOwn) {
    bytes content = {1, 2};
    const binary_data view(content, false);
    const binary_data copy(content, true);
    content[1] = 9;
    EXPECT_EQ(view(1), 9);
    EXPECT_EQ(copy(1), 2);
    EXPECT_EQ(view.m_num_data, 2u);
    EXPECT_FALSE(view.m_is_copy);
    EXPECT_TRUE(copy.m_is_copy);
    EXPECT_EQ(copy.m_own_bytes, (bytes{1, 2}));
}

TEST(BinaryData, AnEmptyVectorGivesAnEmptyView) {
    EXPECT_EQ(binary_data({}, false).m_num_data, 0u);
    EXPECT_EQ(binary_data({}, true).m_num_data, 0u);
}

TEST(BinaryDataDeathTest, AnIndexAtTheEndOfTheViewEndsTheProgramWithTheAssertion) {
    const bytes content = {1, 2};
    const binary_data view(content, false);
    EXPECT_DEATH((void)view(2), "index < m_num_data, in ql_hex_view");
    EXPECT_DEATH((void)binary_data({}, true)(0), "index < m_num_data");
}

}  // namespace
}  // namespace ql
