#include "volume/record_parser.h"

#include "foundation/ql_string.h"
#include "volume/attribute_values.h"
#include "volume/followed_reads.h"
#include "volume/limits.h"
#include "volume/well_known.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quarry {

namespace {

// Memory of a run: in its list, in the map of $MFT, and in INODE_STATS::vcn_index.
constexpr std::uint64_t memory_of_run = sizeof(data_run) + mft_map::memory_of_run + 56;

std::uint64_t stored_runs(const INODE_STATS& stats) {
    return stats.data_runs.size() + stats.bitmap_runs.size();
}

// A non-resident attribute without data may have no mapping pairs at all.
bool has_no_pairs(const attribute& at) {
    return at.initialized_size() == 0 && at.length() <= at.mapping_pairs_offset();
}

bool decode_pairs_of(const attribute& at, data_run_list& list, bool clear) {
    return decode_mapping_pairs(at.own_bytes().from(at.mapping_pairs_offset()), list, at.type(), clear);
}

void add_resident_value(const attribute& at, data_run_list& list) {
    data_run& value = list.emplace_back();
    value.resident = true;
    value.bytes = at.value().to_vector();
    value.value_size = at.value_length();
    value.attr_type = at.type();
}

// $DATA and $BITMAP: the runs, or the value in their place, and the size of the first that has one. False if
// the pairs hold nothing. Deliberate: a named $DATA is not kept apart. It counts like the unnamed one, and
// with `clear` set (in the first record) the runs of the last one take the place of the others.
bool take_content(const attribute& at, data_run_list& list, std::uint64_t& size, bool clear) {
    std::uint64_t own_size = 0;
    if (!at.non_resident()) {
        if (at.value_length() == 0) {
            return true;
        }
        add_resident_value(at, list);
        own_size = at.value_length();
    } else {
        if (has_no_pairs(at)) {
            return true;
        }
        if (!decode_pairs_of(at, list, clear)) {
            return false;
        }
        own_size = at.real_size();
    }
    size = size == 0 ? own_size : size;
    return true;
}

// The name of an attribute; empty if it has none, or one that does not lie within it.
byte_view name_of(const attribute& at) {
    const std::uint64_t length = std::uint64_t{2} * at.name_length_in_units();
    if (length == 0 || at.name_offset() == 0) {
        return {};
    }
    return at.own_bytes().sub(at.name_offset(), length).value_or(byte_view());
}

bool take_index(const attribute& at, INODE_STATS& stats) {
    if (!at.non_resident() || has_no_pairs(at)) {
        return true;
    }
    data_run_list runs;
    if (!decode_pairs_of(at, runs, true)) {
        return false;
    }
    stats.index_runs.push_back(std::move(runs));
    const byte_view name = name_of(at);
    read_utf16_narrow(stats.index_names.emplace_back(), name, static_cast<std::int64_t>(name.size()), false);
    return true;
}

// Deliberate: the last $FILE_NAME of the record is kept, with its size, not the one with the long name.
void take_file_name(const attribute& at, INODE_STATS& stats) {
    if (at.name_length_in_units() != 0) {
        const byte_view name =
            at.bytes().clipped(at.name_offset(), std::uint64_t{2} * at.name_length_in_units());
        read_utf16_wide(stats.name_wide, name, static_cast<std::int64_t>(name.size()));
        stats.name_narrow = narrow(stats.name_wide);
        return;
    }
    if (at.value_length() == 0) {
        return;
    }
    const byte_view kept = at.from_value().clipped(0, stats.file_name_value.size());
    stats.file_name_value = {};
    std::copy(kept.span().begin(), kept.span().end(), stats.file_name_value.begin());
    stats.name_wide.clear();
    stats.name_narrow.clear();
    stats.size = file_name_value(at.from_value()).real_size();
}

// Deliberate: the older form of 48 bytes has a security id too. The four bytes at its place are taken for
// one, which at most gives a wrong owner of a system file.
void take_owner(const parse_context& context, const attribute& at, INODE_STATS& stats) {
    const std::uint32_t security_id = standard_information_value(at.from_value()).security_id();
    if (security_id == 0 || !context.owner) {
        return;
    }
    if (const std::string* const owner = context.owner(security_id); owner != nullptr) {
        stats.security_text = *owner;
    }
}

// The walk over an attribute list and the records that it names.
class list_walk {
  public:
    list_walk(const parse_context& context, INODE_STATS& stats, std::uint64_t entry)
        : m_context(context), m_stats(stats), m_entry(entry) {}

    // False if the list or its first entry is longer than the bytes that hold it.
    [[nodiscard]] bool follow(const attribute& list);

  private:
    [[nodiscard]] bool walk(byte_view list);
    [[nodiscard]] std::uint64_t add(const list_entry& listed);
    void take(const attribute& at);

    const parse_context& m_context;
    INODE_STATS& m_stats;
    std::uint64_t m_entry;
    std::vector<std::uint8_t> m_record;
};

bool list_walk::follow(const attribute& list) {
    if (list.length() > m_context.records.step()) {
        return false;
    }
    if (!list.non_resident()) {
        return list.value_length() == 0 || walk(list.value());
    }
    if (list.initialized_size() == 0) {
        return true;
    }
    // Deliberate: a list does not end with its real size. It is walked to the end of its clusters, so entries
    // that an earlier, longer list left there still count if the walk comes to them.
    std::vector<std::uint8_t> value;
    // A list with a damaged part serves as far as it was read.
    static_cast<void>(m_context.records.clusters().read_list_clusters(list, value));
    return walk(value);
}

bool list_walk::walk(byte_view list) {
    list_entry at(list);
    if (list.empty() || at.length() > list.size()) {
        return false;
    }
    budget attribute_bytes(limits::system_attribute_bytes(m_context.records.clusters().source_size()));
    followed_reads reads;
    reads.count(list.size());
    auto bytes_left = static_cast<std::int64_t>(list.size());
    // Ends with the list: each step is at least one byte long.
    while (at.length() != 0 && at.length() <= bytes_left && !attribute_bytes.spent() &&
           !m_context.run_memory.spent() && reads.may_go_on()) {
        if (at.entry_number() != m_entry) {
            reads.count(m_context.records.common_size());
            attribute_bytes.take(add(at));
        }
        bytes_left -= at.length();
        if (bytes_left < smallest_list_entry) {
            break;
        }
        at = at.next();
    }
    return true;
}

// Parses the attribute that a list entry names, out of the extension record that holds it. A record that was
// used anew since the list was written is passed over. Returns the bytes that the attribute counts for, 0 if
// it was not found.
std::uint64_t list_walk::add(const list_entry& listed) {
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    if (!m_context.records.read_checked(m_record, position, kind, listed.entry_number()) ||
        kind != record_kind::file) {
        return 0;
    }
    const file_record header{byte_view(m_record)};
    if (header.first_attribute_offset() == 0 || header.sequence_number() != listed.sequence_number()) {
        return 0;
    }
    attribute at = first_attribute(m_record);
    if (at.length() >= m_context.records.step()) {
        return 0;
    }
    std::int64_t bytes_left = m_context.records.step();
    // Ends with the record: each step is at least one byte long.
    for (; at.type() != attr_end_marker && bytes_left > 0; at = at.next()) {
        if (at.type() == listed.type() && at.id() == listed.id()) {
            take(at);
            return std::max<std::uint64_t>(at.length(), limits::smallest_counted_attribute);
        }
        if (at.length() == 0) {
            return 0;
        }
        bytes_left -= at.length();
    }
    return 0;
}

void list_walk::take(const attribute& at) {
    attribute list_in_extension;
    const std::uint64_t runs_before = stored_runs(m_stats);
    const std::size_t indexes_before = m_stats.index_runs.size();
    static_cast<void>(parse_attributes(m_context, m_stats, list_in_extension, at, at.length(), true, true));
    const std::uint64_t added = m_stats.index_runs.size() > indexes_before
                                    ? m_stats.index_runs.back().size()
                                    : stored_runs(m_stats) - runs_before;
    m_context.run_memory.take(added * memory_of_run);
    m_context.cache_memory.take(added * memory_of_run);
    if (m_context.growing_map != nullptr) {
        m_context.growing_map->extend(m_stats.data_runs);
    }
}

}  // namespace

bool parse_attributes(const parse_context& context, INODE_STATS& stats, attribute& list_attribute,
                      attribute first, std::int64_t bytes_left, bool append, bool single) {
    if (!append) {
        stats = {};
    }
    // Ends with the bytes: each step is at least one byte long.
    for (attribute at = first; at.type() != attr_end_marker && bytes_left > 0; at = at.next()) {
        const std::uint32_t length = at.length();
        if (length > context.records.step() || length > bytes_left) {
            return true;
        }
        bool decoded = true;
        switch (at.type()) {
            case attr_standard_information:
                take_owner(context, at, stats);
                break;
            case attr_attribute_list:
                list_attribute = at;
                break;
            case attr_file_name:
                take_file_name(at, stats);
                break;
            case attr_data:
                decoded = take_content(at, stats.data_runs, stats.size, !append);
                break;
            case attr_index_allocation:
                decoded = take_index(at, stats);
                break;
            case attr_bitmap:
                decoded = take_content(at, stats.bitmap_runs, stats.bitmap_size, !append);
                break;
            default:
                break;
        }
        if (!decoded) {
            return false;
        }
        if (single || length == 0) {
            return true;
        }
        bytes_left -= length;
    }
    return true;
}

void parse_record(const parse_context& context, byte_view record, INODE_STATS& stats, std::uint64_t entry,
                  bool append) {
    if (context.growing_map != nullptr && !append) {
        context.growing_map->clear();
    }
    attribute list;
    const bool decoded = parse_attributes(context, stats, list, first_attribute(record),
                                          context.records.step(), append, false);
    if (context.growing_map != nullptr) {
        context.growing_map->extend(stats.data_runs);
    }
    if (!decoded || (stats.data_runs.empty() && entry == mft_entry)) {
        return;
    }
    if (!list.is_null()) {
        if (list.length() > context.records.step()) {
            return;
        }
        // A list that cannot be followed adds nothing.
        static_cast<void>(list_walk(context, stats, entry).follow(list));
    }
    number_runs(stats);
}

}  // namespace quarry
