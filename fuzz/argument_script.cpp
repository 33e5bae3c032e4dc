#include "fuzz/argument_script.h"

#include "fuzz/input_bytes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace quarry::fuzz {

namespace {

// Words that a byte chooses. Scripts of the corpus count on their order; new ones go to the end.
constexpr std::array<std::string_view, 80> words = {"-image",
                                                    "-offset",
                                                    "-src",
                                                    "-dst",
                                                    "-mft",
                                                    "-cluster",
                                                    "-pipe",
                                                    "-filter",
                                                    "-filter_skip",
                                                    "-filter_sig",
                                                    "-filter_path",
                                                    "-meta",
                                                    "-md5",
                                                    "-raw",
                                                    "-skip_sparse_clusters",
                                                    "-first_ntfsvol",
                                                    "-partition",
                                                    "-drivenum",
                                                    "-vmdk",
                                                    "-ignore_image_size",
                                                    "-diags",
                                                    "-l2",
                                                    "-l3",
                                                    "-out",
                                                    "-outfile",
                                                    "-append",
                                                    "-enumdir",
                                                    "-num_subdirs",
                                                    "-profile",
                                                    "-cmd_start_time",
                                                    "-cmd_stop_time",
                                                    "-base10",
                                                    "-base16",
                                                    "-dateformat",
                                                    "-timeformat",
                                                    "-pair_datetime",
                                                    "-verbose",
                                                    "-quiet",
                                                    "-signal",
                                                    "-csv",
                                                    "-alias",
                                                    "-outdir",
                                                    "-h",
                                                    "--help",
                                                    image_name,
                                                    link_name,
                                                    hard_link_name,
                                                    "dir/",
                                                    "dir/out",
                                                    "out",
                                                    "out.bin",
                                                    "log",
                                                    "missing/x",
                                                    ".",
                                                    "/",
                                                    "small.txt",
                                                    "\\small.txt",
                                                    "small.txt:named",
                                                    "c:\\stored.bin",
                                                    "stored.bin",
                                                    "sparse.bin",
                                                    "$MFT",
                                                    "0",
                                                    "1",
                                                    "10",
                                                    "0x200",
                                                    "0x7fffffff",
                                                    "-1",
                                                    "x10",
                                                    "2020-01-01",
                                                    "2020/12/31 10:00:00",
                                                    "mm/dd/yyyy",
                                                    "hh:mm:ss.xxx",
                                                    "*.txt|*part*",
                                                    "5AA5|16",
                                                    "image|link",
                                                    "c:",
                                                    "\\\\.\\image",
                                                    "*",
                                                    "3"};

// A byte from here on begins free text: so many characters as it is above.
constexpr std::uint8_t first_of_text = 192;
// One from here on, up to that, a number of four bytes.
constexpr std::uint8_t first_of_number = 160;

// The bytes that begin an overlong form of UTF-8, in which a separator could hide.
bool begins_overlong(char c) {
    const auto byte = static_cast<std::uint8_t>(c);
    return byte == 0xC0 || byte == 0xC1 || byte == 0xE0 || byte == 0xF0;
}

bool may_precede_separator(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.';
}

bool is_separator(char c) {
    return c == '/' || c == '\\';
}

// The root would be a place outside.
std::string word_of(std::uint8_t byte) {
    const std::string_view word = words[byte % words.size()];
    return std::string(word == "/" ? "./" : word);
}

}  // namespace

std::string harmless(std::string text) {
    std::string out;
    for (const char c : text) {
        const bool is_reference_or_quote = c == '%' || c == '"' || c == '\'';
        const bool leads_up = c == '.' && out.ends_with('.');
        const bool leads_outside = is_separator(c) && (out.empty() || !may_precede_separator(out.back()));
        if (!is_reference_or_quote && !leads_up && !leads_outside && !begins_overlong(c)) {
            out += c;
        }
    }
    return out;
}

std::vector<std::string> arguments_of(byte_view script) {
    constexpr std::size_t most_arguments = 24;
    std::vector<std::string> arguments = {"quarry"};
    input_bytes input(script.data(), script.size());
    while (!input.empty() && arguments.size() < most_arguments) {
        const std::uint8_t byte = input.u8();
        if (byte >= first_of_text) {
            arguments.push_back(harmless(input.text(byte - first_of_text)));
        } else if (byte >= first_of_number) {
            arguments.push_back(std::to_string(input.u32()));
        } else {
            arguments.push_back(word_of(byte));
        }
    }
    return arguments;
}

std::vector<std::uint8_t> script_of(const std::vector<std::string>& arguments) {
    std::vector<std::uint8_t> script;
    for (const std::string& argument : arguments) {
        const auto word = std::find(words.begin(), words.end(), argument);
        if (word != words.end()) {
            script.push_back(static_cast<std::uint8_t>(word - words.begin()));
        } else {
            const std::size_t length = std::min<std::size_t>(argument.size(), 255 - first_of_text);
            script.push_back(static_cast<std::uint8_t>(first_of_text + length));
            script.insert(script.end(), argument.begin(),
                          argument.begin() + static_cast<std::ptrdiff_t>(length));
        }
    }
    return script;
}

}  // namespace quarry::fuzz
