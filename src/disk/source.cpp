#include "disk/source.h"

#include "disk/drive_source.h"
#include "foundation/byte_view.h"
#include "foundation/ql_string.h"
#include "foundation/ql_text.h"

#include <utility>

namespace quarry {

namespace {

bool begins_as_letter(const std::wstring& path) {
    return path.size() > 1 && path[1] == L':';
}

bool begins_as_device_name(const std::wstring& path) {
    return path.starts_with(L"\\\\");
}

std::uint8_t type_of_image(const std::wstring& path) {
    if (begins_as_device_name(path)) {
        return source_type_device_name;
    }
    const bool letter_and_root = path.size() == 3 && path.compare(1, 2, L":\\") == 0;
    const bool letter_alone = path.size() == 2 && path[1] == L':';
    return letter_and_root || letter_alone ? source_type_letter : source_type_path;
}

std::uint8_t type_of_partition(const std::wstring& path) {
    if (begins_as_letter(path)) {
        return source_type_letter;
    }
    return begins_as_device_name(path) ? source_type_device_name : source_type_path;
}

// Nothing for a path that cannot be opened by its type.
std::unique_ptr<RAW_DISK_IO> open_by_type(const std::wstring& path, std::uint8_t type, bool writable) {
    const bool opens =
        type == source_type_letter || type == source_type_path || type == source_type_device_name;
    if (!opens || path.empty()) {
        return nullptr;
    }
    const std::wstring opened = type == source_type_letter ? path.substr(0, 1) + L":" : path;
    return std::make_unique<RAW_DISK_IO>(open_path(opened, writable, raw_kind_path));
}

std::string names_of(const std::vector<std::wstring>& paths) {
    std::vector<std::string> names;
    std::string text;
    static_cast<void>(narrow_all(names, paths));
    join(text, names, ";", false);
    return text;
}

}  // namespace

source source::of_one_path(source_kind kind, const std::wstring& path) {
    return {
        kind, {path}, -1, 0, kind == source_kind::partition ? type_of_partition(path) : type_of_image(path)};
}

source source::of_image(const std::wstring& path, std::uint64_t offset) {
    source image = of_one_path(source_kind::image, path);
    image.offset = offset;
    return image;
}

source source::of_partition(const std::wstring& path) {
    return of_one_path(source_kind::partition, path);
}

source source::of_path(const std::wstring& path, std::uint8_t type, std::uint64_t offset) {
    return {source_kind::partition, {path}, -1, offset, type};
}

source source::of_drive(std::int32_t drive, std::uint64_t offset) {
    return {source_kind::drive, {}, drive, offset, source_type_drive};
}

source source::of_virtual_disk(const std::vector<std::wstring>& files, std::uint64_t offset) {
    return {source_kind::virtual_disk, files, -1, offset, 0};
}

source source::named_by(const std::wstring& path) {
    const bool names_volume = begins_as_letter(path) || begins_as_device_name(path);
    return of_partition(names_volume ? path : std::wstring());
}

bool source::is_left_to_the_path() const {
    return kind != source_kind::drive && (paths.empty() || paths.front().empty());
}

bool source::has_paths_of_host() const {
    return is_left_to_the_path() || kind == source_kind::partition;
}

std::wstring source::partition() const {
    return kind == source_kind::partition && !paths.empty() ? paths.front() : std::wstring();
}

std::unique_ptr<RAW_DISK_IO> source::open(bool writable) const {
    std::unique_ptr<RAW_DISK_IO> opened;
    if (kept_open != nullptr && !writable) {
        opened = std::make_unique<RAW_DISK_IO>(*kept_open);
        return opened;
    }
    switch (kind) {
        case source_kind::none:
            break;
        case source_kind::image:
        case source_kind::partition:
            opened = open_by_type(paths.front(), type, writable);
            break;
        case source_kind::drive:
            opened = std::make_unique<RAW_DISK_IO>(open_drive(drive, writable, false, raw_kind_drive));
            break;
        case source_kind::virtual_disk:
            if (!paths.empty()) {
                opened = std::make_unique<RAW_DISK_IO>(open_chain(paths, writable, false));
            }
            break;
    }
    return opened;
}

std::unique_ptr<RAW_DISK_IO> source::open_as_named() const {
    source named = *this;
    named.type = source_type_path;
    return named.open();
}

void source::keep_open() {
    if (kept_open != nullptr || kind != source_kind::image || type != source_type_path) {
        return;
    }
    if (opened_bytes opened = open_path(paths.front(), false, raw_kind_path); opened.bytes != nullptr) {
        kept_open = std::make_shared<const opened_bytes>(std::move(opened));
    }
}

std::uint64_t source::settle_offset(RAW_DISK_IO& opened) const {
    if (kind != source_kind::virtual_disk) {
        return offset;
    }
    const bool is_given = static_cast<std::int64_t>(offset) > 0;
    const std::uint64_t settled = is_given ? offset : opened.virtual_disk_offset();
    opened.set_origin(0, low_32_bits(settled), low_32_bits(settled >> 32));
    return settled;
}

std::string source::unusable_words() const {
    switch (kind) {
        case source_kind::none:
            break;
        case source_kind::image:
        case source_kind::partition:
            return "invalid image: " + narrow(paths.front()) + "\n";
        case source_kind::drive:
            return "problems accessing physical disk #" + std::to_string(drive) + ", aborting \n";
        case source_kind::virtual_disk:
            return "invalid disk collection of snaps \n";
    }
    return {};
}

source source::for_clusters() const {
    return kind == source_kind::partition ? of_image(paths.front(), offset) : *this;
}

bool source::gives_way_to_first_drive() const {
    return kind == source_kind::image;
}

std::vector<std::string> source::files() const {
    std::vector<std::string> files;
    for (const std::wstring& path : paths) {
        files.push_back(narrow(path));
    }
    if (kind == source_kind::drive) {
        files.push_back(drive_device(drive));
    } else if (kind != source_kind::virtual_disk && !files.empty()) {
        add_named_volume(files, std::string(files.front()));
    }
    return files;
}

void source::log_words(status_log& log) const {
    const auto bytes = static_cast<unsigned long long>(offset);
    switch (kind) {
        case source_kind::none:
            break;
        case source_kind::image:
            log.log("info: pNTFS img:%s:0x%llx", narrow(paths.front()).c_str(), bytes);
            break;
        case source_kind::partition:
            log.log("info: pNTFS part:%s, type:%d", narrow(paths.front()).c_str(), int{type});
            break;
        case source_kind::drive:
            log.log("info: pNTFS drv:%d:0x%llx", drive, bytes);
            break;
        case source_kind::virtual_disk:
            log.log("info: pNTFS vm:%s:0x%llx", names_of(paths).c_str(), bytes);
            break;
    }
}

std::string source::report_text() const {
    switch (kind) {
        case source_kind::none:
        case source_kind::virtual_disk:
            break;
        case source_kind::image:
        case source_kind::partition:
            return narrow(paths.front());
        case source_kind::drive:
            return std::to_string(drive);
    }
    return {};
}

void add_named_volume(std::vector<std::string>& files, const std::string& path) {
    if (path.size() > 1 && path[1] == ':') {
        files.push_back(path.substr(0, 2));
    }
    if (path.starts_with("\\\\")) {
        files.push_back(path);
    }
}

}  // namespace quarry
