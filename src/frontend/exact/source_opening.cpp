#include "frontend/exact/source_opening.h"

#include "disk/vmdk_source.h"
#include "exact/container.h"
#include "exact/name_text.h"
#include "foundation/ql_string.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quarry::exact {

namespace {

// True if a block device is listed among the mounts of this system.
bool is_mounted(const std::string& path) {
    struct ::stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
        return false;
    }
    std::ifstream mounts("/proc/self/mountinfo");
    return is_listed_mount(mounts, ::major(status.st_rdev), ::minor(status.st_rdev));
}

// A file or device of the source; fails with source-open.
result<std::unique_ptr<file_source>> open_file(const std::string& path) {
    int error = 0;
    auto opened = file_source::open(path, error);
    if (opened == nullptr) {
        return fail(failure_code::source_open, where::source(shown_typed(path)),
                    std::string("cannot be opened: ") + std::strerror(error));
    }
    return opened;
}

result<opened_source> open_raw(const std::string& path, notices& told) {
    auto bytes = open_file(path);
    if (!bytes) {
        return passed_on(bytes);
    }
    const std::string shown = shown_typed(path);
    if (auto refused = refuse_container(exact_source(**bytes, shown)); !refused) {
        return passed_on(refused);
    }
    if (is_mounted(path)) {
        told.warn("source-mounted", where::source(shown), "is mounted; it may change while it is read");
    }
    auto watched = open_file(path);
    if (!watched) {
        return passed_on(watched);
    }
    opened_source source{std::move(*bytes), shown, {}};
    source.files.push_back(std::move(*watched));
    return source;
}

result<opened_source> open_chain(const std::vector<std::string>& paths) {
    opened_source source{nullptr, shown_typed(paths.front()), {}};
    std::vector<std::wstring> wide;
    for (const std::string& path : paths) {
        auto file = open_file(path);
        if (!file) {
            return passed_on(file);
        }
        source.files.push_back(std::move(*file));
        if (!utf8_to_wide(wide.emplace_back(), path)) {
            return fail(failure_code::source_open, where::source(shown_typed(path)),
                        "cannot be opened: the path is not UTF-8");
        }
    }
    std::string why;
    source.bytes = vmdk_source::open(wide, why);
    if (source.bytes == nullptr) {
        return fail(failure_code::vmdk, where::source(source.shown_path), shown_typed(why));
    }
    return source;
}

}  // namespace

bool is_listed_mount(std::istream& mounts, unsigned major_number, unsigned minor_number) {
    const std::string wanted = std::to_string(major_number) + ":" + std::to_string(minor_number);
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string mount;
        std::string parent;
        std::string device;
        if (fields >> mount >> parent >> device && device == wanted) {
            return true;
        }
    }
    return false;
}

bool opened_source::has_changed() const {
    return std::any_of(files.begin(), files.end(), [](const auto& file) { return file->has_changed(); });
}

result<opened_source> open_source(const source_choice& choice, notices& told) {
    return choice.kind == source_choice::kind::vmdk ? open_chain(choice.paths)
                                                    : open_raw(choice.paths.front(), told);
}

}  // namespace quarry::exact
