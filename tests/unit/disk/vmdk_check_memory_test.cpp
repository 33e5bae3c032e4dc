// The check of a list for which there is no memory.
#include "disk/vmdk_check.h"
#include "disk/vmdk_file.h"
#include "support/temp_dir.h"
#include "support/vmdk_builder.h"

#include <cstdlib>
#include <new>
#include <sstream>

#include <gtest/gtest.h>

namespace {

constexpr std::size_t no_size = static_cast<std::size_t>(-1);
// While this is set, no object of its size can be made.
std::size_t size_without_memory = no_size;  // NOLINT: seen by operator new

}  // namespace

// This one too, since what it makes is freed by the operator below: std::stable_sort takes its buffer from
// it.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return size == size_without_memory ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    void* const place = operator new(size, std::nothrow);
    if (place == nullptr) {
        throw std::bad_alloc();
    }
    return place;
}

void operator delete(void* place) noexcept {
    std::free(place);
}

void operator delete(void* place, std::size_t) noexcept {
    std::free(place);
}

namespace quarry::test {
namespace {

TEST(vmdk_check_memory, a_file_for_which_there_is_no_memory_ends_the_check_with_its_own_words) {
    const temp_dir dir;
    vmdk_builder().write(dir / "base.vmdk");
    const std::vector<std::wstring> list = {(dir / "base.vmdk").wstring()};
    std::ostringstream words;
    std::vector<std::wstring> suggested;
    size_without_memory = sizeof(vmdk_file);
    const bool passes = check_list(list, words, suggested);
    size_without_memory = no_size;
    EXPECT_FALSE(passes);
    EXPECT_EQ(words.str(), "prob creating virtual vmware disk mapping\n");
    EXPECT_EQ(suggested, list);
    EXPECT_TRUE(check_list(list, words, suggested));
}

}  // namespace
}  // namespace quarry::test
