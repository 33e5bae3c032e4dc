#include "cli/command_row.h"

#include "cli/scene.h"
#include "support/requirements.h"
#include "support/run_program.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string_view>
#include <unistd.h>

namespace quarry::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* emptied_status_line = "\x1b[2K\r                           \r";

std::string text_of_file(const fs::path& path) {
    const bytes content = read_file(path);
    return {content.begin(), content.end()};
}

// The arguments as one line, those with a blank in quotes of a kind.
std::string joined(const std::vector<std::string>& words, char quote) {
    std::string line;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const bool quoted = words[index].find(' ') != std::string::npos;
        line += (index == 0 ? "" : " ") + (quoted ? quote + words[index] + quote : words[index]);
    }
    return line;
}

// The header at the start of what was printed, without the line end after it.
std::string header_of(const std::string& out) {
    std::size_t end = 0;
    for (int line = 0; line < 3 && end != std::string::npos; ++line) {
        end = out.find('\n', end);
        end = end == std::string::npos ? end : end + 1;
    }
    return out.substr(0, end);
}

void expect_header(const std::string& header, const std::vector<std::string>& words) {
    std::istringstream lines(header);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "quarry ver: 1.14");
    std::getline(lines, line);
    static const std::regex second(
        R"(run time: \d\d/\d\d/\d{4} \d\d:\d\d:\d\d UTC; host: [^;]*; platform: [^;]*;[^;]*;[^;]*;(64|32).*)");
    EXPECT_TRUE(std::regex_match(line, second)) << line;
    std::getline(lines, line);
    const bool pipe = std::find(words.begin(), words.end(), "-pipe") != words.end();
    EXPECT_EQ(line,
              std::string("\"command: ") + (pipe ? "<filelist> ... | " : "") + joined(words, '\'') + "\"");
}

bool tells_of_a_lookup(const std::string& line) {
    static constexpr std::array<std::string_view, 11> beginnings = {
        "->anal: ",
        "->root dir",
        "->path empty",
        "->seg: ",
        "->info: get children",
        "->info: # children",
        "->info: cache lookup",
        "->info: none found",
        "->info: inode found",
        "->err: no child nodes",
        "->inode not found",
    };
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&line](std::string_view beginning) { return line.starts_with(beginning); });
}

std::string user_name(who user) {
    return user == who::root ? "root" : "an_ordinary_user";
}

}  // namespace

void PrintTo(const command& value, std::ostream* out) {
    // What lists the tests need not be able to read any text.
    for (const char character : joined(value.what.words, '"')) {
        *out << (std::isprint(static_cast<unsigned char>(character)) != 0 ? character : '?');
    }
    *out << ", as " << user_name(value.user);
}

std::vector<command> commands(const std::vector<row>& rows) {
    std::vector<command> all;
    for (const row& what : rows) {
        for (const who user : {who::root, who::ordinary}) {
            if (what.user == who::anyone || what.user == user) {
                all.push_back({what, user});
            }
        }
    }
    return all;
}

std::string command_name(const testing::TestParamInfo<command>& info) {
    std::string name;
    for (const char character : info.param.what.name) {
        name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
    }
    return name + "_as_" + user_name(info.param.user);
}

std::string command_rows::in_place(std::string text) const {
    for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at)) {
        text.replace(at, 1, m_dir.path().string());
        at += m_dir.path().string().size();
    }
    return text;
}

std::vector<std::string> command_rows::arguments() const {
    std::vector<std::string> words = {QUARRY_PROGRAM, "-diags", in_place("@/log")};
    for (const std::string& word : GetParam().what.words) {
        words.push_back(in_place(word));
    }
    return words;
}

void command_rows::SetUp() {
    if (GetParam().user == who::root) {
        QUARRY_NEEDS_ROOT();
    }
    fs::permissions(m_dir.path(), fs::perms::all);
    fs::create_directory(m_dir / "out");
    fs::permissions(m_dir / "out", fs::perms::all);
    fs::create_directory(m_dir / "locked");
    fs::permissions(m_dir / "locked", static_cast<fs::perms>(0555));
    for (const std::string& name : GetParam().what.with_sources) {
        ASSERT_TRUE(make_source(name, m_dir / name)) << name;
    }
    for (std::string word : GetParam().what.words) {
        std::erase(word, '"');
        if (word.starts_with("@/")) {
            make_source(word.substr(2), m_dir / word.substr(2));
        }
    }
}

std::string command_rows::expected_log(const std::string& header) const {
    const row& what = GetParam().what;
    std::string log = "->" + joined(arguments(), '"') + "\n";
    if (what.reached == stage::ran) {
        log += "->" + header + "\n";
    }
    for (const std::string& line : what.log) {
        log += "->" + in_place(line) + "\n";
    }
    log += what.status == 0 ? "->exit: 0\n" : "->exit: -1\n";
    return what.reached == stage::ran ? log + "->N secs\n" : log;
}

std::string command_rows::actual_log() const {
    std::istringstream lines(text_of_file(m_dir / "log"));
    std::string kept;
    static const std::regex elapsed("->[0-9.e-]+ secs");
    for (std::string line; std::getline(lines, line);) {
        if (!tells_of_a_lookup(line)) {
            kept += std::regex_replace(line, elapsed, "->N secs") + "\n";
        }
    }
    return kept;
}

std::map<std::string, std::string> command_rows::files_made() const {
    std::map<std::string, std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_dir / "out")) {
        files[entry.path().lexically_relative(m_dir / "out")] = text_of_file(entry.path());
    }
    return files;
}

void command_rows::expect_files() const {
    std::map<std::string, std::string> expected;
    for (const auto& [name, file] : GetParam().what.files) {
        expected[name] = file.made();
    }
    for (const auto& [name, content] : GetParam().what.texts) {
        expected[name] = in_place(content);
    }
    std::map<std::string, std::string> made = files_made();
    for (const auto& [name, content] : expected) {
        const auto found = made.find(name);
        ASSERT_NE(found, made.end()) << "no file " << name;
        EXPECT_TRUE(found->second == content)
            << name << " has " << found->second.size() << " bytes, expected are " << content.size();
        made.erase(found);
    }
    for (const auto& [name, content] : made) {
        ADD_FAILURE() << "unexpected file " << name << " of " << content.size() << " bytes";
    }
}

void command_rows::expect_row() {
    const row& what = GetParam().what;
    const program_result result =
        run_program(arguments(), {.standard_input = in_place(what.input),
                                  .directory = m_dir.path(),
                                  .environment = what.environment,
                                  .as_nobody = GetParam().user == who::ordinary && ::geteuid() == 0});
    ASSERT_TRUE(result.exited) << "signal " << result.signal << "\n" << result.err;
    EXPECT_EQ(result.status, what.status);
    const std::string header = header_of(result.out);
    expect_header(header, arguments());
    EXPECT_EQ(result.out.substr(header.size()), "\n" + in_place(what.out));
    const bool empties = what.reached == stage::ran && !what.quiet;
    EXPECT_EQ(result.err, in_place(what.err) + (empties ? emptied_status_line : ""));
    EXPECT_EQ(actual_log(), expected_log(header));
    expect_files();
}

}  // namespace quarry::test
