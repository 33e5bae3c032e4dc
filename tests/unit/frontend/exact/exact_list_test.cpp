#include "frontend/exact/exact_list.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using exact::copy_end;
using exact::exit_status;
using exact::list_count;

exit_status status_after(std::initializer_list<copy_end> ends) {
    list_count count;
    for (const copy_end end : ends) {
        count.add(end);
    }
    return count.status();
}

TEST(list_count, says_by_its_status_what_became_of_all_lines) {
    constexpr copy_end complete = copy_end::complete;
    constexpr copy_end in_doubt = copy_end::in_doubt;
    constexpr copy_end failed = copy_end::failed;
    EXPECT_EQ(status_after({}), exit_status::complete);
    EXPECT_EQ(status_after({complete, complete}), exit_status::complete);
    EXPECT_EQ(status_after({failed}), exit_status::failed);
    EXPECT_EQ(status_after({failed, failed}), exit_status::failed);
    EXPECT_EQ(status_after({complete, failed}), exit_status::some_failed);
    EXPECT_EQ(status_after({failed, in_doubt}), exit_status::some_failed);
    EXPECT_EQ(status_after({in_doubt, complete}), exit_status::in_doubt);
}

TEST(list_count, of_a_list_that_was_cut_off_is_never_complete) {
    list_count count;
    count.cut_off = true;
    EXPECT_EQ(count.status(), exit_status::failed);
    count.kept = 1;
    EXPECT_EQ(count.status(), exit_status::some_failed);
}

TEST(list_count, counts_each_line_once) {
    list_count count;
    count.add(copy_end::complete);
    count.add(copy_end::complete);
    count.add(copy_end::in_doubt);
    count.add(copy_end::failed);
    EXPECT_EQ(count.text(), "list: 4 asked, 2 complete, 1 in doubt, 1 failed, 0 kept");
}

}  // namespace
}  // namespace quarry::test
