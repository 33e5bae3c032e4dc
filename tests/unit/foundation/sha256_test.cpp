#include "foundation/sha256.h"

#include "foundation/md5.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

std::string digest_text(sha256_ctx& ctx) {
    sha256_digest digest{};
    EXPECT_TRUE(sha256_final(digest, &ctx));
    std::string text;
    hex_text(text, digest.data(), digest.size(), false);
    return text;
}

// Each test runs with every transform that this processor can run.
class sha256 : public testing::TestWithParam<sha256_transform*> {
  protected:
    [[nodiscard]] sha256_ctx begun() const {
        sha256_ctx ctx;
        EXPECT_TRUE(sha256_init(&ctx, GetParam()));
        EXPECT_EQ(ctx.transform, GetParam());
        return ctx;
    }
    [[nodiscard]] std::string digest_of(const std::string& message) const {
        sha256_ctx ctx = begun();
        EXPECT_EQ(sha256_update(&ctx, message.data(), message.size()), !message.empty());
        return digest_text(ctx);
    }
};

std::vector<sha256_transform*> all_transforms() {
    std::vector<sha256_transform*> all = {sha256_transform_plain};
    if (sha256_transform* const fast = sha256_transform_of_processor(); fast != nullptr) {
        all.push_back(fast);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(transforms, sha256, testing::ValuesIn(all_transforms()), [](const auto& tested) {
    return std::string(tested.param == sha256_transform_plain ? "plain" : "of_the_processor");
});

// Byte i is 7 i + 3, cut to 8 bits.
std::string pattern(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(static_cast<char>((i * 7 + 3) & 0xFF));
    }
    return text;
}

TEST_P(sha256, gives_the_digests_of_the_standard) {
    EXPECT_EQ(digest_of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digest_of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digest_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(
        digest_of("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmno"
                  "pqrlmnopqrsmnopqrstnopqrstu"),
        "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
    EXPECT_EQ(digest_of(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// The expected digest is that of coreutils' sha256sum over its own digests of the first 0 to 300 bytes of the
// pattern, one a line.
TEST_P(sha256, agrees_with_sha256sum_for_every_length_up_to_300) {
    std::string digests;
    for (std::size_t length = 0; length <= 300; ++length) {
        digests += digest_of(pattern(length)) + "\n";
    }
    EXPECT_EQ(digest_of(digests), "3577e43d62701c38b95a0e78fdd354070899d33749149e50e8bf4729d714f039");
}

TEST_P(sha256, does_not_depend_on_how_the_message_is_cut) {
    const std::string message = pattern(300);
    const std::string whole = digest_of(message);
    for (std::size_t first = 1; first < 200; ++first) {
        for (const std::size_t second : {1u, 63u, 64u, 65u}) {
            sha256_ctx ctx = begun();
            EXPECT_TRUE(sha256_update(&ctx, message.data(), first));
            EXPECT_TRUE(sha256_update(&ctx, message.data() + first, second));
            EXPECT_TRUE(sha256_update(&ctx, message.data() + first + second, 300 - first - second));
            ASSERT_EQ(digest_text(ctx), whole) << first << " and " << second;
        }
    }
}

TEST_P(sha256, takes_bytes_at_any_address) {
    const std::string message = pattern(256);
    const std::string whole = digest_of(message);
    for (std::size_t shift = 1; shift < 16; ++shift) {
        const std::string moved = std::string(shift, 'x') + message;
        sha256_ctx ctx = begun();
        EXPECT_TRUE(sha256_update(&ctx, moved.data() + shift, message.size()));
        ASSERT_EQ(digest_text(ctx), whole) << shift;
    }
}

TEST_P(sha256, counts_the_bits_of_a_long_message_in_64_bits) {
    // 2^29 bytes are 2^32 bits: the low half of the length field is 0, the high half is 1.
    sha256_ctx ctx = begun();
    ctx.message.byte_count = std::uint64_t{1} << 29;
    std::vector<std::uint8_t> last_block(64);
    last_block[0] = 0x80;
    last_block[59] = 1;
    sha256_ctx by_hand = begun();
    EXPECT_TRUE(sha256_update(&by_hand, last_block.data(), last_block.size()));
    sha256_digest digest{};
    EXPECT_TRUE(sha256_final(digest, &ctx));
    for (std::size_t i = 0; i < by_hand.state.size(); ++i) {
        const std::uint32_t word = static_cast<std::uint32_t>(digest[4 * i]) << 24 |
                                   static_cast<std::uint32_t>(digest[4 * i + 1]) << 16 |
                                   static_cast<std::uint32_t>(digest[4 * i + 2]) << 8 | digest[4 * i + 3];
        EXPECT_EQ(word, by_hand.state[i]) << i;
    }
}

TEST_P(sha256, is_ready_for_the_next_message_afterwards) {
    sha256_ctx ctx = begun();
    EXPECT_TRUE(sha256_update(&ctx, "first", 5));
    (void)digest_text(ctx);
    EXPECT_EQ(ctx.transform, GetParam());
    EXPECT_TRUE(sha256_update(&ctx, "abc", 3));
    EXPECT_EQ(digest_text(ctx), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

// Where the processor has no instructions of its own, there is only the plain transform and nothing can
// differ.
TEST_P(sha256, gives_the_state_of_the_plain_transform_for_blocks_of_any_kind) {
    std::uint32_t seed = 1;
    const auto next = [&seed] { return seed = seed * 1664525 + 1013904223; };
    for (int round = 0; round < 1000; ++round) {
        sha256_state plain_state;
        for (std::uint32_t& word : plain_state) {
            word = next();
        }
        sha256_state state = plain_state;
        std::vector<std::uint8_t> blocks(64 * (next() >> 30));
        for (std::uint8_t& byte : blocks) {
            byte = static_cast<std::uint8_t>(next() >> 24);
        }
        sha256_transform_plain(plain_state, blocks.data(), blocks.size() / 64);
        GetParam()(state, blocks.data(), blocks.size() / 64);
        ASSERT_EQ(plain_state, state) << round;
    }
}

TEST(sha256_transforms, the_processors_own_is_taken_where_there_is_one) {
    sha256_ctx ctx;
    ASSERT_TRUE(sha256_init(&ctx));
    sha256_transform* const fast = sha256_transform_of_processor();
    EXPECT_EQ(ctx.transform, fast != nullptr ? fast : sha256_transform_plain);
}

TEST(sha256_arguments, that_are_null_or_empty_are_refused) {
    sha256_ctx ctx;
    sha256_digest digest = {1, 2, 3};
    EXPECT_FALSE(sha256_init(nullptr));
    ASSERT_TRUE(sha256_init(&ctx));
    EXPECT_FALSE(sha256_update(nullptr, "a", 1));
    EXPECT_FALSE(sha256_update(&ctx, nullptr, 1));
    EXPECT_FALSE(sha256_update(&ctx, "a", 0));
    EXPECT_EQ(ctx.message.byte_count, 0u);
    EXPECT_FALSE(sha256_final(digest, nullptr));
    EXPECT_EQ(digest[2], 3);
}

}  // namespace
}  // namespace quarry
