// How much of a source's claims is believed: every limit on what is read, kept and walked for a volume.
//
// Most limits follow the source, because a small one must never cost much; `source` is always the bytes that
// it can have content in (RAW_DISK_IO::content_size). Beside each of them there is an absolute one, so that a
// drive of terabytes does not lift it: those are far above what any system writes, and such that a run stays
// within half a gibibyte and ends soon. What a limit leaves out is treated as if it could not be read.
#pragma once

#include <algorithm>
#include <cstdint>

namespace quarry::limits {

inline constexpr std::uint64_t kibibyte = 1024;
inline constexpr std::uint64_t mebibyte = 1024 * kibibyte;
inline constexpr std::uint64_t gibibyte = 1024 * mebibyte;

// `base` and `factor` for each byte of the source, at most `most`.
[[nodiscard]] constexpr std::uint64_t following(std::uint64_t source, std::uint64_t base,
                                                std::uint64_t factor, std::uint64_t most) {
    return source > (most - std::min(base, most)) / factor ? most : std::min(base + source * factor, most);
}

// Records.

// No file record is as long as this, and a claim of more is cut to it: a volume with damage in one size field
// is read all the same, without the cost that the field claims.
inline constexpr std::uint32_t longest_record = 512 * 1024;

// NTFS ends an attribute list at 256 KiB. What a damaged one claims beyond this is cut, because each two
// bytes of it may ask for the read of a record.
inline constexpr std::uint64_t longest_attribute_list = 2 * mebibyte;
[[nodiscard]] constexpr std::uint64_t attribute_list_bytes(std::uint64_t source) {
    return std::min(source, longest_attribute_list);
}

// Attribute lists of one entry. A list of 256 KiB can name some 8,000 records of 4 KiB. A damaged one may
// name the same records again and again, and a damaged boot sector may claim that each is half a megabyte
// long, with room for an attribute of a quarter of a million runs: a run would be busy for hours. So many
// bytes of lists and records are read, and so many reads are always made, however long the records are.
inline constexpr std::uint64_t followed_bytes = 64 * mebibyte;
inline constexpr std::uint64_t followed_reads = 4096;
// Of attributes found there: all that 8,000 records of 4 KiB hold.
inline constexpr std::uint64_t followed_attribute_bytes = 32 * mebibyte;

// Memory for the attributes of one entry. All attributes of a sound file lie on the source, each run is at
// least a cluster there, and extension records do not overlap. The absolute limit is that of four million
// runs: NTFS gives up at one and a half million for a file.
[[nodiscard]] constexpr std::uint64_t entry_memory(std::uint64_t source) {
    return following(source, 2, 2, 128 * mebibyte);
}

// Zeros that the values of one entry may have in place of bytes that are not there. Records of a usual size
// never come near: only large ones have room for thousands of headers.
inline constexpr std::uint64_t value_padding = 4 * mebibyte;

// Attributes of $MFT and $Bitmap that extension records hold. A list that names the same attributes again and
// again would make a small source cost much. In bytes, an attribute of fewer than this counted as so many:
inline constexpr std::uint64_t smallest_counted_attribute = 64;
[[nodiscard]] constexpr std::uint64_t system_attribute_bytes(std::uint64_t source) {
    return std::min(512 * kibibyte + source / 128, 32 * mebibyte) + 1;
}

// Memory.

// What a volume keeps of what it has read: the runs of its system files, its security descriptors, its
// directories. A sound source holds all of it in more bytes.
[[nodiscard]] constexpr std::uint64_t cache_memory(std::uint64_t source) {
    return following(source, 64 * mebibyte, 1, 256 * mebibyte);
}
// The part of it for the runs of system files: 400,000 of them. A $MFT in a thousand pieces is a rarity.
inline constexpr std::uint64_t system_run_memory = 96 * mebibyte;
// The part of it for security descriptors. Those of a volume in use cost far less; made-up ones, whose SIDs
// all reach into the records after them, a hundred times their size.
[[nodiscard]] constexpr std::uint64_t descriptor_memory(std::uint64_t source) {
    return std::min(32 * mebibyte + source / 2, 160 * mebibyte);
}

// A stream moves in units of 16 clusters. A boot sector may claim clusters of many megabytes, so a unit of
// more than 1 MiB, which holds 16 clusters of every size up to 64 KiB, is cut to the source, and in any case
// to what 16 clusters of twice the largest size that NTFS has would take.
inline constexpr std::uint64_t unit_never_cut = mebibyte;
inline constexpr std::uint64_t unit_always_cut = 64 * mebibyte;

// Directories and names.

// Children that one index shows. An entry with the shortest name takes 84 bytes of the source. A directory of
// four million names is beyond what Windows can work with.
[[nodiscard]] constexpr std::uint64_t children_of_directory(std::uint64_t source) {
    return std::min<std::uint64_t>(source / 84, 4'000'000);
}

// Names of the children of one directory: bytes that they take on the source at least, each name counted with
// `source_bytes_of_name` beside its text, each subdirectory with `source_bytes_of_directory`.
inline constexpr std::uint64_t source_bytes_of_name = 64;
inline constexpr std::uint64_t source_bytes_of_directory = 256;
// Bytes of memory for the same names, whatever the source holds: four million names of usual length.
inline constexpr std::uint64_t name_memory = 192 * mebibyte;

// Reads for path lookups. On a sound volume each list and each record belongs to one file, and each index to
// one directory. Lists that lie over each other and name the same records again and again, indexes that many
// directories share, and numbers of files that all lead to one record, would keep a lookup busy for hours. So
// all lookups of a run together may cost this many bytes of reads of each kind: lists with the records that
// they name, records of children, indexes. The names of a sound file may lie between other attributes, so
// that a record is read more than once.
[[nodiscard]] constexpr std::uint64_t lookup_bytes(std::uint64_t source) {
    return following(source, 64 * mebibyte, 32, ~std::uint64_t{0});
}
// A single lookup may cost this much. A record counts as a page at least, because so much is what a read of
// less costs: the first is enough for the records of four million children.
inline constexpr std::uint64_t smallest_read = 4 * kibibyte;
inline constexpr std::uint64_t one_lookup_record_bytes = 16 * gibibyte;
inline constexpr std::uint64_t one_lookup_listed_bytes = 4 * gibibyte;
inline constexpr std::uint64_t one_lookup_index_bytes = 4 * gibibyte;
// Every few bytes of a list are a search through a record, and a record may hold a great many attributes, or
// a list of a great many runs: bytes that a byte of a list and an attribute that is looked at count for.
inline constexpr std::uint64_t cost_of_list_byte = 16;
inline constexpr std::uint64_t cost_of_attribute = 16;

// Paths of an entry. A path that programs can name has at most 32,767 characters, so at most half as many
// elements. A file has at most some tens of thousands of links; directories with several names each, which no
// file system makes, would multiply without end. NTFS gives a file at most 1,024 names.
inline constexpr std::uint64_t path_elements = 16384;
inline constexpr std::uint64_t path_levels_entered = 1'000'000;
inline constexpr std::uint64_t path_characters = 4'000'000;
inline constexpr std::uint64_t path_name_memory = 16 * mebibyte;

}  // namespace quarry::limits
