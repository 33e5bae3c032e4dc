// Command lines as rows of a table: what is typed, and what it prints on both streams, logs, makes and
// returns.
//
// A row runs in a directory of its own, written as "@" in its words and expectations. The sources of scene.h
// that its words name are in there, and an empty directory "@/out". Each row is run with a status log, as
// root and as an ordinary user, or as the one that it asks for.
#pragma once

#include "support/temp_dir.h"

#include <concepts>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

enum class who { anyone, root, ordinary };

// How far a run came.
enum class stage {
    refused,  // its options could not be parsed
    ran       // a copy was tried
};

// What a file holds: the bytes, or how they are made, so that large contents are not made for every row by
// every process that runs one.
class content {
  public:
    content(const char* text) : m_make([made = std::string(text)] { return made; }) {}
    content(std::string text) : m_make([made = std::move(text)] { return made; }) {}
    template <std::invocable Maker>
    content(Maker make) : m_make(std::move(make)) {}
    [[nodiscard]] std::string made() const { return m_make(); }

  private:
    std::function<std::string()> m_make;
};

struct row {
    std::string name;  // a sentence
    std::vector<std::string> words;
    who user = who::anyone;
    stage reached = stage::ran;
    int status = 0;
    std::string out = {};  // after the header
    std::string err = {};  // without the emptying of the status line at the end
    // Lines of the log after the header, without those of path lookups and of the exit status.
    std::vector<std::string> log = {};
    // All of "@/out" afterwards, by name: files to the byte, and texts in which "@" has its meaning.
    std::map<std::string, content> files = {};
    std::map<std::string, std::string> texts = {};
    std::string input = {};
    std::map<std::string, std::string> environment = {};
    bool quiet = false;                          // `words` hold -quiet
    std::vector<std::string> with_sources = {};  // sources that no word names by itself
};

// A row, run as one kind of user.
struct command {
    row what;
    who user;
};
void PrintTo(const command& value, std::ostream* out);

[[nodiscard]] std::vector<command> commands(const std::vector<row>& rows);
[[nodiscard]] std::string command_name(const testing::TestParamInfo<command>& info);

class command_rows : public testing::TestWithParam<command> {
  protected:
    void SetUp() override;
    // Runs the row and compares everything with what it says.
    void expect_row();

  private:
    [[nodiscard]] std::string in_place(std::string text) const;
    [[nodiscard]] std::vector<std::string> arguments() const;
    [[nodiscard]] std::string expected_log(const std::string& header) const;
    [[nodiscard]] std::string actual_log() const;
    [[nodiscard]] std::map<std::string, std::string> files_made() const;
    void expect_files() const;

    temp_dir m_dir;
};

}  // namespace quarry::test

// Runs a table of rows under a name.
#define QUARRY_COMMAND_TABLE(name, rows)                                                      \
    class name : public quarry::test::command_rows {};                                        \
    TEST_P(name, row) {                                                                       \
        expect_row();                                                                         \
    }                                                                                         \
    INSTANTIATE_TEST_SUITE_P(commands, name, testing::ValuesIn(quarry::test::commands(rows)), \
                             quarry::test::command_name)
