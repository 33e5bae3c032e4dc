#include "exact/entry_facts.h"

#include "exact/entry_path.h"
#include "exact/path_walk.h"
#include "exact/reparse.h"
#include "volume/attribute_values.h"

#include <utility>

namespace quarry::exact {

namespace {

std::optional<four_times> standard_times(const attribute_set& file) {
    const auto value = file.only_value(attr_standard_information);
    if (!value || !*value) {
        return std::nullopt;
    }
    const standard_information_value times(**value);
    return four_times{times.created(), times.modified(), times.mft_changed(), times.accessed()};
}

std::optional<std::uint32_t> tag_of(const exact_volume& volume, const attribute_set& file) {
    const auto value = reparse_value_of(volume, file);
    if (!value || !*value) {
        return std::nullopt;
    }
    const auto point = read_reparse_point(byte_view(**value), where::record(file.base().entry()));
    return point ? std::optional(point->tag) : std::nullopt;
}

}  // namespace

entry_facts facts_of(const exact_volume& volume, const attribute_set& file, std::u16string_view looked_up) {
    entry_facts facts;
    facts.self = file.base().self();
    facts.in_use = file.base().in_use();
    facts.names = names_of_file(file);
    if (const file_name* const used = name_to_show(facts.names, looked_up)) {
        facts.used = *used;
    }
    facts.standard = standard_times(file);
    facts.reparse_tag = tag_of(volume, file);
    return facts;
}

std::optional<std::vector<std::u16string>> verified_path(const exact_volume& volume,
                                                         const attribute_set& file) {
    // What is odd about the directories is no matter of this copy.
    notices of_directories;
    entry_path path = path_upwards(volume.table(), file, of_directories);
    return path.lost ? std::nullopt : std::optional(std::move(path.names));
}

stream_facts facts_of(const stream& content) {
    const stored_stream& stored = content.stored();
    stream_facts facts;
    facts.type = content.type();
    facts.name = content.name();
    facts.resident = stored.resident();
    facts.encrypted = stored.encrypted();
    facts.sparse = stored.sparse();
    if (stored.compressed()) {
        facts.lznt1_unit = stored.unit_size();
    }
    if (content.system_compressed()) {
        facts.system_format = content.system_compressed()->format;
    }
    facts.allocated = stored.allocated_size();
    facts.size = stored.size();
    facts.valid = stored.valid_size();
    facts.runs = stored.runs().runs().size();
    return facts;
}

}  // namespace quarry::exact
