#include "exact/fixups.h"

#include "exact/name_text.h"
#include "volume/record_layout.h"

#include <string>

namespace quarry::exact {

namespace {

constexpr std::uint64_t array_must_end_at = fixup_stride - 2;

std::uint64_t end_of_sector(std::size_t sector) {
    return (sector + 1) * fixup_stride - 2;
}

}  // namespace

result<void> expect_signature(byte_view block, std::string_view characters, const block_place& place) {
    if (block.text_at(0, characters)) {
        return {};
    }
    std::u16string begins;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        begins.push_back(block.u8_or_zero(i));
    }
    return fail(failure_code::signature, place.where,
                "begins with \"" + shown_name(begins) + "\", not \"" + std::string(characters) + "\"",
                place.source_byte(0));
}

result<void> restore_fixups(std::span<std::uint8_t> block, const block_place& place) {
    const byte_view bytes(block);
    const file_record header(bytes);
    const std::uint64_t array = header.update_sequence_offset();
    const std::uint64_t words = header.update_sequence_count();
    const std::size_t sectors = block.size() / fixup_stride;
    if (array % 2 != 0 || words != sectors + 1 || block.size() % fixup_stride != 0 ||
        array + 2 * words > array_must_end_at) {
        return fail(failure_code::array, place.where,
                    "update sequence array of " + std::to_string(words) + " words at " + hex(array),
                    place.source_byte(4));
    }
    const std::uint16_t number = bytes.u16_or_zero(array);
    for (std::size_t sector = 0; sector < sectors; ++sector) {
        const std::uint16_t found = bytes.u16_or_zero(end_of_sector(sector));
        if (found != number) {
            return fail(failure_code::torn, place.where,
                        "torn: sector " + std::to_string(sector) + " ends in " + hex(found) +
                            ", the update sequence number is " + hex(number),
                        place.source_byte(end_of_sector(sector)));
        }
    }
    for (std::size_t sector = 0; sector < sectors; ++sector) {
        store_u16(block, end_of_sector(sector), bytes.u16_or_zero(array + 2 + 2 * sector));
    }
    return {};
}

}  // namespace quarry::exact
