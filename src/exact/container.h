// Files that hold a disk in a form of their own.
//
// The bytes of such a file are not those of the disk, so it is never read as if they were. They are known by
// a signature in the first bytes, one kind by its last sector.
#pragma once

#include "exact/exact_source.h"
#include "exact/failure.h"

#include <string_view>

namespace quarry::exact {

// Fails with source-open for a container; the words say which it is and what to do.
[[nodiscard]] result<void> refuse_container(const exact_source& source);

// The program whose files begin as the source does, such as "gzip"; empty if there is none.
[[nodiscard]] std::string_view compressed_by(const exact_source& source);

// Warns of a source that begins as a compressed file does. It is not refused: the first bytes of a disk may
// be any.
void warn_of_compression(const exact_source& source, notices& told);

}  // namespace quarry::exact
