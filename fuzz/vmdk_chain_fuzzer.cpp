// Two files of any bytes as a chain: the check of the list, the linking, and reads through both. The input is
// the length of what describes the first file in four bytes, and then both files, each as sparse_input.h
// says.
#include "disk/vmdk_check.h"
#include "disk/vmdk_disk.h"
#include "foundation/byte_view.h"
#include "fuzz/sparse_input.h"
#include "support/expect.h"
#include "support/memory_peak/memory_limit.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace {

using quarry::vmdk_disk;
using list = std::vector<std::wstring>;
using quarry::test::expect;

// The bytes of the buffer that no read touched.
constexpr std::uint8_t untouched = 0xEE;

std::vector<std::uint8_t> read(vmdk_disk& disk, std::uint64_t offset, std::uint64_t length) {
    std::vector<std::uint8_t> bytes(length, untouched);
    std::uint64_t done = length;
    // A read does not fail for what the files hold.
    expect(disk.read(bytes.data(), offset, done) && done == length);
    return bytes;
}

void read_around(vmdk_disk& disk, vmdk_disk& other_order, std::uint64_t offset) {
    constexpr std::uint64_t length = 5000;
    const std::vector<std::uint8_t> bytes = read(disk, offset, length);
    expect(bytes == read(other_order, offset, length));
    std::vector<std::uint8_t> whole(length, untouched);
    if (!disk.reads_join() || disk.read(std::span(whole), offset).bytes != length) {
        return;
    }
    // Where reads may be joined, what comes does not depend on where they begin.
    expect(whole == bytes);
    const std::vector<std::uint8_t> rest = read(disk, offset + 1, length - 1);
    expect(std::equal(rest.begin(), rest.end(), bytes.begin() + 1));
}

// True if the files make a chain, whatever the order of the list.
bool opens(vmdk_disk& disk, const list& files) {
    return disk.add_files(files) && disk.link();
}

bool has_own_parent(const vmdk_disk& disk) {
    return std::any_of(disk.m_files.begin(), disk.m_files.end(),
                       [](const auto& entry) { return entry.second->m_cid == entry.second->m_parent_cid; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const quarry::byte_view input(data, size);
    const quarry::byte_view both = input.from(4);
    const quarry::byte_view first = both.clipped(0, input.u32_or_zero(0));
    const quarry::byte_view second = both.from(first.size());
    static const quarry::test::memory_file first_file("first");
    static const quarry::test::memory_file second_file("second");
    quarry::fuzz::hold(first_file, quarry::fuzz::take_sparse(first));
    quarry::fuzz::hold(second_file, quarry::fuzz::take_sparse(second));
    const quarry::test::memory_limit limit;
    const list files = {first_file.path(), second_file.path()};

    std::ostringstream words;
    list suggested;
    const bool passes = quarry::check_list(files, words, suggested);
    // The list comes back with what was found added at its end, and a list that passes lacks nothing.
    expect(suggested.size() >= files.size() && std::equal(files.begin(), files.end(), suggested.begin()));
    expect(!passes || suggested == files);

    vmdk_disk disk(false);
    if (!opens(disk, files)) {
        return 0;
    }
    // What can be opened passes the check, unless a file beside the chain is its own parent.
    expect(passes || has_own_parent(disk));
    vmdk_disk other_order(false);
    const bool opened = opens(other_order, {files[1], files[0]});
    if (disk.m_files.size() < files.size()) {
        // Of two files with one content ID the first is kept.
        return 0;
    }
    expect(opened && disk.m_ready && other_order.m_chain.size() == disk.m_chain.size());
    expect(other_order.disk_offset() == disk.disk_offset());
    for (const std::uint64_t offset :
         {std::uint64_t{0}, std::uint64_t{511}, disk.m_base->m_grain_bytes - 1, disk.m_newest->m_grain_bytes,
          disk.m_newest->m_table_span, disk.m_base->capacity_bytes() / 2, std::uint64_t{0x100000000}}) {
        read_around(disk, other_order, std::min(offset, ~std::uint64_t{0} - 8192));
    }
    return 0;
}
