// The report of a copy by clusters: what was read from where, so that the copy can be defended later.
//
// It is written as the copy runs: a head, then one line for each cluster in the order of reading.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace quarry {

// The head and the empty line after it. `source_text` is the path of the image or the partition, or a drive's
// number; empty for a virtual disk. `volume_offset` is the one that was asked for and `origin` where the
// volume begins, both in bytes of the source; `bytes_per_sector` and the LCNs are the volume's.
void write_cluster_report_head(std::ostream& out, const std::string& source_text, std::uint64_t volume_offset,
                               std::uint64_t origin, std::uint32_t bytes_per_sector, std::uint64_t start_lcn,
                               std::uint64_t count);
// A cluster that was read. `physical_address` is its place in bytes of the source; `whole` is true if none of
// it was missing.
void write_cluster_read_line(std::ostream& out, std::uint64_t lcn, std::uint64_t physical_address,
                             bool whole);
// A cluster that could not be read.
void write_cluster_failed_line(std::ostream& out, std::uint64_t lcn);

}  // namespace quarry
