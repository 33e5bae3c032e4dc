#include "volume/mft_entries.h"

#include "volume/entry_flattening.h"
#include "volume/file_record.h"

#include <algorithm>
#include <new>

namespace quarry {

namespace {

unsigned long long for_log(std::uint64_t number) {
    return number;
}

// The attribute of a type and an id in a record; null if the record has none.
attribute find_attribute(byte_view record, std::uint32_t type, std::uint16_t id) {
    attribute at = first_attribute(record);
    if (at.length() >= record.size()) {
        return {};
    }
    std::uint64_t left = record.size();
    // Each turn takes an attribute's length from what is left.
    while (!at.is_null() && at.type() != attr_end_marker) {
        if (at.type() == type && at.id() == id) {
            return at;
        }
        if (at.length() == 0 || at.length() >= left) {
            break;
        }
        left -= at.length();
        at = at.next();
    }
    return {};
}

}  // namespace

mft_entries_ctx::mft_entries_ctx(CNtfs& ntfs, status_log& log) : m_ntfs(ntfs), m_log(log) {}

bool mft_entries_ctx::fixup_mft(std::vector<std::uint8_t>& record, bool& bad, std::uint64_t entry) {
    bad = false;
    std::int64_t mft_position = 0;
    if (!m_ntfs.validate(mft_position) || m_ntfs.get_disk() == nullptr) {
        return false;
    }
    if (m_record_size == 0) {
        m_record_size = std::min(m_ntfs.get_mft_record_size(), longest_record);
    }
    try {
        record.resize(m_record_size);
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::uint64_t length = m_record_size;
    if (!m_ntfs.clusters().read(m_ntfs.entry_position(entry), record.data(), length)) {
        return false;
    }
    // Deliberate: records are read in the length that was last read, not in full length. Once the end of the
    // source has cut one, attributes of later ones beyond the cut are not found.
    m_record_size = length;

    const file_record header{byte_view(record)};
    if (!record_header_ok(record) && !header.is_indx()) {
        if (!header.is_baad()) {
            return false;
        }
        m_log.log("err: fixup_mft type: BAAD");
        bad = true;
        return true;
    }
    const std::uint32_t sector_size = m_ntfs.get_bytes_per_sector();
    restore_sector_ends(record, sector_size, sector_end_limit(record.size(), sector_size));
    return true;
}

bool mft_entries_ctx::read_entry(entry_record& record, std::uint64_t entry) {
    record = entry_record();
    record.memory = budget(limits::entry_memory(m_ntfs.source_size()));
    std::int64_t mft_position = 0;
    if (!m_ntfs.validate(mft_position)) {
        return false;
    }
    std::vector<std::uint8_t> bytes;
    bool bad = false;
    if (!fixup_mft(bytes, bad, entry) || bytes.empty()) {
        m_log.log("err: mftfixup %llx", for_log(entry));
        return false;
    }
    if (bad) {
        m_log.log("err: recd bad %llx", for_log(entry));
        return false;
    }
    record.record = std::move(bytes);
    record.entry = entry;
    const file_record header{byte_view(record.record)};
    record.sequence = header.sequence_number();
    const byte_view kept = header.bytes().clipped(0, record.header.size());
    std::copy_n(kept.data(), kept.size(), record.header.begin());
    record.base = header.base_reference();
    record.has_base = record.base != 0;
    if (header.first_attribute_offset() == 0) {
        return true;
    }

    std::vector<attribute> lists;
    attribute at = first_attribute(record.record);
    // Each turn moves on by an attribute's length, and the record ends.
    while (!at.is_null() && at.type() != attr_end_marker && at.length() != 0 &&
           at.length() <= record.record.size()) {
        bool is_list = false;
        if (!categorize_attribute(record, entry, at, is_list)) {
            break;
        }
        if (is_list) {
            lists.push_back(at);
        }
        at = at.next();
    }
    for (const attribute& list : lists) {
        handle_attribute_list(record, entry, list);
    }
    return true;
}

bool mft_entries_ctx::may_go_on(const entry_record& record) const {
    return m_reads.may_go_on() && !record.memory.spent();
}

void mft_entries_ctx::handle_attribute_list(entry_record& record, std::uint64_t entry,
                                            const attribute& list) {
    record.has_list = true;
    if (!list.non_resident()) {
        if (list.value_length() != 0 && list.value_offset() != 0) {
            walk_list_entries(record, entry, list.value());
        }
        return;
    }
    record.list_non_resident = true;
    if (!may_go_on(record)) {
        return;
    }
    std::vector<std::uint8_t> clusters;
    // A list with a damaged part serves as far as it was read.
    static_cast<void>(m_ntfs.clusters().read_list_clusters(list, clusters));
    m_reads.count(clusters.size());
    walk_list_entries(record, entry, clusters);
}

void mft_entries_ctx::walk_list_entries(entry_record& record, std::uint64_t entry, byte_view list) {
    // Ends with the list: each entry has a length, and one whose header the list does not hold is none.
    while (list.holds(0, smallest_list_entry) && may_go_on(record)) {
        const list_entry named(list);
        if (named.length() == 0) {
            return;
        }
        if (named.entry_number() != entry) {
            m_reads.count(m_record_size);
            take_from_extension(record, entry, named);
        }
        list = list.from(named.length());
    }
}

// Deliberate: the sequence number of the list entry is not compared with the record's. A record that was
// given to another file since is read all the same.
void mft_entries_ctx::take_from_extension(entry_record& record, std::uint64_t entry,
                                          const list_entry& named) {
    m_log.log("primary entry %llu pointing to ref entry %llu", for_log(entry), for_log(named.entry_number()));
    bool bad = false;
    if (!fixup_mft(m_extension, bad, named.entry_number()) || m_extension.empty()) {
        return;
    }
    const file_record extension{byte_view(m_extension)};
    if (!extension.is_file() || extension.first_attribute_offset() == 0) {
        return;
    }
    const attribute found = find_attribute(m_extension, named.type(), named.id());
    m_reads.count_attribute(found.own_bytes().size());
    bool is_list = false;
    static_cast<void>(categorize_attribute(record, entry, found, is_list));
}

bool categorize_entry(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out, status_log& log) {
    out.clear();
    entry_record record;
    if (!mft_entries_ctx(ntfs, log).read_entry(record, entry)) {
        return false;
    }
    out = flatten_entry(record, ntfs.get_mft_record_size());
    return true;
}

bool categorize_index_only(CNtfs& ntfs, std::uint64_t entry, attr_item_list& out, status_log& log) {
    out.clear();
    entry_record record;
    if (!mft_entries_ctx(ntfs, log).read_entry(record, entry)) {
        return false;
    }
    out = flatten_index_attributes(record, ntfs.get_mft_record_size());
    return true;
}

}  // namespace quarry
