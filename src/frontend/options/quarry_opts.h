// What one run is to do: which source, which object on it, where the result goes and how.
//
// Parsing ends in one of two ways: true, with a source that was looked at and a volume offset that is known,
// or false after one message on standard error. After true, m_source says where the volume is, and without a
// source m_src names the volume as well. What is copied is in m_src (a path), m_entry (an MFT entry, with or
// without a path), or m_cluster_text and m_clusters. Nothing of it changes after parsing; a list gives its
// paths to each copy.
#pragma once

#include "disk/source.h"
#include "frontend/options/cmd_params.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// The MFT entry number that means none.
inline constexpr std::uint64_t no_entry = ~std::uint64_t{0};

// Clusters side by side on a volume.
struct cluster_range {
    std::uint64_t start_lcn = 0;
    std::uint64_t count = 0;
};

class quarry_opts {
  public:
    cmd_params m_run;  // what every run has: its log, its list of paths, how it talks
    // The user may read devices and use what only an administrator needs. Set before parsing.
    bool m_admin = false;
    bool m_meta = false;
    bool m_raw = false;
    bool m_md5 = false;
    bool m_skip_sparse = false;
    bool m_first_ntfsvol = false;
    source m_source;
    std::uint64_t m_entry = no_entry;
    std::wstring m_src;
    std::wstring m_dst;
    std::string m_cluster_text;  // not empty: clusters are asked for
    cluster_range m_clusters;

    // Takes what it knows out of `args`, whose first word is the program's name.
    [[nodiscard]] bool parse(arg_list& args, std::string_view version);

    // False, after the message for it, unless the user is an administrator.
    [[nodiscard]] bool pass_gate() const;

  private:
    [[nodiscard]] bool parse_switches(arg_list& args);
    [[nodiscard]] bool parse_object(arg_list& args);
    [[nodiscard]] bool parse_clusters(arg_list& args);
    void take_positional_arguments(const arg_list& args);
    [[nodiscard]] bool may_be_a_slip(const arg_list& args, bool has_pair) const;
    [[nodiscard]] bool has_destination() const;

    std::vector<std::string> m_after_source_files;  // see words_after_source_files
};

// True if the real or the effective user is root.
[[nodiscard]] bool is_administrator();

}  // namespace quarry
