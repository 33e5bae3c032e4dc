// The volumes of a source, numbered as the user names them.
//
// A source is one bare volume, or a disk whose table names partitions. Each of them is looked at, and those
// that hold NTFS are numbered from 1 in the order of their offsets:
//
//        -  offset 0x0000000000100000        16 MiB  fat
//        1  offset 0x0000000001100000        96 MiB  ntfs  serial 26A7A1E93D3A46ED
//
// A volume whose boot sector is damaged counts if the backup of it is sound. The name of another file system
// in sector 0 may be text of an MBR's program: it gives way to a table that leads to a sound NTFS volume.
#pragma once

#include "exact/exact_source.h"
#include "exact/failure.h"
#include "exact/partition_table.h"
#include "exact/volume_probe.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry::exact {

struct listed_volume {
    std::optional<std::uint64_t> number;  // of an NTFS volume, from 1
    partition place;
    volume_kind kind = volume_kind::unknown;
    std::uint64_t serial = 0;  // of an NTFS volume
    bool boot_sector_is_backup = false;
    bool is_sound = false;               // an NTFS volume whose boot sector, or its backup, is one
    std::optional<failure> unread = {};  // why the first sector could not be read
};

class volume_table {
  public:
    // Reads the table of a source, or takes it as one bare volume. `sector_size` is that of the table in
    // bytes, found out if it is empty. Fails with table, and with source-read if sector 0 cannot be read and
    // is not that of a volume with a backup.
    [[nodiscard]] static result<volume_table> read(const exact_source& source,
                                                   std::optional<std::uint32_t> sector_size, notices& told);

    [[nodiscard]] const std::vector<listed_volume>& volumes() const { return m_volumes; }
    // One line for each, with its line end.
    [[nodiscard]] std::string listing() const;
    // The NTFS volume of this number, or the only one. Fails with no-such-volume, several-volumes, and where
    // there is none at all with enciphered, source-read or no-volume: there is an enciphered one, one that
    // cannot be read, or nothing of the kind.
    [[nodiscard]] result<listed_volume> choose(std::optional<std::uint64_t> number) const;

  private:
    volume_table(std::string source, std::vector<listed_volume> volumes, std::string hint)
        : m_source(std::move(source)), m_volumes(std::move(volumes)), m_hint(std::move(hint)) {}
    [[nodiscard]] std::size_t ntfs_count() const;

    std::string m_source;  // as it is shown
    std::vector<listed_volume> m_volumes;
    std::string m_hint;  // what to do where none of them is NTFS
};

// The volume that begins at a byte of the source and may reach over `length` bytes, by its boot sector or the
// backup of it. It has no number.
[[nodiscard]] listed_volume look_at_volume(const exact_source& source, const partition& place);

}  // namespace quarry::exact
