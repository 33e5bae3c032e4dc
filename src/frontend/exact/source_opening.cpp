#include "frontend/exact/source_opening.h"

#include "disk/vmdk_source.h"
#include "exact/container.h"
#include "exact/name_text.h"
#include "foundation/byte_view.h"
#include "foundation/ql_string.h"
#include "frontend/output/same_storage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quarry::exact {

namespace {

// True if a file system that this system has mounted lies on a block device, or on a part of it.
bool is_mounted(const std::string& path) {
    const found_file source = look_up(path);
    if (!source.id.is_device) {
        return false;
    }
    std::ifstream mounts(kernel_places{}.mounts);
    const std::set<::dev_t> devices = mounted_devices(mounts);
    return std::any_of(devices.begin(), devices.end(), [&source](::dev_t device) {
        storage_set storage;
        add_storage_of_file_system(storage, {device});
        return storage.contains(source.id);
    });
}

tl::unexpected<failure> cannot_open(const std::string& path, const std::string& why) {
    return fail(failure_code::source_open, where::source(shown_typed(path)), why);
}

// A file or device of the source; fails with source-open.
result<std::shared_ptr<file_source>> open_file(const std::string& path) {
    int error = 0;
    std::shared_ptr<file_source> opened = file_source::open(path, error);
    if (opened == nullptr) {
        std::string why = std::string("cannot be opened: ") + std::strerror(error);
        if (error == ESPIPE || (error == ENOENT && path == "-")) {
            why += "; the source must be a file or a drive, copy what comes through a pipe to a file first";
        }
        return cannot_open(path, why);
    }
    return opened;
}

// True for a file that begins as an EWF image does. What cannot be read is none.
bool is_ewf(file_source& file) {
    std::array<std::uint8_t, 8> head{};
    return file.read(head, 0).bytes == head.size() && begins_as_ewf(byte_view(head));
}

// Opens the files themselves, so that it is seen if they change. Of a chain they are what is read too.
result<void> watch(opened_source& source, const std::vector<std::string>& files) {
    for (const std::string& path : files) {
        auto file = open_file(path);
        if (!file) {
            return passed_on(file);
        }
        source.files.push_back(std::move(*file));
    }
    return {};
}

result<opened_source> open_raw(const std::string& path, std::shared_ptr<file_source> bytes, notices& told) {
    const std::string shown = shown_typed(path);
    const exact_source content(*bytes, shown);
    if (auto refused = refuse_container(content); !refused) {
        return passed_on(refused);
    }
    warn_of_compression(content, told);
    const bool mounted = is_mounted(path);
    if (mounted) {
        told.warn("source-mounted", where::source(shown), "is mounted; it may change while it is read");
    }
    opened_source source{bytes, shown, {bytes}};
    source.mounted = mounted;
    return source;
}

// A set may have more segments than a process may usually have files open, and each is open twice.
void ask_for_more_files() {
    struct ::rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    }
}

result<opened_source> open_ewf(const std::vector<std::string>& segments) {
    ask_for_more_files();
    opened_source source{nullptr, shown_typed(segments.front()), {}};
    // First, because the library would wait for the writer of a FIFO.
    if (auto opened = watch(source, segments); !opened) {
        return passed_on(opened);
    }
    std::string why;
    auto image = ewf_source::open(segments, why);
    if (image == nullptr) {
        return cannot_open(segments.front(), shown_typed(why));
    }
    source.ewf = image.get();
    source.acquired_md5 = image->stored_digest("MD5");
    source.acquired_sha1 = image->stored_digest("SHA1");
    source.bytes = std::move(image);
    return source;
}

result<opened_source> open_chain(const std::vector<std::string>& paths) {
    opened_source source{nullptr, shown_typed(paths.front()), {}};
    if (auto opened = watch(source, paths); !opened) {
        return passed_on(opened);
    }
    std::vector<open_vmdk_file> files;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        std::wstring wide;
        if (!utf8_to_wide(wide, paths[i])) {
            return cannot_open(paths[i], "cannot be opened: the path is not UTF-8");
        }
        files.push_back({std::move(wide), source.files[i]->descriptor()});
    }
    std::string why;
    source.bytes = vmdk_source::open(files, why);
    if (source.bytes == nullptr) {
        // The file that is at fault is not named twice.
        std::string shown = shown_typed(why);
        if (shown.starts_with(source.shown_path + " ")) {
            shown.erase(0, source.shown_path.size() + 1);
        }
        return fail(failure_code::vmdk, where::source(source.shown_path), std::move(shown));
    }
    return source;
}

}  // namespace

std::set<::dev_t> mounted_devices(std::istream& mounts) {
    std::set<::dev_t> devices;
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string mount;
        std::string parent;
        unsigned major_number = 0;
        unsigned minor_number = 0;
        char colon = 0;
        if (fields >> mount >> parent >> major_number >> colon >> minor_number && colon == ':') {
            devices.insert(::makedev(major_number, minor_number));
        }
    }
    return devices;
}

bool opened_source::has_changed() const {
    return std::any_of(files.begin(), files.end(), [](const auto& file) { return file->has_changed(); });
}

result<std::vector<std::string>> files_of_source(const source_choice& choice) {
    if (choice.kind != source_kind::image) {
        return choice.paths;
    }
    // What cannot be opened is refused with its reason when the source is.
    if (const auto file = open_file(choice.paths.front()); !file || !is_ewf(**file)) {
        return choice.paths;
    }
    std::string why;
    std::vector<std::string> segments = ewf_segments(choice.paths.front(), why);
    if (segments.empty()) {
        return cannot_open(choice.paths.front(), why);
    }
    return segments;
}

result<opened_source> open_source(const source_choice& choice, const std::vector<std::string>& files,
                                  notices& told) {
    if (choice.kind == source_kind::virtual_disk) {
        return open_chain(files);
    }
    auto file = open_file(files.front());
    if (!file) {
        return passed_on(file);
    }
    return choice.kind == source_kind::image && is_ewf(**file)
               ? open_ewf(files)
               : open_raw(files.front(), std::move(*file), told);
}

}  // namespace quarry::exact
