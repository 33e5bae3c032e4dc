// Any bytes as an NTFS volume in a file with holes (see sparse_input.h), and everything that a run can do
// with one.
#include "fuzz/sparse_input.h"
#include "report/security_cache.h"
#include "support/memory_peak/memory_limit.h"
#include "support/volume_flow.h"
#include "volume/ntfs_open.h"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::test::memory_file image("volume");
    quarry::fuzz::hold(image, quarry::fuzz::take_sparse({data, size}));
    const quarry::test::memory_limit limit;
    std::unique_ptr<quarry::CNtfs> ntfs;
    if (!quarry::open_by_image(image.path(), 0, ntfs, false, quarry::load_security_cache)) {
        quarry::test::expect(ntfs == nullptr);
        return 0;
    }
    quarry::test::look_at_volume(*ntfs);
    return 0;
}
