#include "disk/cached_source.h"

#include "support/memory_source.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace quarry::test {

TEST(cached_source, gives_what_is_in_memory_and_announces_what_is_not) {
    bytes content(10000);
    content[5000] = 7;
    memory_source source(content);
    source.evict();
    cached_source cached(source);
    bytes buffer(100);
    const read_outcome first = cached.read(buffer, 4950);
    EXPECT_EQ(first.bytes, 0u);
    EXPECT_EQ(first.error, EAGAIN);
    EXPECT_EQ(cached.misses(), 1u);
    EXPECT_EQ(source.announced(), (memory_source::announcements{{4950, 100}}));
    const read_outcome second = cached.read(buffer, 4950);
    EXPECT_EQ(second.bytes, 100u);
    EXPECT_EQ(second.error, 0);
    EXPECT_EQ(buffer[50], 7);
    EXPECT_EQ(cached.misses(), 1u);
    // The source itself was not read.
    EXPECT_EQ(source.reads(), 0u);
}

TEST(cached_source, ends_where_the_source_does) {
    memory_source source(bytes(100, 1));
    cached_source cached(source);
    bytes buffer(60);
    EXPECT_EQ(cached.read(buffer, 80).bytes, 20u);
    EXPECT_EQ(cached.read(buffer, 100).bytes, 0u);
    EXPECT_EQ(cached.read(buffer, 100).error, 0);
    EXPECT_EQ(cached.misses(), 0u);
}

}  // namespace quarry::test
