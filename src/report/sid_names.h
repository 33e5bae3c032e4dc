// Security identifiers (SIDs): their text form and the names of the well-known ones.
//
// A SID names a user, a group or a role. It begins with a revision, a count of sub-authorities and a six-byte
// identifier authority, big-endian; the sub-authorities follow, four bytes each, little-endian. The last one,
// the relative id, says who is meant within the domain that the others name: S-1-5-21-1-2-3-513 is group 513
// of the domain 21-1-2-3.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quarry {

// A named view that begins at a SID and reaches to the end of the bytes that hold it. Accessors read zero for
// what is not there.
class sid_view {
  public:
    // Bytes of a SID with as many sub-authorities as a count of one byte can say.
    static constexpr std::uint32_t longest = 8 + 4 * 255;
    explicit sid_view(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint8_t revision() const { return m_bytes.u8_or_zero(0); }
    [[nodiscard]] std::uint8_t count() const { return m_bytes.u8_or_zero(1); }
    // The lowest byte of the identifier authority, the only one that is ever looked at.
    [[nodiscard]] std::uint8_t authority() const { return m_bytes.u8_or_zero(7); }
    [[nodiscard]] std::optional<std::uint32_t> sub_authority(std::uint32_t index) const {
        return m_bytes.u32(8 + std::uint64_t{4} * index);
    }
    // Bytes of the SID by its own count.
    [[nodiscard]] std::uint32_t length() const { return 8 + 4u * count(); }

  private:
    byte_view m_bytes;
};

// Writes "S-1-5-32-544" and its like. False, with empty text, for fewer than 12 available bytes and for a SID
// that is longer than `available_bytes` or than the bytes there are.
[[nodiscard]] bool sid_to_text(std::string& out, byte_view sid, std::uint64_t available_bytes);

// The name of a well-known SID, "unk" for any other. With one sub-authority the authority chooses the name;
// with more, the relative id does, whatever the authority, so that the administrators of all domains read
// alike.
[[nodiscard]] std::string_view sid_name(byte_view sid);

}  // namespace quarry
