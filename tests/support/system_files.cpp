#include "support/system_files.h"

namespace quarry::test {

namespace {

struct definition {
    const char* name;
    std::uint32_t type;
    std::uint32_t flags;  // 0x02 indexed, 0x40 resident, 0x80 may be non-resident
    std::uint64_t smallest;
    std::uint64_t largest;
};

constexpr std::uint64_t unlimited = 0xFFFFFFFFFFFFFFFF;
constexpr std::size_t definition_size = 160;

constexpr definition definitions[] = {
    {"$STANDARD_INFORMATION", 0x10, 0x40, 0x30, 0x48},
    {"$ATTRIBUTE_LIST", 0x20, 0x80, 0, unlimited},
    {"$FILE_NAME", 0x30, 0x42, 0x44, 0x242},
    {"$OBJECT_ID", 0x40, 0x40, 0, 0x100},
    {"$SECURITY_DESCRIPTOR", 0x50, 0x80, 0, unlimited},
    {"$VOLUME_NAME", 0x60, 0x40, 2, 0x100},
    {"$VOLUME_INFORMATION", 0x70, 0x40, 12, 12},
    {"$DATA", 0x80, 0, 0, unlimited},
    {"$INDEX_ROOT", 0x90, 0x40, 0, unlimited},
    {"$INDEX_ALLOCATION", 0xA0, 0x80, 0, unlimited},
    {"$BITMAP", 0xB0, 0x80, 0, unlimited},
    {"$REPARSE_POINT", 0xC0, 0x80, 0, 0x4000},
    {"$EA_INFORMATION", 0xD0, 0x40, 8, 8},
    {"$EA", 0xE0, 0, 0, 0x10000},
    {"$LOGGED_UTILITY_STREAM", 0x100, 0x80, 0, 0x10000},
};

}  // namespace

bytes attribute_definitions() {
    byte_writer out;
    for (const definition& each : definitions) {
        const std::size_t at = out.size();
        out.raw(at, ntfs_name(each.name).on_disk());
        out.u32(at + 128, each.type).u32(at + 140, each.flags);
        out.u64(at + 144, each.smallest).u64(at + 152, each.largest);
    }
    return out.fill(out.size(), definition_size, 0).take();
}

bytes upper_case_table() {
    byte_writer out(std::size_t{65536} * 2);
    for (std::size_t unit = 0; unit < 65536; ++unit) {
        out.u16(2 * unit, unit >= 'a' && unit <= 'z' ? unit - 'a' + 'A' : unit);
    }
    return out.take();
}

}  // namespace quarry::test
