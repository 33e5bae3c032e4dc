#include "exact/record.h"

#include "exact/fixups.h"
#include "exact/name_text.h"

namespace quarry::exact {

namespace {

constexpr std::uint64_t smallest_attribute = 24;
constexpr std::uint64_t smallest_non_resident = 64;
constexpr std::uint64_t end_marker_size = 4;
// Arrays that begin here or later leave room for the record's own number at 44.
constexpr std::uint16_t array_after_own_number = 0x30;

bool aligned(std::uint64_t number) {
    return number % 8 == 0;
}

// The rule that an attribute breaks; nothing if it is sound. `room` is the bytes from its start to the end of
// what the record uses.
const char* broken_rule(const attribute& each, std::uint64_t room) {
    const std::uint64_t length = each.length();
    if (length < smallest_attribute || !aligned(length)) {
        return "its length is no multiple of 8 from 24 on";
    }
    if (length > room) {
        return "it reaches past the used size of the record";
    }
    const std::uint8_t form = each.bytes().u8_or_zero(8);
    if (form > 1) {
        return "its form is neither resident nor non-resident";
    }
    const std::uint64_t header = form == 0 ? smallest_attribute : smallest_non_resident;
    if (length < header) {
        return "it has no room for its header";
    }
    const std::uint64_t name_bytes = std::uint64_t{2} * each.name_length_in_units();
    if (name_bytes != 0 && (each.name_offset() < header || each.name_offset() + name_bytes > length)) {
        return "its name is not inside of it";
    }
    if (form == 0) {
        const std::uint64_t value_end = std::uint64_t{each.value_offset()} + each.value_length();
        // An empty value too: a non-resident attribute whose form was damaged has 0 for both.
        if (each.value_offset() < header) {
            return "its value begins in its header";
        }
        return value_end > length ? "its value is not inside of it" : nullptr;
    }
    return each.mapping_pairs_offset() < header || each.mapping_pairs_offset() > length
               ? "its mapping pairs are not inside of it"
               : nullptr;
}

}  // namespace

std::string reference::text() const {
    return std::to_string(entry) + "-" + std::to_string(sequence);
}

result<record> record::verify(std::vector<std::uint8_t> bytes, std::uint64_t entry, block_place place,
                              notices& told) {
    record verified;
    verified.m_entry = entry;
    verified.m_bytes = std::move(bytes);
    verified.m_place = std::move(place);
    if (result<void> begins = expect_signature(verified.m_bytes, "FILE", verified.m_place); !begins) {
        return passed_on(begins);
    }
    if (result<void> restored = restore_fixups(verified.m_bytes, verified.m_place); !restored) {
        return passed_on(restored);
    }
    if (result<void> header = verified.read_header(told); !header) {
        return passed_on(header);
    }
    if (result<void> chain = verified.read_chain(); !chain) {
        return passed_on(chain);
    }
    return verified;
}

result<void> record::read_header(notices& told) {
    const file_record head = header();
    const auto broken = [&](std::string rule, std::uint64_t field) {
        return fail(failure_code::layout, m_place.where, std::move(rule), m_place.source_byte(field));
    };
    if (head.bytes_allocated() != m_bytes.size()) {
        return broken("its allocated size is " + std::to_string(head.bytes_allocated()) +
                          ", records of this volume have " + std::to_string(m_bytes.size()),
                      28);
    }
    if (head.bytes_used() > m_bytes.size() || !aligned(head.bytes_used())) {
        return broken("its used size is " + std::to_string(head.bytes_used()), 24);
    }
    if (head.first_attribute_offset() < record_header_size || !aligned(head.first_attribute_offset())) {
        return broken("its first attribute is at " + hex(head.first_attribute_offset()), 20);
    }
    if (head.update_sequence_offset() >= array_after_own_number &&
        head.entry_number() != low_32_bits(m_entry)) {
        told.warn("own-number", m_place.where,
                  "says that it is record " + std::to_string(head.entry_number()));
    }
    return {};
}

result<void> record::read_chain() {
    const byte_view used = bytes().clipped(0, header().bytes_used());
    std::uint64_t offset = header().first_attribute_offset();
    // Each turn moves on by at least 24 bytes, or is the last.
    for (;;) {
        const auto broken = [&](const char* rule) {
            return fail(failure_code::layout, m_place.where, "attribute at " + hex(offset) + ": " + rule,
                        m_place.source_byte(offset));
        };
        if (!used.holds(offset, end_marker_size)) {
            return broken("the chain has no end inside of the used size");
        }
        const attribute each(used.from(offset));
        if (each.type() == attr_end_marker) {
            return {};
        }
        if (const char* rule = broken_rule(each, used.size() - offset)) {
            return broken(rule);
        }
        m_attributes.emplace_back(each.own_bytes());
        offset += each.length();
    }
}

std::optional<reference> record::base() const {
    const std::uint64_t stored = header().base_reference();
    return stored == 0 ? std::nullopt : std::optional(reference::from(stored));
}

result<record> read_record_at(const exact_source& source, std::uint32_t record_size,
                              std::uint64_t source_byte, std::uint64_t entry, std::string where,
                              notices& told) {
    std::vector<std::uint8_t> bytes(record_size);
    if (result<void> came = source.read(bytes, source_byte); !came) {
        if (came.error().code == failure_code::source_read) {
            came.error().where = where;
        }
        return passed_on(came);
    }
    return record::verify(std::move(bytes), entry, {std::move(where), {{0, source_byte}}}, told);
}

std::u16string name_of(const attribute& verified) {
    return units_of_bytes(
        verified.bytes().clipped(verified.name_offset(), std::uint64_t{2} * verified.name_length_in_units()));
}

}  // namespace quarry::exact
