#include "disk/positioned_read.h"

#include "support/byte_writer.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

class positioned_read_test : public ::testing::Test {
  protected:
    void SetUp() override {
        write_file(m_dir / "source", to_bytes("0123456789"));
        m_source = ::open((m_dir / "source").c_str(), O_RDONLY);
        ASSERT_NE(m_source, -1);
    }
    void TearDown() override { ::close(m_source); }

    temp_dir m_dir;
    int m_source = -1;
};

TEST_F(positioned_read_test, fills_the_buffer_from_a_position) {
    bytes buffer(4, 0xEE);
    EXPECT_EQ(read_at_position(m_source, buffer, 3), 4);
    EXPECT_EQ(buffer, to_bytes("3456"));
}

TEST_F(positioned_read_test, does_not_move_the_position_of_the_descriptor) {
    ASSERT_EQ(::lseek(m_source, 2, SEEK_SET), 2);
    bytes buffer(4);
    EXPECT_EQ(read_at_position(m_source, buffer, 5), 4);
    EXPECT_EQ(::lseek(m_source, 0, SEEK_CUR), 2);
}

TEST_F(positioned_read_test, gives_zeros_for_what_lies_past_the_end) {
    bytes buffer(6, 0xEE);
    EXPECT_EQ(read_at_position(m_source, buffer, 8), 2);
    EXPECT_EQ(buffer, (bytes{'8', '9', 0, 0, 0, 0}));
    buffer.assign(6, 0xEE);
    EXPECT_EQ(read_at_position(m_source, buffer, 10), 0);
    EXPECT_EQ(buffer, bytes(6));
}

TEST_F(positioned_read_test, reads_nothing_into_an_empty_buffer) {
    bytes buffer;
    EXPECT_EQ(read_at_position(m_source, buffer, 0), 0);
}

TEST_F(positioned_read_test, reports_an_error_before_the_first_byte) {
    bytes buffer(4, 0xEE);
    errno = 0;
    EXPECT_EQ(read_at_position(-1, buffer, 0), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(buffer, bytes(4));
}

TEST_F(positioned_read_test, refuses_a_position_that_needs_64_bits) {
    bytes buffer(4, 0xEE);
    errno = 0;
    EXPECT_EQ(read_at_position(m_source, buffer, 0x8000000000000000), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(read_at_position(m_source, buffer, 0xFFFFFFFFFFFFFFFF), -1);
    EXPECT_EQ(read_at_position(m_source, buffer, 0x7FFFFFFFFFFFFFF0), 0);
}

// The memory of this process, a hole after it: a file of the system that gives bytes first and then an error.
TEST_F(positioned_read_test, gives_what_came_before_an_error_and_zeros_after) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const pages = ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto* const first = static_cast<std::uint8_t*>(pages);
    first[page - 2] = 'a';
    first[page - 1] = 'b';
    ASSERT_EQ(::munmap(first + page, page), 0);
    const int memory = ::open("/proc/self/mem", O_RDONLY);
    ASSERT_NE(memory, -1);
    const auto position = reinterpret_cast<std::uint64_t>(first) + page - 2;
    bytes buffer(5, 0xEE);
    EXPECT_EQ(read_at_position(memory, buffer, position), 2);
    EXPECT_EQ(buffer, (bytes{'a', 'b', 0, 0, 0}));
    EXPECT_EQ(read_at_position(memory, buffer, position + 2), -1);
    ::close(memory);
    ::munmap(first, page);
}

}  // namespace
}  // namespace quarry::test
