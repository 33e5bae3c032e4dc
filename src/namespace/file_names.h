// The names of a file, from the $FILE_NAME attributes of its record.
//
// A file has one name for each of its hard links, and often a short 8.3 name beside a long one. Names that do
// not fit the file's record are stored in extension records, which its $ATTRIBUTE_LIST names. Each name says
// which directory it is in; the sequence number of that reference is not looked at.
#pragma once

#include "foundation/budget.h"
#include "volume/ntfs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

struct file_name {
    std::wstring name;
    std::uint64_t parent = 0;  // MFT entry number of the directory
    std::uint8_t name_space = 0;
};

// The names of one file, ordered by name and then by parent. Of names that agree in both there is one.
using file_name_list = std::vector<file_name>;

// As a parent filter: names under any parent count.
inline constexpr std::uint64_t any_parent = ~std::uint64_t{0};

// Collects the names of file `entry`, whose record (fixups restored) is `record`. Without `all_namespaces`,
// names that are short names only are left out. With a parent filter, only names in that directory count. A
// part of the attribute list that cannot be read is passed over, and so is what `listed_reads`, the bytes
// that lists and the records that they name may cost, has nothing left for. False if no name was found;
// `names` is then empty.
[[nodiscard]] bool get_file_names(file_name_list& names, CNtfs& ntfs, std::uint64_t entry, byte_view record,
                                  bool all_namespaces, std::uint64_t parent_filter, budget& listed_reads);

}  // namespace quarry
