#include "exact/file_names.h"

#include "exact/name_text.h"
#include "volume/attribute_values.h"

#include <algorithm>

namespace quarry::exact {

std::string name_space_text(std::uint8_t name_space) {
    constexpr std::array<const char*, 4> texts = {"posix", "win32", "dos", "win32+dos"};
    return name_space < texts.size() ? texts[name_space] : std::to_string(name_space);
}

std::vector<file_name> names_of_file(const attribute_set& file) {
    std::vector<file_name> names;
    for (const attribute_set::member* const each : file.of_type(attr_file_name)) {
        if (each->stored.bytes.non_resident()) {
            continue;
        }
        const file_name_value value(each->stored.bytes.value());
        std::u16string name = units_of_bytes(value.name_bytes());
        if (!name.empty()) {
            names.push_back({std::move(name),
                             reference::from(value.parent()),
                             value.name_space(),
                             {value.created(), value.modified(), value.mft_changed(), value.accessed()}});
        }
    }
    return names;
}

const file_name* name_to_show(const std::vector<file_name>& names, std::u16string_view looked_up) {
    const auto find = [&names](auto accepted) {
        const auto found = std::find_if(names.begin(), names.end(), accepted);
        return found == names.end() ? nullptr : &*found;
    };
    const auto is_long = [](const file_name& each) { return !each.is_short(); };
    if (const file_name* const same =
            find([&](const file_name& each) { return is_long(each) && each.name == looked_up; })) {
        return same;
    }
    if (const file_name* const first_long = find(is_long)) {
        return first_long;
    }
    return names.empty() ? nullptr : &names.front();
}

}  // namespace quarry::exact
