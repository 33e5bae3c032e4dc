// One chunk of system compression, decoded for a test: what came out, or the words of the failure.
#pragma once

#include "support/opened_exact_volume.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

struct decoded_chunk {
    bytes plain;
    std::string failed;  // empty after a success
};

// Decodes a chunk that should give `size` bytes, as chunk 7 of "it".
template <typename Decoder>
decoded_chunk decode_chunk(const bytes& stored, std::size_t size) {
    decoded_chunk out;
    out.plain.assign(size, 0xEE);
    Decoder decoder;
    if (const auto done = decoder.decode(byte_view(stored), out.plain, "it", 7); !done) {
        out.failed = text_of(done.error());
    }
    return out;
}

// The words of the failure of such a chunk; empty after a success.
template <typename Decoder>
std::string failure_of_chunk(const bytes& stored, std::size_t size) {
    return decode_chunk<Decoder>(stored, size).failed;
}

template <typename Decoder>
void expect_plain_chunk(const bytes& stored, const bytes& plain) {
    const decoded_chunk out = decode_chunk<Decoder>(stored, plain.size());
    EXPECT_EQ(out.failed, "");
    EXPECT_TRUE(out.plain == plain);
}

}  // namespace quarry::test
