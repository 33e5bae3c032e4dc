// What a manifest says of copies that are complete, for a run that goes on where another ended.
//
// A manifest is read line by line, and of each copy no more than 48 bytes are kept: a digest of the
// path, one of what was copied and from which source, and the size. A line that is no JSON object ends the
// reading: a manifest that is damaged proves nothing.
#pragma once

#include "exact/failure.h"
#include "frontend/exact/manifest_line.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quarry::exact {

// What was copied: one object of one source to one path. Or a path alone.
using copy_key = std::array<std::uint8_t, 16>;

// The key of a copy to `path`. Relative paths begin at `directory`. Nothing if the source, the volume or the
// object is not known.
[[nodiscard]] std::optional<copy_key> key_of_copy(const source_facts& source, const exact_volume* volume,
                                                  const object_facts& object, const std::string& directory,
                                                  const std::string& path);

class complete_copies {
  public:
    // Reads all lines of a file that is open for reading. `where` names it. Fails with manifest for a line
    // that is no JSON object or too long, and if the file cannot be read.
    [[nodiscard]] static result<complete_copies> read(int descriptor, const std::string& where);
    // Takes one line; false if it is no JSON object. The last line that has a copy of a path says what the
    // path holds: one that is not complete takes back what an earlier line said.
    [[nodiscard]] bool add_line(std::string_view line);
    // The size in bytes of the copy that `path` holds, if it is that of `key`.
    [[nodiscard]] std::optional<std::uint64_t> size_of(const copy_key& key, const std::string& directory,
                                                       const std::string& path) const;

  private:
    struct held_copy {
        copy_key key{};
        std::uint64_t size = 0;
    };
    std::map<copy_key, held_copy> m_held;  // complete ones, by the key of the path
};

}  // namespace quarry::exact
