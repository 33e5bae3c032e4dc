#include "exact/volume_table.h"

#include "exact/boot.h"
#include "exact/container.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace quarry::exact {

namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
constexpr std::uint64_t kibibyte = 1024;
constexpr std::uint64_t serial_offset = 72;
constexpr std::size_t sector_bytes = 512;

// As many bytes from the start of a volume as there are, for the probe. Fails if the first sector cannot be
// read.
result<std::vector<std::uint8_t>> head_of(const exact_source& source, std::uint64_t offset) {
    std::vector<std::uint8_t> head(probe_bytes);
    if (source.read(head, offset)) {
        return head;
    }
    head.resize(sector_bytes);
    return source.read(head, offset).map([&] { return std::move(head); });
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

// What -volumes would show of a source with so many NTFS volumes.
std::string listed_by_volumes(std::size_t count) {
    return count == 1 ? "; -volumes lists the one that it has"
                      : "; -volumes lists the " + std::to_string(count) + " that it has";
}

bool is_sound(const listed_volume& volume) {
    return volume.is_sound;
}

// A volume that says what it is. The superblock of ext says nothing about sector 0.
bool is_named(volume_kind kind) {
    return kind != volume_kind::unknown && kind != volume_kind::unreadable && kind != volume_kind::ext;
}

std::vector<listed_volume> look_at_partitions(
    const exact_source& source, const result<std::optional<std::vector<partition>>>& partitions) {
    std::vector<listed_volume> volumes;
    if (partitions && *partitions) {
        for (const partition& place : **partitions) {
            volumes.push_back(look_at_volume(source, place));
        }
    }
    return volumes;
}

void hand_on(const notices& from, notices& told) {
    for (const notice& each : from.all()) {
        told.warn(each.code, each.where, each.why);
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
    if (!head && head.error().code == failure_code::source_read) {
        volume.unread = head.error();
    }
    const bool may_be_damaged = volume.kind == volume_kind::ntfs || volume.kind == volume_kind::unknown ||
                                volume.kind == volume_kind::unreadable;
    notices ignored;
    if (may_be_damaged) {
        if (const auto shape = read_geometry(source, place.offset, place.length, ignored)) {
            volume.kind = volume_kind::ntfs;
            volume.serial = shape->serial;
            volume.boot_sector_is_backup = shape->from_backup;
            volume.is_sound = true;
        }
    }
    return volume;
}

result<volume_table> volume_table::read(const exact_source& source, std::optional<std::uint32_t> sector_size,
                                        notices& told) {
    const listed_volume whole = look_at_volume(source, {0, source.size()});
    if (whole.unread && !whole.is_sound) {
        return tl::make_unexpected(*whole.unread);
    }
    std::vector<listed_volume> volumes = {whole};
    // A backup in the last sector may be what is left of a volume that was there before the partitions.
    const bool is_bare = whole.is_sound && !whole.boot_sector_is_backup;
    if (!is_bare && whole.kind != volume_kind::unreadable) {
        notices told_of_table;
        const auto partitions = read_partitions(source, sector_size, told_of_table);
        if (!partitions && !is_named(whole.kind)) {
            return passed_on(partitions);
        }
        std::vector<listed_volume> found = look_at_partitions(source, partitions);
        const bool is_table = is_named(whole.kind) ? std::any_of(found.begin(), found.end(), is_sound)
                                                   : partitions->has_value();
        if (is_table) {
            volumes = std::move(found);
            hand_on(told_of_table, told);
        }
    }
    number_volumes(volumes);
    const std::string_view program = compressed_by(source);
    std::string hint = program.empty()
                           ? "-volumes shows what it holds"
                           : "it begins as a file of " + std::string(program) + " does, decompress it first";
    return volume_table(source.path(), std::move(volumes), std::move(hint));
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
    if (number && count > 0) {
        return fail(failure_code::no_such_volume, where::source(m_source),
                    "has no NTFS volume " + std::to_string(*number) + listed_by_volumes(count));
    }
    const bool is_enciphered = std::any_of(m_volumes.begin(), m_volumes.end(), [](const listed_volume& each) {
        return each.kind == volume_kind::bitlocker;
    });
    if (is_enciphered) {
        return fail(failure_code::enciphered, where::source(m_source), "is enciphered (BitLocker)");
    }
    const auto unread = std::find_if(m_volumes.begin(), m_volumes.end(),
                                     [](const listed_volume& each) { return each.unread.has_value(); });
    if (unread != m_volumes.end()) {
        return tl::make_unexpected(*unread->unread);
    }
    return fail(failure_code::no_volume, where::source(m_source), "holds no NTFS volume; " + m_hint);
}

}  // namespace quarry::exact
