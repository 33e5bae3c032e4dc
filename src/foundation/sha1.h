// The SHA-1 message digest (FIPS 180-4).
//
// Nothing is proved by it any more: messages with equal digests can be made. It is here because images of
// disks carry one that was computed when the disk was acquired, and a user wants to know whether it still
// fits.
#pragma once

#include "foundation/sha_blocks.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace quarry {

using sha1_digest = std::array<std::uint8_t, 20>;

// A message that is digested as its bytes come. Begins with the empty message.
class sha1_ctx {
  public:
    // Takes the next `length` bytes.
    void update(const void* bytes, std::size_t length);
    // The digest of all bytes that came. The object then begins again with the empty message.
    [[nodiscard]] sha1_digest final();

  private:
    void digest_blocks(const std::uint8_t* blocks, std::size_t count);

    std::array<std::uint32_t, 5> m_state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    sha_message m_message;
};

}  // namespace quarry
