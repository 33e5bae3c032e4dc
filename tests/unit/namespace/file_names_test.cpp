#include "namespace/file_names.h"

#include "foundation/ql_string.h"
#include "support/opened_volume.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {
namespace {

struct found_name {
    std::wstring name;
    std::uint64_t parent;
    [[nodiscard]] bool operator==(const found_name&) const = default;
};
void PrintTo(const found_name& found, std::ostream* out) {
    *out << narrow(found.name) << " in " << found.parent;
}
using found_names = std::vector<found_name>;

found_names in_order(const file_name_list& names) {
    found_names result;
    for (const quarry::file_name& each : names) {
        result.push_back({each.name, each.parent});
    }
    return result;
}

// The names of a record that needs no volume.
class names_of_a_record : public ::testing::Test {
  protected:
    found_names read(const bytes& record, bool all_namespaces = false, std::uint64_t parent = any_parent) {
        file_name_list names = {{L"stale", 1, 1}};
        CNtfs ntfs;
        budget reads(budget::unlimited);
        m_result = get_file_names(names, ntfs, 30, byte_view(record), all_namespaces, parent, reads);
        return in_order(names);
    }
    bool m_result = false;
};

attribute_builder named(const file_name& name) {
    return attribute_builder::resident(0x30, name.build());
}

attribute_builder named(ntfs_name name, std::uint64_t parent = 5, std::uint8_t name_space = win32_namespace) {
    return named({.parent = reference(parent, 5), .name = std::move(name), .name_space = name_space});
}

TEST_F(names_of_a_record, are_sorted_by_name_then_parent) {
    const bytes record =
        record_builder().add(named("b", 7)).add(named("a", 9)).add(named("b", 5)).build_restored();
    EXPECT_EQ(read(record), (found_names{{L"a", 9}, {L"b", 5}, {L"b", 7}}));
    EXPECT_TRUE(m_result);
}

TEST_F(names_of_a_record, without_one_fails) {
    EXPECT_EQ(read(record_builder().build_restored()), found_names());
    EXPECT_FALSE(m_result);
}

TEST_F(names_of_a_record, leave_short_names_out) {
    const bytes record = record_builder()
                             .add(named("LONGNA~1", 5, dos_namespace))
                             .add(named("long name", 5, win32_namespace))
                             .add(named("posix", 5, posix_namespace))
                             .add(named("both", 5, win32_and_dos_namespace))
                             .build_restored();
    EXPECT_EQ(read(record), (found_names{{L"both", 5}, {L"long name", 5}, {L"posix", 5}}));
    EXPECT_EQ(read(record, true),
              (found_names{{L"LONGNA~1", 5}, {L"both", 5}, {L"long name", 5}, {L"posix", 5}}));
}

TEST_F(names_of_a_record, of_any_odd_namespace_are_long) {
    for (int name_space = 4; name_space < 256; ++name_space) {
        const bytes record =
            record_builder().add(named("a", 5, static_cast<std::uint8_t>(name_space))).build_restored();
        EXPECT_EQ(read(record).size(), name_space % 2 == 1 ? 1u : 0u) << name_space;
        EXPECT_EQ(read(record, true).size(), 1u) << name_space;
    }
}

TEST_F(names_of_a_record, can_be_those_in_one_directory_only) {
    const bytes record = record_builder()
                             .add(named("a", 5))
                             .add(named({.parent = reference(7, 0xFFFF), .name = "b"}))
                             .add(named("c", 0x123456789ABC))
                             .build_restored();
    EXPECT_EQ(read(record, false, 7), (found_names{{L"b", 7}}));
    EXPECT_EQ(read(record, false, 0x123456789ABC), (found_names{{L"c", 0x123456789ABC}}));
    EXPECT_EQ(read(record, false, 8), found_names());
    EXPECT_FALSE(m_result);
}

TEST_F(names_of_a_record, ignore_a_value_of_length_zero) {
    EXPECT_EQ(read(record_builder().add(named("a").force(16, 4, 0)).build_restored()), found_names());
    EXPECT_EQ(read(record_builder().add(named("a").force(16, 4, 1)).build_restored()),
              (found_names{{L"a", 5}}));
}

TEST_F(names_of_a_record, ignore_a_name_of_length_zero) {
    EXPECT_EQ(read(record_builder().add(named("a").force(24 + 64, 1, 0)).build_restored()), found_names());
}

TEST_F(names_of_a_record, go_on_after_an_ignored_one) {
    EXPECT_EQ(read(record_builder().add(named("a").force(16, 4, 0)).add(named("b")).build_restored()),
              (found_names{{L"b", 5}}));
}

TEST_F(names_of_a_record, may_have_255_units) {
    const std::u16string longest(255, u'x');
    EXPECT_EQ(read(record_builder().add(named(ntfs_name(longest))).build_restored()),
              (found_names{{std::wstring(255, L'x'), 5}}));
}

TEST_F(names_of_a_record, may_hold_damaged_units) {
    const std::u16string high = {u'A', 0xD800, u'B'};
    const std::u16string low = {u'A', 0xDC00};
    const std::u16string cut = {u'A', 0, u'B'};
    EXPECT_EQ(read(record_builder().add(named(ntfs_name(high))).build_restored()),
              (found_names{{std::wstring{L'A', wchar_t{0xD800}, L'B'}, 5}}));
    EXPECT_EQ(read(record_builder().add(named(ntfs_name(low))).build_restored()),
              (found_names{{std::wstring{L'A', wchar_t{0xDC00}}, 5}}));
    EXPECT_EQ(read(record_builder().add(named(ntfs_name(cut))).build_restored()), (found_names{{L"A", 5}}));
}

TEST_F(names_of_a_record, end_with_their_attribute) {
    // The name claims 255 units; two of them are inside of the attribute (one, and two bytes of padding), and
    // the second is zero.
    const bytes record =
        record_builder().add(named("a").force(24 + 64, 1, 255)).add(named("b")).build_restored();
    EXPECT_EQ(read(record), (found_names{{L"a", 5}, {L"b", 5}}));
}

TEST_F(names_of_a_record, stop_at_an_attribute_of_another_type_longer_than_1024_bytes) {
    const auto with_data_of = [](std::uint32_t length) {
        return record_builder(4096)
            .update_sequence_count(9)
            .add(named("a"))
            .add(attribute_builder::resident(0x10, bytes(length - 24)))
            .add(named("b"))
            .build_restored();
    };
    EXPECT_EQ(read(with_data_of(1024)), (found_names{{L"a", 5}, {L"b", 5}}));
    EXPECT_EQ(read(with_data_of(1032)), (found_names{{L"a", 5}}));
}

// The length counts only of attributes of another type.
TEST_F(names_of_a_record, take_a_name_longer_than_1024_bytes_and_go_on_after_it) {
    bytes long_value = file_name{.parent = reference(5, 5), .name = "a"}.build();
    long_value.resize(1100);
    for (const std::uint32_t size : {1000u, 1001u, 1008u, 1100u}) {
        long_value.resize(size);
        const bytes record = record_builder(4096)
                                 .update_sequence_count(9)
                                 .add(attribute_builder::resident(0x30, long_value))
                                 .add(named("b"))
                                 .build_restored();
        EXPECT_EQ(read(record), (found_names{{L"a", 5}, {L"b", 5}})) << size;
    }
}

TEST_F(names_of_a_record, stop_at_a_length_of_zero) {
    EXPECT_EQ(read(record_builder()
                       .add(attribute_builder::resident(0x10, bytes(8)).length(0))
                       .add(named("b"))
                       .build_restored()),
              found_names());
    EXPECT_EQ(
        read(record_builder().add(named("a")).add(named("b").length(0)).add(named("c")).build_restored()),
        (found_names{{L"a", 5}}));
}

TEST_F(names_of_a_record, cut_at_every_length_are_the_first_of_them) {
    const bytes record = record_builder().add(named("aaaa")).add(named("bbbb")).build_restored();
    for (std::size_t length = 0; length <= record.size(); ++length) {
        for (const found_name& found :
             read(bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(length)))) {
            const std::wstring whole = found.name.empty() || found.name[0] == L'a' ? L"aaaa" : L"bbbb";
            EXPECT_EQ(found.name, whole.substr(0, found.name.size())) << length;
        }
    }
}

TEST_F(names_of_a_record, of_many_overlapping_attributes_stay_within_the_record) {
    bytes record = record_builder().build_restored();
    record.resize(4096);
    // A name attribute every 24 bytes, each of which claims a value and a name as long as can be.
    for (std::size_t at = 0x38; at + 24 <= record.size(); at += 24) {
        record = byte_writer(std::move(record))
                     .u32(at, 0x30)
                     .u32(at + 4, 24)
                     .u32(at + 16, 4096)
                     .u16(at + 20, 0)
                     .take();
    }
    std::size_t characters = 0;
    for (const found_name& found : read(record, true)) {
        characters += found.name.size();
    }
    EXPECT_LE(characters, record.size() / 2);
}

// A file with an attribute list needs the records that the list names.
class names_of_a_listed_file : public ::testing::Test {
  protected:
    found_names read(std::uint64_t entry) {
        opened_volume opened(m_volume);
        bytes record;
        std::uint64_t position = 0;
        std::uint64_t length = 0;
        EXPECT_TRUE(opened->read_record(entry, record, position, length));
        file_name_list names;
        budget reads(m_may_cost);
        m_result = get_file_names(names, opened.ntfs(), entry, byte_view(record), false, any_parent, reads);
        return in_order(names);
    }
    volume_builder m_volume;
    bool m_result = false;
    std::uint64_t m_may_cost = ~std::uint64_t{0};
};

TEST_F(names_of_a_listed_file, include_those_of_its_extension_records) {
    file_builder& file = m_volume.add_file("base");
    file.attribute(named("extension"), file.add_extension());
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"extension", 5}}));
}

TEST_F(names_of_a_listed_file, include_those_of_its_extension_records_when_the_list_is_not_resident) {
    file_builder& file = m_volume.add_file("base");
    file.attribute(named("extension"), file.add_extension()).list_in_clusters();
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"extension", 5}}));
}

TEST_F(names_of_a_listed_file, include_all_those_of_a_record_of_which_one_attribute_is_listed) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one"), place).attribute(named("two"), place);
    file.attribute(attribute_builder::resident(0x80, bytes(8)).named("s").id(77), place);
    file.attribute_list(
        build_attribute_list({{.type = 0x80, .record = file.extension_entry(place), .id = 77}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}, {L"two", 5}}));
}

TEST_F(names_of_a_listed_file, need_an_attribute_of_the_listed_type_and_id) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place);
    const std::uint64_t record = file.extension_entry(place);
    file.attribute_list(build_attribute_list(
        {{.type = 0x30, .record = record, .id = 8}, {.type = 0x80, .record = record, .id = 7}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
    file.attribute_list(build_attribute_list({{.type = 0x30, .record = record, .id = 7}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}}));
}

TEST_F(names_of_a_listed_file, end_where_lists_have_cost_all_that_they_may) {
    file_builder& file = m_volume.add_file("base");
    std::vector<list_item> items;
    for (const char* name : {"one", "two"}) {
        const std::size_t place = file.add_extension();
        file.attribute(named(name).id(7), place);
        items.push_back({.type = 0x30, .record = file.extension_entry(place), .id = 7});
    }
    file.attribute_list(build_attribute_list(items));
    // Two entries of 32 bytes count 16 times, a record counts as a page, and an attribute in it 16 bytes.
    m_may_cost = 16 * 64 + 4096 + 16 + 1;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}, {L"two", 5}}));
    m_may_cost = 16 * 64 + 4096 + 16;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}}));
    m_may_cost = 16 * 64;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
    EXPECT_TRUE(m_result) << "the file's own record is looked at all the same";
}

TEST_F(names_of_a_listed_file, pay_for_each_attribute_that_a_search_passes_over) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t crowded = file.add_extension();
    for (std::uint16_t id = 1; id <= 3; ++id) {
        file.attribute(attribute_builder::resident(0x80, bytes(8)).named("s").id(id), crowded);
    }
    const std::size_t wanted = file.add_extension();
    file.attribute(named("one").id(7), wanted);
    file.attribute_list(
        build_attribute_list({{.type = 0x80, .record = file.extension_entry(crowded), .id = 99},
                              {.type = 0x80, .record = file.extension_entry(crowded), .id = 98},
                              {.type = 0x30, .record = file.extension_entry(wanted), .id = 7}}));
    // Three entries of 32 bytes, a record that is read once, and two searches through its three attributes.
    m_may_cost = 16 * 96 + 4096 + 2 * 3 * 16 + 1;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}}));
    m_may_cost = 16 * 96 + 4096 + 2 * 3 * 16;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
}

TEST_F(names_of_a_listed_file, pay_for_the_runs_of_their_list_and_read_it_only_while_they_can) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place).without_attribute_list();
    m_volume.write_clusters(
        100, build_attribute_list({{.type = 0x30, .record = file.extension_entry(place), .id = 7}}));
    const attribute_builder list = attribute_builder::non_resident(0x20, {{100, 1}});
    file.attribute(list);
    const std::uint64_t runs_and_list = 16 * (list.build().size() + 4096);
    m_may_cost = runs_and_list + 1;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}}));
    m_may_cost = runs_and_list;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
    m_may_cost = 0;
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
}

TEST_F(names_of_a_listed_file, do_not_compare_the_sequence_number_of_a_list_entry) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place);
    file.attribute_list(build_attribute_list(
        {{.type = 0x30, .record = file.extension_entry(place), .sequence = 0xFFFF, .id = 7}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}}));
}

TEST_F(names_of_a_listed_file, pass_over_list_entries_of_the_file_itself) {
    file_builder& file = m_volume.add_file("base");
    file.attribute_list(build_attribute_list({{.type = 0x30, .record = file.entry(), .id = 2}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
}

TEST_F(names_of_a_listed_file, pass_over_records_that_cannot_be_read) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t bad = file.add_extension();
    const std::size_t baad = file.add_extension();
    const std::size_t good = file.add_extension();
    for (const std::size_t place : {bad, baad, good}) {
        file.attribute(named(place == good ? "good" : "bad").id(7), place);
    }
    m_volume.force_record(file.extension_entry(bad), 0, 4, 0);
    m_volume.force_record(file.extension_entry(baad), 0, 4, 0x44414142);  // "BAAD"
    file.attribute_list(
        build_attribute_list({{.type = 0x30, .record = file.extension_entry(bad), .id = 7},
                              {.type = 0x30, .record = file.extension_entry(baad), .id = 7},
                              {.type = 0x30, .record = 0x7FFFFFFFFFFF, .id = 7},
                              {.type = 0x30, .record = file.extension_entry(good), .id = 7}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"good", 5}}));
}

TEST_F(names_of_a_listed_file, end_the_list_at_an_entry_of_length_zero) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place);
    const std::uint64_t record = file.extension_entry(place);
    file.attribute_list(build_attribute_list({{.type = 0x10, .record = file.entry(), .forced = {{4, 2, 0}}},
                                              {.type = 0x30, .record = record, .id = 7}}));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
}

TEST_F(names_of_a_listed_file, take_a_list_entry_that_is_cut_by_the_end_of_the_list) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(0), place);
    bytes list = build_attribute_list({{.type = 0x30, .record = file.extension_entry(place), .id = 0}});
    for (std::size_t length = 1; length <= list.size(); ++length) {
        file.attribute_list(bytes(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(length)));
        // From 22 bytes on the type, the length and the record are there; the id reads as zero, which it is.
        EXPECT_EQ(read(file.entry()).size(), length < 22 ? 1u : 2u) << length;
    }
}

TEST_F(names_of_a_listed_file, are_only_those_of_the_record_when_the_list_cannot_be_read) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place).without_attribute_list();
    const bytes list = build_attribute_list({{.type = 0x30, .record = file.extension_entry(place), .id = 7}});
    m_volume.write_clusters(40, list);
    file.attribute(attribute_builder::non_resident(0x20, runs({{40, 1}})));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}})) << "the list itself is good";
    file_builder& other = m_volume.add_file("other");
    other.attribute(attribute_builder::non_resident(0x20, runs({{40, 1}, {100000, 1}})));
    EXPECT_EQ(read(other.entry()), (found_names{{L"other", 5}})) << "its second cluster is not on the volume";
    file_builder& third = m_volume.add_file("third");
    third.attribute(attribute_builder::with_pairs(0x20, {0}));
    EXPECT_EQ(read(third.entry()), (found_names{{L"third", 5}})) << "it has no clusters";
}

TEST_F(names_of_a_listed_file, are_only_those_of_the_record_when_the_list_has_no_value) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    file.attribute(named("one").id(7), place).without_attribute_list();
    const bytes list = build_attribute_list({{.type = 0x30, .record = file.extension_entry(place), .id = 7}});
    file.attribute(attribute_builder::resident(0x20, list).force(16, 4, 0));
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}}));
    file_builder& other = m_volume.add_file("other");
    other.attribute(attribute_builder::resident(0x20, list).force(20, 2, 0));
    EXPECT_EQ(read(other.entry()), (found_names{{L"other", 5}}));
}

TEST_F(names_of_a_listed_file, are_the_same_however_often_the_list_names_a_record) {
    file_builder& file = m_volume.add_file("base");
    const std::size_t place = file.add_extension();
    const std::size_t other = file.add_extension();
    file.attribute(named("one").id(7), place).attribute(named("two").id(7), other);
    std::vector<list_item> items;
    for (int i = 0; i < 20000; ++i) {
        // Every third entry names an attribute that is not there.
        items.push_back({.type = 0x30,
                         .record = file.extension_entry(i % 2 == 0 ? place : other),
                         .id = static_cast<std::uint16_t>(i % 3 == 0 ? 8 : 7)});
    }
    file.attribute_list(build_attribute_list(items)).list_in_clusters();
    EXPECT_EQ(read(file.entry()), (found_names{{L"base", 5}, {L"one", 5}, {L"two", 5}}));
}

TEST_F(names_of_a_listed_file, show_a_name_that_two_records_hold_once) {
    file_builder& file = m_volume.add_file("same");
    file.attribute(named("same"), file.add_extension());
    EXPECT_EQ(read(file.entry()), (found_names{{L"same", 5}}));
}

}  // namespace
}  // namespace quarry::test
