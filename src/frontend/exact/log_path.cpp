#include "frontend/exact/log_path.h"

#include "exact/name_text.h"
#include "frontend/output/same_storage.h"

#include <array>
#include <fstream>
#include <string_view>
#include <sys/stat.h>

namespace quarry::exact {

namespace {

constexpr std::string_view log_start = "->";

bool begins_as_log(const std::string& path) {
    std::array<char, log_start.size()> head{};
    std::ifstream file(path, std::ios::binary);
    file.read(head.data(), head.size());
    return std::string_view(head.data(), static_cast<std::size_t>(file.gcount())) == log_start;
}

bool are_one_file(const std::string& path, const std::string& other) {
    const found_file found = look_up(path);
    const found_file other_found = look_up(other);
    return found.exists && other_found.exists && found.id == other_found.id;
}

// Why what exists at a path must stay; empty if a log may take its place.
std::string_view reason_to_stay(const std::string& path, output_verdict verdict) {
    struct ::stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return "";
    }
    if (S_ISBLK(status.st_mode)) {
        return "is a block device";
    }
    if (verdict == output_verdict::taken) {
        return "is standard input, output or error";
    }
    if (S_ISREG(status.st_mode) && status.st_size > 0 && !begins_as_log(path)) {
        return "exists and is no log";
    }
    return "";
}

}  // namespace

result<void> check_log(const std::string& path, const output_guard& guard, const std::string& destination) {
    const auto refused = [&path](std::string_view why) {
        return fail(failure_code::create, "log " + shown_typed(path), std::string(why));
    };
    const output_verdict verdict = guard.look_at(path, output_kind::log);
    if (verdict == output_verdict::source) {
        return refused("is the source");
    }
    if (are_one_file(path, destination)) {
        return refused("is the destination");
    }
    if (const std::string_view why = reason_to_stay(path, verdict); !why.empty()) {
        return refused(why);
    }
    return {};
}

}  // namespace quarry::exact
