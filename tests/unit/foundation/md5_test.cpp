#include "foundation/md5.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

std::string digest_text(md5_ctx& ctx) {
    md5_digest digest{};
    EXPECT_TRUE(md5_final(digest, &ctx));
    std::string text;
    hex_text(text, digest.data(), digest.size(), false);
    return text;
}

std::string md5_of(const std::string& message) {
    md5_ctx ctx;
    EXPECT_TRUE(md5_init(&ctx));
    EXPECT_EQ(md5_update(&ctx, message.data(), message.size()), !message.empty());
    return digest_text(ctx);
}

TEST(md5, the_test_suite_of_rfc1321_holds) {
    EXPECT_EQ(md5_of(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5_of("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5_of("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5_of("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5_of("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(md5_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(md5_of("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

// The expected digests are those of coreutils' md5sum.
TEST(md5, messages_around_the_block_size_take_both_paddings) {
    EXPECT_EQ(md5_of(std::string(55, 'x')), "04364420e25c512fd958a70738aa8f72");
    EXPECT_EQ(md5_of(std::string(56, 'x')), "668a72d5ba17f08e62dabcafad6db14b");
    EXPECT_EQ(md5_of(std::string(63, 'x')), "7dc2ca208106a2f703567bdff99d8981");
    EXPECT_EQ(md5_of(std::string(64, 'x')), "c1bb4f81d892b2d57947682aeb252456");
    EXPECT_EQ(md5_of(std::string(65, 'x')), "1bc932052302d074bdec39795fe00cf6");
}

TEST(md5, the_bit_count_carries_into_its_upper_half) {
    md5_ctx ctx;
    ASSERT_TRUE(md5_init(&ctx));
    ctx.bit_count = {0xFFFFFE00, 7};  // one block short of 2^32 bits more
    ASSERT_TRUE(md5_update(&ctx, std::string(64, 'x').data(), 64));
    EXPECT_EQ(ctx.bit_count, (std::array<std::uint32_t, 2>{0, 8}));
}

TEST(md5, both_halves_of_the_bit_count_go_into_the_digest) {
    md5_ctx ctx;
    ASSERT_TRUE(md5_init(&ctx));
    ctx.bit_count = {0, 1};
    EXPECT_NE(digest_text(ctx), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(md5, odd_portions_give_the_digest_of_the_whole) {
    std::string message;
    for (int i = 0; i < 1000; ++i) {
        message += static_cast<char>(i * 7);
    }
    const std::string whole = md5_of(message);
    for (std::size_t portion = 1; portion <= 200; ++portion) {
        md5_ctx ctx;
        ASSERT_TRUE(md5_init(&ctx));
        for (std::size_t at = 0; at < message.size(); at += portion) {
            ASSERT_TRUE(md5_update(&ctx, message.data() + at, std::min(portion, message.size() - at)));
        }
        ASSERT_EQ(digest_text(ctx), whole) << "portions of " << portion;
    }
}

TEST(md5, unaligned_bytes_are_digested_too) {
    const std::string message(300, 'm');
    const std::string aligned = md5_of(message);
    for (std::size_t shift = 1; shift < 8; ++shift) {
        const std::string shifted = std::string(shift, '?') + message;
        md5_ctx ctx;
        ASSERT_TRUE(md5_init(&ctx));
        ASSERT_TRUE(md5_update(&ctx, shifted.data() + shift, message.size()));
        EXPECT_EQ(digest_text(ctx), aligned);
    }
}

TEST(md5, the_context_is_ready_for_the_next_message_after_the_end_of_one) {
    md5_ctx ctx;
    ASSERT_TRUE(md5_init(&ctx));
    ASSERT_TRUE(md5_update(&ctx, "abc", 3));
    EXPECT_EQ(digest_text(ctx), "900150983cd24fb0d6963f7d28e17f72");
    ASSERT_TRUE(md5_update(&ctx, "a", 1));
    EXPECT_EQ(digest_text(ctx), "0cc175b9c0f1b6a831c399e269772661");
}

TEST(md5, init_forgets_what_came_before) {
    md5_ctx ctx;
    ASSERT_TRUE(md5_init(&ctx));
    ASSERT_TRUE(md5_update(&ctx, "xyz", 3));
    ASSERT_TRUE(md5_init(&ctx));
    EXPECT_EQ(digest_text(ctx), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(md5, missing_contexts_bytes_and_lengths_are_refused) {
    md5_ctx ctx;
    ASSERT_TRUE(md5_init(&ctx));
    EXPECT_FALSE(md5_init(nullptr));
    EXPECT_FALSE(md5_update(nullptr, "a", 1));
    EXPECT_FALSE(md5_update(&ctx, nullptr, 1));
    EXPECT_FALSE(md5_update(&ctx, "a", 0));
    md5_digest digest{};
    digest.fill(0xAB);
    EXPECT_FALSE(md5_final(digest, nullptr));
    EXPECT_EQ(digest[0], 0xAB);
    EXPECT_EQ(digest_text(ctx), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(hex_text, each_byte_is_two_lower_case_digits) {
    const std::vector<std::uint8_t> bytes = {0x00, 0x0F, 0xA0, 0xFF};
    std::string text = "before";
    hex_text(text, bytes.data(), bytes.size(), false);
    EXPECT_EQ(text, "000fa0ff");
}

TEST(hex_text, spaced_bytes_have_one_blank_between_them) {
    const std::vector<std::uint8_t> bytes = {0x01, 0x23, 0xEF};
    std::string text;
    hex_text(text, bytes.data(), bytes.size(), true);
    EXPECT_EQ(text, "01 23 ef");
    hex_text(text, bytes.data(), 1, true);
    EXPECT_EQ(text, "01");
}

TEST(hex_text, no_bytes_give_empty_text) {
    std::string text = "before";
    hex_text(text, nullptr, 4, false);
    EXPECT_EQ(text, "");
    text = "before";
    hex_text(text, "ab", 0, true);
    EXPECT_EQ(text, "");
}

}  // namespace
}  // namespace quarry
