// Files that the system compressed: programs and libraries that are read often and written never.
//
// Such a file has a reparse point with the tag WOF. Its unnamed $DATA has the file's size and no bytes of its
// own; what the bytes are decoded from is stored in $DATA "WofCompressedData". All bytes are cut into chunks
// of one size, each of which can be decoded by itself:
//
//     | table                     | chunk 0 | chunk 1      | chunk 2 | ... | last chunk |
//     | of chunk 1 | of chunk 2.. |
//       each 4 bytes, or 8 if the file has 2^32 bytes or more: where the chunk begins, counted from the
//       end of the table
//
// A chunk that takes as many bytes as it decodes to is stored as it is. Value of the reparse point, after its
// header; WOF is the filter that decodes such files, and has other ways to keep them:
//
//     | version: 1 | provider: 2 | version: 1 | format |      32 bits each
//       0            4             8            12
#pragma once

#include "exact/delivery.h"
#include "exact/failure.h"
#include "exact/reparse.h"
#include "exact/stored_stream.h"
#include "exact/volume_bytes.h"

#include <cstdint>
#include <string_view>

namespace quarry::exact {

inline constexpr std::u16string_view system_compressed_name = u"WofCompressedData";

// As the reparse point stores it.
enum class wof_format : std::uint8_t { xpress_4k = 0, lzx_32k = 1, xpress_8k = 2, xpress_16k = 3 };

// Bytes of a chunk that is decoded.
[[nodiscard]] std::uint64_t chunk_size(wof_format format);
// "xpress4k", "lzx", "xpress8k", "xpress16k".
[[nodiscard]] std::string_view format_name(wof_format format);

// The format that a reparse point with the tag WOF names. `where` names the file. Fails with wof if the data
// is in a WIM file, or if a number is not one of those above.
[[nodiscard]] result<wof_format> read_wof_format(const reparse_point& point, std::string_view where);

// Hands the `size` bytes that are decoded from `stored` to the sink. Fails with wof if the table or a chunk
// breaks a rule, as the sink does, and if a byte cannot be read; a chunk with such a byte is zeros as a whole
// if the reader gives zeros for what is lost, and its range is noted there. `workers` decode, unless they are
// null.
[[nodiscard]] result<void> deliver_system_compressed(const volume_bytes& volume, const stored_stream& stored,
                                                     wof_format format, std::uint64_t size,
                                                     careful_reader& reader, stream_sink& sink,
                                                     worker_pool* workers);

}  // namespace quarry::exact
