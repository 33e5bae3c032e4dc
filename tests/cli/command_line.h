// A command line in a directory of its own, for tests that look at more than a row does.
#pragma once

#include "cli/scene.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

// What the end of a run writes over the console's status line.
inline constexpr const char* emptied_status_line = "\x1b[2K\r                           \r";

class command_line_test : public testing::Test {
  protected:
    void source(const std::string& name) { ASSERT_TRUE(make_source(name, m_dir / name)) << name; }
    // Runs the program in the directory.
    [[nodiscard]] program_result run(std::vector<std::string> words, program_options options = {}) const {
        words.insert(words.begin(), QUARRY_PROGRAM);
        options.directory = m_dir.path();
        return run_program(words, options);
    }
    [[nodiscard]] std::string text(const std::string& name) const {
        const bytes content = read_file(m_dir / name);
        return {content.begin(), content.end()};
    }
    [[nodiscard]] std::vector<std::string> files() const;
    // Standard output after the header.
    [[nodiscard]] static std::string behind_header(const std::string& out);

    temp_dir m_dir;
};

}  // namespace quarry::test
