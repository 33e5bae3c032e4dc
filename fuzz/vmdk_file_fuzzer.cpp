// Opens one sparse VMDK file of any bytes, with holes (see sparse_input.h), asks where grains lie and reads
// through it.
#include "disk/vmdk_file.h"
#include "fuzz/sparse_input.h"
#include "support/memory_peak/memory_limit.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

void read_around(const quarry::vmdk_file& file, std::uint64_t offset) {
    std::array<std::uint8_t, 8192> buffer{};
    std::uint64_t place = 0;
    const bool mapped = file.map_offset(offset, place);
    std::uint64_t length = buffer.size();
    const bool read = file.read_mapped(file.m_fd, buffer.data(), offset, length);
    // What the file does not hold cannot be read, and a read never gives more than it was asked for.
    quarry::test::expect(!read || (mapped && length <= buffer.size()));
    quarry::test::expect(file.bytes_to_grain_end(offset) != 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::test::memory_file bytes("vmdk");
    quarry::fuzz::hold(bytes, quarry::fuzz::take_sparse({data, size}));
    const quarry::test::memory_limit limit;
    quarry::vmdk_file file;
    if (!file.open(bytes.path(), false)) {
        return 0;
    }
    constexpr std::uint64_t last = ~std::uint64_t{0};
    for (const std::uint64_t offset :
         {std::uint64_t{0}, std::uint64_t{511}, file.m_grain_bytes - 1, file.m_grain_bytes, file.m_table_span,
          file.capacity_bytes() / 2, file.capacity_bytes(), last - 8192, last}) {
        read_around(file, offset);
    }
    return 0;
}
