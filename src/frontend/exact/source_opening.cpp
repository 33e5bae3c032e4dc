#include "frontend/exact/source_opening.h"

#include "exact/container.h"
#include "exact/name_text.h"

#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quarry::exact {

namespace {

// True if a block device is listed among the mounts of this system: "36 35 98:0 /root /mnt ...".
bool is_mounted(const std::string& path) {
    struct ::stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) {
        return false;
    }
    const std::string wanted =
        std::to_string(::major(status.st_rdev)) + ":" + std::to_string(::minor(status.st_rdev));
    std::ifstream mounts("/proc/self/mountinfo");
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

}  // namespace

result<opened_source> open_source(const source_choice& choice, notices& told) {
    const std::string& path = choice.paths.front();
    const std::string shown = shown_typed(path);
    if (choice.kind == source_choice::kind::vmdk) {
        return fail(failure_code::not_yet, where::source(shown), "-vmdk is not there yet (not-yet)");
    }
    int error = 0;
    opened_source opened{file_source::open(path, error), shown};
    if (opened.bytes == nullptr) {
        return fail(failure_code::source_open, where::source(shown),
                    std::string("cannot be opened: ") + std::strerror(error));
    }
    if (auto refused = refuse_container(exact_source(*opened.bytes, shown)); !refused) {
        return passed_on(refused);
    }
    if (is_mounted(path)) {
        told.warn("source-mounted", where::source(shown), "is mounted; it may change while it is read");
    }
    return opened;
}

}  // namespace quarry::exact
