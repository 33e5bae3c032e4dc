// Self-relative security descriptors and their text: who owns a file, and who may do what with it.
//
// A descriptor is one block of bytes. Its head says where in the block the owner's and the group's SID and
// two access control lists are: the SACL (what is audited) and the DACL (what is allowed and denied). An ACL
// is a head with a count and a row of entries (ACEs), each with a type, its own size, an access mask and the
// SID it is about.
//
// Counts, sizes and offsets may be anything that somebody wrote to the disk, so each is bounded by the bytes
// at hand: an offset outside is a part that is not there, an ACL ends where the bytes do, at the latest, and
// a SID ends with its ACE.
#pragma once

#include "foundation/byte_view.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// A named view of a descriptor. Offsets are bytes from its start, 0 for a part that it has not.
class security_descriptor_view {
  public:
    explicit security_descriptor_view(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint32_t owner_offset() const { return m_bytes.u32_or_zero(4); }
    [[nodiscard]] std::uint32_t group_offset() const { return m_bytes.u32_or_zero(8); }
    [[nodiscard]] std::uint32_t sacl_offset() const { return m_bytes.u32_or_zero(12); }
    [[nodiscard]] std::uint32_t dacl_offset() const { return m_bytes.u32_or_zero(16); }

  private:
    byte_view m_bytes;
};

// The word for an ACE's type, such as "access allowed"; "unknown" for a type without one.
void ace_type_word(std::uint8_t type, std::string& out);
// The words for the upper bits of an access mask, with " | " between them. The lower 16 bits, whose meaning
// depends on the kind of object, have none.
void ace_mask_words(std::uint32_t mask, std::string& out);

// One line of an ACL: a SID and all that ACEs of one type say about it.
struct ace_line {
    std::string sid;
    std::string type;
    std::string mask;
    std::string name;
};
// By SID text and type word. Deliberate: the lines are sorted and ACEs of one key are joined, not in the
// ACL's own order, which decides who gets access. The user sees permissions that can be compared.
using ace_map = std::map<std::string, ace_line>;

// Gathers the ACEs of the ACL at an offset of a descriptor into `map`. Ends at the ACL's count, at an ACE of
// fewer than 8 bytes and where the descriptor's bytes end.
void acl_to_map(ace_map& map, byte_view descriptor, std::uint32_t acl_offset);
// The same as lines without prefix and line feed; none for an offset of 0.
[[nodiscard]] std::vector<std::string> acl_lines(byte_view descriptor, std::uint32_t acl_offset);

// Prints a descriptor with `prefix` before each line: a heading, the owner, the group and both ACLs, as far
// as it has them. A SID that cannot be read leaves its brackets empty.
void print_security_descriptor(std::ostream& out, byte_view descriptor, std::string_view prefix);

}  // namespace quarry
