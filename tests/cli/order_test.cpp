// Options work in any order and in any case of their letters.

#include "cli/command_line.h"

#include <algorithm>
#include <cctype>

namespace quarry::test {
namespace {

using words = std::vector<std::string>;

words flattened(const std::vector<words>& groups) {
    words all;
    for (const words& group : groups) {
        all.insert(all.end(), group.begin(), group.end());
    }
    return all;
}

class order : public command_line_test {};

TEST_F(order, of_the_options_does_not_matter) {
    source("mbr");
    std::vector<words> groups = {
        {"-image", "mbr"}, {"-offset", "0x100000"}, {"-src", "/a.txt:Note"}, {"-dst", "o"}, {"-quiet"}};
    std::sort(groups.begin(), groups.end());
    do {
        const words line = flattened(groups);
        const program_result result = run(line);
        ASSERT_EQ(result.status, 0) << testing::PrintToString(line);
        ASSERT_EQ(text("o"), "named stream\n") << testing::PrintToString(line);
        std::filesystem::remove(m_dir / "o");
    } while (std::next_permutation(groups.begin(), groups.end()));
}

TEST_F(order, of_a_pair_of_paths_and_the_options_around_it_does_not_matter) {
    source("disk");
    for (const words& line :
         {words{"/a.txt", "o", "-image", "disk", "-quiet"}, words{"-quiet", "/a.txt", "-image", "disk", "o"},
          words{"-image", "disk", "-quiet", "/a.txt", "o"}}) {
        ASSERT_EQ(run(line).status, 0) << testing::PrintToString(line);
        ASSERT_EQ(text("o"), "hello world\n");
        std::filesystem::remove(m_dir / "o");
    }
}

TEST_F(order, letter_case_of_an_option_does_not_matter) {
    source("mbr");
    words line = {"-image", "mbr",    "-offset", "0x100000", "-src",     "/a.txt", "-dst",
                  "o",      "-quiet", "-md5",    "-meta",    "-profile", "-diags", "log"};
    for (std::string& word : line) {
        if (word[0] == '-') {
            bool upper = false;
            for (char& letter : word) {
                letter = static_cast<char>(upper ? std::toupper(letter) : letter);
                upper = !upper;
            }
        }
    }
    const program_result result = run(line);
    EXPECT_EQ(result.status, 0);
    const std::string copy = "01d5c1194ac40080_o_6f5902ac237024bdd0c176cb93063dc4";
    EXPECT_EQ(files(), (words{copy, copy + "_meta.txt", "log", "mbr"}));
}

}  // namespace
}  // namespace quarry::test
