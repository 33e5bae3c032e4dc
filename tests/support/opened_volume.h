// A built volume, written to a file of its own and opened as any image is.
#pragma once

#include "support/temp_dir.h"
#include "support/volume_builder.h"
#include "volume/ntfs_open.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace quarry::test {

class opened_volume {
  public:
    explicit opened_volume(const volume_builder& volume, security_loader load_security = nullptr)
        : opened_volume(volume.image(), load_security) {}
    // Throws std::runtime_error if the bytes are not accepted as a volume.
    explicit opened_volume(const bytes& image, security_loader load_security = nullptr) {
        write_file(path(), image);
        if (!open_by_image(path().wstring(), 0, m_ntfs, false, load_security)) {
            throw std::runtime_error("the image does not open as a volume");
        }
    }

    [[nodiscard]] CNtfs& ntfs() { return *m_ntfs; }
    [[nodiscard]] CNtfs* operator->() { return m_ntfs.get(); }
    [[nodiscard]] std::filesystem::path path() const { return m_dir / "image"; }

  private:
    temp_dir m_dir;
    std::unique_ptr<CNtfs> m_ntfs;
};

}  // namespace quarry::test
