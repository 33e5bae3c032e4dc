// Paths and directories of the host.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace quarry {

[[nodiscard]] bool split_path(std::wstring& directory, std::wstring& name, std::wstring_view path);
[[nodiscard]] bool split_path_narrow(std::string& directory, std::string& name, std::string_view path);
[[nodiscard]] std::string canonical_path(std::string_view path, char default_separator);
[[nodiscard]] std::wstring canonical_path(std::wstring_view path, wchar_t default_separator);
[[nodiscard]] std::string shadow_prefix(bool lower_case, bool with_root_prefix);
[[nodiscard]] bool make_directories(const std::string& path);
[[nodiscard]] bool create_file(const std::string& path, const void* bytes, std::size_t length);
[[nodiscard]] bool delete_file(const std::string& path);
[[nodiscard]] bool rename_file(const std::string& old_path, const std::string& new_path, bool canonicalise);
// Modification and creation times as 64-bit FILETIMEs (ticks of 100 ns since 1601).
[[nodiscard]] bool file_times(std::uint64_t& modified, std::uint64_t& created, const std::string& path);
[[nodiscard]] bool file_size(std::uint64_t& size_in_bytes, const std::string& path);
[[nodiscard]] bool executable_path(std::string& out);
[[nodiscard]] std::string current_directory();
// True if both paths lead to one existing file: same device and inode, links followed.
[[nodiscard]] bool same_file(const std::string& left, const std::string& right);

}  // namespace quarry

namespace qlportdir {

// One entry of a directory listing.
struct _DIR_NODE {
    std::string m_path;
    std::string m_name;
    ::mode_t m_mode = 0;
    std::int32_t m_depth = 0;
    bool m_using_st_mode_flags = false;

    // Asserts that the node was filled from a stat mode.
    [[nodiscard]] bool is_dir() const;
};
using _DIR_NODE_STL = std::vector<_DIR_NODE>;

[[nodiscard]] bool list_directory(_DIR_NODE_STL& out, const std::string& directory_with_separator, std::int32_t depth,
                                  bool directories_only, bool forward_slash);
void expand_wildcards(std::vector<std::string>& paths, bool forward_slash);

}  // namespace qlportdir
