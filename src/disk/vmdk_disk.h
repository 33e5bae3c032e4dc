// A chain of sparse VMDK files that acts as one disk.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace quarry {

class vmdk_file;

class vmdk_disk {
  public:
    explicit vmdk_disk(bool writable);
    vmdk_disk(const vmdk_disk&) = delete;
    vmdk_disk& operator=(const vmdk_disk&) = delete;
    ~vmdk_disk();

    [[nodiscard]] bool add_files(const std::vector<std::wstring>& list);
    [[nodiscard]] bool add_file(const std::wstring& path);
    [[nodiscard]] bool link();
    [[nodiscard]] bool read(void* buffer, std::uint64_t offset, std::uint64_t& length);
    [[nodiscard]] std::uint64_t disk_offset() const;

    std::map<std::string, std::unique_ptr<vmdk_file>> m_files;
    vmdk_file* m_newest = nullptr;
    vmdk_file* m_base = nullptr;
    bool m_writable = false;
    bool m_ready = false;
    std::vector<vmdk_file*> m_chain;
};

}  // namespace quarry
