// What one run is to do: which source, which object on it, where the result goes and how.
//
// Parsing ends in one of two ways: true, with a source that was looked at and a volume offset that is known,
// or false after one message on standard error. After true, these members say where the volume is:
//
//     virtual disk   m_vmdk_list, m_vmdk_offset
//     partition      m_partition
//     image          m_image, m_volume_offset
//     drive          m_use_drive, m_drive, m_volume_offset
//     none given     m_live, and m_src alone names the volume
//
// and these what is copied: m_src (a path), m_entry (an MFT entry, with or without a path), or
// m_cluster_text, m_start_lcn and m_cluster_count (clusters).
#pragma once

#include "frontend/cmd_params.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

// An MFT entry number that stands for none.
inline constexpr std::uint64_t no_entry = ~std::uint64_t{0};

class quarry_opts : public cmd_params {
  public:
    // The user may read devices and use what only an administrator needs. Set before parsing.
    bool m_admin = false;
    bool m_meta = false;
    bool m_raw = false;
    bool m_md5 = false;
    bool m_skip_sparse = false;
    bool m_use_drive = false;
    bool m_first_ntfsvol = false;
    bool m_live = false;
    std::uint32_t m_drive = 0;
    std::uint64_t m_entry = no_entry;
    std::wstring m_partition;
    std::wstring m_image;
    std::wstring m_src;
    std::wstring m_dst;
    std::uint64_t m_volume_offset = 0;  // bytes
    std::string m_cluster_text;         // not empty: clusters are asked for
    std::uint64_t m_start_lcn = 0;
    std::uint64_t m_cluster_count = 0;

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
