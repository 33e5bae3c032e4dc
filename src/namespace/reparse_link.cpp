#include "namespace/reparse_link.h"

#include "foundation/ql_string.h"
#include "volume/attribute.h"
#include "volume/attribute_values.h"

namespace quarry {

bool link_target(std::wstring& target, byte_view record, std::uint32_t record_size) {
    target.clear();
    attribute at;
    if (!first_attribute_of_type(record, attr_reparse_point, at, record_size) || at.non_resident()) {
        return false;
    }
    const reparse_value value(at.from_value());
    if (value.data_length() == 0 || value.substitute_name_length() == 0) {
        return false;
    }
    // Deliberate: a link without a print name has an empty target; it does not lead where its substitute name
    // says. The user sees the rest of the path looked up from the root.
    read_utf16_wide(target, value.print_name(), value.print_name_length());
    return true;
}

}  // namespace quarry
