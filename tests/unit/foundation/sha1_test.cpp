#include "foundation/sha1.h"

#include "foundation/md5.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

std::string text_of(const sha1_digest& digest) {
    std::string text;
    hex_text(text, digest.data(), digest.size(), false);
    return text;
}

std::string digest_of(const std::string& message) {
    sha1_ctx ctx;
    ctx.update(message.data(), message.size());
    return text_of(ctx.final());
}

}  // namespace

TEST(sha1, gives_the_digests_of_the_standard) {
    EXPECT_EQ(digest_of(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(digest_of("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(digest_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(digest_of(std::string(1000000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

// The expected digest is that of coreutils' sha1sum over its own digests of 0 to 200 letters "q", one a line.
TEST(sha1, agrees_with_sha1sum_for_every_length_up_to_200) {
    std::string digests;
    for (std::size_t length = 0; length <= 200; ++length) {
        digests += digest_of(std::string(length, 'q')) + "\n";
    }
    EXPECT_EQ(digest_of(digests), "fb31ec3d7e16fc23c3357a3575d59ae98836359f");
}

TEST(sha1, does_not_depend_on_how_the_message_is_cut) {
    const std::string message(200, 'q');
    const std::string whole = digest_of(message);
    for (std::size_t first = 0; first <= message.size(); ++first) {
        sha1_ctx ctx;
        ctx.update(message.data(), first);
        ctx.update(message.data() + first, message.size() - first);
        EXPECT_EQ(text_of(ctx.final()), whole) << first;
    }
}

TEST(sha1, begins_again_after_a_digest) {
    sha1_ctx ctx;
    ctx.update("before", 6);
    static_cast<void>(ctx.final());
    ctx.update("abc", 3);
    EXPECT_EQ(text_of(ctx.final()), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

}  // namespace quarry::test
