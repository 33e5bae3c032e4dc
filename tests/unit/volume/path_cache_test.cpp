#include "volume/path_cache.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using names = std::vector<child_name_table::named_child>;

child_name_table table_of(names children) {
    child_name_table table;
    table.assign(std::move(children));
    return table;
}

TEST(ChildNameTable, FindsEachName) {
    const child_name_table table = table_of({{"b", 7}, {"a", 9}, {"", 3}});
    EXPECT_EQ(table.find("a"), 9u);
    EXPECT_EQ(table.find("b"), 7u);
    EXPECT_EQ(table.find(""), 3u);
}

TEST(ChildNameTable, FindsNoOtherName) {
    const child_name_table table = table_of({{"b", 7}, {"d", 9}});
    for (const char* name : {"", "a", "B", "c", "bb", "e"}) {
        EXPECT_EQ(table.find(name), std::nullopt) << name;
    }
    EXPECT_EQ(child_name_table().find("a"), std::nullopt);
}

TEST(ChildNameTable, GivesANameToTheChildWithTheLowestNumber) {
    const child_name_table table = table_of({{"b", 9}, {"a", 8}, {"b", 7}, {"b", 8}});
    EXPECT_EQ(table.find("b"), 7u);
    EXPECT_EQ(table.names(), (names{{"a", 8}, {"b", 7}}));
}

TEST(ChildNameTable, TakesThePlaceOfWhatWasThere) {
    child_name_table table = table_of({{"a", 1}});
    EXPECT_FALSE(table.empty());
    table.assign({{"b", 2}});
    EXPECT_EQ(table.find("a"), std::nullopt);
    EXPECT_EQ(table.find("b"), 2u);
    table.assign({});
    EXPECT_TRUE(table.empty());
}

TEST(ChildNameTable, ComparesBytesSoThatUtf8AndItsDamageAreFound) {
    const child_name_table table = table_of({{"\xC3\x84", 1}, {"z", 2}, {"\xED\xA0\x80", 3}});
    EXPECT_EQ(table.find("\xC3\x84"), 1u);
    EXPECT_EQ(table.find("\xED\xA0\x80"), 3u);
    EXPECT_EQ(table.find("z"), 2u);
}

}  // namespace
}  // namespace quarry::test
