#include "exact/volume_table.h"

#include "exact/boot.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace quarry::exact {

namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
constexpr std::uint64_t kibibyte = 1024;
constexpr std::uint64_t serial_offset = 72;

// As many bytes from the start of a volume as there are, for the probe. Nothing if the first sector cannot be
// read.
std::optional<std::vector<std::uint8_t>> head_of(const exact_source& source, std::uint64_t offset) {
    for (const std::size_t length : {probe_bytes, std::size_t{512}}) {
        std::vector<std::uint8_t> head(length);
        if (source.read(head, offset)) {
            return head;
        }
    }
    return std::nullopt;
}

std::string line_of(const listed_volume& volume) {
    const std::string number = volume.number ? std::to_string(*volume.number) : "-";
    const bool small = volume.place.length < mebibyte;
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%4s  offset 0x%016llX%10llu %s  ", number.c_str(),
                  static_cast<unsigned long long>(volume.place.offset),
                  static_cast<unsigned long long>(volume.place.length / (small ? kibibyte : mebibyte)),
                  small ? "KiB" : "MiB");
    std::string line = text.data();
    line += kind_text(volume.kind);
    if (volume.kind == volume_kind::ntfs) {
        std::snprintf(text.data(), text.size(), "  serial %016llX",
                      static_cast<unsigned long long>(volume.serial));
        line += text.data();
    }
    line += volume.boot_sector_is_backup ? "  (boot sector from its backup)\n" : "\n";
    return line;
}

void number_volumes(std::vector<listed_volume>& volumes) {
    std::uint64_t next = 1;
    for (listed_volume& volume : volumes) {
        if (volume.kind == volume_kind::ntfs) {
            volume.number = next++;
        }
    }
}

}  // namespace

listed_volume look_at_volume(const exact_source& source, const partition& place) {
    listed_volume volume;
    volume.place = place;
    const auto head = head_of(source, place.offset);
    volume.kind = head ? probe_volume(byte_view(*head)) : volume_kind::unreadable;
    if (volume.kind == volume_kind::ntfs) {
        volume.serial = byte_view(*head).u64_or_zero(serial_offset);
    }
    const bool may_be_damaged = volume.kind == volume_kind::ntfs || volume.kind == volume_kind::unknown ||
                                volume.kind == volume_kind::unreadable;
    notices ignored;
    if (may_be_damaged) {
        if (const auto shape = read_geometry(source, place.offset, place.length, ignored)) {
            volume.kind = volume_kind::ntfs;
            volume.serial = shape->serial;
            volume.boot_sector_is_backup = shape->from_backup;
        }
    }
    return volume;
}

result<volume_table> volume_table::read(const exact_source& source, std::optional<std::uint32_t> sector_size,
                                        notices& told) {
    const listed_volume whole = look_at_volume(source, {0, source.size()});
    // A boot sector has the mark of a table too. Only the superblock of ext says nothing about sector 0.
    const bool may_have_table = whole.kind == volume_kind::unknown || whole.kind == volume_kind::ext;
    std::optional<std::vector<partition>> partitions;
    if (may_have_table) {
        auto table = read_partitions(source, sector_size, told);
        if (!table) {
            return passed_on(table);
        }
        partitions = std::move(*table);
    }
    std::vector<listed_volume> volumes;
    if (!partitions) {
        volumes.push_back(whole);
    } else {
        for (const partition& place : *partitions) {
            volumes.push_back(look_at_volume(source, place));
        }
    }
    number_volumes(volumes);
    return volume_table(source.path(), std::move(volumes));
}

std::string volume_table::listing() const {
    std::string text;
    for (const listed_volume& volume : m_volumes) {
        text += line_of(volume);
    }
    return text;
}

std::size_t volume_table::ntfs_count() const {
    return static_cast<std::size_t>(std::count_if(m_volumes.begin(), m_volumes.end(),
                                                  [](const listed_volume& each) { return each.number; }));
}

result<listed_volume> volume_table::choose(std::optional<std::uint64_t> number) const {
    const std::size_t count = ntfs_count();
    if (!number && count > 1) {
        return fail(failure_code::several_volumes, where::source(m_source),
                    "holds " + std::to_string(count) + " NTFS volumes; choose one with -ntfsvol");
    }
    const auto found = std::find_if(m_volumes.begin(), m_volumes.end(), [&](const listed_volume& each) {
        return each.number && *each.number == number.value_or(1);
    });
    if (found != m_volumes.end()) {
        return *found;
    }
    if (number) {
        return fail(failure_code::no_such_volume, where::source(m_source),
                    "has no NTFS volume " + std::to_string(*number));
    }
    const bool is_enciphered = std::any_of(m_volumes.begin(), m_volumes.end(), [](const listed_volume& each) {
        return each.kind == volume_kind::bitlocker;
    });
    return is_enciphered
               ? fail(failure_code::enciphered, where::source(m_source), "is enciphered (BitLocker)")
               : fail(failure_code::no_volume, where::source(m_source), "holds no NTFS volume");
}

}  // namespace quarry::exact
