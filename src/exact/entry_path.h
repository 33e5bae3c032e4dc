// The path of a file that was found by its number: worked out upwards.
//
// A $FILE_NAME says in which directory the name is, by entry and sequence number. That directory's own name
// says the same of the next one, up to the root:
//
//     40-2 "letter.txt" in 33-1  -->  33-1 "docs" in 5-5  -->  5-5, the root      /docs/letter.txt
//
// Each step must lead to a directory that has the sequence number of the reference. Where one does not, the
// rest of the way is lost: the directory was deleted and its entry given away.
#pragma once

#include "exact/attribute_set.h"
#include "exact/failure.h"
#include "exact/file_names.h"
#include "exact/mft.h"

#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct entry_path {
    // From the root down, the file's own name last; none for the root itself. If the way is lost, they begin
    // below the place where it is.
    std::vector<std::u16string> names;
    // Why the names do not begin at the root.
    std::optional<failure> lost;
};

// The path of a file under one of its names. `deleted` is whether the file is: its directories may be deleted
// then, too, as far as they were not given away. Directories go by their long names. Warns as records and
// lists do. Ends after as many names as a path of the system has room for, and at a directory met twice.
[[nodiscard]] entry_path path_upwards(const mft& table, const file_name& name, bool deleted, notices& told);

// The same under the name that a user knows the file by. A file without a name has lost its whole path.
[[nodiscard]] entry_path path_upwards(const mft& table, const attribute_set& file, notices& told);

}  // namespace quarry::exact
