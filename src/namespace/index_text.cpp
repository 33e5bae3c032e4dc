#include "namespace/index_text.h"

#include "foundation/hexadecimal.h"
#include "foundation/ql_string.h"
#include "foundation/ql_time.h"
#include "foundation/ql_time_format.h"
#include "namespace/index_block.h"
#include "volume/attribute_values.h"
#include "volume/file_record.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

namespace quarry {

namespace {

using entry_printer = void (*)(std::ostream& out, const index_entry& entry);

// An index that can be printed. Offsets in the printers count from the start of an entry.
struct printed_index {
    const char* name;
    const char* heading;
    entry_printer print;
};

std::string hex_4(std::uint64_t value) {
    return "0x" + hex(value, 4);
}
std::string hex_8(std::uint64_t value) {
    return "0x" + hex(value, 8);
}
std::string hex_12(std::uint64_t value) {
    return "0x" + hex(value, 12);
}
std::string hex_16(std::uint64_t value) {
    return "0x" + hex(value, 16);
}

std::string guid_text(byte_view bytes) {
    std::string text;
    static_cast<void>(format_guid(text, bytes));
    return text;
}

void print_name_entry(std::ostream& out, const index_entry& entry) {
    out << hex_12(low_32_bits(entry.file_reference())) << ",  " << hex_4(entry.sequence_number()) << ",  "
        << hex_4(entry.flags()) << ", ";
    if (entry.key_length() == entry.length() || entry.key_length() <= file_name_value::size_without_name) {
        return;
    }
    const file_name_value key(entry.key());
    for (const std::uint64_t filetime : {key.created(), key.modified(), key.mft_changed(), key.accessed()}) {
        out << ql::time(filetime, ql::type_time::filetime) << ", ";
    }
    std::string name;
    // A name that is not good UTF-16 shows as far as it is.
    static_cast<void>(utf16_to_utf8(name, key.name_bytes()));
    out << name;
}

void print_object_id(std::ostream& out, const index_entry& entry) {
    const byte_view at = entry.bytes();
    out << guid_text(at.from(16)) << ", " << hex_12(at.u48_or_zero(32)) << ", " << hex_4(at.u16_or_zero(38))
        << ", " << guid_text(at.from(40)) << ", " << guid_text(at.from(56)) << ", " << guid_text(at.from(72))
        << ", ";
}

void print_security_hash(std::ostream& out, const index_entry& entry) {
    const byte_view at = entry.bytes();
    constexpr std::uint32_t padding_mark = 'I' | ('I' << 16);
    out << hex_8(at.u32_or_zero(16)) << ",    " << hex_8(at.u32_or_zero(20)) << ",  "
        << hex_8(at.u32_or_zero(24)) << ",     " << hex_8(at.u32_or_zero(28)) << ",   "
        << hex_16(at.u64_or_zero(32)) << ", " << hex_8(at.u32_or_zero(40)) << ", "
        << (at.u32_or_zero(44) == padding_mark ? "   yes" : "    no");
}

void print_security_id(std::ostream& out, const index_entry& entry) {
    const byte_view at = entry.bytes();
    out << hex_8(at.u32_or_zero(16)) << ",  " << hex_8(at.u32_or_zero(20)) << ",    "
        << hex_8(at.u32_or_zero(24)) << ",   " << hex_16(at.u64_or_zero(28)) << ", "
        << hex_8(at.u32_or_zero(36)) << ", ";
}

void print_reparse_tag(std::ostream& out, const index_entry& entry) {
    const byte_view at = entry.bytes();
    out << hex_8(at.u32_or_zero(16)) << ", " << hex_12(at.u48_or_zero(20)) << ", "
        << hex_4(at.u16_or_zero(26)) << ", ";
}

constexpr printed_index name_index = {"$I30",
                                      "   MFT entry,    seq num, flags,      create time,         last "
                                      "modify time,         MFT changed,        last "
                                      "access time,     filename",
                                      print_name_entry};

constexpr std::array<printed_index, 4> view_indexes = {{
    {"$O",
     "           Object ID,                   MFT entry,   Seq Num,            Birth Vol ID,                 "
     "       "
     "Birth Obj ID,                        Domain ID",
     print_object_id},
    {"$SDH",
     "SD hash (key), SD ID (key), SD hash (data), SD ID (data),    $SDS offset,     $SDS size, II present",
     print_security_hash},
    {"$SII", "SD ID (key), SD hash (key), SD ID (data),    $SDS offset,     $SDS size", print_security_id},
    {"$R", "    Tag,     MFT entry,    Seq num", print_reparse_tag},
}};

void print_line(std::ostream& out, const printed_index& index, const index_entry& entry, bool with_heading) {
    std::ostringstream line;
    if (with_heading) {
        line << index.heading << "\n\n";
    }
    index.print(line, entry);
    out << line.str() << '\n';
}

void list_names(std::ostream& out, const index_block& block, bool first) {
    index_entry entry = block.node().first_entry();
    // Ends at zeros, which also follow the block, at the mark of the last entry, or at an entry that leads
    // nowhere. Deliberate: the list goes on after the last entry of an inner node (flags 3), not only up to
    // it as in a leaf. The user sees what the block held before.
    while (entry.file_reference() != 0 && entry.flags() != index_entry_last) {
        print_line(out, name_index, entry, first);
        if (entry.length() == 0) {
            break;
        }
        first = false;
        entry = entry.next();
    }
}

void list_view(std::ostream& out, const index_block& block, const printed_index& view, bool first) {
    std::uint64_t position = index_block::node_offset + block.node().first_entry_offset();
    // Ends where the entries do, or past the block, where every length is 0. Deliberate: the position counts
    // from the start of the block and the size from the node header, so an entry that begins within the last
    // 24 bytes of the node is left out.
    for (index_entry entry(block.bytes().from(position));
         entry.length() != 0 && position < block.node().total_size(); entry = entry.next()) {
        if (entry.data_offset() != 0) {
            print_line(out, view, entry, first);
        }
        first = false;
        position += entry.length();
    }
}

}  // namespace

bool list_index_block(std::string_view attribute_name, std::span<std::uint8_t> block, std::int32_t size,
                      std::uint32_t bytes_per_sector, std::ostream& out, bool first) {
    if (size < static_cast<std::int32_t>(index_block_size)) {
        return false;
    }
    const auto bytes = block.first(std::min(block.size(), static_cast<std::size_t>(size)));
    const index_block shown{byte_view(bytes)};
    if (!shown.is_indx()) {
        return false;
    }
    if (bytes_per_sector != 0) {
        restore_sector_ends(bytes, bytes_per_sector,
                            sector_end_limit(static_cast<std::uint32_t>(size), bytes_per_sector));
    }
    const std::string name(attribute_name);
    if (compare_text(name.c_str(), name_index.name, true) == 0) {
        list_names(out, shown, first);
        return true;
    }
    for (const printed_index& view : view_indexes) {
        if (compare_text(name.c_str(), view.name, true) == 0) {
            list_view(out, shown, view, first);
            break;
        }
    }
    return true;
}

}  // namespace quarry
