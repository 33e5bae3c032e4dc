// The entries of $MFT that NTFS keeps for itself, under numbers that are the same on every volume.
#pragma once

#include <cstdint>

namespace quarry {

inline constexpr std::uint64_t mft_entry = 0;  // $MFT, which says where all entries lie, this one included
inline constexpr std::uint64_t journal_entry = 2;   // $LogFile
inline constexpr std::uint64_t volume_entry = 3;    // $Volume: its name, version and flags
inline constexpr std::uint64_t root_directory = 5;  // the directory in which paths begin
inline constexpr std::uint64_t bitmap_entry = 6;    // $Bitmap: a bit for each cluster, set where it is in use
inline constexpr std::uint64_t secure_entry = 9;    // $Secure: the security descriptors of all files
inline constexpr std::uint64_t upcase_entry = 10;   // $UpCase: the capital letter of each UTF-16 unit

}  // namespace quarry
