#include "report/attribute_report.h"

#include "foundation/ql_hex_view.h"
#include "foundation/ql_string.h"
#include "foundation/ql_time_format.h"
#include "foundation/visible_text.h"
#include "report/report_text.h"
#include "report/security_descriptor.h"
#include "volume/attribute.h"
#include "volume/attribute_values.h"
#include "volume/file_record.h"

#include <string_view>

namespace quarry {

namespace {

constexpr std::size_t bytes_per_hex_line = 16;

ql::time filetime(std::uint64_t ticks) {
    return {ticks, ql::type_time::filetime};
}

// In one order for both kinds of attribute, although they store them in two.
void write_times(std::ostream& out, const attr_item& item) {
    out << "  modified:  " << filetime(item.modified) << '\n'
        << "  accessed:  " << filetime(item.accessed) << '\n'
        << "  created:   " << filetime(item.created) << '\n'
        << "  mft mod:   " << filetime(item.mft_changed) << '\n';
}

void write_file_record(std::ostream& out, const attr_item& item) {
    using namespace header_bits;
    constexpr unsigned unknown_link_count = 15;
    // A damaged attribute on disk may claim the type that means the header. It has no bits, and a second
    // file record in the report would be made up of zeros: it shows like any other unknown type.
    if ((item.bits & always) == 0) {
        return;
    }
    const unsigned links = (item.bits >> link_count_shift) & link_count_mask;
    out << "File Record: \n"
        << "  MFT entry: 0x" << hex_and_decimal(reference_entry(item.reference), 8) << '\n'
        << "  Seq Num:   0x" << hex_and_decimal(reference_sequence(item.reference), 4) << '\n'
        << "  Type:      " << ((item.bits & directory) != 0 ? "directory\n" : "file\n");
    if ((item.bits & deleted) != 0) {
        out << "  deleted\n";
    }
    if ((item.bits & has_base) != 0) {
        // Deliberate: the whole reference to the base entry is shown, not its number. The user sees the
        // sequence number before the entry's twelve digits.
        out << "  references mft entry: 0x" << hex(item.base, 12) << '\n';
    }
    // Deliberate: four bits of the count of hard links are shown, not all of it. The user sees -1 in place of
    // 15.
    out << "  Ref Count: " << (links == unknown_link_count ? "-1" : std::to_string(links)) << '\n';
}

void write_standard_information(std::ostream& out, const attr_item& item) {
    out << "Standard Info Attrib: (" << file_attribute_words(item.attributes) << ")\n";
    write_times(out, item);
    out << "  secure id: 0x" << hex(item.security_id, 8) << '\n';
}

void write_file_name(std::ostream& out, const attr_item& item) {
    // Deliberate: the word does not say whether an index holds the name. The user sees it with every name of
    // the Win32 name space, on its own or together with DOS, and with no other.
    const bool has_word = (item.name_space & 0x01) != 0;
    out << "Filename Attrib: " << visible_text(item.text) << (has_word ? ", (indexed)\n" : "\n")
        << "  parnt mft: 0x" << hex_and_decimal(reference_entry(item.parent), 8) << '\n';
    write_times(out, item);
}

void write_object_id(std::ostream& out, const attr_item& item) {
    // Deliberate: only a value of exactly 16 bytes is shown as an object id, not the id at the front of a
    // longer value, where the birth ids follow it. The user sees the size of any other in the place of the
    // id's first number.
    std::array<std::uint8_t, 16> id = item.object_id;
    if (item.value.size() != id.size()) {
        id = {};
        store_u16(id, 0, static_cast<std::uint16_t>(item.value_size & 0xFFFF));
        store_u16(id, 2, static_cast<std::uint16_t>(item.value_size >> 16));
    }
    out << "Object ID Attrib: " << guid_in_braces(byte_view(id)) << '\n';
}

void write_security_descriptor(std::ostream& out, const attr_item& item) {
    out << "Security Descriptor Attrib: \n";
    if (!item.value.empty()) {
        print_security_descriptor(out, byte_view(item.value), "  ");
    }
}

void write_volume_name(std::ostream& out, const attr_item& item) {
    out << "Volume Name Attrib: ";
    if (!item.text.empty()) {
        out << visible_text(item.text) << '\n';
    } else if (!item.value.empty()) {
        // Deliberate: the bytes of the volume's name are shown, not the text. The user sees them from the
        // label's own line on.
        const ql::binary_data view(item.value, false);
        ql::hex_dump(out, view, 0, view.m_num_data, 0);
    } else {
        out << "none specified\n";
    }
}

const char* system_of_version(std::uint8_t major, std::uint8_t minor) {
    if (major == 1 && minor == 2) {
        return " (WinNT)";
    }
    if (major == 3 && minor == 0) {
        return " (Win2k)";
    }
    return major == 3 && minor == 1 ? " (WinXP)" : " (unk version)";
}

void write_volume_information(std::ostream& out, const attr_item& item) {
    const volume_information_value value{byte_view(item.value)};
    const unsigned major = value.major_version();
    const unsigned minor = value.minor_version();
    out << "Volume Info Attrib: major:minor ver = " << std::to_string(major) << ':' << std::to_string(minor)
        << system_of_version(value.major_version(), value.minor_version()) << '\n';
}

// Deliberate: the label is all that is shown of a link, not its tag and its target. An ordinary reparse point
// has neither text nor name.
void write_reparse_point(std::ostream& out, const attr_item& item) {
    out << "Reparse Point Attrib: " << visible_text(item.text.empty() ? item.name : item.text) << '\n';
}

// Lines of 16 bytes. Deliberate: a line begins after each sixteenth byte, also after the last byte of a value
// of 16, 32, ... bytes. The user sees a line of two blanks at its end.
void write_value_bytes(std::ostream& out, const std::vector<std::uint8_t>& value) {
    std::string text = "  ";
    for (std::size_t i = 0; i < value.size(); ++i) {
        text += hex(value[i], 2);
        text += (i + 1) % bytes_per_hex_line == 0 ? " \n  " : " ";
    }
    out << text << '\n';
}

// Deliberate: a sparse run, which has no clusters, is shown with some. The user sees those from its LCN on,
// whatever that holds.
void write_runs(std::ostream& out, const cluster_run_list& runs) {
    out << "  cluster runs\n";
    for (const cluster_run& run : runs) {
        out << "    " << hex(run.lcn, 16) << " : " << hex(run.lcn + run.length - 1, 16)
            << (run.sparse ? " [sparsed]\n" : "\n");
    }
}

void write_sizes(std::ostream& out, const attr_item& item) {
    if (item.non_resident) {
        out << "  allocated:  0x" << hex_and_decimal(item.allocated, 12) << '\n'
            << "  file size:  0x" << hex_and_decimal(item.real, 12) << '\n'
            << "  valid data: 0x" << hex_and_decimal(item.initialized, 12) << '\n';
        return;
    }
    out << "  valid size:  0x" << hex_and_decimal(item.value_size, 4) << '\n';
    if (!item.value.empty()) {
        write_value_bytes(out, item.value);
    }
}

void write_stream(std::ostream& out, std::string_view label, const attr_item& item) {
    out << label << (item.name.empty() ? "(unnamed)" : visible_text(item.name));
    // Deliberate: of the words for a stream with both flags the first is shown, not both.
    if ((item.flags & attr_flag_compressed) != 0) {
        out << ", data compressed";
    } else if ((item.flags & attr_flag_encrypted) != 0) {
        out << ", data encrypted";
    }
    out << ((item.flags & attr_flag_sparse) != 0 ? ", sparse clusters\n" : "\n");
    write_sizes(out, item);
    if (item.unit != 0 && item.compressed != 0) {
        out << "  compressed size: 0x" << hex(item.compressed, 12) << '\n';
    }
    if (!item.runs.empty()) {
        write_runs(out, item.runs);
    }
}

void write_head(std::ostream& out, CNtfs& ntfs, std::uint64_t entry) {
    out << "Misc stats:\n"
        << "  cluster size:         0x" << hex(static_cast<std::uint32_t>(ntfs.m_cluster_size), 8) << '\n'
        << "  sectors/cluster:      0x" << hex(ntfs.m_sectors_per_cluster, 8) << '\n';
    std::uint64_t lcn = 0;
    std::uint32_t byte_offset = 0;
    if (ntfs.get_lcn_for_inode(entry, lcn, byte_offset)) {
        // Deliberate: the start of the partition is not the offset of the volume. The user sees it of a
        // virtual disk only; of an image, a drive or a partition 0 is shown.
        out << "  MFT entry LCN:offset: 0x" << hex(lcn, 8) << ":0x" << hex(byte_offset, 4) << " ["
            << std::to_string(lcn) << ':' << std::to_string(byte_offset) << "]\n"
            << "  start of partition:   0x"
            << bytes_and_sectors(ntfs.disk_origin(), ntfs.get_bytes_per_sector()) << '\n';
    }
}

}  // namespace

void write_item(std::ostream& out, const attr_item& item) {
    switch (item.type) {
        case attr_file_record:
            return write_file_record(out, item);
        case attr_standard_information:
            return write_standard_information(out, item);
        case attr_file_name:
            return write_file_name(out, item);
        case attr_object_id:
            return write_object_id(out, item);
        case attr_security_descriptor:
            return write_security_descriptor(out, item);
        case attr_volume_name:
            return write_volume_name(out, item);
        case attr_volume_information:
            return write_volume_information(out, item);
        case attr_reparse_point:
            return write_reparse_point(out, item);
        case attr_data:
            return write_stream(out, "Data Attrib: ", item);
        case attr_index_root:
            return write_stream(out, "Index Root Attrib: ", item);
        case attr_index_allocation:
            return write_stream(out, "Index Allocation Attrib: ", item);
        case attr_bitmap:
            return write_stream(out, "Bitmap Attrib: ", item);
        case attr_logged_utility_stream:
            return write_stream(out, "Logged Utility Stream Attrib: ", item);
        default:
            // Deliberate: an attribute of any other type has not even a label. The user sees only the empty
            // line after its block, which then follows that of the item before.
            return;
    }
}

void write_attribute_report(std::ostream& out, CNtfs& ntfs, std::uint64_t entry,
                            const std::wstring& source_path, const attr_item_list& items) {
    if (items.empty()) {
        return;
    }
    out << visible_text(narrow(source_path)) << "\n\n";
    write_head(out, ntfs, entry);
    out << '\n';
    for (const attr_item& item : items) {
        write_item(out, item);
        out << '\n';
    }
}

}  // namespace quarry
