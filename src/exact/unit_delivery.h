// A compressed stream, delivered decoded.
//
// The runs of the stream decide unit by unit what is stored (see lznt1_unit.h). Neighbouring units usually
// lie side by side on the volume, so several are read at once:
//
//     stream:   | unit 0: 5 of 16 | unit 1: 16 of 16 | unit 2: hole | unit 3: 7 of 16 |
//     volume:   |XXXXX|XXXXXXXXXXXXXXXX|XXXXXXX|       one read, three units
#pragma once

#include "exact/delivery.h"

namespace quarry::exact {

// Delivers the bytes up to the valid length of a compressed stream. A unit with chunks of which a byte cannot
// be read is zeros as a whole, if the user wants zeros. Doubts: short-chunk. Fails with unit if runs or
// chunks break a rule. `workers` decode, unless they are null.
[[nodiscard]] result<void> deliver_decoded(const volume_bytes& volume, const stored_stream& stream,
                                           careful_reader& reader, stream_sink& sink, notices& told,
                                           worker_pool* workers);

}  // namespace quarry::exact
