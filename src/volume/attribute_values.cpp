#include "volume/attribute_values.h"

#include "foundation/ql_time_format.h"

namespace quarry {

namespace {

constexpr std::size_t smallest_reparse_value = 17;

const char* system_of_version(std::uint8_t major, std::uint8_t minor) {
    if (major == 1 && minor == 2) {
        return " (WinNT)";
    }
    if (major != 3) {
        // This one has no leading blank.
        return "(Unk version)";
    }
    switch (minor) {
        case 0:
            return " (Win2k)";
        case 1:
            return " (WinXP)";
        default:
            return " (Windows)";
    }
}

}  // namespace

std::string judge_times(std::uint64_t created, std::uint64_t modified, std::uint64_t mft_changed,
                        std::uint64_t accessed, std::uint64_t limit) {
    std::string word;
    static_cast<void>(ql::file_time_anomaly(word, created, modified, mft_changed, accessed, limit));
    return word;
}

std::string volume_information_value::text() const {
    return "ver: " + std::to_string(major_version()) + ":" + std::to_string(minor_version()) +
           system_of_version(major_version(), minor_version());
}

// Deliberate: the flags of a symbolic link are passed over where they are zero, as those of an absolute link
// are, not by its tag. The user sees the names of a relative link from four bytes before their start.
std::uint64_t reparse_value::bytes_passed_over() const {
    const byte_view words = path_buffer().from(substitute_name_offset());
    std::uint64_t count = 0;
    // Ends with the value.
    while (words.holds(count, 2) && words.u16_or_zero(count) == 0) {
        count += 2;
    }
    return count;
}

byte_view reparse_value::substitute_name() const {
    return path_buffer().clipped(substitute_name_offset() + bytes_passed_over(), substitute_name_length());
}

byte_view reparse_value::print_name() const {
    return path_buffer().clipped(print_name_offset() + bytes_passed_over(), print_name_length());
}

bool reparse_value::is_sound() const {
    const std::uint64_t length = data_length();
    const bool has_name = substitute_name_length() != 0 || print_name_length() != 0;
    return m_bytes.size() >= smallest_reparse_value && length != 0 && length < m_bytes.size() && has_name &&
           std::uint64_t{substitute_name_offset()} + substitute_name_length() < length &&
           std::uint64_t{print_name_offset()} + print_name_length() < length;
}

byte_view reparse_value::shown_name() const {
    return print_name_length() != 0 ? print_name() : substitute_name();
}

}  // namespace quarry
