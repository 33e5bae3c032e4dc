#include "report/security_cache.h"

#include "foundation/status_log.h"
#include "report/security_descriptor.h"
#include "report/sid_names.h"
#include "volume/attribute.h"
#include "volume/limits.h"
#include "volume/mft_entries.h"
#include "volume/stream_pump.h"
#include "volume/well_known.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <streambuf>
#include <utility>

namespace quarry {

namespace {

constexpr std::uint64_t record_alignment = 16;
// A head and a descriptor that is only its own head.
constexpr std::uint32_t record_without_parts = 40;
// NTFS fills $SDS in blocks of this size and lets no record cross from one into the next.
constexpr std::uint32_t largest_record = 0x40000;
// A record holds its position in 32 bits; beyond them there is none.
constexpr std::uint64_t positions_end = std::uint64_t{1} << 32;

// An entry's place in the map, and what the three allocations within it take beside their bytes.
constexpr std::uint64_t bytes_of_an_entry = sizeof(security_map::value_type) + 128;

std::uint64_t memory_of(const security_entry& entry) {
    return bytes_of_an_entry + entry.owner.capacity() + entry.group.capacity() + entry.descriptor.capacity();
}

// Text of the SID at an offset of a record's descriptor; empty if there is none. `bytes_ahead` are those of
// the bytes left that the SID cannot have.
std::string sid_of_record(byte_view record, std::uint32_t offset, std::uint64_t bytes_ahead) {
    std::string text;
    if (offset != 0) {
        const std::uint64_t available = record.size() - std::min<std::uint64_t>(record.size(), bytes_ahead);
        static_cast<void>(sid_to_text(text, record.from(sds_record_view::head_size + offset), available));
    }
    return text;
}

// Takes $SDS as it comes and enters its records into a map. It keeps no more than a record that is not whole
// yet, whatever the stream's size is said to be.
class sds_walker : public std::streambuf {
  public:
    // `limit`: bytes of the stream that are taken. `memory`: bytes that the entries may cost.
    sds_walker(security_map& map, std::uint64_t limit, budget memory)
        : m_map(map), m_limit(limit), m_memory(memory) {}

    // Walks what is left once all bytes have come.
    void finish() { static_cast<void>(walk(byte_view(m_kept), true)); }

  protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        if (count <= 0 || m_position + m_kept.size() >= m_limit) {
            return 0;  // the stream of this buffer fails, and the copy ends
        }
        const byte_view came(static_cast<const std::uint8_t*>(static_cast<const void*>(bytes)),
                             static_cast<std::size_t>(count));
        if (m_kept.empty()) {
            go_on(came);
        } else {
            m_kept.insert(m_kept.end(), came.span().begin(), came.span().end());
            const std::vector<std::uint8_t> all = std::move(m_kept);
            go_on(byte_view(all));
        }
        return count;
    }
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) {
            return traits_type::not_eof(character);
        }
        const char byte = traits_type::to_char_type(character);
        return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
    }

  private:
    // Walks bytes that begin at m_position, and keeps those that are not walked yet.
    void go_on(byte_view bytes) {
        const std::uint64_t walked = walk(bytes, false);
        m_position += walked;
        m_kept = bytes.from(walked).to_vector();
    }

    // Gives the distance to the first place that more bytes are needed for, which lies within the bytes or at
    // their end unless all came. Each turn moves on by at least 16 bytes.
    [[nodiscard]] std::uint64_t walk(byte_view bytes, bool all_came) {
        std::uint64_t at = 0;
        while (at < bytes.size()) {
            const sds_record_view head(bytes.from(at));
            const std::uint64_t left = head.bytes().size();
            if (left < sds_record_view::head_size && !all_came) {
                return at;
            }
            std::uint64_t step = record_alignment;
            if (may_be_record(head, m_position + at)) {
                if (reach_of(head) > left && !all_came) {
                    return at;
                }
                step = take_record(head).value_or(step);
            }
            at += step;
        }
        return at;
    }

    [[nodiscard]] static bool may_be_record(const sds_record_view& head, std::uint64_t position) {
        return head.stream_offset() == position && position < positions_end &&
               head.size() > record_without_parts && head.size() <= largest_record;
    }

    // Bytes from a record's start to where the last of its SIDs may end, which is past the record if the
    // SID's count is too large.
    [[nodiscard]] static std::uint64_t reach_of(const sds_record_view& record) {
        return std::uint64_t{record.size()} + sid_view::longest;
    }

    void enter(const sds_record_view& record) {
        security_entry entry;
        if (parse_security_record(entry, record.bytes().clipped(0, reach_of(record)))) {
            m_memory.take(memory_of(entry));
            m_map.try_emplace(entry.security_id, std::move(entry));
        }
    }

    // Enters a record if all of it is there, as long as there is memory for it, and gives the distance to the
    // next one.
    [[nodiscard]] std::optional<std::uint64_t> take_record(const sds_record_view& record) {
        if (!record.bytes().holds(0, record.size())) {
            return std::nullopt;
        }
        if (!m_memory.spent()) {
            enter(record);
        }
        return (std::uint64_t{record.size()} + record_alignment - 1) / record_alignment * record_alignment;
    }

    security_map& m_map;
    std::uint64_t m_limit;
    budget m_memory;
    std::vector<std::uint8_t> m_kept;  // bytes from m_position on
    std::uint64_t m_position = 0;      // of the walk in the stream
};

}  // namespace

bool parse_security_record(security_entry& entry, byte_view record) {
    // Bytes that must follow the owner's SID, and the group's, before the end of the bytes.
    constexpr std::uint64_t bytes_ahead_of_owner = 24;
    constexpr std::uint64_t bytes_ahead_of_group = 32;
    entry = {};
    const sds_record_view view(record);
    if (record.empty() || record.size() < view.size()) {
        return false;
    }
    const security_descriptor_view descriptor(view.descriptor());
    entry.stream_offset = view.stream_offset();
    entry.security_id = view.security_id();
    entry.owner = sid_of_record(record, descriptor.owner_offset(), bytes_ahead_of_owner);
    entry.group = sid_of_record(record, descriptor.group_offset(), bytes_ahead_of_group);
    entry.descriptor = descriptor.bytes().to_vector();
    return descriptor.owner_offset() != 0 || descriptor.group_offset() != 0;
}

std::vector<std::string> sacl_lines(const security_entry& entry) {
    const byte_view descriptor(entry.descriptor);
    return acl_lines(descriptor, security_descriptor_view(descriptor).sacl_offset());
}

std::vector<std::string> dacl_lines(const security_entry& entry) {
    const byte_view descriptor(entry.descriptor);
    return acl_lines(descriptor, security_descriptor_view(descriptor).dacl_offset());
}

void read_sds(CNtfs& ntfs, security_map& map) {
    map.clear();
    attr_item_list items;
    if (!ntfs.is_valid() || !categorize_entry(ntfs, secure_entry, items, no_log())) {
        return;
    }
    const auto sds = std::find_if(items.begin(), items.end(), [](const attr_item& item) {
        return item.type == attr_data && item.name == "$SDS";
    });
    if (sds == items.end()) {
        return;
    }
    // Holes can make a stream as long as they like; the source bounds what can be in it.
    const std::uint64_t longest = ntfs.source_size() + static_cast<std::uint64_t>(ntfs.m_cluster_size);
    sds_walker walker(map, std::min(longest, positions_end),
                      budget(limits::descriptor_memory(ntfs.source_size()), ntfs.m_cache_memory));
    std::ostream stream(&walker);
    pump_context context{no_log()};
    if (copy_to_stream(&ntfs, *sds, stream, false, false, context)) {
        walker.finish();
    } else {
        map.clear();
    }
}

bool load_security_cache(CNtfs& ntfs) {
    if (!ntfs.is_valid()) {
        return false;
    }
    if (ntfs.m_sd_cache.empty()) {
        read_sds(ntfs, ntfs.m_sd_cache);
    }
    return !ntfs.m_sd_cache.empty();
}

}  // namespace quarry
