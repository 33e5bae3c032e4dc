#include "frontend/exact/destination_path.h"

#include "exact/name_text.h"
#include "foundation/ql_string.h"
#include "volume/attribute_layout.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

namespace quarry::exact {

namespace {

constexpr std::string_view of_this_run =
    "is a file of this run: a source, the log, the manifest or a standard stream";
constexpr std::string_view name_it = "; name the file with -dst";

constexpr bool is_high_surrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool is_low_surrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
constexpr bool is_control(char16_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F);
}

// A unit as the text \uXXXX.
std::wstring escaped(char16_t unit) {
    constexpr std::wstring_view digits = L"0123456789ABCDEF";
    std::wstring text = L"\\u";
    for (const int shift : {12, 8, 4, 0}) {
        text += digits[(unit >> shift) & 0xFu];
    }
    return text;
}

std::string on_host(std::u16string_view units) {
    std::wstring text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const char16_t unit = units[i];
        if (is_high_surrogate(unit) && i + 1 < units.size() && is_low_surrogate(units[i + 1])) {
            text += static_cast<wchar_t>(0x10000 + ((unit & 0x3FF) << 10) + (units[++i] & 0x3FF));
        } else if (is_high_surrogate(unit) || is_low_surrogate(unit) || is_control(unit) || unit == u'/') {
            text += escaped(unit);
        } else {
            text += static_cast<wchar_t>(unit);
        }
    }
    return narrow(text);
}

result<std::string> checked_length(std::string name) {
    if (name.size() > longest_name) {
        return fail(failure_code::create, where::destination(shown_typed(name)),
                    "the name has " + std::to_string(name.size()) + " bytes, " +
                        std::to_string(longest_name) + " are possible" + std::string(name_it));
    }
    return name;
}

tl::unexpected<failure> refused(failure_code code, const std::string& path, std::string why) {
    return fail(code, where::destination(shown_typed(path)), std::move(why));
}

// What to do where a link was named. /dev/stdout is one, too.
std::string_view instead_of_link(const std::string& path) {
    struct ::stat status {};
    const bool is_stream_or_device =
        ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
    return is_stream_or_device ? "; a copy cannot go to standard output or a device, name a file"
                               : "; links are not followed, name a file";
}

// `directory` ends in a slash, so stat fails for anything else.
result<void> check_directory(const std::string& directory) {
    struct ::stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        const std::string why = std::strerror(errno);
        return refused(failure_code::create, directory,
                       errno == ENOENT ? why + "; make the directory first" : why);
    }
    return {};
}

}  // namespace

destination split_destination(std::string_view typed) {
    const std::size_t slash = typed.rfind('/');
    if (slash == std::string_view::npos) {
        return {"./", std::string(typed)};
    }
    return {std::string(typed.substr(0, slash + 1)), std::string(typed.substr(slash + 1))};
}

result<std::string> name_on_host(std::u16string_view file_name, std::u16string_view stream,
                                 std::uint32_t type) {
    std::string name = on_host(file_name);
    if (!stream.empty()) {
        name += "_" + on_host(stream);
    }
    if (type != attr_data) {
        name += "_" + type_name(type);
    }
    if (name.empty() || name == "." || name == "..") {
        return fail(failure_code::create, where::destination("\"" + name + "\""),
                    "is no name for a file" + std::string(name_it));
    }
    return checked_length(std::move(name));
}

result<std::string> name_with_digest(std::uint64_t modified, std::string_view name, std::string_view md5) {
    std::array<char, 17> time{};
    std::snprintf(time.data(), time.size(), "%016" PRIx64, modified);
    std::string whole = time.data();
    whole.append("_").append(name).append("_").append(md5);
    return checked_length(std::move(whole));
}

result<void> check_destination(const destination& target, bool overwrite, const output_guard& guard) {
    if (auto directory = check_directory(target.directory); !directory) {
        return directory;
    }
    // The bytes go to a temporary file of the directory before the name is known.
    if (guard.is_on_source(target.directory)) {
        return refused(failure_code::exists, target.directory, "lies on the source");
    }
    if (target.name.empty()) {
        return {};
    }
    const std::string path = target.path();
    const output_verdict verdict = guard.look_at(path, output_kind::copy);
    if (verdict == output_verdict::source) {
        return refused(failure_code::exists, path, std::string(of_this_run));
    }
    struct ::stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? result<void>() : refused(failure_code::create, path, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        return refused(failure_code::exists, path, "is a directory; say " + shown_typed(path) + "/");
    }
    if (S_ISLNK(status.st_mode)) {
        return refused(failure_code::exists, path, "is a link" + std::string(instead_of_link(path)));
    }
    if (!S_ISREG(status.st_mode)) {
        return refused(failure_code::exists, path, "is no regular file");
    }
    if (verdict == output_verdict::taken) {
        return refused(failure_code::exists, path, std::string(of_this_run));
    }
    return overwrite ? result<void>() : refused(failure_code::exists, path, "exists; say -overwrite");
}

}  // namespace quarry::exact
