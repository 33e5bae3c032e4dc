#include "exact/index_budget.h"

#include "exact/index_walk.h"
#include "support/opened_exact_volume.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

TEST(index_budget, has_room_for_the_blocks_of_the_source_and_a_mebibyte) {
    index_budget budget(0x10000);
    EXPECT_TRUE(budget.take_block(0x10000, "a"));
    EXPECT_TRUE(budget.take_block(0x100000 - 1, "a"));
    EXPECT_FALSE(budget.spent());
    EXPECT_FALSE(budget.take_block(2, "index block 7 of record 5"));
    ASSERT_TRUE(budget.spent());
    EXPECT_EQ(budget.spent()->code, failure_code::index);
    EXPECT_EQ(budget.spent()->where, "index block 7 of record 5");
}

// To wake it costs the record of 1 KiB, and 4 KiB for its root node. 32 MiB have room for that 6,553 times.
TEST(index_budget, ends_a_walk_that_is_woken_too_often) {
    volume_builder volume({.mft_entries = 64, .system_files = true});
    volume.add_directory("d");  // 24
    volume.add_file("in it", 24);
    opened_exact_volume opened(volume);
    notices told;
    index_budget budget(0);
    auto set =
        attribute_set::of(opened.volume().table(), opened.volume().table().read(24, told).value(), told)
            .value();
    const auto no_damage = [](const failure& each) { ADD_FAILURE() << each.text(); };
    auto walk = index_walk::begin(opened.volume(), std::move(set), budget, no_damage, told).value();
    ASSERT_NE(walk.next(no_damage, told), nullptr);
    int woken = 0;
    for (; woken < 40'000; ++woken) {
        walk.rest();
        if (const auto awake = walk.wake(told); !awake) {
            EXPECT_EQ(text_of(awake.error()),
                      "index record 24: to go back to the directories above costs more than in any tree; the "
                      "listing ends here");
            break;
        }
    }
    EXPECT_EQ(woken, 6553);
    EXPECT_EQ(walk.next(no_damage, told), nullptr);
}

}  // namespace quarry::test
