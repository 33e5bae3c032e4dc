#include "foundation/byte_view.h"

#include <limits>

#include <gtest/gtest.h>

namespace quarry {
namespace {

constexpr std::uint64_t far_away = std::numeric_limits<std::uint64_t>::max();

const std::vector<std::uint8_t> nine_bytes = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x10};

TEST(byte_view, a_default_view_is_empty_and_answers_no) {
    const byte_view view;
    EXPECT_EQ(view.size(), 0u);
    EXPECT_TRUE(view.empty());
    EXPECT_EQ(view.data(), nullptr);
    EXPECT_TRUE(view.span().empty());
    EXPECT_EQ(view.u8(0), std::nullopt);
    EXPECT_TRUE(view.to_vector().empty());
}

TEST(byte_view, a_null_pointer_makes_an_empty_view_whatever_its_size) {
    const byte_view view(nullptr, 100);
    EXPECT_EQ(view.size(), 0u);
    EXPECT_FALSE(view.holds(0, 1));
}

TEST(byte_view, a_view_of_bytes_refers_to_them_without_a_copy) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.size(), 9u);
    EXPECT_FALSE(view.empty());
    EXPECT_EQ(view.data(), nine_bytes.data());
    EXPECT_EQ(byte_view(std::span(nine_bytes)).data(), nine_bytes.data());
    EXPECT_EQ(view.span().size(), 9u);
    EXPECT_EQ(view.to_vector(), nine_bytes);
}

TEST(byte_view, a_view_holds_what_lies_between_its_first_and_its_last_byte) {
    const byte_view view(nine_bytes);
    EXPECT_TRUE(view.holds(0, 9));
    EXPECT_TRUE(view.holds(8, 1));
    EXPECT_TRUE(view.holds(9, 0));
    EXPECT_FALSE(view.holds(0, 10));
    EXPECT_FALSE(view.holds(9, 1));
    EXPECT_FALSE(view.holds(10, 0));
}

TEST(byte_view, a_length_that_would_wrap_the_end_is_not_held) {
    const byte_view view(nine_bytes);
    EXPECT_FALSE(view.holds(1, far_away));
    EXPECT_FALSE(view.holds(far_away, 1));
    EXPECT_FALSE(view.holds(far_away, far_away));
}

TEST(byte_view, numbers_are_little_endian_at_any_offset) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.u8(0), 0x01);
    EXPECT_EQ(view.u16(0), 0x2301);
    EXPECT_EQ(view.u32(0), 0x67452301u);
    EXPECT_EQ(view.u64(0), 0xEFCDAB8967452301u);
    EXPECT_EQ(view.u8(8), 0x10);
    EXPECT_EQ(view.u16(7), 0x10EF);
    EXPECT_EQ(view.u32(5), 0x10EFCDABu);
    EXPECT_EQ(view.u64(1), 0x10EFCDAB89674523u);
}

TEST(byte_view, a_number_of_which_any_byte_lies_outside_is_none) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.u8(9), std::nullopt);
    EXPECT_EQ(view.u16(8), std::nullopt);
    EXPECT_EQ(view.u32(6), std::nullopt);
    EXPECT_EQ(view.u64(2), std::nullopt);
    EXPECT_EQ(view.u8(far_away), std::nullopt);
    EXPECT_EQ(view.u16(far_away), std::nullopt);
    EXPECT_EQ(view.u32(far_away - 2), std::nullopt);
    EXPECT_EQ(view.u64(far_away - 6), std::nullopt);
}

TEST(byte_view, every_cut_of_a_number_is_none_until_its_last_byte_is_there) {
    for (std::size_t length = 0; length <= nine_bytes.size(); ++length) {
        const byte_view view(nine_bytes.data(), length);
        EXPECT_EQ(view.u8(0).has_value(), length >= 1) << length;
        EXPECT_EQ(view.u16(0).has_value(), length >= 2) << length;
        EXPECT_EQ(view.u32(0).has_value(), length >= 4) << length;
        EXPECT_EQ(view.u64(0).has_value(), length >= 8) << length;
        EXPECT_EQ(view.u48_or_zero(0), length >= 6 ? 0xAB8967452301u : 0u) << length;
    }
}

TEST(byte_view, the_forms_that_say_so_read_zero_for_a_number_outside) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.u8_or_zero(8), 0x10);
    EXPECT_EQ(view.u8_or_zero(9), 0);
    EXPECT_EQ(view.u16_or_zero(7), 0x10EF);
    EXPECT_EQ(view.u16_or_zero(8), 0);
    EXPECT_EQ(view.u32_or_zero(5), 0x10EFCDABu);
    EXPECT_EQ(view.u32_or_zero(6), 0u);
    EXPECT_EQ(view.u64_or_zero(1), 0x10EFCDAB89674523u);
    EXPECT_EQ(view.u64_or_zero(2), 0u);
    EXPECT_EQ(view.u48_or_zero(3), 0x10EFCDAB8967u);
    EXPECT_EQ(view.u48_or_zero(4), 0u);
    EXPECT_EQ(view.u48_or_zero(far_away - 3), 0u);
}

TEST(byte_view, a_number_of_any_width_from_one_to_eight_bytes_is_read) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.number_of_width(1, 1), 0x23u);
    EXPECT_EQ(view.number_of_width(1, 3), 0x674523u);
    EXPECT_EQ(view.number_of_width(1, 7), 0xEFCDAB89674523u);
    EXPECT_EQ(view.number_of_width(1, 8), 0x10EFCDAB89674523u);
}

TEST(byte_view, a_width_of_zero_or_above_eight_reads_zero) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.number_of_width(0, 0), 0u);
    EXPECT_EQ(view.number_of_width(0, 9), 0u);
    EXPECT_EQ(view.number_of_width(0, std::numeric_limits<unsigned>::max()), 0u);
    EXPECT_EQ(view.number_of_width(2, 8), 0u);
}

TEST(byte_view, a_sub_view_is_whole_or_none) {
    const byte_view view(nine_bytes);
    const std::optional<byte_view> middle = view.sub(2, 3);
    ASSERT_TRUE(middle);
    EXPECT_EQ(middle->to_vector(), (std::vector<std::uint8_t>{0x45, 0x67, 0x89}));
    EXPECT_EQ(middle->u8(3), std::nullopt);
    ASSERT_TRUE(view.sub(9, 0));
    EXPECT_TRUE(view.sub(9, 0)->empty());
    EXPECT_FALSE(view.sub(7, 3));
    EXPECT_FALSE(view.sub(10, 0));
    EXPECT_FALSE(view.sub(1, far_away));
}

TEST(byte_view, a_clipped_view_has_what_there_is) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.clipped(2, 3).to_vector(), (std::vector<std::uint8_t>{0x45, 0x67, 0x89}));
    EXPECT_EQ(view.clipped(7, 3).to_vector(), (std::vector<std::uint8_t>{0xEF, 0x10}));
    EXPECT_EQ(view.clipped(8, far_away).to_vector(), (std::vector<std::uint8_t>{0x10}));
    EXPECT_TRUE(view.clipped(9, 1).empty());
    EXPECT_TRUE(view.clipped(far_away, far_away).empty());
    EXPECT_TRUE(view.clipped(0, 0).empty());
}

TEST(byte_view, the_rest_from_an_offset_reaches_the_end) {
    const byte_view view(nine_bytes);
    EXPECT_EQ(view.from(0).size(), 9u);
    EXPECT_EQ(view.from(7).to_vector(), (std::vector<std::uint8_t>{0xEF, 0x10}));
    EXPECT_TRUE(view.from(9).empty());
    EXPECT_TRUE(view.from(far_away).empty());
}

TEST(byte_view, text_is_found_only_where_all_of_it_is) {
    const std::vector<std::uint8_t> bytes = {'F', 'I', 'L', 'E', 0xFF};
    const byte_view view(bytes);
    EXPECT_TRUE(view.text_at(0, "FILE"));
    EXPECT_TRUE(view.text_at(1, "ILE\xFF"));
    EXPECT_TRUE(view.text_at(5, ""));
    EXPECT_FALSE(view.text_at(0, "FILM"));
    EXPECT_FALSE(view.text_at(1, "FILE"));
    EXPECT_FALSE(view.text_at(2, "LE\xFF!"));
    EXPECT_FALSE(view.text_at(6, ""));
    EXPECT_FALSE(view.text_at(far_away, "F"));
}

TEST(byte_view, the_low_32_bits_of_a_number_are_kept) {
    EXPECT_EQ(low_32_bits(0x123456789ABCDEF0u), 0x9ABCDEF0u);
    EXPECT_EQ(low_32_bits(0xFFFFFFFFu), 0xFFFFFFFFu);
    EXPECT_EQ(low_32_bits(0x100000000u), 0u);
}

TEST(byte_view, a_stored_number_goes_over_two_bytes_that_exist_and_over_no_other) {
    std::vector<std::uint8_t> bytes = {0xA0, 0xA1, 0xA2, 0xA3};
    store_u16(bytes, 2, 0xBEEF);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{0xA0, 0xA1, 0xEF, 0xBE}));
    store_u16(bytes, 3, 0x1111);
    store_u16(bytes, 4, 0x2222);
    store_u16(bytes, far_away, 0x3333);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{0xA0, 0xA1, 0xEF, 0xBE}));
}

}  // namespace
}  // namespace quarry
