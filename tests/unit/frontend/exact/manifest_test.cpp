#include "frontend/exact/manifest.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

using namespace exact;

class manifest_test : public testing::Test {
  protected:
    manifest_test() {
        m_options.manifest_path = (m_dir / "m.jsonl").string();
        m_options.source = {source_kind::image, {"disk.dd"}};
    }
    [[nodiscard]] result<std::unique_ptr<manifest>> open() {
        output_guard guard;
        return manifest::open(m_options, {"quarry", "-exact"}, guard);
    }
    [[nodiscard]] std::string text() const {
        const bytes content = read_file(m_options.manifest_path);
        return {content.begin(), content.end()};
    }
    void expect_in_text(const std::string& part) const {
        EXPECT_NE(text().find(part), std::string::npos) << part << "\nis not in\n" << text();
    }

    temp_dir m_dir;
    exact_options m_options;
};

}  // namespace

TEST_F(manifest_test, of_a_run_that_ends_early_has_what_was_asked_for) {
    auto evidence = open();
    ASSERT_TRUE(evidence);
    EXPECT_EQ(text(), "");
    const failure why{failure_code::source_open, "source disk.dd", "cannot be opened", std::nullopt};
    ASSERT_TRUE((*evidence)->add_ended_run(why, "/a.txt"));
    expect_in_text(R"("result":"failed","error":{"code":"source-open","where":"source disk.dd",)");
    expect_in_text(R"("object":{"asked":"/a.txt","path":null,)");
    expect_in_text(R"("copy":null,)");
    std::filesystem::resize_file(m_options.manifest_path, 0);
    ASSERT_TRUE((*evidence)->add_ended_run(why, std::nullopt));
    expect_in_text(R"("object":{"asked":null,"path":null,)");
}

TEST_F(manifest_test, has_the_warnings_of_the_run_ahead_of_those_of_the_copy) {
    auto evidence = open();
    ASSERT_TRUE(evidence);
    notices of_run;
    of_run.warn("journal", "volume", "was not closed");
    (*evidence)->add_warnings(of_run);
    notices of_copy;
    of_copy.doubt("deleted", "record 24", "deleted");
    manifest::record added;
    added.line = 7;
    added.outcome = "in doubt";
    added.told = &of_copy;
    added.copy = copy_facts{"out/a.txt", 6, "", "", false};
    ASSERT_TRUE((*evidence)->add(std::move(added)));
    expect_in_text(R"("warnings":[{"code":"journal","text":"volume: was not closed"},)"
                   R"({"code":"deleted","text":"record 24: deleted"}])");
    expect_in_text(R"("line":7})");
    expect_in_text(R"("copy":{"path":"out/a.txt","size":6,)");
}

TEST_F(manifest_test, says_whether_there_is_a_copy_whose_line_is_missing) {
    auto evidence = open();
    ASSERT_TRUE(evidence);
    manifest::record added;
    added.outcome = "failed";
    // A line that is too long to be read again.
    added.object.asked = std::string(16777216, 'x');
    const std::string beginning = "its line is missing: it has 1677";
    auto missing = (*evidence)->add(added);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, failure_code::manifest);
    EXPECT_TRUE(missing.error().why.starts_with(beginning)) << missing.error().why;
    added.copy = copy_facts{"out/a.txt", 6, "", "", false};
    missing = (*evidence)->add(added);
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().why.starts_with("the copy stands, " + beginning)) << missing.error().why;
    EXPECT_EQ(text(), "");
}

TEST_F(manifest_test, that_is_damaged_is_read_for_resume_only) {
    write_file(m_options.manifest_path, to_bytes("{\"schema\":\"quarry-manifest/1\"\n"));
    EXPECT_TRUE(open());
    m_options.resume = true;
    const auto damaged = open();
    ASSERT_FALSE(damaged);
    EXPECT_EQ(damaged.error().why, "line 1 is no JSON object");
}

}  // namespace quarry::test
