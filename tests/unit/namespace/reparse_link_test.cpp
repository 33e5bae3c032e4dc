#include "namespace/reparse_link.h"

#include "support/attribute_values.h"
#include "support/record_builder.h"

#include <string>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint32_t record_size = 1024;

struct link {
    bool found;
    std::wstring target;
};

link read(const bytes& record) {
    link result{false, L"as it was"};
    result.found = link_target(result.target, byte_view(record), record_size);
    return result;
}

link read_value(bytes value) {
    return read(record_builder().add(attribute_builder::resident(0xC0, std::move(value))).build_restored());
}

bytes with(bytes content, std::size_t offset, unsigned width, std::uint64_t value) {
    return byte_writer(std::move(content)).number(offset, width, value).take();
}

const reparse_point junction = {.substitute_name = R"(\??\C:\Target)", .print_name = R"(C:\Target)"};

// A value whose names are where a test puts them. Offsets count from the buffer.
bytes value_with(std::size_t substitute_offset, std::size_t print_offset, std::size_t print_length,
                 const std::vector<std::pair<std::size_t, const char*>>& texts) {
    byte_writer out(16);
    out.u32(0, 0xA0000003).u16(4, 200).u16(8, substitute_offset).u16(10, 2);
    out.u16(12, print_offset).u16(14, print_length);
    for (const auto& [offset, text] : texts) {
        out.raw(16 + offset, ntfs_name(text).on_disk());
    }
    return out.take();
}

TEST(reparse_link, of_a_junction_leads_to_its_print_name) {
    const link found = read_value(junction.build());
    EXPECT_TRUE(found.found);
    EXPECT_EQ(found.target, LR"(C:\Target)");
}

TEST(reparse_link, of_an_absolute_symbolic_link_passes_over_its_flags) {
    reparse_point symbolic = junction;
    symbolic.tag = 0xA000000C;
    symbolic.with_flags_word = true;
    EXPECT_EQ(read_value(symbolic.build()).target, LR"(C:\Target)");
}

TEST(reparse_link, of_a_relative_symbolic_link_is_read_from_four_bytes_ahead_and_no_usable_path) {
    reparse_point symbolic = {.tag = 0xA000000C,
                              .substitute_name = R"(..\Target)",
                              .print_name = R"(..\Target)",
                              .with_flags_word = true,
                              .flags_word = 1};
    const link found = read_value(symbolic.build());
    EXPECT_TRUE(found.found);
    // The print name is 20 bytes after the substitute name: nine units and a zero one. Four bytes before it
    // are the last unit of the substitute name and its zero.
    EXPECT_EQ(found.target, L"t");
}

TEST(reparse_link, does_not_look_at_the_tag) {
    for (const std::uint32_t tag : {0u, 0x80000017u, 0xFFFFFFFFu}) {
        reparse_point odd = junction;
        odd.tag = tag;
        EXPECT_EQ(read_value(odd.build()).target, LR"(C:\Target)") << tag;
    }
}

TEST(reparse_link, needs_a_reparse_point) {
    const link found =
        read(record_builder().add(attribute_builder::resident(0x80, bytes(40))).build_restored());
    EXPECT_FALSE(found.found);
    EXPECT_EQ(found.target, L"");
}

TEST(reparse_link, needs_a_data_length) {
    EXPECT_FALSE(read_value(with(junction.build(), 4, 2, 0)).found);
    EXPECT_TRUE(read_value(with(junction.build(), 4, 2, 1)).found);
    EXPECT_TRUE(read_value(with(junction.build(), 4, 2, 0xFFFF)).found);
}

TEST(reparse_link, needs_a_substitute_name) {
    EXPECT_FALSE(read_value(with(junction.build(), 10, 2, 0)).found);
    EXPECT_TRUE(read_value(with(junction.build(), 10, 2, 1)).found);
}

TEST(reparse_link, of_a_system_compressed_file_is_none) {
    // Version 1 and provider 2 of the overlay, then version 1 and algorithm of its provider.
    EXPECT_FALSE(read_value(from_hex("17000080 10000000 01000000 02000000 01000000 00000000")).found);
}

TEST(reparse_link, without_a_print_name_has_an_empty_target) {
    const link found = read_value(with(junction.build(), 14, 2, 0));
    EXPECT_TRUE(found.found);
    EXPECT_EQ(found.target, L"");
}

TEST(reparse_link, moves_the_print_name_by_the_zero_words_ahead_of_the_substitute_name) {
    EXPECT_EQ(read_value(value_with(0, 20, 2, {{6, "s"}, {26, "p"}})).target, L"p");
    EXPECT_EQ(read_value(value_with(4, 20, 2, {{6, "s"}, {22, "p"}})).target, L"p");
    EXPECT_EQ(read_value(value_with(6, 20, 2, {{6, "s"}, {20, "p"}})).target, L"p");
}

TEST(reparse_link, does_not_look_at_the_length_of_its_value) {
    for (const std::uint64_t length : {0ull, 15ull, 16ull, 17ull, 0xFFFFFFFFull}) {
        const bytes record =
            record_builder()
                .add(attribute_builder::resident(0xC0, junction.build()).force(16, 4, length))
                .build_restored();
        EXPECT_EQ(read(record).target, LR"(C:\Target)") << length;
    }
}

TEST(reparse_link, may_have_names_that_lie_over_each_other) {
    // The print name begins with the third unit of the substitute name, or is the same.
    EXPECT_EQ(read_value(value_with(0, 4, 6, {{0, "abcdef"}})).target, L"cde");
    EXPECT_EQ(read_value(value_with(0, 0, 6, {{0, "abcdef"}})).target, L"abc");
    // One that begins at an odd byte is read from there: 'a' and 'b' without and with the zeros around them.
    EXPECT_EQ(read_value(value_with(0, 1, 4, {{0, "abc"}})).target,
              (std::wstring{wchar_t{0x6200}, wchar_t{0x6300}}));
}

TEST(reparse_link, ends_the_print_name_at_its_first_zero_unit) {
    EXPECT_EQ(read_value(value_with(0, 20, 40, {{0, "s"}, {20, "path"}, {30, "more"}})).target, L"path");
}

TEST(reparse_link, ignores_an_odd_last_byte_of_the_print_name) {
    EXPECT_EQ(read_value(value_with(0, 20, 5, {{0, "s"}, {20, "path"}})).target, L"pa");
}

TEST(reparse_link, keeps_a_damaged_name) {
    const std::u16string damaged = {u'a', 0xD800, u'b'};
    reparse_point odd = junction;
    odd.print_name = ntfs_name(damaged);
    EXPECT_EQ(read_value(odd.build()).target, (std::wstring{L'a', wchar_t{0xD800}, L'b'}));
}

TEST(reparse_link, that_is_not_resident_is_none) {
    const bytes record =
        record_builder().add(attribute_builder::non_resident(0xC0, runs({{100, 1}}))).build_restored();
    EXPECT_FALSE(read(record).found);
}

TEST(reparse_link, with_offsets_outside_of_the_record_has_an_empty_target) {
    for (const std::uint64_t offset : {1000ull, 0xFFFEull, 0xFFFFull}) {
        EXPECT_EQ(read_value(with(junction.build(), 12, 2, offset)).target, L"") << offset;
        EXPECT_TRUE(read_value(with(junction.build(), 8, 2, offset)).found) << offset;
    }
}

TEST(reparse_link, of_a_record_cut_at_every_length_stays_inside) {
    const bytes record =
        record_builder().add(attribute_builder::resident(0xC0, junction.build())).build_restored();
    for (std::size_t length = 0; length <= record.size(); ++length) {
        const std::wstring target =
            read(bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length))).target;
        EXPECT_EQ(target, std::wstring(LR"(C:\Target)").substr(0, target.size())) << length;
    }
}

TEST(reparse_link, after_an_attribute_longer_than_the_record_is_not_found) {
    const bytes record = record_builder()
                             .add(attribute_builder::resident(0x80, bytes(40)).length(1025))
                             .add(attribute_builder::resident(0xC0, junction.build()))
                             .build_restored();
    EXPECT_FALSE(read(record).found);
}

}  // namespace
}  // namespace quarry::test
