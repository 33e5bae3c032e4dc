// Junctions and symbolic links: the target that a $REPARSE_POINT attribute names.
//
// The value holds two names in one path buffer: the substitute name, for the system, and the print name, for
// people. The print name is the target here. A symbolic link has four bytes of flags ahead of the buffer that
// a junction does not have.
#pragma once

#include "foundation/byte_view.h"

#include <string>

namespace quarry {

// The target of the link whose record (fixups restored) is given. False, with `target` empty, if the record
// is no link: it has no reparse point, or a value without data or without a substitute name. The tag is not
// looked at, so junctions and symbolic links are alike. A target may be empty. `record_size` in bytes.
[[nodiscard]] bool link_target(std::wstring& target, byte_view record, std::uint32_t record_size);

}  // namespace quarry
