// $MFT, the table of all records, opened piece by piece.
//
// The table is a file like any other, described by its own entry 0. The boot sector says where that lies. If
// the table has more pieces than record 0 has room for, the others are in extension records, which lie in the
// table too: each is read through the pieces known so far.
//
//     boot sector --> record 0: VCN 0 to 999  --> record 15 lies in there: VCN 1000 to 1999 --> ...
//
// The first records are stored a second time, in the mirror. If entry 0 is damaged, or one of 1 to 3, the
// mirror's copy is taken.
#pragma once

#include "exact/attribute_list.h"
#include "exact/record.h"
#include "exact/stored_stream.h"
#include "exact/volume_bytes.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace quarry::exact {

class mft {
  public:
    // Fails as records, runs and lists do, and with mft if entry 0 does not describe the table. Warns
    // (mft-mirror) if entry 0 comes from the mirror.
    [[nodiscard]] static result<mft> open(const volume_bytes& volume, notices& told);

    // A verified record of whatever kind, in use or not. Fails with behind-mft if the table ends before it.
    [[nodiscard]] result<record> read(std::uint64_t entry, notices& told) const;
    // The base record that a reference of a path leads to. Fails with unused, sequence or extension too. A
    // sequence of 0 in the reference is not compared, with the warning no-sequence.
    [[nodiscard]] result<record> read_in_use(reference wanted, notices& told) const;
    // The same tests for a record that was read already.
    [[nodiscard]] static result<record> expect_in_use(record found, reference wanted, notices& told);
    // The base record of one of the volume's own files, which must be in use.
    [[nodiscard]] result<record> read_system(std::uint64_t entry, notices& told) const;
    // The base record that a user asks for by number, and by sequence number if one is given, which is
    // compared strictly. It need not be in use: then there is the warning deleted.
    [[nodiscard]] result<record> read_asked(std::uint64_t entry, std::optional<std::uint16_t> sequence,
                                            notices& told) const;
    // The base record of the directory that a $FILE_NAME names. That of a file in use must be in use, as for
    // read_in_use(). That of a deleted file may be deleted too, and its sequence number then one ahead of the
    // reference. Fails with unused, sequence, extension or not-directory.
    [[nodiscard]] result<record> read_parent(reference wanted, bool of_deleted, notices& told) const;
    // A record that an attribute list of `base` names. It must be in use as the base is, and belong to it.
    // The references of a deleted file may be one sequence number lower. Fails with unused, sequence or base.
    [[nodiscard]] result<record> read_extension(reference wanted, const record& base, notices& told) const;
    // The same tests for a record that was read already: whether it is the one that an attribute list of
    // `base` refers to. `holder` may be the base itself.
    [[nodiscard]] static result<void> expect_listed(const record& holder, reference wanted,
                                                    const record& base, notices& told);

    // Says that so many adjacent records, from `entry` on, will be read soon. Entries that the table has not
    // are passed over.
    void announce(std::uint64_t entry, std::uint64_t count = 1) const;
    // The bytes of adjacent records as they are stored, from `entry` on, in one go; the buffer holds whole
    // records. For a reader that goes through many. Fails if the table or the source ends before they do.
    [[nodiscard]] result<void> read_stored_bytes(std::uint64_t entry, std::span<std::uint8_t> buffer) const;
    // A record of such bytes, verified. Entries that the mirror holds too are read by read().
    [[nodiscard]] result<record> verify_stored(std::uint64_t entry, std::vector<std::uint8_t> bytes,
                                               notices& told) const;
    // Entries that are stored a second time in the mirror: those below this one.
    static constexpr std::uint64_t mirrored_entries = 4;

    // Records of the table.
    [[nodiscard]] std::uint64_t entries() const { return m_table.size() / volume().shape().record_size; }
    [[nodiscard]] const stored_stream& table() const { return m_table; }
    [[nodiscard]] const volume_bytes& volume() const { return m_volume; }
    // Entry 0 came from the mirror.
    [[nodiscard]] bool from_mirror() const { return m_from_mirror; }

  private:
    mft(const volume_bytes& volume, stored_stream table, bool from_mirror)
        : m_volume(volume), m_table(std::move(table)), m_from_mirror(from_mirror) {}
    [[nodiscard]] result<void> add_pieces(const record& base, notices& told);
    [[nodiscard]] result<record> read_stored(std::uint64_t entry, notices& told) const;

    volume_bytes m_volume;
    stored_stream m_table;
    bool m_from_mirror = false;
};

}  // namespace quarry::exact
