#include "frontend/exact/log_path.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;

class log_path : public testing::Test {
  protected:
    void SetUp() override { write_file(m_dir / "source", to_bytes("->source")); }

    [[nodiscard]] std::string answer(const std::string& name) const {
        output_guard guard;
        guard.add_source(m_dir / "source");
        const auto checked = check_log(m_dir / name, guard, m_dir / "destination");
        return checked ? "good" : std::string(code_text(checked.error().code)) + ": " + checked.error().why;
    }
    [[nodiscard]] std::string answer_over(std::string_view content) const {
        write_file(m_dir / "log", to_bytes(content));
        return answer("log");
    }

    temp_dir m_dir;
};

}  // namespace

TEST_F(log_path, is_good_where_nothing_or_an_earlier_log_is) {
    EXPECT_EQ(answer("log"), "good");
    EXPECT_EQ(answer_over(""), "good");
    EXPECT_EQ(answer_over("->"), "good");
    EXPECT_EQ(answer_over("->\"command: quarry\"\n"), "good");
}

TEST_F(log_path, takes_no_other_file) {
    for (const std::string_view content : {"-", ">", " ->", "-->", "hello\n"}) {
        EXPECT_EQ(answer_over(content), "create: exists and is no log") << content;
    }
    std::filesystem::create_symlink(m_dir / "log", m_dir / "link");
    EXPECT_EQ(answer("link"), "create: exists and is no log");
}

TEST_F(log_path, is_neither_the_source_nor_the_destination) {
    EXPECT_EQ(answer("source"), "create: is the source");
    write_file(m_dir / "destination", to_bytes("->"));
    EXPECT_EQ(answer("destination"), "create: is the destination");
}

TEST_F(log_path, may_be_a_device_that_keeps_nothing) {
    EXPECT_TRUE(check_log("/dev/null", output_guard(), m_dir / "destination"));
}

}  // namespace quarry::test
