#include "frontend/options/expand_env.h"

#include "foundation/ql_portable_dir.h"
#include "foundation/ql_string.h"

#include <cstddef>
#include <cstdlib>
#include <optional>

namespace quarry {

namespace {

constexpr std::size_t longest_text = 512;
// A variable whose value holds a reference to itself would be replaced for ever.
constexpr int most_replacements = 512;

std::optional<std::string> value_of(std::string name, bool allow_vss) {
    if (const char* const value = std::getenv(name.c_str()); value != nullptr) {
        return value;
    }
    lower_narrow(name);
    if (allow_vss && name == "vss") {
        return shadow_prefix(false, true);
    }
    return std::nullopt;
}

}  // namespace

std::string expand_env(std::string text, bool allow_vss) {
    if (text.size() > longest_text) {
        return text;
    }
    std::size_t search_from = 0;
    for (int replacements = 0; replacements < most_replacements;) {
        const std::size_t first = text.find('%', search_from);
        const std::size_t second = first == std::string::npos ? first : text.find('%', first + 1);
        if (second == std::string::npos) {
            break;
        }
        if (const auto value = value_of(text.substr(first + 1, second - first - 1), allow_vss)) {
            text.replace(first, second - first + 1, *value);
            search_from = first;
            ++replacements;
        } else {
            // Deliberate: the second "%" of an unknown reference does not begin the next one, so in
            // "%NOSUCH%HOME%" the user sees HOME stay as it is.
            search_from = second + 1;
        }
    }
    return text;
}

}  // namespace quarry
