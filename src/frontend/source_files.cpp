#include "frontend/source_files.h"

#include "disk/raw_disk_io.h"
#include "foundation/ql_number.h"
#include "foundation/ql_portable_dir.h"
#include "foundation/ql_text.h"
#include "frontend/expand_env.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quarry {

namespace {

constexpr std::int32_t most_drives = 26;

// A path counts as typed and as an image path is made absolute.
void add_path(std::vector<std::string>& files, const std::string& path) {
    files.push_back(path);
    files.push_back(canonical_path(path, '/'));
}

void add_virtual_disk(std::vector<std::string>& files, std::string list) {
    files.push_back(list);
    replace_char(list, ',', '|', false);
    replace_char(list, ';', '|', false);
    split(files, list, '|', {.trim_each = true, .append = true});
}

// A name in the file system that leads to something, and what that is.
std::optional<struct ::stat> status_of(const std::string& path) {
    struct ::stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return status;
}

// The file that a loop device shows: to write to one is to write to the other. A partition of the device lies
// in the directory of the whole.
std::optional<struct ::stat> file_behind(const struct ::stat& device) {
    if (!S_ISBLK(device.st_mode)) {
        return std::nullopt;
    }
    const std::string directory = "/sys/dev/block/" + std::to_string(::major(device.st_rdev)) + ":" +
                                  std::to_string(::minor(device.st_rdev));
    for (const char* place : {"/loop/backing_file", "/../loop/backing_file"}) {
        std::string path;
        if (std::ifstream file(directory + place); std::getline(file, path)) {
            return status_of(path);
        }
    }
    return std::nullopt;
}

bool is_same_source(const struct ::stat& left, const struct ::stat& right) {
    const bool same_file = left.st_dev == right.st_dev && left.st_ino == right.st_ino;
    const bool same_device = S_ISBLK(left.st_mode) && S_ISBLK(right.st_mode) && left.st_rdev == right.st_rdev;
    return same_file || same_device;
}

// What a path leads to, and the file behind that if it is a loop device.
std::vector<struct ::stat> places_of(const std::string& path) {
    std::vector<struct ::stat> places;
    if (const auto status = status_of(path)) {
        places.push_back(*status);
        if (const auto behind = file_behind(*status)) {
            places.push_back(*behind);
        }
    }
    return places;
}

}  // namespace

std::string drive_device(std::int32_t drive) {
    if (drive < 0 || drive >= most_drives) {
        return {};
    }
    return device_directory() + "/sd" + static_cast<char>('a' + drive);
}

void add_named_volume(std::vector<std::string>& files, const std::string& path) {
    if (path.size() > 1 && path[1] == ':') {
        files.push_back(path.substr(0, 2));
    }
    if (path.starts_with("\\\\")) {
        files.push_back(path);
    }
}

std::vector<std::string> files_of_source_options(const arg_list& args) {
    std::vector<std::string> files;
    for (const std::string& path : peek_all_values("-image", args)) {
        add_path(files, path);
    }
    for (const std::string& path : peek_all_values("-partition", args)) {
        add_path(files, path.size() == 1 ? path + ":" : path);
    }
    for (const std::string& list : peek_all_values("-vmdk", args)) {
        add_virtual_disk(files, list);
    }
    for (std::string number : peek_all_values("-drivenum", args)) {
        std::int64_t drive = 0;
        parse_i64(drive, number);
        files.push_back(drive_device(static_cast<std::int32_t>(drive)));
    }
    return files;
}

std::vector<std::string> source_files_ahead(const arg_list& args) {
    std::vector<std::string> files = files_of_source_options(args);
    for (const std::string& word : args) {
        add_named_volume(files, word);
        add_named_volume(files, canonical_path(word, '/'));
        add_named_volume(files, canonical_path(expand_env(word, true), '/'));
    }
    return files;
}

bool is_one_of(const std::string& path, const std::vector<std::string>& files) {
    const auto places = places_of(path);
    return !places.empty() && std::any_of(files.begin(), files.end(), [&places](const std::string& file) {
        const auto others = places_of(file);
        return std::find_first_of(places.begin(), places.end(), others.begin(), others.end(),
                                  is_same_source) != places.end();
    });
}

}  // namespace quarry
