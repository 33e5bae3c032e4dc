#include "exact/stream.h"

#include "exact/name_text.h"
#include "exact/unit_delivery.h"

#include <algorithm>

namespace quarry::exact {

namespace {

// Ranges of zeros that are reported one by one.
constexpr std::size_t most_ranges_told = 10;

// The names of a type that are equal to `name` but for their case. $UpCase is read only if it can matter.
result<std::vector<std::u16string>> names_equal_but_for_case(exact_volume& volume, const attribute_set& set,
                                                             std::uint32_t type, std::u16string_view name,
                                                             notices& told) {
    std::vector<std::u16string> names = set.names(type);
    std::erase_if(names, [&](const std::u16string& each) { return each.size() != name.size(); });
    if (names.empty()) {
        return names;
    }
    const result<upcase>& table = volume.upper_case(told);
    if (!table) {
        return tl::make_unexpected(table.error());
    }
    std::erase_if(names, [&](const std::u16string& each) { return !table->equal(each, name); });
    return names;
}

// The name of the stream that a user means by `name`, as the volume has it.
result<std::u16string> choose_name(exact_volume& volume, const attribute_set& set, std::uint32_t type,
                                   std::u16string_view name, notices& told) {
    if (!set.pieces(type, name).empty()) {
        return std::u16string(name);
    }
    if (type == attr_data && name.empty() && set.base().is_directory()) {
        return fail(failure_code::directory, set.base().place().where,
                    "is a directory; name a stream, or list its files with -list");
    }
    result<std::vector<std::u16string>> names = names_equal_but_for_case(volume, set, type, name, told);
    if (!names) {
        return passed_on(names);
    }
    if (names->empty()) {
        return set.no_stream(type, name);
    }
    if (names->size() > 1) {
        std::string list;
        for (const std::u16string& each : *names) {
            list += (list.empty() ? "\"" : ", \"") + shown_name(each) + "\"";
        }
        return fail(failure_code::ambiguous, set.base().place().where,
                    "several names differ only in case: " + list);
    }
    return names->front();
}

void tell_unread(const careful_reader& reader, const std::string& where, notices& told) {
    const std::vector<byte_range>& ranges = reader.unread();
    for (std::size_t i = 0; i < std::min(ranges.size(), most_ranges_told); ++i) {
        told.doubt("unreadable", where,
                   std::to_string(ranges[i].length) + " bytes at " + hex(ranges[i].offset) + " are zeros");
    }
    if (ranges.size() > most_ranges_told) {
        told.doubt("unreadable", where,
                   std::to_string(ranges.size() - most_ranges_told) + " further ranges are zeros");
    }
}

void warn_of_cluster_used_twice(const stored_stream& stored, notices& told) {
    if (const std::optional<std::uint64_t> twice = stored.runs().cluster_used_twice()) {
        told.warn("cluster-twice", stored.where(), "uses cluster " + std::to_string(*twice) + " twice");
    }
}

}  // namespace

result<stream> stream::open(exact_volume& volume, const attribute_set& set, std::uint32_t type,
                            std::u16string_view name, notices& told) {
    result<std::u16string> chosen = choose_name(volume, set, type, name, told);
    if (!chosen) {
        return passed_on(chosen);
    }
    result<stored_stream> stored = set.stored(volume.shape(), type, *chosen);
    if (!stored) {
        return passed_on(stored);
    }
    warn_of_cluster_used_twice(*stored, told);
    const owner owned_by = set.base().in_use() ? owner::file_in_use : owner::deleted_file;
    return stream(volume, std::move(*stored), type, std::move(*chosen), owned_by);
}

result<stream> stream::open_system_compressed(exact_volume& volume, const attribute_set& set,
                                              wof_format format, notices& told) {
    result<stream> opened = open(volume, set, attr_data, {}, told);
    if (!opened || opened->stored().size() == 0) {
        return opened;
    }
    if (set.pieces(attr_data, system_compressed_name).empty()) {
        return fail(failure_code::wof, opened->stored().where(),
                    "no stream \"" + shown_name(system_compressed_name) + "\", from which it is decoded");
    }
    result<stored_stream> stored = set.stored(volume.shape(), attr_data, system_compressed_name);
    if (!stored) {
        return passed_on(stored);
    }
    warn_of_cluster_used_twice(*stored, told);
    opened->m_packed = packed{std::move(*stored), format};
    return opened;
}

result<stream> stream::of_clusters(exact_volume& volume, std::uint64_t lcn, std::uint64_t count) {
    const std::string where = "clusters from " + std::to_string(lcn);
    return stored_stream::of_clusters(volume.shape(), lcn, count, where).map([&](stored_stream stored) {
        return stream(volume, std::move(stored), attr_data, {}, owner::nobody);
    });
}

result<delivery> stream::deliver(stream_sink& sink, const delivery_options& options, notices& told) {
    const bool as_stored = options.raw || m_stored.size() == 0;
    if (m_stored.encrypted() && !as_stored) {
        return fail(failure_code::encrypted, m_stored.where(),
                    "encrypted (EFS); -raw copies the stored bytes, of which " +
                        std::to_string(m_stored.size()) + " count");
    }
    const bool decoded_from_other = m_packed && !options.raw;
    const stored_stream& stored = decoded_from_other ? m_packed->stored : m_stored;
    delivery done;
    result<std::optional<std::uint64_t>> reused = compare_with_bitmap(stored, told);
    if (!reused) {
        return passed_on(reused);
    }
    done.reused_clusters = *reused;
    done.bytes = delivered_size(options.raw);
    careful_reader reader(m_volume->bytes(), stored, options.zero_unreadable);
    result<void> delivered = decoded_from_other
                                 ? deliver_system_compressed(m_volume->bytes(), stored, m_packed->format,
                                                             done.bytes, reader, sink, options.workers)
                                 : deliver_valid(reader, sink, options, told);
    if (!delivered) {
        return passed_on(delivered);
    }
    tell_unread(reader, m_stored.where(), told);
    done.unread = reader.unread();
    return done;
}

// The bytes up to the valid length, or all that are allocated, and the zeros after them.
result<void> stream::deliver_valid(careful_reader& reader, stream_sink& sink, const delivery_options& options,
                                   notices& told) const {
    const std::uint64_t end = delivered_size(options.raw);
    const std::uint64_t stored_end = options.raw ? end : m_stored.valid_size();
    result<void> delivered =
        m_stored.compressed() && !options.raw
            ? deliver_decoded(m_volume->bytes(), m_stored, reader, sink, told, options.workers)
            : deliver_stored(m_volume->bytes(), m_stored, stored_end, reader, sink);
    return delivered && stored_end < end ? sink.zeros(end - stored_end) : delivered;
}

// How many clusters of a deleted file are in use again; nothing for other streams.
result<std::optional<std::uint64_t>> stream::compare_with_bitmap(const stored_stream& stored,
                                                                 notices& told) const {
    if (m_owner == owner::nobody || stored.resident()) {
        return std::nullopt;
    }
    const std::uint64_t clusters = stored.runs().stored_clusters();
    allocation::count bits;
    if (clusters != 0) {
        const result<allocation>& bitmap = m_volume->bitmap(told);
        result<allocation::count> counted =
            bitmap ? bitmap->of(stored.runs()) : tl::make_unexpected(bitmap.error());
        if (!counted) {
            return passed_on(counted);
        }
        bits = *counted;
    }
    if (m_owner == owner::deleted_file) {
        told.doubt("reused-clusters", stored.where(),
                   "deleted; " + std::to_string(bits.used) + " of " + std::to_string(clusters) +
                       " clusters belong to other files now");
        return bits.used;
    }
    if (bits.free != 0) {
        told.doubt(
            "free-clusters", stored.where(),
            std::to_string(bits.free) + " of " + std::to_string(clusters) + " clusters are free in $Bitmap");
    }
    return std::nullopt;
}

}  // namespace quarry::exact
