#include "support/attribute_values.h"

namespace quarry::test {

namespace {

void put_times(byte_writer& out, std::size_t offset, const file_times& times) {
    out.u64(offset, times.created).u64(offset + 8, times.modified);
    out.u64(offset + 16, times.mft_changed).u64(offset + 24, times.accessed);
}

}  // namespace

bytes standard_information::build() const {
    byte_writer out(72);
    put_times(out, 0, times);
    out.u32(32, attributes).u32(48, owner_id).u32(52, security_id);
    bytes result = out.take();
    result.resize(size);
    return result;
}

bytes file_name::build() const {
    byte_writer out(66);
    out.u64(0, parent);
    put_times(out, 8, times);
    out.u64(40, allocated).u64(48, real).u32(56, attributes).u32(60, reparse_tag);
    out.u8(64, name.units.size()).u8(65, name_space).raw(66, name.on_disk());
    return out.take();
}

bytes reparse_point::build() const {
    const bytes substitute = substitute_name.on_disk();
    const bytes print = print_name.on_disk();
    const std::size_t buffer = with_flags_word ? 20 : 16;
    byte_writer out(buffer);
    out.u32(0, tag).u16(8, 0).u16(10, substitute.size());
    out.u16(12, substitute.size() + 2).u16(14, print.size());
    if (with_flags_word) {
        out.u32(16, flags_word);
    }
    out.raw(buffer, substitute).u16(buffer + substitute.size(), 0);
    out.raw(out.size(), print).u16(out.size(), 0);
    // The last zero unit is written at the end that `raw` reached.
    out.u16(4, out.size() - 8);
    return out.take();
}

bytes volume_information(std::uint8_t major, std::uint8_t minor) {
    return byte_writer(12).u8(8, major).u8(9, minor).take();
}

}  // namespace quarry::test
