#include "volume/ntfs_open.h"

#include <new>
#include <utility>

namespace quarry {

namespace {

// Gives an object its source. A letter form is stored as a path.
bool attach(CNtfs& volume, const source& from, bool writable) {
    volume.m_source_type = from.type == source_type_letter ? source_type_path : from.type;
    volume.m_disk = from.open(writable);
    if (volume.get_disk() == nullptr) {
        volume.m_disk.reset();
        return false;
    }
    volume.m_volume_offset = from.settle_offset(*volume.m_disk);
    return true;
}

}  // namespace

bool open_volume(const source& from, std::unique_ptr<CNtfs>& out, security_loader load_security,
                 bool writable) {
    out.reset();
    try {
        auto volume = std::make_unique<CNtfs>();
        std::int64_t mft_position = 0;
        volume->m_load_security = load_security;
        if (!attach(*volume, from, writable) || !volume->validate(mft_position)) {
            return false;
        }
        out = std::move(volume);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool CNtfs::open_source(std::uint8_t source_type, const std::wstring& path, std::int32_t drive,
                        std::uint64_t volume_offset, bool writable) {
    *this = CNtfs();
    if (source_type < source_type_letter || source_type > last_source_type) {
        m_source_type = source_type_refused;
        return false;
    }
    const std::uint8_t type = source_type == source_type_letter ? source_type_path : source_type;
    return attach(*this,
                  type == source_type_drive ? source::of_drive(drive, volume_offset)
                                            : source::of_path(path, type, volume_offset),
                  writable);
}

bool open_by_drive(std::int32_t drive, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                   bool writable, security_loader load_security) {
    return open_volume(source::of_drive(drive, volume_offset), out, load_security, writable);
}

bool open_by_partition(const std::wstring& path, std::unique_ptr<CNtfs>& out, bool writable,
                       std::uint8_t source_type, security_loader load_security) {
    return open_volume(source::of_path(path, source_type, 0), out, load_security, writable);
}

bool open_by_image(const std::wstring& path, std::uint64_t volume_offset, std::unique_ptr<CNtfs>& out,
                   bool writable, security_loader load_security) {
    return open_volume(source::of_image(path, volume_offset), out, load_security, writable);
}

bool open_by_vmdk(const std::vector<std::wstring>& files, std::int64_t volume_offset,
                  std::unique_ptr<CNtfs>& out, bool writable, security_loader load_security) {
    return open_volume(source::of_virtual_disk(files, static_cast<std::uint64_t>(volume_offset)), out,
                       load_security, writable);
}

}  // namespace quarry
