#include "namespace/directory_index.h"

#include "foundation/ql_string.h"
#include "namespace/attribute_clusters.h"
#include "namespace/index_block.h"
#include "namespace/index_stream.h"
#include "volume/limits.h"

#include <array>
#include <new>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace quarry {

namespace {

constexpr std::string_view index_name = "$I30";
constexpr std::array<std::uint8_t, 8> index_name_units = {'$', 0, 'I', 0, '3', 0, '0', 0};
// Types from here on end the attribute walk.
constexpr std::uint32_t first_ending_type = 0xFFFFFFFE;

[[nodiscard]] byte_view index_name_on_disk() {
    return {index_name_units.data(), index_name_units.size()};
}

// What a directory's own record says of its index. An attribute that was not found is null.
struct index_attributes {
    attribute root;
    attribute allocation;
    attribute list;
};

[[nodiscard]] bool has_index_name(const attribute& candidate) {
    const std::uint64_t offset = candidate.name_offset();
    const std::uint64_t size = std::uint64_t{candidate.name_length_in_units()} * 2;
    if (offset == 0 || size == 0 || candidate.length() < offset + size) {
        return false;
    }
    const auto units = candidate.bytes().sub(offset, size);
    std::string name;
    return units && utf16_to_utf8(name, *units) && name == index_name;
}

// Of several attributes of one kind the last one counts.
[[nodiscard]] index_attributes find_index_attributes(byte_view record, std::uint32_t longest_attribute) {
    index_attributes found;
    // Ends at the end of the record: each step is at least one byte long.
    for (attribute at = first_attribute(record); !at.is_null() && at.type() < first_ending_type;
         at = at.next()) {
        if (at.type() == attr_index_root && has_index_name(at)) {
            found.root = at;
        } else if (at.type() == attr_index_allocation && has_index_name(at)) {
            found.allocation = at;
        } else if (at.type() == attr_attribute_list) {
            found.list = at;
        }
        if (at.length() == 0 || at.length() > longest_attribute) {
            break;
        }
    }
    return found;
}

// The part of an index that a directory's attribute list says is in another record.
class listed_index {
  public:
    listed_index(CNtfs& ntfs, std::uint64_t directory, byte_view list)
        : m_ntfs(ntfs), m_directory(directory), m_list(list), m_record(ntfs.get_mft_record_size()) {}

    // Finds the $I30 attribute of a type; null if the list names none outside of the directory's own record.
    // False if the list names a record that cannot be read. The attribute is good until the next call.
    [[nodiscard]] bool find(std::uint32_t type, attribute& found) {
        found = {};
        list_entry at(m_list);
        auto bytes_left = static_cast<std::int64_t>(m_list.size());
        if (!find_list_entry_by_name(at, bytes_left, type, index_name_on_disk()) ||
            at.entry_number() == m_directory) {
            return true;
        }
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        if (!m_ntfs.read_record(at.entry_number(), std::span(m_record), position, length)) {
            return false;
        }
        attribute candidate = first_attribute(m_record);
        if (find_attribute_by_name(candidate, type, index_name_on_disk(), m_ntfs.get_mft_record_size())) {
            found = candidate;
        }
        return true;
    }

  private:
    CNtfs& m_ntfs;
    std::uint64_t m_directory;
    byte_view m_list;
    std::vector<std::uint8_t> m_record;
};

// What one directory record gives, in the order in which it is tried.
class directory_reader {
  public:
    directory_reader(CNtfs& ntfs, std::uint64_t directory, _inode_collection& collection, bool keep_going,
                     budget& reads)
        : m_ntfs(ntfs),
          m_directory(directory),
          m_collection(collection),
          m_keep_going(keep_going),
          m_reads(reads) {}

    [[nodiscard]] bool read(byte_view record) {
        const index_attributes own = find_index_attributes(record, m_ntfs.m_record_alloc);
        bool result = false;
        if (!own.root.is_null()) {
            result = parse_index_root(m_collection, index_root(own.root.from_value()));
        }
        if (!own.allocation.is_null()) {
            result = parse_index_allocation(m_collection, &m_ntfs, own.allocation, m_keep_going, m_reads);
        }
        if (own.list.is_null() || !own.allocation.is_null()) {
            return result;
        }
        if (!own.list.non_resident()) {
            return read_listed(own.list.value(), !own.root.is_null(), result);
        }
        std::vector<std::uint8_t> list;
        // Deliberate: a directory whose list cannot be read succeeds, whatever the root gave; it does not
        // fail, nor keep the answer of its own record. The user sees the names found so far.
        if (own.list.initialized_size() == 0 || !read_attribute_clusters(m_ntfs, own.list, list)) {
            return true;
        }
        return read_listed(list, !own.root.is_null(), result);
    }

  private:
    // The parts of the index that are stored in extension records. `result` is what the directory's own
    // record gave.
    [[nodiscard]] bool read_listed(byte_view list, bool root_known, bool result) {
        listed_index listed(m_ntfs, m_directory, list);
        attribute found;
        if (!listed.find(attr_index_allocation, found)) {
            return false;
        }
        if (!found.is_null()) {
            result = parse_index_allocation(m_collection, &m_ntfs, found, m_keep_going, m_reads);
        }
        if (root_known) {
            return result;
        }
        if (!listed.find(attr_index_root, found)) {
            return false;
        }
        return found.is_null() ? result : parse_index_root(m_collection, index_root(found.from_value()));
    }

    CNtfs& m_ntfs;
    std::uint64_t m_directory;
    _inode_collection& m_collection;
    bool m_keep_going;
    budget& m_reads;
};

[[nodiscard]] bool children_of(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection,
                               bool keep_going, budget& reads) {
    std::vector<std::uint8_t> record(ntfs.get_mft_record_size());
    std::set<std::uint64_t> visited;
    // Ends at a record that is no extension record, or at one that was visited already.
    while (visited.insert(entry).second) {
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        if (!ntfs.read_record(entry, std::span(record), position, length)) {
            return false;
        }
        const std::uint64_t base = reference_entry(file_record(record).base_reference());
        if (base == 0) {
            return directory_reader(ntfs, entry, collection, keep_going, reads).read(record);
        }
        // The directory of an extension record never shows the slack of its blocks.
        keep_going = false;
        entry = base;
    }
    return false;
}

}  // namespace

bool get_directory_children(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection, bool keep_going,
                            budget& reads) {
    try {
        return children_of(ntfs, entry, collection, keep_going, reads);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

bool get_directory_children(CNtfs& ntfs, std::uint64_t entry, _inode_collection& collection,
                            bool keep_going) {
    budget reads(limits::one_lookup_index_bytes);
    return get_directory_children(ntfs, entry, collection, keep_going, reads);
}

}  // namespace quarry
