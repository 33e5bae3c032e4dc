#include "support/sparse_file.h"

#include <algorithm>
#include <fcntl.h>
#include <span>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry::test {

namespace {

constexpr std::size_t block_bytes = 4096;

bool write_blocks(int descriptor, std::uint64_t position, std::span<const std::uint8_t> content) {
    while (!content.empty()) {
        const auto block = content.first(std::min(content.size(), block_bytes));
        const bool empty =
            std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
        if (!empty && ::pwrite(descriptor, block.data(), block.size(), static_cast<off_t>(position)) !=
                          static_cast<ssize_t>(block.size())) {
            return false;
        }
        position += block.size();
        content = content.subspan(block.size());
    }
    return true;
}

}  // namespace

void write_sparse_file(const std::filesystem::path& path, const std::map<std::uint64_t, bytes>& pieces,
                       std::uint64_t size) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool written = descriptor != -1 && ::ftruncate(descriptor, static_cast<off_t>(size)) == 0;
    for (const auto& [position, content] : pieces) {
        written = written && write_blocks(descriptor, position, content);
    }
    if (descriptor == -1 || ::close(descriptor) != 0 || !written) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

bool keeps_holes(const std::filesystem::path& directory, std::uint64_t size) {
    const std::filesystem::path probe = directory / "probe of holes";
    try {
        write_sparse_file(probe, {{0, bytes(block_bytes, 1)}}, size);
    } catch (const std::runtime_error&) {
        std::filesystem::remove(probe);
        return false;
    }
    struct ::stat status {};
    const bool sparse = ::stat(probe.c_str(), &status) == 0 && status.st_blocks < 1024;
    std::filesystem::remove(probe);
    return sparse;
}

}  // namespace quarry::test
