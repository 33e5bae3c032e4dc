#include "volume/attribute_values.h"

#include "support/attribute_values.h"

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

// The bytes 0, 1, 2 ... so that a number shows its place: at offset n, 32 bits wide, it is
// (n+3)(n+2)(n+1)(n).
bytes counted(std::size_t size) {
    bytes result(size);
    for (std::size_t i = 0; i < size; ++i) {
        result[i] = static_cast<std::uint8_t>(i);
    }
    return result;
}

TEST(standard_information, each_field_has_its_place) {
    const bytes raw = counted(80);
    const standard_information_value value{byte_view(raw)};
    EXPECT_EQ(value.created(), 0x0706050403020100u);
    EXPECT_EQ(value.modified(), 0x0F0E0D0C0B0A0908u);
    EXPECT_EQ(value.mft_changed(), 0x1716151413121110u);
    EXPECT_EQ(value.accessed(), 0x1F1E1D1C1B1A1918u);
    EXPECT_EQ(value.attributes(), 0x23222120u);
    EXPECT_EQ(value.security_id(), 0x37363534u);
    EXPECT_EQ(value.bytes().size(), 72u) << "no more than 72 bytes are kept";
}

TEST(standard_information, the_older_form_of_48_bytes_has_no_security_id) {
    const bytes raw = counted(48);
    const standard_information_value value{byte_view(raw)};
    EXPECT_EQ(value.attributes(), 0x23222120u);
    EXPECT_EQ(value.security_id(), 0u);
    EXPECT_EQ(value.bytes().size(), 48u);
}

TEST(standard_information, a_value_cut_at_any_length_reads_as_zeros_from_there_on) {
    const bytes raw(72, 0x55);
    for (std::size_t length = 0; length <= raw.size(); ++length) {
        const standard_information_value value{byte_view(raw.data(), length)};
        EXPECT_EQ(value.accessed() != 0, length >= 32) << length;
        EXPECT_EQ(value.attributes() != 0, length >= 36) << length;
        EXPECT_EQ(value.security_id() != 0, length >= 56) << length;
    }
}

TEST(times, a_time_of_zero_is_null) {
    EXPECT_EQ(judge_times(0, 1, 1, 1), "null");
    EXPECT_EQ(judge_times(1, 0, 1, 1), "null");
    EXPECT_EQ(judge_times(1, 1, 0, 1), "null");
    EXPECT_EQ(judge_times(1, 1, 1, 0), "null");
    EXPECT_EQ(judge_times(1, 1, 1, 1), "");
}

TEST(times, a_time_later_than_the_limit_is_future) {
    EXPECT_EQ(judge_times(11, 1, 1, 1, 10), "future");
    EXPECT_EQ(judge_times(1, 1, 1, 11, 10), "future");
    EXPECT_EQ(judge_times(10, 10, 10, 10, 10), "");
}

TEST(times, without_a_limit_no_time_is_future) {
    EXPECT_EQ(judge_times(~std::uint64_t{0}, 1, 1, 1), "");
}

TEST(times, null_wins_when_both_hold) {
    EXPECT_EQ(judge_times(11, 0, 1, 1, 10), "null");
}

TEST(times, all_four_times_of_a_value_are_judged) {
    for (const std::size_t place : {0u, 8u, 16u, 24u}) {
        bytes raw(72, 1);
        apply(raw, {{place, 8, 0}});
        EXPECT_EQ(judge_times_of(standard_information_value{byte_view(raw)}), "null");
        apply(raw, {{place, 8, 0x0101010101010101}});
        EXPECT_EQ(judge_times_of(standard_information_value{byte_view(raw)}), "");
    }
    for (const std::size_t place : {8u, 16u, 24u, 32u}) {
        bytes raw(80, 1);
        apply(raw, {{place, 8, 0}});
        EXPECT_EQ(judge_times_of(file_name_value{byte_view(raw)}), "null");
        apply(raw, {{place, 8, 0xF000000000000000}});
        EXPECT_EQ(judge_times_of(file_name_value{byte_view(raw)}, 0xEFFFFFFFFFFFFFFF), "future");
    }
}

TEST(file_name, each_field_has_its_place) {
    bytes raw = counted(70);
    apply(raw, {{64, 1, 2}, {65, 1, 3}});
    const file_name_value value{byte_view(raw)};
    EXPECT_EQ(value.parent(), 0x0706050403020100u);
    EXPECT_EQ(value.created(), 0x0F0E0D0C0B0A0908u);
    EXPECT_EQ(value.modified(), 0x1716151413121110u);
    EXPECT_EQ(value.mft_changed(), 0x1F1E1D1C1B1A1918u);
    EXPECT_EQ(value.accessed(), 0x2726252423222120u);
    EXPECT_EQ(value.allocated_size(), 0x2F2E2D2C2B2A2928u);
    EXPECT_EQ(value.real_size(), 0x3736353433323130u);
    EXPECT_EQ(value.attributes(), 0x3B3A3938u);
    EXPECT_EQ(value.ea_or_reparse_word(), 0x3F3E3D3Cu);
    EXPECT_EQ(value.name_length_in_units(), 2);
    EXPECT_EQ(value.name_space(), 3);
    EXPECT_EQ(value.name_bytes().to_vector(), from_hex("42 43 44 45"));
}

TEST(file_name, a_name_is_as_long_as_it_says_and_as_its_bytes_allow) {
    bytes raw(66 + 510, 0x41);
    apply(raw, {{64, 1, 255}});
    EXPECT_EQ(file_name_value{byte_view(raw)}.name_bytes().size(), 510u);
    EXPECT_EQ(file_name_value(byte_view(raw.data(), 575)).name_bytes().size(), 509u);
    EXPECT_EQ(file_name_value(byte_view(raw.data(), 66)).name_bytes().size(), 0u);
    EXPECT_EQ(file_name_value(byte_view(raw.data(), 64)).name_length_in_units(), 0);
    EXPECT_EQ(file_name_value(byte_view()).real_size(), 0u);
    apply(raw, {{64, 1, 0}});
    EXPECT_TRUE(file_name_value{byte_view(raw)}.name_bytes().empty());
}

TEST(object_id, the_first_64_bytes_are_four_guids) {
    const bytes raw = counted(70);
    const object_id_value value{byte_view(raw)};
    EXPECT_EQ(value.bytes().size(), 64u);
    EXPECT_EQ(value.object_id().u8(0), 0);
    EXPECT_EQ(value.birth_volume_id().u8(0), 16);
    EXPECT_EQ(value.birth_object_id().u8(0), 32);
    EXPECT_EQ(value.domain_id().u8(0), 48);
    EXPECT_EQ(value.domain_id().size(), 16u);
    const object_id_value alone{byte_view(raw.data(), 16)};
    EXPECT_EQ(alone.object_id().size(), 16u);
    EXPECT_TRUE(alone.birth_volume_id().empty());
}

TEST(volume_information, the_version_names_the_system) {
    struct row {
        std::uint8_t major;
        std::uint8_t minor;
        const char* text;
    };
    const row rows[] = {
        {1, 2, "ver: 1:2 (WinNT)"},
        {3, 0, "ver: 3:0 (Win2k)"},
        {3, 1, "ver: 3:1 (WinXP)"},
        {3, 2, "ver: 3:2 (Windows)"},
        {3, 255, "ver: 3:255 (Windows)"},
        {1, 1, "ver: 1:1(Unk version)"},
        {1, 3, "ver: 1:3(Unk version)"},
        {2, 0, "ver: 2:0(Unk version)"},
        {4, 1, "ver: 4:1(Unk version)"},
        {0, 0, "ver: 0:0(Unk version)"},
        {255, 255, "ver: 255:255(Unk version)"},
    };
    for (const row& each : rows) {
        const bytes raw = volume_information(each.major, each.minor);
        EXPECT_EQ(volume_information_value{byte_view(raw)}.text(), each.text);
    }
}

TEST(volume_information, twelve_bytes_are_kept) {
    const bytes raw = counted(16);
    EXPECT_EQ(volume_information_value{byte_view(raw)}.bytes().size(), 12u);
    EXPECT_EQ(volume_information_value{byte_view(raw)}.major_version(), 8);
    EXPECT_EQ(volume_information_value{byte_view(raw)}.minor_version(), 9);
    EXPECT_EQ(volume_information_value(byte_view(raw.data(), 8)).text(), "ver: 0:0(Unk version)");
}

std::string text_of(byte_view units) {
    std::string text;
    for (std::size_t i = 0; i < units.size(); i += 2) {
        text += static_cast<char>(units.u8_or_zero(i));
    }
    return text;
}

TEST(reparse_point, each_field_has_its_place) {
    const bytes raw = counted(20);
    const reparse_value value{byte_view(raw)};
    EXPECT_EQ(value.tag(), 0x03020100u);
    EXPECT_EQ(value.data_length(), 0x0504);
    EXPECT_EQ(value.substitute_name_offset(), 0x0908);
    EXPECT_EQ(value.substitute_name_length(), 0x0B0A);
    EXPECT_EQ(value.print_name_offset(), 0x0D0C);
    EXPECT_EQ(value.print_name_length(), 0x0F0E);
    EXPECT_EQ(value.path_buffer().to_vector(), from_hex("10 11 12 13"));
}

TEST(reparse_point, a_junction_shows_its_print_name) {
    const bytes raw =
        reparse_point{.substitute_name = "\\??\\C:\\target", .print_name = "C:\\target"}.build();
    const reparse_value value{byte_view(raw)};
    EXPECT_TRUE(value.is_sound());
    EXPECT_EQ(value.bytes_passed_over(), 0u);
    EXPECT_EQ(text_of(value.substitute_name()), "\\??\\C:\\target");
    EXPECT_EQ(text_of(value.print_name()), "C:\\target");
    EXPECT_EQ(text_of(value.shown_name()), "C:\\target");
}

TEST(reparse_point, without_a_print_name_the_substitute_name_is_shown) {
    const bytes raw = reparse_point{.substitute_name = "\\??\\C:\\target", .print_name = ""}.build();
    EXPECT_TRUE(reparse_value{byte_view(raw)}.is_sound());
    EXPECT_EQ(text_of(reparse_value{byte_view(raw)}.shown_name()), "\\??\\C:\\target");
}

TEST(reparse_point, the_zero_flags_of_an_absolute_symbolic_link_are_passed_over) {
    const bytes raw = reparse_point{.tag = 0xA000000C,
                                    .substitute_name = "\\??\\C:\\t",
                                    .print_name = "C:\\t",
                                    .with_flags_word = true}
                          .build();
    const reparse_value value{byte_view(raw)};
    EXPECT_EQ(value.bytes_passed_over(), 4u);
    EXPECT_EQ(text_of(value.substitute_name()), "\\??\\C:\\t");
    EXPECT_EQ(text_of(value.print_name()), "C:\\t");
}

TEST(reparse_point, the_names_of_a_relative_symbolic_link_are_read_from_four_bytes_ahead_of_their_start) {
    const bytes raw = reparse_point{.tag = 0xA000000C,
                                    .substitute_name = "dir",
                                    .print_name = "dir",
                                    .with_flags_word = true,
                                    .flags_word = 1}
                          .build();
    const reparse_value value{byte_view(raw)};
    EXPECT_EQ(value.bytes_passed_over(), 0u);
    // The print name follows the substitute name and its zero unit: the last unit of the one, the zero, "d".
    EXPECT_EQ(text_of(value.print_name()), std::string("r\0d", 3));
}

// A junction of 8 + 28 bytes: substitute name "abcd" at 0, print name "xy" at 10.
bytes small_junction() {
    byte_writer out(36);
    out.u32(0, 0xA0000003).u16(4, 28).u16(8, 0).u16(10, 8).u16(12, 10).u16(14, 4);
    out.raw(16, ntfs_name("abcd").on_disk()).raw(26, ntfs_name("xy").on_disk());
    return out.take();
}

bool sound_with(const std::vector<forced_number>& changes) {
    bytes raw = small_junction();
    apply(raw, changes);
    return reparse_value{byte_view(raw)}.is_sound();
}

TEST(reparse_point, a_data_length_of_0_is_refused) {
    EXPECT_TRUE(sound_with({}));
    EXPECT_FALSE(sound_with({{4, 2, 0}}));
}

TEST(reparse_point, a_data_length_that_leaves_no_byte_of_the_value_is_refused) {
    EXPECT_TRUE(sound_with({{4, 2, 35}}));
    EXPECT_FALSE(sound_with({{4, 2, 36}}));
    EXPECT_FALSE(sound_with({{4, 2, 0xFFFF}}));
}

TEST(reparse_point, a_value_without_a_name_is_refused) {
    EXPECT_FALSE(sound_with({{10, 2, 0}, {14, 2, 0}}));
    EXPECT_TRUE(sound_with({{10, 2, 0}}));
    EXPECT_TRUE(sound_with({{14, 2, 0}}));
}

TEST(reparse_point, a_name_that_ends_at_the_data_length_or_after_is_refused) {
    EXPECT_TRUE(sound_with({{8, 2, 19}})) << "19 + 8 is 27";
    EXPECT_FALSE(sound_with({{8, 2, 20}}));
    EXPECT_FALSE(sound_with({{8, 2, 0xFFFF}, {10, 2, 0xFFFF}}));
    EXPECT_TRUE(sound_with({{12, 2, 23}}));
    EXPECT_FALSE(sound_with({{12, 2, 24}}));
    EXPECT_FALSE(sound_with({{14, 2, 0xFFFF}}));
}

TEST(reparse_point, a_value_of_16_bytes_is_refused_and_one_of_17_is_not) {
    bytes raw = small_junction();
    apply(raw, {{4, 2, 9}, {8, 2, 0}, {10, 2, 2}, {12, 2, 0}, {14, 2, 0}});
    EXPECT_FALSE(reparse_value(byte_view(raw.data(), 16)).is_sound());
    const reparse_value seventeen(byte_view(raw.data(), 17));
    EXPECT_TRUE(seventeen.is_sound());
    EXPECT_EQ(seventeen.substitute_name().size(), 1u) << "as much of the name as there is";
}

TEST(reparse_point, a_value_cut_at_any_length_and_a_path_buffer_of_zeros_are_survived) {
    const bytes raw = small_junction();
    for (std::size_t length = 0; length <= raw.size(); ++length) {
        const reparse_value value(byte_view(raw.data(), length));
        EXPECT_EQ(value.is_sound(), length > 28) << length;
        EXPECT_LE(value.shown_name().size(), 4u);
        EXPECT_LE(value.substitute_name().size(), 8u);
    }
    bytes zeros(36);
    apply(zeros, {{4, 2, 28}, {10, 2, 8}, {14, 2, 4}});
    EXPECT_EQ(reparse_value{byte_view(zeros)}.bytes_passed_over(), 20u);
    EXPECT_TRUE(reparse_value{byte_view(zeros)}.shown_name().empty());
}

TEST(reparse_point, odd_offsets_and_lengths_are_taken_as_bytes) {
    bytes raw = small_junction();
    apply(raw, {{8, 2, 1}, {10, 2, 3}, {12, 2, 11}, {14, 2, 1}});
    const reparse_value value{byte_view(raw)};
    EXPECT_TRUE(value.is_sound());
    EXPECT_EQ(value.substitute_name().to_vector(), from_hex("00 62 00"));
    EXPECT_EQ(value.print_name().to_vector(), from_hex("00"));
}

}  // namespace
}  // namespace quarry::test
