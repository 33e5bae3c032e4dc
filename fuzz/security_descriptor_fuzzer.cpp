// Any bytes as a security descriptor, as a record of $SDS and as a SID.
//
// The bytes have an allocation of their own, so that a read past them is reported. Besides, text must not
// grow out of proportion: a descriptor names its parts by offsets, and two lists may overlap, but no byte may
// count more often than that.
#include "report/security_cache.h"
#include "report/security_descriptor.h"
#include "report/sid_names.h"
#include "support/expect.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using quarry::test::expect;

// Bytes of text for one byte of a list: all words of a mask in an entry of eight bytes, in both lists.
constexpr std::size_t text_per_byte = 50;
// The headings, and two SIDs of 255 sub-authorities.
constexpr std::size_t text_beside_lists = 8192;

std::size_t text_size(const std::vector<std::string>& lines) {
    std::size_t size = 0;
    for (const std::string& line : lines) {
        size += line.size();
    }
    return size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto copy = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(data, size, copy.get());
    const quarry::byte_view view(copy.get(), size);

    std::ostringstream out;
    quarry::print_security_descriptor(out, view, "  ");
    const std::string text = out.str();
    expect(text.starts_with("  Security Identifiers\n") && text.ends_with('\n'));
    expect(text.size() <= text_beside_lists + text_per_byte * size);

    quarry::security_entry entry;
    const bool named = quarry::parse_security_record(entry, view);
    expect(!named || quarry::sds_record_view(view).size() <= size);
    expect(entry.descriptor.size() <= size);
    expect(text_size(sacl_lines(entry)) + text_size(dacl_lines(entry)) <= text_per_byte * size);

    std::string sid;
    expect(quarry::sid_to_text(sid, view, size) == !sid.empty());
    expect(!quarry::sid_name(view).empty());
    return 0;
}
