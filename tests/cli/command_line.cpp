#include "cli/command_line.h"

#include <algorithm>

namespace quarry::test {

std::vector<std::string> command_line_test::files() const {
    std::vector<std::string> names;
    for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(m_dir.path())) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string command_line_test::behind_header(const std::string& out) {
    const std::size_t end = out.find("\"\n\n");
    return end == std::string::npos ? "no header: " + out : out.substr(end + 3);
}

}  // namespace quarry::test
