#include "report/cluster_report.h"

#include "foundation/visible_text.h"
#include "report/report_text.h"

namespace quarry {

void write_cluster_report_head(std::ostream& out, const std::string& source_text, std::uint64_t volume_offset,
                               std::uint64_t origin, std::uint32_t bytes_per_sector, std::uint64_t start_lcn,
                               std::uint64_t count) {
    out << "drive/partition:       " << visible_text(source_text) << '\n'
        << "volume_offset:         0x" << hex(volume_offset, 12) << '\n'
        << "start of partition:    0x" << bytes_and_sectors(origin, bytes_per_sector) << '\n'
        << "starting LCN           0x" << hex(start_lcn, 12) << '\n'
        << "num clusters           0x" << hex_and_decimal(count, 12) << "\n\n";
}

void write_cluster_read_line(std::ostream& out, std::uint64_t lcn, std::uint64_t physical_address,
                             bool whole) {
    out << "cluster num            0x" << hex(lcn, 12) << ",   physical addr:  0x"
        << hex(physical_address, 16) << (whole ? " [ok]\n" : "\n");
}

void write_cluster_failed_line(std::ostream& out, std::uint64_t lcn) {
    out << "clusters               0x" << hex(lcn, 12) << " [failed]\n";
}

}  // namespace quarry
