#include "volume/ntfs_open.h"

#include <new>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint32_t path_kind = 0;
constexpr std::uint32_t device_name_kind = 2;

std::uint8_t source_type_of(const std::wstring& path) {
    if (path.starts_with(L"\\\\")) {
        return source_device_name;
    }
    const bool letter_and_root = path.size() == 3 && path.compare(1, 2, L":\\") == 0;
    const bool letter_alone = path.size() == 2 && path[1] == L':';
    return letter_and_root || letter_alone ? source_letter : source_path;
}

// A letter form is opened as its letter and a colon.
std::wstring path_to_open(const std::wstring& path, std::uint8_t source_type) {
    return source_type == source_letter ? path.substr(0, 1) + L":" : path;
}

// Makes an object, lets `open` give it a source, and hands it out once it is valid.
template <typename Open>
bool make_volume(std::unique_ptr<CNtfs>& out, security_loader load_security, const Open& open) {
    out.reset();
    try {
        auto volume = std::make_unique<CNtfs>();
        if (!open(*volume)) {
            return false;
        }
        volume->m_load_security = load_security;
        std::int64_t mft_position = 0;
        if (!volume->validate(mft_position)) {
            return false;
        }
        out = std::move(volume);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool open_virtual_disk(CNtfs& volume, const std::vector<std::wstring>& files, std::int64_t volume_offset,
                       bool writable) {
    volume.m_disk = std::make_unique<RAW_DISK_IO>(files, writable, false);
    if (!volume.m_disk->is_ok()) {
        return false;
    }
    volume.m_volume_offset =
        volume_offset > 0 ? static_cast<std::uint64_t>(volume_offset) : volume.m_disk->virtual_disk_offset();
    volume.m_disk->set_origin(0, low_32_bits(volume.m_volume_offset),
                              low_32_bits(volume.m_volume_offset >> 32));
    return true;
}

}  // namespace

bool CNtfs::open_source(std::uint8_t source_type, const std::wstring& path, std::int32_t drive,
                        std::uint64_t volume_offset, bool writable) {
    *this = CNtfs();
    if (source_type < source_letter || source_type > last_source_type) {
        m_source_type = source_refused;
        return false;
    }
    m_source_type = source_type == source_letter ? source_path : source_type;
    if (m_source_type == source_path && !path.empty()) {
        m_disk = std::make_unique<RAW_DISK_IO>(path, writable, path_kind);
    } else if (m_source_type == source_device_name) {
        m_disk = std::make_unique<RAW_DISK_IO>(path, writable, device_name_kind);
    } else if (m_source_type == source_drive) {
        m_disk = std::make_unique<RAW_DISK_IO>(drive, writable, false, source_kind_drive);
    }
    if (get_disk() == nullptr) {
        m_disk.reset();
        return false;
    }
    m_volume_offset = volume_offset;
    return true;
}

bool open_by_drive(std::int32_t drive, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                   bool writable, security_loader load_security) {
    return make_volume(out, load_security, [&](CNtfs& volume) {
        return volume.open_source(source_drive, std::wstring(), drive, volume_offset, writable);
    });
}

bool open_by_partition(const std::wstring& path, std::unique_ptr<CNtfs>& out, bool writable,
                       std::uint8_t source_type, security_loader load_security) {
    return make_volume(out, load_security, [&](CNtfs& volume) {
        return !path.empty() &&
               volume.open_source(source_type, path_to_open(path, source_type), -1, 0, writable);
    });
}

bool open_by_image(const std::wstring& path, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                   bool writable, security_loader load_security) {
    return make_volume(out, load_security, [&](CNtfs& volume) {
        const std::uint8_t type = source_type_of(path);
        return !path.empty() &&
               volume.open_source(type, path_to_open(path, type), -1, volume_offset, writable);
    });
}

bool open_by_vmdk(const std::vector<std::wstring>& files, std::int64_t volume_offset,
                  std::unique_ptr<CNtfs>& out, bool writable, security_loader load_security) {
    return make_volume(out, load_security, [&](CNtfs& volume) {
        return !files.empty() && open_virtual_disk(volume, files, volume_offset, writable);
    });
}

}  // namespace quarry
