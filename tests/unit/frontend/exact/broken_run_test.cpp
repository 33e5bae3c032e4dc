#include "frontend/exact/broken_run.h"

#include <new>
#include <stdexcept>

#include <gtest/gtest.h>

namespace quarry::test {

TEST(broken_run, is_told_as_want_of_memory_or_as_a_fault_of_the_program) {
    const auto told = [](auto thrown) {
        try {
            throw thrown;
        } catch (const std::exception&) {
            return exact::failure_in_flight("here");
        }
    };
    const exact::failure memory = told(std::bad_alloc());
    EXPECT_EQ(memory.code, exact::failure_code::memory);
    EXPECT_EQ(memory.text(), "here: memory ran out");
    const exact::failure fault = told(std::logic_error("two and two"));
    EXPECT_EQ(fault.code, exact::failure_code::fault);
    EXPECT_EQ(fault.text(), "here: a fault of the program: two and two");
}

}  // namespace quarry::test
