// The driver of one extraction: from a job to the bytes of one stream in a file.
//
// It opens the volume if no earlier job has, finds the MFT entry, lists its attributes, writes the report,
// picks the stream and hands it to the pump. Reasons for a failure go to the status log alone.
#pragma once

#include "frontend/cmd_params.h"
#include "frontend/copy_job.h"
#include "volume/ntfs.h"

#include <memory>

namespace quarry {

// `ntfs` is opened if it is null and stays open for the next job. The statistics of the entry are left in
// `opts.m_file_stats`. True means that nothing went wrong, which is not always a file: an entry that has no
// stream of the name that was asked for, or no modification time, gives none.
[[nodiscard]] bool extract_stream(std::unique_ptr<CNtfs>& ntfs, copy_job& job, cmd_params& opts);

}  // namespace quarry
