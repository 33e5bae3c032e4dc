// Where a copy goes, and what it is called there.
//
// The destination is a file, or a directory with "/" at its end. In a directory the copy has the name of the
// file on the volume; a stream adds its own, and a type other than $DATA adds that too:
//
//     out/letter.txt          out/letter.txt_draft          out/._$I30_$INDEX_ROOT
//
// Nothing that was there before is lost by a slip: see check_destination.
#pragma once

#include "exact/failure.h"
#include "frontend/output/output_guard.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace quarry::exact {

// Bytes of a name that the file systems of the host take.
inline constexpr std::size_t longest_name = 255;

struct destination {
    std::string directory;  // with "/" at its end
    std::string name;       // empty: the copy is called as the file on the volume is

    // As a user would type it.
    [[nodiscard]] std::string path() const { return (directory == "./" ? "" : directory) + name; }
};

// A destination as typed: everything up to the last "/" is the directory, "./" if there is none.
[[nodiscard]] destination split_destination(std::string_view typed);

// What a copy in a directory is called. `file_name` are the units of the file's own name, `stream` those of
// the stream's, `type` the attribute type. Slashes, control characters and unpaired surrogates are written as
// \uXXXX. Fails with create for a name that no file can have.
[[nodiscard]] result<std::string> name_on_host(std::u16string_view file_name, std::u16string_view stream,
                                               std::uint32_t type);

// The name of a copy that its time and digest prove: 16 hexadecimal digits of `modified` (a FILETIME), the
// name, the MD5 digest as text. Fails with create if that is too long.
[[nodiscard]] result<std::string> name_with_digest(std::uint64_t modified, std::string_view name,
                                                   std::string_view md5);

// Refuses a directory that is missing or would write to the source, and what the name must not lead to: what
// the guard keeps (the source, the log, the files of standard streams), a file that is there already unless
// `overwrite`, and then everything but a regular file; links are not followed. Fails with create or exists.
// Without a name only the directory is looked at.
[[nodiscard]] result<void> check_destination(const destination& target, bool overwrite,
                                             const output_guard& guard);

}  // namespace quarry::exact
