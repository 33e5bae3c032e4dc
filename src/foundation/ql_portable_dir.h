// Paths and directories of the host.
//
// Users type either slash, so both "/" and "\" separate the parts of a path; each routine says which of them
// it looks for first. Some routines only work on the text of a path, the others look into the file system of
// the host. For paths within a volume see src/namespace.
//
// No routine prints anything. A failure is a false or an empty result, with the outputs cleared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace quarry {

// Parts a path at its last "\" or, if it has none, at its last "/". A path without a separator, or that
// begins with the deciding one, lies in "." with the whole path as its name. A path that ends in its
// separator has an empty name. A name of ".." moves into the directory; see the source. False only for an
// empty path.
[[nodiscard]] bool split_path(std::wstring& directory, std::wstring& name, std::wstring_view path);
[[nodiscard]] bool split_path_narrow(std::string& directory, std::string& name, std::string_view path);

// The absolute form of a path. Double quotes and a pair of single quotes are taken off with the blanks around
// them. The path's separator is "/" if it holds one, else "\" if it holds one, else the default. A path that
// begins with its separator is returned as it is. Any other follows the current directory, unless it begins
// with a drive letter; leading ".." segments each take one level off the current directory, down to the root;
// doubled separators become one. Empty for an empty path, and if the current directory is needed and not
// known.
[[nodiscard]] std::string canonical_path(std::string_view path, char default_separator);
[[nodiscard]] std::wstring canonical_path(std::wstring_view path, wchar_t default_separator);

// The name under which shadow copies are addressed, without the number at its end.
[[nodiscard]] std::string shadow_prefix(bool lower_case, bool with_root_prefix);

// Makes a directory and all above it. Double quotes are left out, "\" counts as "/", a leading `\\?\` or
// `\\.\` is kept, and a name that ends in ":" is taken to exist. True if every level is a directory
// afterwards.
[[nodiscard]] bool make_directories(const std::string& path);

// Writes a file of `length` bytes, replacing an earlier one, in directories that are made if need be. The
// path is read as `make_directories` reads it.
[[nodiscard]] bool create_file(const std::string& path, const void* bytes, std::size_t length);

// Removes a file. A path of more than two characters without a drive letter goes through `canonical_path`
// first.
[[nodiscard]] bool delete_file(const std::string& path);

// Renames a file; with `canonicalise` both paths are treated as `delete_file` treats its own.
[[nodiscard]] bool rename_file(const std::string& old_path, const std::string& new_path, bool canonicalise);

// When a file was modified and when it was created, as 64-bit FILETIMEs (ticks of 100 ns since 1601) in whole
// seconds. Where the host keeps no time of creation it is the time of the last change of status. Zeros after
// false.
[[nodiscard]] bool file_times(std::uint64_t& modified, std::uint64_t& created, const std::string& path);

// The size in bytes; 0 after false.
[[nodiscard]] bool file_size(std::uint64_t& size_in_bytes, const std::string& path);

// The path of the running program.
[[nodiscard]] bool executable_path(std::string& out);

// Empty if it is not known or longer than 511 bytes.
[[nodiscard]] std::string current_directory();

// True if both paths lead to one existing file: same device and inode, links followed.
[[nodiscard]] bool same_file(const std::string& left, const std::string& right);

}  // namespace quarry

namespace qlportdir {

// One entry of a directory listing.
struct _DIR_NODE {
    std::string m_path;  // the listed directory and the name; ends in the separator if this is a directory
    std::string m_name;
    ::mode_t m_mode = 0;
    std::int32_t m_depth = 0;
    bool m_using_st_mode_flags = false;  // `m_mode` came from a stat

    // Must not be asked of a node whose mode did not come from a stat: the program stops.
    [[nodiscard]] bool is_dir() const;
};
using _DIR_NODE_STL = std::vector<_DIR_NODE>;

// Appends the entries of a directory, in the order of their names, without "." and "..". Links count as what
// they are, not as what they lead to. Entries have the given depth, directories one more. The separator is
// "/" with `forward_slash`, else "\", and then a "\" in `directory_with_separator` is a separator too. False
// if the directory cannot be opened.
[[nodiscard]] bool list_directory(_DIR_NODE_STL& out, const std::string& directory_with_separator,
                                  std::int32_t depth, bool directories_only, bool forward_slash);

// Replaces each path that holds "/*/" ("\*\" without `forward_slash`) by one path for each subdirectory, at
// any number of levels. The first subdirectory takes the path's place, the others go to the end of the list.
// A path with no subdirectory to put in stays as it is.
void expand_wildcards(std::vector<std::string>& paths, bool forward_slash);

}  // namespace qlportdir
