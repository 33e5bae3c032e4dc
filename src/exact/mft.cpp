#include "exact/mft.h"

#include "volume/well_known.h"

#include <algorithm>

namespace quarry::exact {

namespace {

constexpr std::uint16_t last_sequence = 0xFFFF;
// Places in a record, for the byte on the source that a failure names.
constexpr std::uint64_t sequence_offset = 16;
constexpr std::uint64_t flags_offset = 22;
constexpr std::uint64_t base_offset = 32;

// The sequence number that an entry gets when its file is deleted; 0 is left out.
std::uint16_t next_sequence(std::uint16_t sequence) {
    return sequence == last_sequence ? 1 : static_cast<std::uint16_t>(sequence + 1);
}

std::string where_of_table() {
    return where::stream(mft_entry, attr_data, "");
}

tl::unexpected<failure> table_failure(const record& base, std::string why) {
    return fail(failure_code::mft, base.place().where, std::move(why), base.place().source_byte(0));
}

bool is_piece_of_table(const attribute& each) {
    return each.type() == attr_data && each.name_length_in_units() == 0;
}

tl::unexpected<failure> wrong_sequence(const record& found, std::uint16_t expected) {
    return fail(failure_code::sequence, found.place().where,
                "has sequence number " + std::to_string(found.self().sequence) + ", the reference says " +
                    std::to_string(expected),
                found.place().source_byte(sequence_offset));
}

tl::unexpected<failure> not_in_use(const record& found) {
    return fail(failure_code::unused, found.place().where, "is not in use",
                found.place().source_byte(flags_offset));
}

// The sequence number of a reference against that of the record; 0 in a reference says nothing.
bool agrees(const record& found, std::uint16_t expected, notices& told) {
    if (expected == 0) {
        told.warn("no-sequence", found.place().where, "the reference to it has no sequence number");
        return true;
    }
    return found.self().sequence == expected;
}

result<record> expect_base(record found) {
    if (const std::optional<reference> base = found.base()) {
        return fail(failure_code::extension, found.place().where,
                    "is an extension of record " + std::to_string(base->entry),
                    found.place().source_byte(base_offset));
    }
    return found;
}

// The first piece of the table in the chain of record 0; the end of the chain if there is none.
std::vector<attribute>::const_iterator first_piece_of_table(const record& base) {
    const auto& all = base.attributes();
    return std::find_if(all.begin(), all.end(), [](const attribute& each) {
        return is_piece_of_table(each) && each.non_resident() && each.lowest_vcn() == 0;
    });
}

// The table as far as record 0 itself describes it, if it is what the boot sector says.
result<stored_stream> head_of_table(const volume_bytes& volume, const record& base) {
    if (!base.in_use() || base.base()) {
        return table_failure(base, "is not the base record of $MFT");
    }
    const auto first = first_piece_of_table(base);
    if (first == base.attributes().end()) {
        return table_failure(base, "has no stored $DATA");
    }
    result<stored_stream> table = stored_stream::begin(volume.shape(), {*first, &base}, where_of_table());
    if (table && (table->compressed() || table->encrypted())) {
        return fail(failure_code::flags, where_of_table(), "flags are " + hex(table->flags()));
    }
    const run* first_run = table ? table->runs().find(0) : nullptr;
    if (table && (first_run == nullptr || first_run->lcn != volume.shape().mft_lcn)) {
        return table_failure(base, "its $DATA does not begin at LCN " +
                                       std::to_string(volume.shape().mft_lcn) +
                                       ", where the boot sector says");
    }
    return table;
}

struct opened_head {
    record base;
    stored_stream table;
};

result<opened_head> open_head(const volume_bytes& volume, std::uint64_t lcn, std::string where,
                              notices& told) {
    const geometry& shape = volume.shape();
    result<record> base = read_record_at(volume.source(), shape.record_size, shape.source_byte_of(lcn),
                                         mft_entry, std::move(where), told);
    if (!base) {
        return passed_on(base);
    }
    result<stored_stream> table = head_of_table(volume, *base);
    if (!table) {
        return passed_on(table);
    }
    return opened_head{std::move(*base), std::move(*table)};
}

}  // namespace

result<mft> mft::open(const volume_bytes& volume, notices& told) {
    bool from_mirror = false;
    result<opened_head> head = open_head(volume, volume.shape().mft_lcn, where::record(mft_entry), told);
    if (!head) {
        result<opened_head> mirrored =
            open_head(volume, volume.shape().mirror_lcn, where::record_of_mirror(mft_entry), told);
        if (!mirrored) {
            return passed_on(head);
        }
        told.warn("mft-mirror", head.error().where, head.error().why + "; the mirror's copy is used");
        head = std::move(mirrored);
        from_mirror = true;
    }
    mft table(volume, std::move(head->table), from_mirror);
    if (result<void> added = table.add_pieces(head->base, told); !added) {
        return passed_on(added);
    }
    if (result<void> finished = table.m_table.finish(); !finished) {
        return passed_on(finished);
    }
    return table;
}

// Adds what the attribute list of record 0 names, each piece through those before it.
result<void> mft::add_pieces(const record& base, notices& told) {
    result<const attribute*> list = find_attribute_list(base);
    if (!list) {
        return passed_on(list);
    }
    if (*list == nullptr) {
        const auto& all = base.attributes();
        if (std::count_if(all.begin(), all.end(), is_piece_of_table) > 1) {
            return fail(failure_code::duplicate, where_of_table(), "stands twice at VCN 0");
        }
        return {};
    }
    result<std::vector<list_item>> items = read_attribute_list(m_volume, base, **list);
    if (!items) {
        return passed_on(items);
    }
    std::erase_if(*items, [](const list_item& each) { return each.type != attr_data || !each.name.empty(); });
    std::stable_sort(items->begin(), items->end(),
                     [](const list_item& a, const list_item& b) { return a.lowest_vcn < b.lowest_vcn; });
    const std::string where = base.place().where;
    if (items->empty() || items->front().holder != base.self() || items->front().lowest_vcn != 0) {
        return table_failure(base, "its attribute list does not begin $DATA in this record");
    }
    result<std::size_t> first = attribute_named_by(items->front(), base, where);
    if (!first) {
        return passed_on(first);
    }
    if (base.attributes().begin() + static_cast<std::ptrdiff_t>(*first) != first_piece_of_table(base)) {
        return table_failure(base, "its attribute list begins $DATA at another attribute");
    }
    for (auto item = items->begin() + 1; item != items->end(); ++item) {
        // Pieces in record 0 itself are possible too.
        std::optional<record> extension;
        if (item->holder != base.self()) {
            result<record> read = read_extension(item->holder, base, told);
            if (!read) {
                return passed_on(read);
            }
            extension = std::move(*read);
        }
        const record& holder = extension ? *extension : base;
        result<std::size_t> named = attribute_named_by(*item, holder, where);
        if (!named) {
            return passed_on(named);
        }
        if (result<void> added = m_table.add({holder.attributes()[*named], &holder}); !added) {
            return added;
        }
    }
    return {};
}

result<record> mft::read(std::uint64_t entry, notices& told) const {
    const std::uint32_t size = volume().shape().record_size;
    if (entry >= entries()) {
        return fail(failure_code::behind_mft, where::record(entry),
                    "$MFT has " + std::to_string(entries()) + " entries");
    }
    const auto read_mirrored = [&] {
        const std::uint64_t in_mirror =
            volume().shape().source_byte_of(volume().shape().mirror_lcn) + entry * size;
        return read_record_at(volume().source(), size, in_mirror, entry, where::record_of_mirror(entry),
                              told);
    };
    // The record that describes the table is the one that the table was opened by.
    if (entry == 0 && m_from_mirror) {
        return read_mirrored();
    }
    result<record> stored = read_stored(entry, told);
    if (stored || entry >= mirrored_entries) {
        return stored;
    }
    result<record> mirrored = read_mirrored();
    if (!mirrored) {
        return stored;
    }
    told.warn("mft-mirror", stored.error().where, stored.error().why + "; the mirror's copy is used");
    return mirrored;
}

// A record through the pieces known so far.
result<record> mft::read_stored(std::uint64_t entry, notices& told) const {
    const std::uint32_t size = volume().shape().record_size;
    const std::uint64_t offset = entry * size;
    // While the table is opened, its size is known before its pieces are.
    if (offset + size > m_table.runs().end_vcn() * volume().shape().cluster_size) {
        return fail(failure_code::mft, where::record(entry), "is not in the pieces of $MFT known so far");
    }
    std::vector<std::uint8_t> bytes(size);
    if (result<void> came = m_table.read(volume(), bytes, offset); !came) {
        return passed_on(came);
    }
    return verify_stored(entry, std::move(bytes), told);
}

void mft::announce(std::uint64_t entry, std::uint64_t count) const {
    const std::uint32_t size = volume().shape().record_size;
    if (entry < entries()) {
        m_table.announce(volume(), entry * size, std::min(count, entries() - entry) * size);
    }
}

result<void> mft::read_stored_bytes(std::uint64_t entry, std::span<std::uint8_t> buffer) const {
    return m_table.read(volume(), buffer, entry * volume().shape().record_size);
}

result<record> mft::verify_stored(std::uint64_t entry, std::vector<std::uint8_t> bytes, notices& told) const {
    const std::uint64_t size = bytes.size();
    return record::verify(std::move(bytes), entry,
                          m_table.place_of(volume(), entry * size, size, where::record(entry)), told);
}

result<record> mft::read_in_use(reference wanted, notices& told) const {
    return read(wanted.entry, told).and_then([&](record found) {
        return expect_in_use(std::move(found), wanted, told);
    });
}

result<record> mft::expect_in_use(record found, reference wanted, notices& told) {
    if (!found.in_use()) {
        return not_in_use(found);
    }
    if (!agrees(found, wanted.sequence, told)) {
        return wrong_sequence(found, wanted.sequence);
    }
    return expect_base(std::move(found));
}

result<record> mft::read_system(std::uint64_t entry, notices& told) const {
    return read(entry, told).and_then([](record found) -> result<record> {
        if (!found.in_use()) {
            return not_in_use(found);
        }
        return expect_base(std::move(found));
    });
}

result<record> mft::read_asked(std::uint64_t entry, std::optional<std::uint16_t> sequence,
                               notices& told) const {
    return read(entry, told).and_then([&](record found) -> result<record> {
        if (sequence && found.self().sequence != *sequence) {
            return wrong_sequence(found, *sequence);
        }
        if (!found.in_use()) {
            told.warn("deleted", found.place().where, "deleted: the record is not in use");
        }
        return expect_base(std::move(found));
    });
}

result<record> mft::read_parent(reference wanted, bool of_deleted, notices& told) const {
    return read(wanted.entry, told).and_then([&](record found) -> result<record> {
        if (!of_deleted && !found.in_use()) {
            return not_in_use(found);
        }
        const bool one_behind = !found.in_use() && next_sequence(wanted.sequence) == found.self().sequence;
        if (!one_behind && !agrees(found, wanted.sequence, told)) {
            return wrong_sequence(found, wanted.sequence);
        }
        if (!found.is_directory()) {
            return fail(failure_code::not_directory, found.place().where, "is no directory",
                        found.place().source_byte(flags_offset));
        }
        return expect_base(std::move(found));
    });
}

result<record> mft::read_extension(reference wanted, const record& base, notices& told) const {
    return read(wanted.entry, told).and_then([&](record found) -> result<record> {
        if (result<void> listed = expect_listed(found, wanted, base, told); !listed) {
            return passed_on(listed);
        }
        return found;
    });
}

result<void> mft::expect_listed(const record& holder, reference wanted, const record& base, notices& told) {
    const bool deleted = !base.in_use();
    if (!deleted && !holder.in_use()) {
        return not_in_use(holder);
    }
    const bool one_behind = deleted && next_sequence(wanted.sequence) == holder.self().sequence;
    if (!one_behind && !agrees(holder, wanted.sequence, told)) {
        return wrong_sequence(holder, wanted.sequence);
    }
    if (holder.entry() == base.entry()) {
        return {};
    }
    const reference owner = holder.base().value_or(reference{});
    const bool owner_one_behind =
        deleted && owner.entry == base.entry() && next_sequence(owner.sequence) == base.self().sequence;
    const bool owner_without_sequence = holder.base() && owner.entry == base.entry() && owner.sequence == 0;
    if (owner_without_sequence) {
        told.warn("no-sequence", holder.place().where, "its reference to its base has no sequence number");
    }
    if (owner != base.self() && !owner_one_behind && !owner_without_sequence) {
        return fail(failure_code::base, holder.place().where,
                    "belongs to record " + owner.text() + ", not to " + base.self().text(),
                    holder.place().source_byte(base_offset));
    }
    return {};
}

}  // namespace quarry::exact
