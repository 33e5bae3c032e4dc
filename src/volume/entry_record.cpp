#include "volume/entry_record.h"

#include "foundation/hexadecimal.h"
#include "foundation/ql_string.h"
#include "volume/attribute_values.h"
#include "volume/file_record.h"

#include <algorithm>
#include <optional>

namespace quarry {

namespace {

constexpr std::size_t index_root_header_size = 16;

// The attribute's name; empty if it has none, or one that does not lie in the record.
//
// Deliberate: the test takes the length for a count of bytes, although the header counts units, and the name
// is read by them. The user sees the part that exists of a name that the
// record's end cuts.
std::wstring name_of(const attribute& at) {
    std::wstring name;
    const std::uint64_t units = at.name_length_in_units();
    const std::uint64_t offset = at.name_offset();
    if (units != 0 && offset != 0 && units + offset <= at.bytes().size()) {
        const byte_view on_disk = at.bytes().clipped(offset, 2 * units);
        read_utf16_wide(name, on_disk, static_cast<std::int64_t>(on_disk.size()));
    }
    return name;
}

// The value of an attribute of a kind that is always resident; nothing if its header gives it no place or no
// length.
//
// Deliberate: the header's flag is not looked at. A damaged flag hides neither the times and names of a file
// nor, for want of a time, its copy. Where such an attribute does lie in clusters, its lowest VCN is in the
// place of both fields, and is 0.
std::optional<byte_view> placed_value_of(const attribute& at) {
    if (at.value_offset() == 0 || at.value_length() == 0) {
        return std::nullopt;
    }
    return at.value();
}

// The value of a resident attribute; nothing if its header gives it no place or no length.
std::optional<byte_view> value_of(const attribute& at) {
    return at.non_resident() ? std::nullopt : placed_value_of(at);
}

std::string_view label_of(std::uint32_t type, bool named) {
    switch (type) {
        case attr_object_id:
            return "obj id";
        case attr_security_descriptor:
            return "security descr";
        case attr_volume_name:
            return "vol name";
        case attr_volume_information:
            return "vol info";
        case attr_data:
            return named ? "ads" : "unnamed data";
        case attr_index_root:
            return "indx root";
        case attr_index_allocation:
            return "indx alloc";
        case attr_bitmap:
            return "bitmap";
        case attr_reparse_point:
            return "reparse point";
        case attr_ea_information:
            return "extended attribs info";
        case attr_ea:
            return "extended attribs";
        case attr_property_set:
            return "property set";
        case attr_logged_utility_stream:
            return "logged stream";
        default:
            return "unk";
    }
}

bool is_unnamed_data(const attribute& at) {
    return at.type() == attr_data && at.name_length_in_units() == 0;
}

general_attribute general_form(const attribute& at, std::wstring name) {
    general_attribute form;
    form.label = label_of(at.type(), at.name_length_in_units() != 0);
    form.name = std::move(name);
    form.bytes = at.bytes().to_vector();
    if (at.non_resident()) {
        data_run_list decoded;
        cluster_run_list runs;
        if (decode_runs(at.bytes(), decoded)) {
            to_cluster_runs(decoded, runs);
        }
        form.runs = joined_runs(std::move(runs));
    }
    return form;
}

std::uint64_t run_memory(const joined_runs& runs) {
    return runs.size() * sizeof(cluster_run);
}

void join_runs(entry_record& record, general_attribute& held, general_attribute& piece) {
    const std::uint64_t before = run_memory(held.runs);
    held.runs.join(piece.runs.take());
    record.memory.take(run_memory(held.runs) - std::min(before, run_memory(held.runs)));
}

// An attribute whose runs are spread over records becomes one: the piece first met keeps its sizes, and its
// run list grows.
//
// Deliberate: not every named stream is joined in this way. Pieces of a named stream that carry different ids
// stay apart, and a piece whose id belongs to another name is dropped.
void store_general_form(entry_record& record, const attribute& at, general_attribute&& form) {
    const std::uint64_t key = attribute_key(at.type(), at.id());
    if (!value_of(at)) {
        const auto found = record.attributes.find(key);
        if (found != record.attributes.end()) {
            if (found->second.name == form.name) {
                join_runs(record, found->second, form);
            }
            return;
        }
        if (is_unnamed_data(at) && record.has_unnamed_data) {
            join_runs(record, record.attributes.at(record.unnamed_data_key), form);
            return;
        }
    }
    const auto [stored, is_new] = record.attributes.try_emplace(key, std::move(form));
    if (is_new) {
        record.memory.take(stored->second.bytes.size() + run_memory(stored->second.runs));
    }
    if (is_new && is_unnamed_data(at)) {
        record.unnamed_data_key = record.has_unnamed_data ? std::min(record.unnamed_data_key, key) : key;
        record.has_unnamed_data = true;
    }
}

template <typename Value>
kept_value keep(const attribute& at, const Value& value) {
    return {at.id(), at.flags(), value.bytes().to_vector(), judge_times_of(value)};
}

// Deliberate: a $FILE_NAME is read as far as its attribute holds it, not as far as its value length says. The
// user of a record with a damaged length gets the whole name, as the search for paths does.
byte_view whole_file_name(const attribute& at) {
    const byte_view rest = at.own_bytes().from(at.value_offset());
    return rest.clipped(0, file_name_value::size_without_name +
                               std::uint64_t{2} * file_name_value(rest).name_length_in_units());
}

void keep_file_name(entry_record& record, std::uint64_t entry, const attribute& at, byte_view bytes) {
    const file_name_value value(bytes);
    std::string name;
    read_utf16_narrow(name, value.name_bytes(), static_cast<std::int64_t>(value.name_bytes().size()), false);
    const std::string key = file_name_key(reference_entry(value.parent()), name, entry);
    if (record.file_names.try_emplace(key, keep(at, value)).second) {
        record.memory.take(key.size() + bytes.size());
    }
}

// The text of a volume name: what its attribute is called, or else its value.
std::wstring volume_name_of(const attribute& at, const std::wstring& name) {
    std::wstring text = name;
    const auto value = value_of(at);
    if (name.empty() && value) {
        read_utf16_wide(text, *value, static_cast<std::int64_t>(value->size()));
    }
    return text;
}

// Keeps what the kind of the attribute asks for beside its general form. False if there is none to be had,
// for which the whole attribute is passed over.
bool keep_by_kind(entry_record& record, const attribute& at, const std::wstring& name) {
    const auto value = placed_value_of(at);
    switch (at.type()) {
        case attr_object_id:
            if (!value || at.value_length() < object_id_value::smallest) {
                return false;
            }
            record.object_ids.try_emplace(
                at.id(), kept_object_id{object_id_value(*value).bytes().to_vector(), at.value_length()});
            return true;
        case attr_volume_name:
            record.volume_names.try_emplace(at.id(), volume_name_of(at, name));
            return true;
        case attr_volume_information: {
            if (!value) {
                return false;
            }
            const volume_information_value information(*value);
            record.volume_infos.try_emplace(
                at.id(), kept_volume_information{information.bytes().to_vector(), information.text()});
            return true;
        }
        case attr_index_root:
            record.index_roots.try_emplace(
                at.id(), value_of(at).value_or(byte_view()).clipped(0, index_root_header_size).to_vector());
            return true;
        case attr_reparse_point: {
            if (!value || !reparse_value(*value).is_sound()) {
                return false;
            }
            const byte_view shown = reparse_value(*value).shown_name();
            std::wstring text;
            read_utf16_wide(text, shown, static_cast<std::int64_t>(shown.size()));
            record.reparse_points.try_emplace(at.id(), std::move(text));
            return true;
        }
        default:
            return true;
    }
}

}  // namespace

std::string file_name_key(std::uint64_t parent_entry, const std::string& name, std::uint64_t entry) {
    return hex(parent_entry, 8) + "_" + name + "_" + hex(entry, 8);
}

bool categorize_attribute(entry_record& record, std::uint64_t entry, const attribute& at, bool& is_list) {
    is_list = false;
    if (at.is_null() || at.length() == 0 || at.length() > at.bytes().size()) {
        return false;
    }
    const attribute own(at.own_bytes());
    const auto value = placed_value_of(own);
    switch (own.type()) {
        case attr_attribute_list:
            is_list = true;
            break;
        case attr_standard_information:
            if (value) {
                record.std_infos.try_emplace(own.id(), keep(own, standard_information_value(*value)));
            }
            break;
        case attr_file_name:
            if (value) {
                keep_file_name(record, entry, own, whole_file_name(own));
            }
            break;
        default: {
            std::wstring name = name_of(at);
            if (keep_by_kind(record, own, name)) {
                store_general_form(record, own, general_form(own, std::move(name)));
            }
            break;
        }
    }
    return true;
}

}  // namespace quarry
