#include "frontend/output/exclusive_file.h"

#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quarry {
namespace {

namespace fs = std::filesystem;
using test::temp_dir;

std::vector<fs::path> files_in(const temp_dir& dir) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir.path())) {
        files.push_back(entry.path());
    }
    return files;
}

TEST(random_name, has_five_characters_of_0_to_9_and_a_to_f) {
    std::set<std::string> names;
    std::set<char> drawn;
    for (int i = 0; i < 1000; ++i) {
        const std::string name = random_name();
        EXPECT_EQ(name.size(), 5U);
        EXPECT_EQ(name.find_first_not_of("0123456789abcdef"), std::string::npos) << name;
        names.insert(name);
        drawn.insert(name.begin(), name.end());
    }
    EXPECT_GT(names.size(), 900U);
    EXPECT_EQ(drawn.size(), 16U);
}

TEST(exclusive_file, is_a_new_file_in_the_directory_and_goes_with_its_owner) {
    const temp_dir dir;
    {
        exclusive_file file;
        ASSERT_TRUE(file.create(output_guard(), dir.path()));
        const std::vector<fs::path> files = files_in(dir);
        ASSERT_EQ(files.size(), 1U);
        EXPECT_EQ(files[0].filename().string().size(), 6U);
        EXPECT_EQ(files[0].filename().string()[0], '_');
        file.stream() << "text";
    }
    EXPECT_TRUE(files_in(dir).empty());
}

TEST(exclusive_file, keeps_all_that_was_written_under_its_final_name) {
    const temp_dir dir;
    const std::string text(200'000, 'x');
    {
        exclusive_file file;
        ASSERT_TRUE(file.create(output_guard(), dir.path()));
        file.stream() << "begin";
        file.stream().write(text.data(), static_cast<std::streamsize>(text.size()));
        file.stream() << "end";
        EXPECT_TRUE(file.close());
        output_guard guard;
        EXPECT_TRUE(file.rename_to(guard, dir / "final"));
    }
    EXPECT_EQ(files_in(dir), std::vector<fs::path>{dir / "final"});
    const test::bytes content = test::read_file(dir / "final");
    EXPECT_EQ(std::string(content.begin(), content.end()), "begin" + text + "end");
}

TEST(exclusive_file, that_cannot_be_renamed_is_removed) {
    const temp_dir dir;
    {
        exclusive_file file;
        ASSERT_TRUE(file.create(output_guard(), dir.path()));
        EXPECT_TRUE(file.close());
        output_guard guard;
        EXPECT_FALSE(file.rename_to(guard, dir / "no/such/dir/x"));
    }
    EXPECT_TRUE(files_in(dir).empty());
}

TEST(exclusive_file, cannot_be_made_where_there_is_no_directory) {
    const temp_dir dir;
    exclusive_file file;
    EXPECT_FALSE(file.create(output_guard(), dir / "missing"));
    EXPECT_FALSE(file.create(output_guard(), "/dev/null"));
}

// The names that come next, in the order in which a file will draw them.
std::vector<std::string> next_names(std::size_t count) {
    constexpr unsigned seed = 7;
    static_cast<void>(random_name());
    std::srand(seed);
    std::vector<std::string> names;
    while (names.size() < count) {
        names.push_back("_" + random_name());
    }
    std::srand(seed);
    return names;
}

TEST(exclusive_file, never_opens_a_planted_link_or_file_and_draws_another_name) {
    const temp_dir dir;
    const temp_dir planted;
    test::write_file(planted / "victim", test::to_bytes("victim"));
    const std::vector<std::string> names = next_names(4);
    fs::create_symlink(planted / "victim", dir / names[0]);
    fs::create_symlink(planted / "missing", dir / names[1]);
    test::write_file(dir / names[2], test::to_bytes("victim"));
    exclusive_file file;
    ASSERT_TRUE(file.create(output_guard(), dir.path()));
    EXPECT_TRUE(fs::exists(dir / names[3]));
    file.stream() << "copy";
    ASSERT_TRUE(file.close());
    EXPECT_EQ(test::read_file(planted / "victim"), test::to_bytes("victim"));
    EXPECT_FALSE(fs::exists(planted / "missing"));
    EXPECT_EQ(test::read_file(dir / names[2]), test::to_bytes("victim"));
}

TEST(exclusive_file, reports_at_its_closing_that_it_could_not_be_written) {
    const temp_dir dir;
    exclusive_file file;
    ASSERT_TRUE(file.create(output_guard(), dir.path()));
    file.stream().setstate(std::ios_base::badbit);
    EXPECT_FALSE(file.close());
}

std::string text_in(const fs::path& path) {
    const test::bytes content = test::read_file(path);
    return {content.begin(), content.end()};
}

TEST(exclusive_file, takes_single_characters_and_shows_them_once_they_are_flushed) {
    const temp_dir dir;
    exclusive_file file;
    ASSERT_TRUE(file.create(output_guard(), dir.path()));
    const fs::path path = files_in(dir).at(0);
    std::string expected;
    // More than two buffers of 65536 bytes.
    for (int i = 0; i < 140'000; ++i) {
        expected += static_cast<char>('a' + i % 23);
        file.stream().put(expected.back());
    }
    EXPECT_EQ(text_in(path), expected.substr(0, 131'072)) << "what filled the buffer was written";
    file.stream().flush();
    EXPECT_TRUE(text_in(path) == expected);
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(text_in(path) == expected);
}

TEST(exclusive_file, takes_nothing_more_once_it_is_closed) {
    const temp_dir dir;
    exclusive_file file;
    ASSERT_TRUE(file.create(output_guard(), dir.path()));
    file.stream() << "copy";
    ASSERT_TRUE(file.close());
    EXPECT_FALSE(file.stream().put('x'));
    file.stream().clear();
    EXPECT_FALSE(file.stream() << std::string(100'000, 'x'));
    EXPECT_FALSE(file.close()) << "and says so";
    EXPECT_EQ(text_in(files_in(dir).at(0)), "copy");
}

}  // namespace
}  // namespace quarry
