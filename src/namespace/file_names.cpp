#include "namespace/file_names.h"

#include "foundation/ql_string.h"
#include "namespace/attribute_clusters.h"
#include "volume/attribute_values.h"
#include "volume/limits.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <vector>

namespace quarry {

namespace {

// Deliberate: an attribute of another type that is longer than this ends the search for names, not only the
// end marker. The user does not find a file by a name after it. A $FILE_NAME may have any length. A sound
// record of 1,024 bytes has no attribute so long.
constexpr std::uint32_t longest_attribute = 1024;
// Types from here on end the search for a listed attribute.
constexpr std::uint32_t first_ending_type = 0xFFFFFFFE;
constexpr std::uint8_t posix_namespace = 0;
constexpr std::uint8_t win32_namespace_bit = 1;

struct name_rules {
    bool all_namespaces;
    std::uint64_t parent_filter;
};

// Deliberate: a name that is only in the DOS name space is left out, not taken for a name like others. The
// user does not find a file by its short name.
[[nodiscard]] bool is_long_name(std::uint8_t name_space) {
    return name_space == posix_namespace || (name_space & win32_namespace_bit) != 0;
}

void add_name(file_name_list& names, const attribute& at, const name_rules& rules) {
    const file_name_value value(at.own_bytes().from(at.value_offset()));
    if (at.value_length() == 0 || value.name_length_in_units() == 0) {
        return;
    }
    if (!rules.all_namespaces && !is_long_name(value.name_space())) {
        return;
    }
    const std::uint64_t parent = reference_entry(value.parent());
    if (rules.parent_filter != any_parent && parent != rules.parent_filter) {
        return;
    }
    file_name& found = names.emplace_back(file_name{{}, parent, value.name_space()});
    read_utf16_wide(found.name, value.name_bytes(), static_cast<std::int64_t>(value.name_bytes().size()));
}

void add_names_of_record(file_name_list& names, byte_view record, const name_rules& rules) {
    attribute at;
    // Ends at the end of the record: each step is at least one byte long.
    for (bool found = first_attribute_of_type(record, attr_file_name, at, longest_attribute); found;
         found = next_attribute_of_type(at, attr_file_name, longest_attribute)) {
        add_name(names, at, rules);
        if (at.length() == 0) {
            break;
        }
        at = at.next();
    }
}

// True if a record holds the attribute that a list entry names by type and id.
[[nodiscard]] bool holds_listed_attribute(byte_view record, const list_entry& listed, budget& reads) {
    // Ends at the end of the record, or at an attribute without length.
    for (attribute at = first_attribute(record); !at.is_null() && at.type() < first_ending_type;
         at = at.next()) {
        reads.take(limits::cost_of_attribute);
        if (at.type() == listed.type() && at.id() == listed.id()) {
            return true;
        }
        if (at.length() == 0) {
            break;
        }
    }
    return false;
}

void put_in_order(file_name_list& names) {
    if (names.size() < 2) {
        return;
    }
    const auto key = [](const file_name& each) { return std::tie(each.name, each.parent); };
    std::stable_sort(names.begin(), names.end(),
                     [&](const file_name& left, const file_name& right) { return key(left) < key(right); });
    const auto same = [&](const file_name& left, const file_name& right) { return key(left) == key(right); };
    names.erase(std::unique(names.begin(), names.end(), same), names.end());
}

// The names of the records that an attribute list names.
class listed_names {
  public:
    listed_names(file_name_list& names, CNtfs& ntfs, const name_rules& rules, budget& reads)
        : m_names(names), m_ntfs(ntfs), m_rules(rules), m_reads(reads) {}

    void add(std::uint64_t entry, byte_view list) {
        m_reads.take(limits::cost_of_list_byte * list.size());
        // Ends with the list, at an entry without length, or when no more is to be read.
        for (list_entry at(list); !at.bytes().empty() && at.length() != 0 && !m_reads.spent();
             at = at.next()) {
            if (at.entry_number() != entry && m_done.count(at.entry_number()) == 0) {
                add_record(at);
            }
        }
    }

  private:
    // A list may name a record many times: its names are taken once, and it is not read twice in a row.
    void add_record(const list_entry& listed) {
        if (listed.entry_number() != m_held) {
            std::uint64_t position = 0;
            record_kind kind = record_kind::unknown;
            m_held = listed.entry_number();
            m_reads.take(std::max<std::uint64_t>(m_ntfs.get_mft_record_size(), limits::smallest_read));
            m_held_is_file =
                m_ntfs.read_record_checked(m_record, position, kind, m_held) && kind == record_kind::file;
        }
        if (!m_held_is_file || !holds_listed_attribute(m_record, listed, m_reads)) {
            return;
        }
        m_done.insert(m_held);
        add_names_of_record(m_names, m_record, m_rules);
        if (m_names.size() > m_next_ordering) {
            put_in_order(m_names);
            m_next_ordering = std::max(m_next_ordering, 2 * m_names.size());
        }
    }

    file_name_list& m_names;
    CNtfs& m_ntfs;
    const name_rules& m_rules;
    budget& m_reads;
    std::set<std::uint64_t> m_done;
    std::uint64_t m_held = ~std::uint64_t{0};
    bool m_held_is_file = false;
    std::vector<std::uint8_t> m_record;
    // Records that lie over each other hold the same names; the doubles go before they are many.
    std::size_t m_next_ordering = 1024;
};

// The value of an attribute list; empty if there is none that can be read.
[[nodiscard]] std::vector<std::uint8_t> list_bytes(CNtfs& ntfs, const attribute& list, budget& listed_reads) {
    if (!list.non_resident()) {
        return list.value_offset() == 0 ? std::vector<std::uint8_t>() : list.value().to_vector();
    }
    listed_reads.take(limits::cost_of_list_byte * list.own_bytes().size());
    std::vector<std::uint8_t> bytes;
    static_cast<void>(read_attribute_clusters(ntfs, list, bytes));
    return bytes;
}

}  // namespace

bool get_file_names(file_name_list& names, CNtfs& ntfs, std::uint64_t entry, byte_view record,
                    bool all_namespaces, std::uint64_t parent_filter, budget& listed_reads) {
    names.clear();
    const name_rules rules{all_namespaces, parent_filter};
    attribute list;
    if (!listed_reads.spent() &&
        first_attribute_of_type(record, attr_attribute_list, list, ntfs.get_mft_record_size())) {
        listed_names(names, ntfs, rules, listed_reads).add(entry, list_bytes(ntfs, list, listed_reads));
    }
    add_names_of_record(names, record, rules);
    put_in_order(names);
    return !names.empty();
}

}  // namespace quarry
