// The walk over the attributes of a system file's record and of its extension records.
#include "foundation/ql_string.h"
#include "volume/attribute_values.h"
#include "volume/followed_reads.h"
#include "volume/ntfs.h"

#include <algorithm>

namespace quarry {

namespace {

constexpr std::uint64_t mft_entry = 0;

// Memory of a run in a list and in the indexes over it.
constexpr std::uint64_t memory_of_run = sizeof(data_run) + sizeof(std::uint64_t) + 64;

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
// the pairs hold nothing. Deliberate: one would expect a named $DATA to be kept apart. It counts like the
// unnamed one, and with `clear` set (in a record that has no extension) the runs of the last one stand.
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

// The name of an attribute if it has one and that lies inside of it.
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

// Deliberate: one would expect the long name to be preferred to the short one. The last $FILE_NAME of the
// record is the one that is kept, and its size.
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

}  // namespace

// Asks once: where there are no descriptors, each attribute of a damaged record would have them sought again.
bool CNtfs::knows_security() {
    if (!m_security_known) {
        m_security_known = m_load_security != nullptr && m_load_security(*this);
    }
    return *m_security_known;
}

void CNtfs::take_owner(INODE_STATS& stats, std::uint32_t security_id) {
    if (security_id == 0 || m_mft_info.size == 0 || !m_Validated) {
        return;
    }
    if (!knows_security()) {
        return;
    }
    const auto found = m_sd_cache.find(security_id);
    if (found != m_sd_cache.end()) {
        stats.security_text = found->second.owner;
    }
}

bool CNtfs::parse_attributes(INODE_STATS& stats, attribute& list_attribute, attribute first,
                             std::int64_t bytes_left, bool append, bool single) {
    if (!append) {
        stats = {};
    }
    // Ends with the bytes: each step is at least one byte long.
    for (attribute at = first; at.type() != attr_end_marker && bytes_left > 0; at = at.next()) {
        const std::uint32_t length = at.length();
        if (length > m_record_alloc || length > bytes_left) {
            return true;
        }
        bool decoded = true;
        switch (at.type()) {
            case attr_standard_information:
                // Deliberate: one would expect the older form of 48 bytes to have no security id. The four
                // bytes at its place are taken for one, which at most names a wrong owner of a system file.
                take_owner(stats, standard_information_value(at.from_value()).security_id());
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

void CNtfs::parse_record(byte_view record, INODE_STATS& stats, std::uint64_t entry, bool append) {
    if (&stats == &m_mft_info && !append) {
        m_mft_run_ends.clear();
    }
    attribute list;
    const bool decoded =
        parse_attributes(stats, list, first_attribute(record), m_record_alloc, append, false);
    if (&stats == &m_mft_info) {
        index_mft_runs();
    }
    if (!decoded || (stats.data_runs.empty() && entry == mft_entry)) {
        return;
    }
    if (!list.is_null()) {
        if (list.length() > m_record_alloc) {
            return;
        }
        // Extension records of $MFT are found through the runs that record 0 holds itself.
        const bool was_validated = m_Validated;
        m_Validated = m_Validated || entry == mft_entry;
        if (!read_attribute_list(stats, list, m_record_alloc, entry)) {
            m_Validated = was_validated;
        }
    }
    number_runs(stats);
}

bool CNtfs::read_attribute_list(INODE_STATS& stats, const attribute& list, std::uint64_t bytes,
                                std::uint64_t entry) {
    if (list.length() > bytes) {
        return false;
    }
    if (!list.non_resident()) {
        return list.value_length() == 0 || walk_attribute_list(stats, list.value(), entry);
    }
    if (list.initialized_size() == 0) {
        return true;
    }
    // Deliberate: one would expect a list to end with its real size. It is walked to the end of its clusters,
    // so entries that an earlier, longer list left behind the end still count if they stand where a walk
    // comes.
    std::vector<std::uint8_t> value;
    // A list with a damaged part serves as far as it was read.
    static_cast<void>(clusters().read_list_clusters(list, value));
    return walk_attribute_list(stats, value, entry);
}

bool CNtfs::walk_attribute_list(INODE_STATS& stats, byte_view list, std::uint64_t entry) {
    list_entry at(list);
    if (list.empty() || at.length() > list.size()) {
        return false;
    }
    budget attribute_bytes(limits::system_attribute_bytes(source_size()));
    followed_reads reads;
    reads.count(list.size());
    std::vector<std::uint8_t> record;
    auto bytes_left = static_cast<std::int64_t>(list.size());
    // Ends with the list: each step is at least one byte long.
    while (at.length() != 0 && at.length() <= bytes_left && !attribute_bytes.spent() &&
           !m_system_run_memory.spent() && reads.may_go_on()) {
        if (at.entry_number() != entry) {
            reads.count(get_mft_record_size());
            attribute_bytes.take(add_listed_attribute(stats, at, record));
        }
        bytes_left -= at.length();
        if (bytes_left < smallest_list_entry) {
            break;
        }
        at = at.next();
    }
    return true;
}

// Parses the attribute that a list entry names, out of the extension record that holds it; `record` is room
// for that. A record that was used anew since the list was written is passed over. Returns the bytes that the
// attribute counts for, 0 if it was not found.
std::uint64_t CNtfs::add_listed_attribute(INODE_STATS& stats, const list_entry& listed,
                                          std::vector<std::uint8_t>& record) {
    std::uint64_t position = 0;
    record_kind kind = record_kind::unknown;
    if (!read_record_checked(record, position, kind, listed.entry_number()) || kind != record_kind::file) {
        return 0;
    }
    const file_record header{byte_view(record)};
    if (header.first_attribute_offset() == 0 || header.sequence_number() != listed.sequence_number()) {
        return 0;
    }
    attribute at = first_attribute(record);
    if (at.length() >= m_record_alloc) {
        return 0;
    }
    std::int64_t bytes_left = m_record_alloc;
    // Ends with the record: each step is at least one byte long.
    for (; at.type() != attr_end_marker && bytes_left > 0; at = at.next()) {
        if (at.type() == listed.type() && at.id() == listed.id()) {
            attribute list_in_extension;
            const std::uint64_t runs_before = stored_runs(stats);
            const std::size_t indexes_before = stats.index_runs.size();
            static_cast<void>(parse_attributes(stats, list_in_extension, at, at.length(), true, true));
            const std::uint64_t added = stats.index_runs.size() > indexes_before
                                            ? stats.index_runs.back().size()
                                            : stored_runs(stats) - runs_before;
            m_system_run_memory.take(added * memory_of_run);
            m_cache_memory.take(added * memory_of_run);
            if (&stats == &m_mft_info) {
                index_mft_runs();
            }
            return std::max<std::uint64_t>(at.length(), limits::smallest_counted_attribute);
        }
        if (at.length() == 0) {
            return 0;
        }
        bytes_left -= at.length();
    }
    return 0;
}

}  // namespace quarry
