// The MD5 message digest (RFC 1321), and bytes as hexadecimal text.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quarry {

struct md5_ctx {
    std::array<std::uint32_t, 4> state{};
    std::array<std::uint32_t, 2> bit_count{};
    std::array<std::uint8_t, 64> buffer{};
};
using md5_digest = std::array<std::uint8_t, 16>;

bool md5_init(md5_ctx* ctx);
bool md5_update(md5_ctx* ctx, const void* bytes, std::size_t length);
bool md5_final(md5_digest& digest, md5_ctx* ctx);
void hex_text(std::string& out, const void* bytes, std::size_t length, bool spaced);

}  // namespace quarry
