#include "frontend/output/stdio_stream.h"

#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct file_closer {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using open_file = std::unique_ptr<std::FILE, file_closer>;

TEST(stdio_stream, writes_in_order_with_what_is_written_by_the_c_library) {
    char* text = nullptr;
    std::size_t size = 0;
    {
        const open_file file(::open_memstream(&text, &size));
        stdio_stream stream(file.get());
        stream << "one " << 2;
        std::fputs(" three", file.get());
        stream.put('\n') << std::flush;
        EXPECT_EQ(std::string(text, size), "one 2 three\n");
        EXPECT_TRUE(stream.good());
    }
    std::free(text);
}

TEST(stdio_stream, fails_where_nothing_can_be_written) {
    const open_file full(std::fopen("/dev/full", "w"));
    ASSERT_NE(full, nullptr);
    stdio_stream stream(full.get());
    stream << "text";
    EXPECT_TRUE(stream.good());
    stream.flush();
    EXPECT_TRUE(stream.bad());
}

}  // namespace
}  // namespace quarry::test
