// Security descriptors and the $SDS stream that holds them, byte by byte.
#pragma once

#include "support/byte_writer.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::test {

// S-1-<authority>-<sub-authorities...>
[[nodiscard]] bytes sid(std::uint8_t authority, const std::vector<std::uint32_t>& sub_authorities);

// One entry of an access control list; its size field is that of its bytes unless it is given.
[[nodiscard]] bytes ace(std::uint8_t type, std::uint32_t mask, const bytes& sid,
                        std::optional<std::uint16_t> size = {});
// Entries one after the other; the count is theirs unless it is given.
[[nodiscard]] bytes acl(const std::vector<bytes>& entries, std::optional<std::uint16_t> count = {});

// A self-relative descriptor. Empty parts are left out and have the offset 0; the others follow the head one
// after the other, owner and group first.
struct security_descriptor {
    bytes owner = {};
    bytes group = {};
    bytes sacl = {};
    bytes dacl = {};
    [[nodiscard]] bytes build() const;
};

// A record of $SDS at its position in the stream.
[[nodiscard]] bytes sds_record(std::uint32_t security_id, std::uint64_t stream_offset,
                               const bytes& descriptor);

// $SDS records one after the other, each at a multiple of 16 bytes, ids from 0x100 on.
[[nodiscard]] bytes sds_stream(const std::vector<bytes>& descriptors);

}  // namespace quarry::test
