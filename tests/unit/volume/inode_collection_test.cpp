#include "volume/inode_collection.h"

#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using numbers = std::vector<std::uint64_t>;

numbers all_of(const _inode_collection& collection) {
    return {collection.begin(), collection.end()};
}

TEST(inode_collection, is_empty_at_first) {
    const _inode_collection collection;
    EXPECT_TRUE(collection.empty());
    EXPECT_EQ(collection.size(), 0u);
    EXPECT_EQ(all_of(collection), numbers());
}

TEST(inode_collection, is_ascending_whatever_the_order_of_the_inserts) {
    _inode_collection collection;
    for (const std::uint64_t entry : {7ull, 0ull, 0xFFFFFFFFFFFFull, 5ull}) {
        collection.insert(entry);
    }
    EXPECT_EQ(all_of(collection), (numbers{0, 5, 7, 0xFFFFFFFFFFFF}));
    collection.insert(6);
    EXPECT_EQ(all_of(collection), (numbers{0, 5, 6, 7, 0xFFFFFFFFFFFF}));
}

TEST(inode_collection, holds_each_number_once) {
    _inode_collection collection = {3, 1, 3};
    collection.insert(1);
    EXPECT_EQ(collection.size(), 2u);
    EXPECT_EQ(all_of(collection), (numbers{1, 3}));
    collection.insert(3);
    EXPECT_EQ(collection.size(), 2u);
}

TEST(inode_collection, is_empty_again_after_clear) {
    _inode_collection collection = {3, 1};
    ASSERT_EQ(collection.size(), 2u);
    collection.clear();
    EXPECT_TRUE(collection.empty());
    collection.insert(9);
    EXPECT_EQ(all_of(collection), numbers{9});
}

TEST(inode_collection, holds_not_much_more_than_the_set_however_many_doubles_come_in) {
    _inode_collection collection;
    for (std::uint64_t i = 0; i < 1000000; ++i) {
        collection.insert(i % 100);
        ASSERT_LE(collection.held(), 4096u);
    }
    EXPECT_EQ(collection.size(), 100u);
}

TEST(inode_collection, is_the_set_of_what_came_in) {
    std::mt19937_64 random(3);
    for (const std::uint64_t different : {10u, 5000u, 1000000u}) {
        _inode_collection collection;
        std::set<std::uint64_t> expected;
        for (int i = 0; i < 20000; ++i) {
            const std::uint64_t entry = random() % different;
            collection.insert(entry);
            expected.insert(entry);
            if (i % 3000 == 0) {
                ASSERT_EQ(collection.size(), expected.size());
            }
            ASSERT_GE(collection.held(), expected.size());
        }
        EXPECT_EQ(all_of(collection), numbers(expected.begin(), expected.end()));
    }
}

}  // namespace
}  // namespace quarry::test
