// The driver of one extraction: from a request to the bytes of one stream in a file.
//
// It opens the volume if no earlier request has, finds the MFT entry, lists its attributes, writes the
// report, picks the stream and hands it to the pump. Reasons for a failure go only to the status log.
#pragma once

#include "foundation/status_log.h"
#include "frontend/copy/copy_request.h"
#include "frontend/output/output_guard.h"
#include "volume/ntfs.h"

#include <memory>

namespace quarry {

// `ntfs` is opened if it is null and stays open for the next request. What was found on the way is in
// `found`, whatever was there before is gone. True means that nothing went wrong, which is not always a file:
// an entry that has no stream of the name that was asked for, or no modification time, gives none.
[[nodiscard]] bool extract_stream(std::unique_ptr<CNtfs>& ntfs, const copy_request& request,
                                  copy_findings& found, status_log& log, output_guard& guard);

}  // namespace quarry
