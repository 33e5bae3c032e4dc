#include "volume/entry_record.h"

#include "support/attribute_builder.h"
#include "support/attribute_values.h"

#include <algorithm>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

constexpr std::uint64_t entry = 0x2A;

// Sorts one attribute that ends its record, or has `after` after it there.
bool sort(entry_record& record, const bytes& built, const bytes& after = {}) {
    const bytes rest = concat({built, after});
    bool is_list = true;
    const bool ok = categorize_attribute(record, entry, attribute(byte_view(rest)), is_list);
    EXPECT_FALSE(is_list);
    return ok;
}

entry_record sorted(const attribute_builder& built) {
    entry_record record;
    EXPECT_TRUE(sort(record, built.build()));
    return record;
}

const general_attribute& only_attribute(const entry_record& record) {
    EXPECT_EQ(record.attributes.size(), 1u);
    return record.attributes.begin()->second;
}

TEST(categorize_attribute, refuses_what_is_not_wholly_inside_its_record) {
    entry_record record;
    const bytes built = attribute_builder::resident(0x80, to_bytes("abc")).build();
    bool is_list = true;
    EXPECT_FALSE(categorize_attribute(record, entry, attribute(), is_list));
    EXPECT_FALSE(is_list);
    for (std::size_t size = 1; size < built.size(); ++size) {
        EXPECT_FALSE(sort(record, bytes(built.begin(), built.begin() + static_cast<std::ptrdiff_t>(size))))
            << size;
    }
    EXPECT_FALSE(sort(record, attribute_builder::resident(0x80, to_bytes("abc")).length(0).build()));
    EXPECT_TRUE(record.attributes.empty());
    EXPECT_TRUE(sort(record, built));
}

TEST(categorize_attribute, leaves_an_attribute_list_to_the_caller) {
    entry_record record;
    const bytes list = attribute_builder::resident(0x20, pattern(32)).build();
    bool is_list = false;
    EXPECT_TRUE(categorize_attribute(record, entry, attribute(byte_view(list)), is_list));
    EXPECT_TRUE(is_list);
    EXPECT_TRUE(record.attributes.empty());
}

struct label_row {
    std::uint32_t type;
    const char* label;
    std::size_t value_size;
};
class labels_test : public ::testing::TestWithParam<label_row> {};

TEST_P(labels_test, stand_in_the_general_form) {
    const label_row& row = GetParam();
    const entry_record record =
        sorted(attribute_builder::resident(row.type, pattern(row.value_size)).id(7).named("n"));
    EXPECT_EQ(only_attribute(record).label, row.label);
    EXPECT_EQ(only_attribute(record).name, L"n");
    EXPECT_EQ(record.attributes.begin()->first, (std::uint64_t{7} << 48) | row.type);
}

INSTANTIATE_TEST_SUITE_P(
    types, labels_test,
    ::testing::Values(label_row{0x40, "obj id", 16}, label_row{0x50, "security descr", 20},
                      label_row{0x60, "vol name", 8}, label_row{0x70, "vol info", 12},
                      label_row{0x80, "ads", 5}, label_row{0x90, "indx root", 32},
                      label_row{0xA0, "indx alloc", 8}, label_row{0xB0, "bitmap", 8},
                      label_row{0xD0, "extended attribs info", 8}, label_row{0xE0, "extended attribs", 8},
                      label_row{0xF0, "property set", 8}, label_row{0x100, "logged stream", 8},
                      label_row{0x110, "unk", 8}, label_row{0x08, "unk", 8}, label_row{0x1000, "unk", 8}));

TEST(categorize_attribute, labels_unnamed_data) {
    const entry_record record = sorted(attribute_builder::resident(0x80, to_bytes("abc")).id(3));
    EXPECT_EQ(only_attribute(record).label, "unnamed data");
    EXPECT_TRUE(record.has_unnamed_data);
    EXPECT_EQ(record.unnamed_data_key, attribute_key(0x80, 3));
    EXPECT_FALSE(sorted(attribute_builder::resident(0x80, to_bytes("abc")).named("x")).has_unnamed_data);
    EXPECT_FALSE(sorted(attribute_builder::resident(0xB0, to_bytes("abc"))).has_unnamed_data);
}

TEST(categorize_attribute, keeps_the_bytes_of_the_whole_attribute) {
    const bytes built = attribute_builder::resident(0x80, to_bytes("abc")).build();
    entry_record record;
    ASSERT_TRUE(sort(record, built, pattern(40)));
    EXPECT_EQ(only_attribute(record).bytes, built);
}

TEST(categorize_attribute, decodes_the_runs_of_a_non_resident_attribute) {
    for (const std::uint32_t type : {0x50u, 0x80u, 0x90u, 0xA0u, 0xB0u, 0xD0u, 0xE0u, 0xF0u, 0x100u, 0x60u}) {
        const entry_record record = sorted(attribute_builder::non_resident(type, {{100, 8}, {hole, 2}}));
        const cluster_run_list& runs = only_attribute(record).runs.list();
        ASSERT_EQ(runs.size(), 2u) << type;
        EXPECT_EQ(runs[0].lcn, 100u);
        EXPECT_EQ(runs[0].length, 8u);
        EXPECT_TRUE(runs[1].sparse);
    }
}

// Names.

TEST(categorize_attribute, reads_a_name_that_ends_with_its_record) {
    const bytes built = attribute_builder::resident(0x80, {}).named("abcd").build();
    ASSERT_EQ(built.size(), 32u) << "the name is the last thing in the attribute";
    entry_record record;
    ASSERT_TRUE(sort(record, built));
    EXPECT_EQ(only_attribute(record).name, L"abcd");
}

TEST(categorize_attribute, reads_a_name_after_the_attribute_as_long_as_the_record_holds_it) {
    entry_record record;
    const bytes built =
        attribute_builder::resident(0x80, to_bytes("abcdefgh")).force(9, 1, 2).force(10, 2, 32).build();
    ASSERT_TRUE(sort(record, built, ntfs_name("xy").on_disk()));
    EXPECT_EQ(only_attribute(record).name, L"xy");
}

// Of a name that the record's end cuts, the part that exists is read; only the count of units is compared.
TEST(categorize_attribute, reads_the_part_of_a_name_that_its_record_holds) {
    const bytes built = attribute_builder::resident(0x80, {}).named("abcdefgh").force(9, 1, 12).build();
    ASSERT_EQ(built.size(), 40u);
    entry_record record;
    ASSERT_TRUE(sort(record, built));
    EXPECT_EQ(only_attribute(record).name, L"abcdefgh") << "24 + 12 is not above 40";
    EXPECT_EQ(
        only_attribute(sorted(attribute_builder::resident(0x80, {}).named("abcdefgh").force(9, 1, 16))).name,
        L"abcdefgh")
        << "24 + 16 is not either";
    entry_record longer;
    ASSERT_TRUE(
        sort(longer, attribute_builder::resident(0x80, {}).named("abcdefgh").force(9, 1, 17).build()));
    EXPECT_EQ(only_attribute(longer).name, L"") << "24 + 17 is";
    EXPECT_EQ(only_attribute(longer).label, "ads");
}

TEST(categorize_attribute, reads_no_byte_of_the_value_that_follows_a_name) {
    const auto name_of = [](const char* name) {
        return only_attribute(sorted(attribute_builder::resident(0x80, to_bytes("efgh")).named(name))).name;
    };
    EXPECT_EQ(name_of("abcd"), L"abcd");
    EXPECT_EQ(name_of("a"), L"a");
}

TEST(categorize_attribute, reads_no_name_at_offset_zero) {
    EXPECT_EQ(only_attribute(sorted(attribute_builder::resident(0x80, {}).named("ab").force(10, 2, 0))).name,
              L"");
}

// Each kind.

TEST(categorize_attribute, keeps_standard_information_under_its_id) {
    standard_information value;
    value.security_id = 5;
    const entry_record record = sorted(attribute_builder::resident(0x10, value.build()).id(4).flags(1));
    ASSERT_EQ(record.std_infos.size(), 1u);
    EXPECT_EQ(record.std_infos.begin()->first, 4u);
    EXPECT_EQ(record.std_infos.begin()->second.bytes, value.build());
    EXPECT_EQ(record.std_infos.begin()->second.flags, 1u);
    EXPECT_EQ(record.std_infos.begin()->second.judgement, "");
    EXPECT_TRUE(record.attributes.empty());
}

TEST(categorize_attribute, keeps_at_most_72_bytes_of_standard_information) {
    EXPECT_EQ(sorted(attribute_builder::resident(0x10, pattern(100))).std_infos.begin()->second.bytes.size(),
              72u);
    EXPECT_EQ(sorted(attribute_builder::resident(0x10, pattern(48))).std_infos.begin()->second.bytes.size(),
              48u);
}

TEST(categorize_attribute, judges_a_zero_time_as_null) {
    for (int which = 0; which < 4; ++which) {
        standard_information value;
        std::uint64_t* const times[] = {&value.times.created, &value.times.modified, &value.times.mft_changed,
                                        &value.times.accessed};
        *times[which] = 0;
        EXPECT_EQ(
            sorted(attribute_builder::resident(0x10, value.build())).std_infos.begin()->second.judgement,
            "null");
        file_name name;
        name.times = value.times;
        EXPECT_EQ(
            sorted(attribute_builder::resident(0x30, name.build())).file_names.begin()->second.judgement,
            "null");
    }
}

TEST(categorize_attribute, judges_no_time_as_too_late) {
    standard_information value;
    value.times.created = ~std::uint64_t{0};
    EXPECT_EQ(sorted(attribute_builder::resident(0x10, value.build())).std_infos.begin()->second.judgement,
              "");
}

TEST(categorize_attribute, keeps_the_first_of_two_of_one_id) {
    entry_record record;
    ASSERT_TRUE(sort(record, attribute_builder::resident(0x10, pattern(48, 1)).build()));
    ASSERT_TRUE(sort(record, attribute_builder::resident(0x10, pattern(48, 2)).build()));
    EXPECT_EQ(record.std_infos.at(0).bytes, pattern(48, 1));
}

// A value ends with its attribute, wherever its header says that it lies; what follows is not taken.
TEST(categorize_attribute, takes_no_byte_of_a_value_from_after_its_attribute) {
    const auto holds_none = [](const bytes& kept) {
        return std::find(kept.begin(), kept.end(), std::uint8_t{0xEE}) == kept.end();
    };
    for (const std::uint32_t type : {0x10u, 0x30u, 0x40u, 0x50u, 0x60u, 0x70u, 0x90u, 0xC0u}) {
        for (const auto& [offset, length] : {std::pair(24u, 81u),
                                             {24u, 0xFFFFFFFFu},
                                             {100u, 80u},
                                             {104u, 80u},
                                             {120u, 80u},
                                             {0xFFFFu, 0xFFFFFFFFu}}) {
            entry_record record;
            EXPECT_TRUE(sort(record,
                             attribute_builder::resident(type, bytes(80, 0x11))
                                 .force(20, 2, offset)
                                 .force(16, 4, length)
                                 .build(),
                             bytes(100, 0xEE)));
            for (const auto& [key, kept] : record.std_infos) {
                EXPECT_TRUE(holds_none(kept.bytes)) << offset;
            }
            for (const auto& [key, kept] : record.file_names) {
                EXPECT_TRUE(holds_none(kept.bytes)) << offset;
            }
            for (const auto& [key, kept] : record.object_ids) {
                EXPECT_TRUE(holds_none(kept.bytes)) << offset;
            }
            for (const auto& [key, kept] : record.volume_infos) {
                EXPECT_TRUE(holds_none(kept.bytes)) << offset;
            }
            for (const auto& [key, kept] : record.index_roots) {
                EXPECT_TRUE(holds_none(kept)) << offset;
            }
            for (const auto& [key, kept] : record.attributes) {
                EXPECT_TRUE(holds_none(kept.bytes)) << offset;
            }
            for (const auto& [key, kept] : record.volume_names) {
                EXPECT_EQ(kept.find(L'\xEEEE'), std::wstring::npos) << offset;
            }
        }
    }
}

class needs_a_value : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(needs_a_value, or_is_passed_over) {
    const std::uint32_t type = GetParam();
    for (const auto& built : {attribute_builder::resident(type, pattern(80)).force(16, 4, 0),
                              attribute_builder::resident(type, pattern(80)).force(20, 2, 0),
                              attribute_builder::non_resident(type, {{100, 4}})}) {
        const entry_record record = sorted(built);
        EXPECT_TRUE(record.std_infos.empty());
        EXPECT_TRUE(record.file_names.empty());
        EXPECT_TRUE(record.volume_infos.empty());
        EXPECT_TRUE(record.object_ids.empty());
        EXPECT_TRUE(record.reparse_points.empty());
        EXPECT_TRUE(record.attributes.empty());
    }
}
INSTANTIATE_TEST_SUITE_P(types, needs_a_value, ::testing::Values(0x10, 0x30, 0x40, 0x70, 0xC0));

// Deliberate: the header's flag does not count, only the type. The user sees the times and names of a file
// with a damaged flag, and its copy, which needs a time.
TEST(categorize_attribute, reads_the_typed_values_of_an_attribute_whose_flag_says_that_it_lies_in_clusters) {
    file_name name;
    name.name = "name";
    const auto flagged = [](std::uint32_t type, const bytes& value) {
        return sorted(attribute_builder::resident(type, value).id(7).force(8, 1, 0x80));
    };
    EXPECT_EQ(flagged(0x10, pattern(72)).std_infos.at(7).bytes, pattern(72));
    EXPECT_EQ(flagged(0x30, name.build()).file_names.begin()->first, "00000005_name_0000002a");
    EXPECT_EQ(flagged(0x40, pattern(64)).object_ids.at(7).bytes, pattern(64));
    EXPECT_EQ(flagged(0x70, pattern(12)).volume_infos.at(7).bytes, pattern(12));
    EXPECT_TRUE(flagged(0x60, bytes{'n', 0}).volume_names.at(7).empty());
    EXPECT_TRUE(flagged(0x90, pattern(32)).index_roots.at(7).empty());
}

TEST(categorize_attribute, keeps_a_file_name_under_parent_name_and_entry) {
    file_name name;
    name.parent = reference(0x1234, 9);
    name.name = "Caf\xC3\xA9";
    const entry_record record = sorted(attribute_builder::resident(0x30, name.build()).id(2));
    ASSERT_EQ(record.file_names.size(), 1u);
    EXPECT_EQ(record.file_names.begin()->first, "00001234_Caf\xC3\xA9_0000002a");
    EXPECT_EQ(record.file_names.begin()->second.bytes, name.build());
    EXPECT_EQ(record.file_names.begin()->second.id, 2u);
    EXPECT_TRUE(record.attributes.empty());
}

std::uint64_t taken(const entry_record& record) {
    return budget::unlimited - record.memory.left();
}

// What the bound on the memory for one entry goes by.
TEST(categorize_attribute, counts_the_bytes_of_names_attributes_and_runs_once) {
    file_name name;
    name.name = "name";
    const bytes name_attribute = attribute_builder::resident(0x30, name.build()).build();
    const std::uint64_t name_bytes = 22 + 74;  // "00000005_name_0000002a"; 66 bytes of fields and four units
    entry_record record;
    ASSERT_TRUE(sort(record, name_attribute));
    EXPECT_EQ(taken(record), name_bytes);
    ASSERT_TRUE(sort(record, name_attribute));
    EXPECT_EQ(taken(record), name_bytes) << "it is there already";
    file_name other;
    other.name = "nam2";
    ASSERT_TRUE(sort(record, attribute_builder::resident(0x30, other.build()).build()));
    EXPECT_EQ(taken(record), 2 * name_bytes);

    const bytes stream = attribute_builder::non_resident(0x80, {{100, 8}}).build();
    entry_record in_pieces;
    ASSERT_TRUE(sort(in_pieces, stream));
    EXPECT_EQ(taken(in_pieces), stream.size() + sizeof(cluster_run));
    ASSERT_TRUE(sort(in_pieces, attribute_builder::non_resident(0x80, {{200, 8}}).lowest_vcn(8).build()));
    ASSERT_EQ(only_attribute(in_pieces).runs.list().size(), 2u);
    EXPECT_EQ(taken(in_pieces), stream.size() + 2 * sizeof(cluster_run)) << "only its runs are kept";
    const bytes resident = attribute_builder::resident(0xE0, bytes(16)).build();
    ASSERT_TRUE(sort(in_pieces, resident));
    EXPECT_EQ(taken(in_pieces), stream.size() + 2 * sizeof(cluster_run) + resident.size());
}

// Deliberate: a $FILE_NAME is read as far as its attribute holds it, not as far as its value length says. The
// user of a record with a damaged length gets the whole name, as the search for paths does.
TEST(categorize_attribute, reads_a_file_name_as_far_as_its_attribute_holds_it_whatever_its_value_length) {
    file_name name;
    name.name = "name";
    for (const std::uint64_t value_length : {1u, 8u, 65u, 66u, 70u, 73u, 74u, 100u, 0xFFFFFFFFu}) {
        entry_record record =
            sorted(attribute_builder::resident(0x30, name.build()).force(16, 4, value_length));
        ASSERT_EQ(record.file_names.size(), 1u) << value_length;
        EXPECT_EQ(record.file_names.begin()->first, "00000005_name_0000002a") << value_length;
        EXPECT_EQ(record.file_names.begin()->second.bytes, name.build()) << value_length;
    }
    // The times of $STANDARD_INFORMATION end with the value.
    const entry_record short_times =
        sorted(attribute_builder::resident(0x10, pattern(72)).id(7).force(16, 4, 20));
    EXPECT_EQ(short_times.std_infos.at(7).bytes, pattern(20));
}

TEST(categorize_attribute, keeps_no_more_of_a_file_name_than_its_fields_and_units) {
    file_name name;
    name.name = "name";
    bytes value = name.build();
    value.resize(800, 0x55);
    EXPECT_EQ(sorted(attribute_builder::resident(0x30, value)).file_names.begin()->second.bytes,
              name.build());
}

TEST(file_name_key, has_at_least_eight_digits) {
    EXPECT_EQ(file_name_key(0x123456789ABC, "n", 0), "123456789abc_n_00000000");
    EXPECT_EQ(file_name_key(5, "", 0xFFFFFFFF), "00000005__ffffffff");
}

TEST(categorize_attribute, keeps_a_file_name_cut_at_every_length) {
    file_name name;
    name.name = "name";
    const bytes value = name.build();
    for (std::size_t size = 1; size <= value.size(); ++size) {
        // The attribute ends with the value, without the padding that attributes have.
        const bytes cut_value(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(size));
        const entry_record record = sorted(
            attribute_builder::resident(0x30, cut_value).length(static_cast<std::uint32_t>(24 + size)));
        ASSERT_EQ(record.file_names.size(), 1u);
        const std::string cut = size < 66 ? "" : std::string("name").substr(0, (size - 66) / 2);
        const std::string parent = size < 8 ? "00000000" : "00000005";
        EXPECT_EQ(record.file_names.begin()->first, parent + "_" + cut + "_0000002a") << size;
    }
}

TEST(categorize_attribute, passes_over_an_object_id_below_16_bytes) {
    EXPECT_TRUE(sorted(attribute_builder::resident(0x40, pattern(15))).attributes.empty());
    const entry_record record = sorted(attribute_builder::resident(0x40, pattern(16)).id(3));
    EXPECT_EQ(record.object_ids.at(3).length, 16u);
    EXPECT_EQ(record.object_ids.at(3).bytes, pattern(16));
    EXPECT_EQ(record.attributes.size(), 1u);
}

TEST(categorize_attribute, keeps_at_most_64_bytes_of_an_object_id) {
    const entry_record record = sorted(attribute_builder::resident(0x40, pattern(100)));
    EXPECT_EQ(record.object_ids.at(0).length, 100u);
    const bytes value = pattern(100);
    EXPECT_EQ(record.object_ids.at(0).bytes, bytes(value.begin(), value.begin() + 64));
}

TEST(categorize_attribute, keeps_the_volume_name) {
    EXPECT_EQ(sorted(attribute_builder::resident(0x60, ntfs_name("Data").on_disk()).id(1)).volume_names.at(1),
              L"Data");
    EXPECT_EQ(sorted(attribute_builder::resident(0x60, ntfs_name("Data").on_disk()).named("other"))
                  .volume_names.at(0),
              L"other");
    EXPECT_EQ(sorted(attribute_builder::resident(0x60, {})).volume_names.at(0), L"") << "never passed over";
}

TEST(categorize_attribute, keeps_the_version_of_the_volume) {
    const entry_record record =
        sorted(attribute_builder::resident(0x70, concat({volume_information(3, 1), pattern(4)})).id(6));
    EXPECT_EQ(record.volume_infos.at(6).version_text, "ver: 3:1 (WinXP)");
    EXPECT_EQ(record.volume_infos.at(6).bytes, volume_information(3, 1));
    EXPECT_EQ(record.attributes.size(), 1u);
}

TEST(categorize_attribute, keeps_the_first_16_bytes_of_an_index_root) {
    const bytes value = pattern(40);
    const entry_record record = sorted(attribute_builder::resident(0x90, value).id(2));
    EXPECT_EQ(record.index_roots.at(2), bytes(value.begin(), value.begin() + 16));
    EXPECT_EQ(only_attribute(record).view().value().to_vector(), value);
    EXPECT_TRUE(sorted(attribute_builder::resident(0x90, {})).index_roots.at(0).empty())
        << "never passed over";
}

TEST(categorize_attribute, keeps_the_name_that_a_reparse_point_shows) {
    reparse_point link;
    link.substitute_name = "\\??\\C:\\target";
    link.print_name = "C:\\target";
    const entry_record record = sorted(attribute_builder::resident(0xC0, link.build()).id(2));
    EXPECT_EQ(record.reparse_points.at(2), L"C:\\target");
    EXPECT_EQ(only_attribute(record).label, "reparse point");
    reparse_point nameless;
    nameless.tag = 0x80000013;
    EXPECT_TRUE(sorted(attribute_builder::resident(0xC0, nameless.build())).attributes.empty())
        << "passed over";
}

}  // namespace
}  // namespace quarry::test
