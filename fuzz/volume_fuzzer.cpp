// Any bytes as an NTFS volume, and everything that a run can do with one.
#include "fuzz/expect.h"
#include "fuzz/memory_file.h"
#include "fuzz/volume_flow.h"
#include "report/security_cache.h"
#include "volume/ntfs_open.h"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::fuzz::memory_file image("volume");
    image.hold({data, size});
    std::unique_ptr<quarry::CNtfs> ntfs;
    if (!quarry::open_by_image(image.path(), 0, ntfs, false, quarry::load_security_cache)) {
        quarry::fuzz::expect(ntfs == nullptr);
        return 0;
    }
    quarry::fuzz::look_at_volume(*ntfs);
    return 0;
}
