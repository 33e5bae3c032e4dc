// The first pass over a list of VMDK files: is it a whole chain, and what would make it one?
//
// A user names the files of a chain, in any order. A snapshot names its parent by content ID, and by a hint:
// the path where the parent was when the snapshot was taken, on whatever machine that was. When a parent is
// not in the list, the hint says where to look, there or beside the listed files. What is found is suggested
// and looked at in turn, so that one run names all that is missing. Such a list never passes: the user is to
// name every file of the chain. Each file is opened once in a run, and on behalf of a hint only regular files
// are.
#pragma once

#include "disk/source.h"

#include <sstream>
#include <string>
#include <vector>

namespace quarry {

// True when the files of `list` form a chain, and also when a parent is missing by its content ID but a
// listed file bears the hinted name; opening the chain for real refuses such a list. `suggested` becomes
// `list` and the parents that were worked out. `stream` gets the words for the user; words of earlier passes
// give way to later ones.
[[nodiscard]] bool check_list(const std::vector<std::wstring>& list, std::ostringstream& stream,
                              std::vector<std::wstring>& suggested);

// The same on the files of a virtual disk. Those that make a chain stay open in it, so that the volume is
// looked for and read without opening and parsing each file again.
[[nodiscard]] bool check_virtual_disk(source& disk, std::ostringstream& stream,
                                      std::vector<std::wstring>& suggested);

// A list of files as one word in double quotes, as the option takes it and a shell passes it on: " | "
// between the paths, and a backslash before each `"`, `$`, "`" and `\`, which a shell would act on. The paths
// may come from the hints of a disk, so a list with a control character or a "!" in a path gives false and
// nothing.
[[nodiscard]] bool as_shell_word(std::string& out, const std::vector<std::wstring>& list);

}  // namespace quarry
