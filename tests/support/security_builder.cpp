#include "support/security_builder.h"

namespace quarry::test {

bytes sid(std::uint8_t authority, const std::vector<std::uint32_t>& sub_authorities) {
    byte_writer out(8);
    out.u8(0, 1).u8(1, sub_authorities.size()).u8(7, authority);
    for (const std::uint32_t value : sub_authorities) {
        out.u32(out.size(), value);
    }
    return out.take();
}

bytes ace(std::uint8_t type, std::uint32_t mask, const bytes& sid, std::optional<std::uint16_t> size) {
    byte_writer out(8);
    out.u8(0, type)
        .u16(2, size.value_or(static_cast<std::uint16_t>(8 + sid.size())))
        .u32(4, mask)
        .raw(8, sid);
    return out.take();
}

bytes acl(const std::vector<bytes>& entries, std::optional<std::uint16_t> count) {
    byte_writer out(8);
    for (const bytes& entry : entries) {
        out.raw(out.size(), entry);
    }
    out.u8(0, 2).u16(2, out.size()).u16(4, count.value_or(static_cast<std::uint16_t>(entries.size())));
    return out.take();
}

bytes security_descriptor::build() const {
    byte_writer out(20);
    out.u8(0, 1).u16(2, 0x8004);
    const auto add = [&out](std::size_t offset_field, const bytes& part) {
        if (!part.empty()) {
            out.u32(offset_field, out.size()).raw(out.size(), part);
        }
    };
    add(4, owner);
    add(8, group);
    add(12, sacl);
    add(16, dacl);
    return out.take();
}

bytes sds_record(std::uint32_t security_id, std::uint64_t stream_offset, const bytes& descriptor) {
    byte_writer out(20);
    out.u32(0, 0x12345678).u32(4, security_id).u64(8, stream_offset).u32(16, 20 + descriptor.size());
    out.raw(20, descriptor);
    return out.take();
}

bytes sds_stream(const std::vector<bytes>& descriptors) {
    byte_writer out;
    std::uint32_t id = 0x100;
    for (const bytes& descriptor : descriptors) {
        out.raw(out.size(), sds_record(id++, out.size(), descriptor)).pad_to_multiple(16);
    }
    return out.take();
}

}  // namespace quarry::test
