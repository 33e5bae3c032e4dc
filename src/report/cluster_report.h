// The report of a copy by clusters, written as the copy runs.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace quarry {

// Offsets in bytes of the source, `origin` the start of the partition there, `bytes_per_sector` of the volume.
void write_cluster_report_head(std::ostream& out, const std::string& source_text, std::uint64_t volume_offset,
                               std::uint64_t origin, std::uint32_t bytes_per_sector, std::uint64_t start_lcn,
                               std::uint64_t count);
void write_cluster_read_line(std::ostream& out, std::uint64_t lcn, std::uint64_t physical_address, bool whole);
void write_cluster_failed_line(std::ostream& out, std::uint64_t lcn);

}  // namespace quarry
