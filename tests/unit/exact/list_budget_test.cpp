#include "exact/list_budget.h"

#include "support/opened_exact_volume.h"

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

TEST(list_budget, has_room_for_a_gibibyte_and_32_times_the_source) {
    list_budget budget(0x10000);
    budget.take(0x40000000, "record 24");
    budget.take(0x200000 - 1, "record 25");
    EXPECT_FALSE(budget.spent());
    budget.take(2, "record 26");
    budget.take(2, "record 27");
    ASSERT_TRUE(budget.spent());
    EXPECT_EQ(text_of(*budget.spent()),
              "list record 26: the files have more extension records for all of their names than any sound "
              "volume; the listing ends here");
}

}  // namespace quarry::test
