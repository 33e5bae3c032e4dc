// The shared security descriptors of a volume: $Secure's $SDS stream, read into the volume's cache.
//
// A file's standard information names its descriptor by a security id. All descriptors are stored one after
// the other in $SDS, each at a multiple of 16 bytes after a head of 20: a hash, the security id, the record's
// own position in the stream, and its size with the head. NTFS writes them in blocks of 256 KiB, and each
// block twice; a record of the second copy has the position of the first, by which it is recognised.
//
// Reserved: no flow of the program loads this cache, and no report prints what it holds.
#pragma once

#include "foundation/byte_view.h"
#include "volume/ntfs.h"
#include "volume/security_entry.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quarry {

// A named view that begins at a record of $SDS. Accessors read zero for what is not there.
class sds_record_view {
  public:
    static constexpr std::uint64_t head_size = 20;
    explicit sds_record_view(byte_view bytes) : m_bytes(bytes) {}
    [[nodiscard]] byte_view bytes() const { return m_bytes; }
    [[nodiscard]] std::uint32_t hash() const { return m_bytes.u32_or_zero(0); }
    [[nodiscard]] std::uint32_t security_id() const { return m_bytes.u32_or_zero(4); }
    // Of the record in the stream.
    [[nodiscard]] std::uint64_t stream_offset() const { return m_bytes.u64_or_zero(8); }
    // Bytes of the record, this head included.
    [[nodiscard]] std::uint32_t size() const { return m_bytes.u32_or_zero(16); }
    // The descriptor, as much of it as there is.
    [[nodiscard]] byte_view descriptor() const { return m_bytes.clipped(0, size()).from(head_size); }

  private:
    byte_view m_bytes;
};

// Fills an entry from a record and the bytes from its start to the end, all of which `record` holds.
// Deliberate: a SID may run on into the bytes after its record, not only to its end. The user sees nothing of
// it. True if the descriptor names an owner or a group, whether they can be read or not. False, with the
// entry cleared, for no record and for one that is longer than the bytes left.
[[nodiscard]] bool parse_security_record(security_entry& entry, byte_view record);

// The lines of an entry's ACLs in the form of the report, without prefix.
[[nodiscard]] std::vector<std::string> sacl_lines(const security_entry& entry);
[[nodiscard]] std::vector<std::string> dacl_lines(const security_entry& entry);

// Reads $SDS into `map`, which is cleared first and stays empty for an invalid volume and for one without
// $SDS. Of two records with one id the first counts. What is no record is passed over 16 bytes at a time.
// When the entries take 32 MiB and half of what the source can hold, or 160 MiB, no more are added.
void read_sds(CNtfs& ntfs, security_map& map);
// Fills the volume's cache if it is empty. True if it holds anything then; false for an invalid volume.
[[nodiscard]] bool load_security_cache(CNtfs& ntfs);

}  // namespace quarry
