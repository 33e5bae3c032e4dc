#include "fuzz/record_mutation.h"

#include "foundation/byte_view.h"
#include "volume/attribute.h"
#include "volume/file_record.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace quarry::fuzz {

namespace {

using block_bytes = std::span<std::uint8_t>;

constexpr std::size_t sector = 512;
constexpr std::size_t index_block_bytes = 4096;

struct field {
    std::size_t offset;
    unsigned width;
};

// Fields that readers look at, from the start of the structure.
constexpr std::array<field, 9> record_fields = {
    {{0, 4}, {4, 2}, {6, 2}, {16, 2}, {20, 2}, {22, 2}, {24, 4}, {28, 4}, {32, 8}}};
constexpr std::array<field, 7> attribute_fields = {
    {{0, 4}, {4, 4}, {8, 1}, {9, 1}, {10, 2}, {12, 2}, {14, 2}}};
constexpr std::array<field, 2> resident_fields = {{{16, 4}, {20, 2}}};
constexpr std::array<field, 8> non_resident_fields = {
    {{16, 8}, {24, 8}, {32, 2}, {34, 1}, {40, 8}, {48, 8}, {56, 8}, {64, 8}}};
constexpr std::array<field, 5> node_fields = {{{4, 2}, {24, 4}, {28, 4}, {32, 4}, {36, 1}}};
constexpr std::array<field, 6> boot_fields = {{{3, 4}, {11, 2}, {13, 1}, {40, 8}, {48, 8}, {64, 1}}};

std::size_t below(random_numbers& random, std::size_t limit) {
    return limit == 0 ? 0 : random() % limit;
}

void store(block_bytes bytes, field place, std::uint64_t value) {
    for (unsigned i = 0; i < place.width && place.offset + i < bytes.size(); ++i) {
        bytes[place.offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// A new value for a field: a number from nowhere, or one close to what it was.
void change(block_bytes bytes, field place, random_numbers& random) {
    const std::uint64_t before = byte_view(bytes).number_of_width(place.offset, place.width);
    switch (below(random, 4)) {
        case 0:
            return store(bytes, place, before + 1 + below(random, 8));
        case 1:
            return store(bytes, place, before - 1 - below(random, 8));
        default:
            return store(bytes, place, odd_number(random));
    }
}

template <std::size_t Count>
void change_one(block_bytes bytes, const std::array<field, Count>& fields, random_numbers& random) {
    change(bytes, fields[below(random, Count)], random);
}

// Bytes of the block that begins here; 0 if none does.
std::size_t block_size(byte_view at) {
    const file_record head(at);
    if (head.is_indx()) {
        return std::min(index_block_bytes, at.size());
    }
    if (!head.is_file() && !head.is_baad()) {
        return 0;
    }
    const std::size_t size = record_size_from_header(at);
    return std::min<std::size_t>(size < 512 ? 1024 : size, at.size());
}

// Restores the fixups, or applies them: swapping does both, once the number is at the sector ends.
void unprotect(block_bytes block) {
    restore_sector_ends(block, sector, sector_end_limit(block.size(), sector));
}

void protect(block_bytes block) {
    const byte_view view(block);
    const file_record head(view);
    const std::uint64_t array = head.update_sequence_offset();
    const std::uint64_t limit =
        std::min<std::uint64_t>(head.update_sequence_count(), sector_end_limit(block.size(), sector));
    for (std::uint64_t word = 1; word < limit; ++word) {
        const std::uint64_t end = word * sector - 2;
        if (end + 2 > block.size() || array + 2 * word + 2 > block.size()) {
            return;
        }
        store_u16(block, array + 2 * word, view.u16_or_zero(end));
        store_u16(block, end, view.u16_or_zero(array));
    }
}

std::vector<std::size_t> attribute_offsets(byte_view record) {
    std::vector<std::size_t> offsets;
    // Ends with the record: each turn moves on by an attribute's length.
    for (attribute at = first_attribute(record); !at.is_null() && at.type() != attr_end_marker;
         at = at.next()) {
        offsets.push_back(record.size() - at.bytes().size());
        if (at.length() < 16) {
            break;
        }
    }
    return offsets;
}

// Any bytes in the place of those at hand, as libFuzzer would change them.
void scramble(block_bytes bytes) {
    std::vector<std::uint8_t> changed(bytes.begin(), bytes.end());
    const std::size_t size =
        changed.empty() ? 0 : LLVMFuzzerMutate(changed.data(), changed.size(), changed.size());
    std::copy_n(changed.begin(), std::min(size, bytes.size()), bytes.begin());
}

void mutate_attribute(block_bytes record, std::size_t offset, random_numbers& random) {
    const block_bytes here = record.subspan(offset);
    const attribute at{byte_view(here)};
    const std::size_t length = std::min<std::size_t>(std::max<std::size_t>(at.length(), 16), here.size());
    const std::size_t content = at.non_resident() ? at.mapping_pairs_offset() : at.value_offset();
    switch (below(random, 4)) {
        case 0:
            return change_one(here, attribute_fields, random);
        case 1:
            return at.non_resident() ? change_one(here, non_resident_fields, random)
                                     : change_one(here, resident_fields, random);
        case 2:
            return scramble(here.first(length));
        default: {
            const block_bytes value = here.first(length).subspan(std::min(content, length));
            const field place = {below(random, value.size()), 1u << below(random, 4)};
            return below(random, 2) == 0 ? scramble(value) : change(value, place, random);
        }
    }
}

// Another attribute of the record over this one, with what follows: types meet values that are none of
// theirs.
void copy_attribute(block_bytes record, const std::vector<std::size_t>& offsets, random_numbers& random) {
    const std::size_t from = offsets[below(random, offsets.size())];
    const std::size_t to = offsets[below(random, offsets.size())];
    const std::vector<std::uint8_t> tail(record.begin() + static_cast<std::ptrdiff_t>(from), record.end());
    std::copy_n(tail.begin(), std::min(tail.size(), record.size() - to),
                record.begin() + static_cast<std::ptrdiff_t>(to));
}

void mutate_record(block_bytes record, random_numbers& random) {
    const std::vector<std::size_t> offsets = attribute_offsets(byte_view(record));
    const std::size_t choice = below(random, 12);
    if (offsets.empty() || choice == 0) {
        return change_one(record, record_fields, random);
    }
    if (choice == 1) {
        return copy_attribute(record, offsets, random);
    }
    mutate_attribute(record, offsets[below(random, offsets.size())], random);
}

void mutate_index_block(block_bytes block, random_numbers& random) {
    if (below(random, 4) == 0) {
        return change_one(block, node_fields, random);
    }
    // Entries begin after the node header, at multiples of 8.
    const std::size_t entry =
        64 + 8 * below(random, (block.size() - std::min<std::size_t>(64, block.size())) / 8);
    change(block, {entry, 1u << below(random, 4)}, random);
}

}  // namespace

std::uint64_t odd_number(random_numbers& random) {
    static constexpr std::array<std::uint64_t, 18> limits = {0,
                                                             1,
                                                             2,
                                                             0x7F,
                                                             0x80,
                                                             0xFF,
                                                             0x7FFF,
                                                             0x8000,
                                                             0xFFFF,
                                                             0x7FFFFFFF,
                                                             0x80000000,
                                                             0xFFFFFFFF,
                                                             0x100000000,
                                                             ~std::uint64_t{0},
                                                             ~std::uint64_t{0} >> 1,
                                                             0x8000000000000000,
                                                             512,
                                                             4096};
    switch (below(random, 3)) {
        case 0:
            return std::uint64_t{1} << below(random, 64);
        case 1:
            return below(random, 256);
        default:
            return limits[below(random, limits.size())];
    }
}

bool mutate_block(std::span<std::uint8_t> image, random_numbers& random) {
    const std::size_t steps = image.size() / sector;
    const std::size_t first = below(random, steps);
    for (std::size_t i = 0; i < steps; ++i) {
        const std::size_t offset = (first + i) % steps * sector;
        const std::size_t size = block_size(byte_view(image).from(offset));
        if (size < sector) {
            continue;
        }
        const block_bytes block = image.subspan(offset, size);
        const bool is_index = file_record(byte_view(block)).is_indx();
        unprotect(block);
        for (std::size_t times = 1 + below(random, 3); times > 0; --times) {
            is_index ? mutate_index_block(block, random) : mutate_record(block, random);
        }
        protect(block);
        return true;
    }
    return false;
}

void mutate_boot_sector(std::span<std::uint8_t> image, random_numbers& random) {
    change_one(image, boot_fields, random);
}

}  // namespace quarry::fuzz
