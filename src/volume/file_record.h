// The file record: header, header test, and the sector ends that the update sequence array protects.
//
// Every file, directory and system structure of an NTFS volume has a record in $MFT, a block of one fixed
// size (1024 bytes as a rule): a header, then a chain of attributes. When the file system writes a record it
// saves the last two bytes of each sector in an array in the header and puts one number, the same for all, in
// their place; a reader puts the saved words back. Index blocks carry the same first eight bytes and the same
// protection, and the same readers take them.
//
// The numbers at the sector ends are not compared with the one in the header: a record that was torn by a
// crash is read like any other. Only its signature and the header test can refuse a record.
#pragma once

#include "foundation/byte_view.h"
#include "volume/record_layout.h"

#include <cstdint>
#include <span>

namespace quarry {

enum class record_kind : std::uint32_t { unknown = 0, file = 1, indx = 2, baad = 3 };

// The header test: "FILE", an update sequence array at 0x30 of at most 9 words, a first attribute at 0x48 or
// before.
[[nodiscard]] bool record_header_ok(byte_view record);

// Bytes that the update sequence array says the record has, with sectors of 512 bytes whatever the volume's
// are; 0 for a header that fails the test and for an empty array.
[[nodiscard]] std::uint32_t record_size_from_header(byte_view record);

// Puts the saved words of the update sequence array back over the last two bytes of each sector, for words 1
// up to (not including) the smaller of the array's count and `limit`. The array is where the header says.
// Never compares, never reaches outside of `record`. `sector_size` in bytes; 0 restores nothing.
void restore_sector_ends(std::span<std::uint8_t> record, std::uint32_t sector_size, std::uint64_t limit);

// The usual limit for a block of `size` bytes: one word for each of its whole sectors, and the number ahead
// of them.
[[nodiscard]] std::uint64_t sector_end_limit(std::uint64_t size, std::uint32_t sector_size);

// Restores the fixups of a record or index block of at least 1024 bytes. `kind` says what it is, also after
// false: `unknown` for a block that is too small or is none of the kinds (a "FILE" that fails the header test
// among them), otherwise the kind of a block whose array is longer than the block, or in a "BAAD" one than 10
// words. After false the record is as it was. A "BAAD" record that gives true is restored like any other; the
// caller decides by its kind.
[[nodiscard]] bool apply_fixups_checked(record_kind& kind, std::span<std::uint8_t> record,
                                        std::uint32_t sector_size);

}  // namespace quarry
