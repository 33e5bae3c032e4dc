#include "foundation/hexadecimal.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace quarry {

std::string hex(std::uint64_t value, unsigned digits) {
    std::array<char, 16> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), value, 16).ptr;
    const auto length = static_cast<std::size_t>(end - text.data());
    std::string out(std::max<std::size_t>(digits, length) - length, '0');
    return out.append(text.data(), length);
}

}  // namespace quarry
