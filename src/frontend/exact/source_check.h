// Whether a source is still what was acquired.
//
// An EWF image carries the digests of the disk that were computed when it was acquired. The whole disk is
// read again, digested, and held against them. They are of the bytes as the image holds them: where a sector
// could not be read then, of what was put in its place.
#pragma once

#include "exact/failure.h"
#include "foundation/worker_pool.h"
#include "frontend/exact/exact_messages.h"
#include "frontend/exact/source_opening.h"

namespace quarry::exact {

// True if the source carries a digest.
[[nodiscard]] bool has_stored_digest(const opened_source& source);

// Reads all of a source with stored digests and says "ok: ..." if all of them fit. Warns
// (unreadable) if sectors could not be read when it was acquired. Fails with source-read for bytes that
// cannot be read and for a digest that differs. `workers` digest beside the reading.
[[nodiscard]] result<void> check_source(const opened_source& source, worker_pool& workers,
                                        exact_messages& messages);

}  // namespace quarry::exact
