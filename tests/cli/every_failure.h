// A place to copy from and to, for tests in which one thing after the other fails, everywhere it can.
//
// Of many places every seventh is tried; with QUARRY_EVERY_FAILURE in the environment, each.
#pragma once

#include "cli/command_line.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace quarry::test {

class every_failure : public command_line_test {
  protected:
    using words = std::vector<std::string>;
    using settings = std::map<std::string, std::string>;

    void SetUp() override {
        volume_builder volume({.system_files = true});
        volume.add_file("first.bin").stored_data(to_bytes(m_first));
        volume.add_file("second.bin").stored_data(to_bytes(m_second));
        write_file(m_dir / "volume", volume.image());
    }

    [[nodiscard]] static int step() { return std::getenv("QUARRY_EVERY_FAILURE") == nullptr ? 7 : 1; }

    // "out" is the directory of copies.
    void clear_outputs() const {
        for (const char* name : {"out", "log", "manifest"}) {
            std::filesystem::remove_all(m_dir / name);
        }
        std::filesystem::create_directory(m_dir / "out");
    }
    [[nodiscard]] program_result afresh(const words& line, settings environment,
                                        const std::string& input = {}) const {
        clear_outputs();
        return run(line, {.standard_input = input, .environment = std::move(environment)});
    }
    [[nodiscard]] std::string text_or_nothing(const std::string& name) const {
        return std::filesystem::exists(m_dir / name) ? text(name) : std::string();
    }
    // How many lines of the manifest have this result.
    [[nodiscard]] std::size_t lines_with(const std::string& outcome) const {
        const std::string manifest = text_or_nothing("manifest");
        const std::string wanted = "\"result\":\"" + outcome + "\"";
        std::size_t count = 0;
        for (std::size_t at = manifest.find(wanted); at != std::string::npos;
             at = manifest.find(wanted, at + 1)) {
            ++count;
        }
        return count;
    }
    // The names in "out", each of which must hold just what it should.
    [[nodiscard]] words right_copies() const {
        words names;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir / "out")) {
            const std::string name = entry.path().filename().string();
            names.push_back(name);
            const std::string copy = text("out/" + name);
            EXPECT_TRUE((name == "first.bin" && copy == m_first) ||
                        (name == "second.bin" && copy == m_second))
                << name;
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const std::string m_first = text_of(pattern(30000, 7));
    const std::string m_second = text_of(pattern(9000, 9));
    const words m_exact_copy = {"-exact", "-image", "volume", "-src",      "/first.bin", "-dst",
                                "out/",   "-diags", "log",    "-manifest", "manifest"};
    const words m_exact_list = {"-exact", "-image", "volume", "-pipe",     "-dst",
                                "out/",   "-diags", "log",    "-manifest", "manifest"};
    const std::string m_list = "/first.bin\n/second.bin\n";

  private:
    [[nodiscard]] static std::string text_of(const bytes& content) {
        return {content.begin(), content.end()};
    }
};

}  // namespace quarry::test
