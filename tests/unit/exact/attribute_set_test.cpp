#include "exact/attribute_set.h"

#include "support/opened_exact_volume.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quarry::test {

using testing::HasSubstr;

namespace {

constexpr std::uint64_t cluster = 4096;

// A file whose $DATA has one cluster in each of so many records, the first in the base record. The content
// of cluster i begins with the byte i.
struct pieces_volume {
    volume_builder volume{{.mft_entries = 512}};
    file_builder* file = nullptr;
    bytes content;

    explicit pieces_volume(std::size_t records) {
        file = &volume.add_file("a");
        for (std::size_t i = 0; i < records; ++i) {
            const bytes text = byte_writer(pattern(cluster, static_cast<std::uint32_t>(i))).u8(0, i).take();
            content.insert(content.end(), text.begin(), text.end());
            // Every second cluster, so that no two pieces lie side by side.
            const auto lcn = static_cast<std::int64_t>(200 + 2 * i);
            volume.write_clusters(static_cast<std::uint64_t>(lcn), text);
            add_piece(i, lcn, i == 0 ? records * cluster : 0);
        }
    }
    void add_piece(std::size_t vcn, std::int64_t lcn, std::uint64_t size) {
        const std::size_t place = vcn == 0 ? 0 : file->add_extension();
        file->attribute(attribute_builder::non_resident(0x80, {{lcn, 1}})
                            .lowest_vcn(vcn)
                            .allocated(size)
                            .real(size)
                            .initialized(size),
                        place);
    }
};

// " (source byte 0x...)" of a byte of the image that is so far after the start of these ones.
std::string at(const volume_builder& volume, const bytes& stored, std::size_t offset) {
    const bytes image = volume.image();
    const auto found = std::search(image.begin(), image.end(), stored.begin(), stored.end());
    EXPECT_NE(found, image.end());
    return " (source byte " + exact::hex(static_cast<std::uint64_t>(found - image.begin()) + offset) + ")";
}

exact_copy copy_of(const volume_builder& volume, std::u16string_view name = {}) {
    opened_exact_volume opened(volume);
    return opened.copy(first_user_entry, name);
}

// A file at entry 24 with two pieces, in its base record and in entry 25, and a list given in full.
struct listed_volume {
    volume_builder volume{{.total_clusters = 1000}};
    file_builder& file;
    // The items that name what there is. $STANDARD_INFORMATION has id 0, $FILE_NAME 1, the pieces 2 and 0.
    std::vector<list_item> items = {{.type = 0x10, .record = 24, .id = 0},
                                    {.type = 0x30, .record = 24, .id = 1},
                                    {.type = 0x80, .record = 24, .id = 2},
                                    {.type = 0x80, .record = 25, .id = 0, .lowest_vcn = 1}};

    listed_volume() : file(volume.add_file("a")) {
        volume.write_clusters(200, bytes(cluster, 'a'));
        volume.write_clusters(210, bytes(cluster, 'b'));
        const std::size_t place = file.add_extension();
        file.attribute(attribute_builder::non_resident(0x80, {{200, 1}}).allocated(2 * cluster));
        file.attribute(attribute_builder::non_resident(0x80, {{210, 1}}).lowest_vcn(1).allocated(0).real(0),
                       place);
    }
    std::string fault() {
        file.attribute_list(build_attribute_list(items));
        return copy_of(volume).failed;
    }
    // Where the list is stored, so far after its start.
    [[nodiscard]] std::string at_item(std::size_t offset) {
        file.attribute_list(build_attribute_list(items));
        return at(volume, build_attribute_list(items), offset);
    }
};

}  // namespace

TEST(attribute_set, joins_a_stream_from_many_records) {
    for (const std::size_t records : {2u, 3u, 12u}) {
        pieces_volume pieces(records);
        const exact_copy copy = copy_of(pieces.volume);
        EXPECT_EQ(copy.failed, "") << records;
        EXPECT_EQ(copy.content, pieces.content) << records;
    }
}

TEST(attribute_set, joins_a_stream_from_200_records) {
    pieces_volume pieces(200);
    pieces.file->list_in_clusters();
    const exact_copy copy = copy_of(pieces.volume);
    EXPECT_EQ(copy.failed, "");
    EXPECT_EQ(copy.content, pieces.content);
    EXPECT_EQ(text_of(copy.said), "");
}

TEST(attribute_set, announces_the_records_of_a_list_but_the_first) {
    // The base is entry 24, its extension records are 25 to 29.
    const pieces_volume pieces(6);
    opened_exact_volume opened(pieces.volume);
    exact::notices told;
    exact::record base = opened.volume().table().read(24, told).value();
    opened.source().announced().clear();
    ASSERT_TRUE(exact::attribute_set::of(opened.volume().table(), std::move(base), told).has_value());
    const auto place = [&](std::uint64_t entry) { return pieces.volume.record_position(entry); };
    EXPECT_EQ(opened.source().announced(),
              (memory_source::announcements{
                  {place(26), 1024}, {place(27), 1024}, {place(28), 1024}, {place(29), 1024}}));
}

TEST(attribute_set, takes_a_list_in_any_order) {
    listed_volume listed;
    std::swap(listed.items[2], listed.items[3]);
    std::swap(listed.items[0], listed.items[3]);
    EXPECT_EQ(listed.fault(), "");
}

TEST(attribute_set, is_what_the_list_names) {
    listed_volume listed;
    EXPECT_EQ(listed.fault(), "");
    const exact_copy copy = copy_of(listed.volume);
    EXPECT_EQ(copy.content, concat({bytes(cluster, 'a'), bytes(cluster, 'b')}));
}

TEST(attribute_set, fails_if_a_piece_is_missing_from_the_list) {
    listed_volume listed;
    listed.items.pop_back();
    EXPECT_THAT(listed.fault(),
                HasSubstr("sizes record 24, $DATA \"\": allocated 8192, size 8192, valid 8192, "
                          "clusters for 4096"));
    listed_volume first_lost;
    first_lost.items.erase(first_lost.items.begin() + 2);
    EXPECT_THAT(first_lost.fault(), HasSubstr("gap record 24, $DATA \"\": piece at VCN 1, expected 0"));
}

TEST(attribute_set, warns_of_attributes_that_the_list_does_not_name) {
    listed_volume listed;
    listed.items.erase(listed.items.begin() + 1);
    listed.file.attribute_list(build_attribute_list(listed.items));
    const exact_copy copy = copy_of(listed.volume);
    EXPECT_EQ(copy.failed, "");
    EXPECT_EQ(text_of(copy.said),
              "unlisted record 24, $FILE_NAME \"\": is not in the attribute list of record 24\n");
}

TEST(attribute_set, fails_if_an_item_names_no_attribute) {
    const auto changed = [](auto change) {
        listed_volume listed;
        change(listed.items[3]);
        return listed.fault();
    };
    EXPECT_EQ(changed([](list_item& item) { item.id = 1; }),
              "list record 24: attribute list, entry at 0x60: names no attribute of record 25" +
                  listed_volume().at_item(0x60));
    EXPECT_THAT(changed([](list_item& item) { item.lowest_vcn = 2; }), HasSubstr("names no attribute"));
    EXPECT_THAT(changed([](list_item& item) { item.name = "x"; }), HasSubstr("names no attribute"));
    EXPECT_THAT(changed([](list_item& item) { item.type = 0x90; }), HasSubstr("names no attribute"));
    EXPECT_THAT(changed([](list_item& item) { item.record = 24; }), HasSubstr("names no attribute"));
}

TEST(attribute_set, fails_if_an_item_names_two_attributes) {
    listed_volume listed;
    listed.file.attribute(
        attribute_builder::non_resident(0x80, {{220, 1}}).lowest_vcn(1).allocated(0).real(0).id(0), 1);
    EXPECT_EQ(listed.fault(),
              "list record 24: attribute list, entry at 0x60: names two attributes of record 25" +
                  listed.at_item(0x60));
}

TEST(attribute_set, fails_if_an_attribute_is_named_twice) {
    listed_volume listed;
    listed.items.push_back(listed.items[1]);
    EXPECT_EQ(listed.fault(),
              "list record 24: attribute list, entry at 0x80: names an attribute a second time" +
                  listed.at_item(0x80));
}

TEST(attribute_set, says_where_an_item_of_a_list_in_clusters_is_stored) {
    listed_volume listed;
    listed.file.list_in_clusters();
    listed.items[3].id = 1;
    EXPECT_EQ(listed.fault(),
              "list record 24: attribute list, entry at 0x60: names no attribute of record 25" +
                  listed.at_item(0x60));
    // A list in clusters begins with one of them.
    EXPECT_THAT(listed.at_item(0x60), HasSubstr("060)"));
}

TEST(attribute_set, fails_if_an_extension_is_not_its_own) {
    listed_volume sequence;
    sequence.items[3].sequence = 2;
    EXPECT_THAT(sequence.fault(),
                HasSubstr("sequence record 25: has sequence number 1, the reference says 2"));
    listed_volume unused;
    unused.file.record(1).flags(0);
    EXPECT_THAT(unused.fault(), HasSubstr("unused record 25: is not in use"));
    listed_volume other_base;
    other_base.file.record(1).base(reference(30, 1));
    EXPECT_THAT(other_base.fault(), HasSubstr("base record 25: belongs to record 30-1, not to 24-1"));
    listed_volume older_base;
    older_base.file.record(1).base(reference(24, 2));
    EXPECT_THAT(older_base.fault(), HasSubstr("base record 25: belongs to record 24-2, not to 24-1"));
    listed_volume no_base;
    no_base.file.record(1).base(0);
    EXPECT_THAT(no_base.fault(), HasSubstr("base record 25: belongs to record 0-0, not to 24-1"));
    listed_volume no_sequence;
    no_sequence.file.record(1).base(reference(24, 0));
    EXPECT_EQ(no_sequence.fault(), "");
    listed_volume another_without_sequence;
    another_without_sequence.file.record(1).base(reference(30, 0));
    EXPECT_THAT(another_without_sequence.fault(),
                HasSubstr("base record 25: belongs to record 30-0, not to 24-1"));
}

TEST(attribute_set, of_a_deleted_file_may_have_references_one_after) {
    listed_volume listed;
    listed.file.deleted().sequence(2);
    listed.file.record(1).flags(0).sequence(2).base(reference(24, 1));
    EXPECT_EQ(listed.fault(), "");
    listed_volume given_away;
    given_away.file.deleted().sequence(2);
    given_away.file.record(1).flags(0).sequence(3).base(reference(24, 1));
    EXPECT_THAT(given_away.fault(), HasSubstr("sequence record 25: has sequence number 3"));
}

TEST(attribute_set, of_a_deleted_file_may_have_references_from_before_its_numbers_began_anew) {
    // 0 is no sequence number: 1 comes after 65,535.
    listed_volume listed;
    listed.file.deleted().sequence(1);
    listed.file.record(1).flags(0).sequence(1).base(reference(24, 0xFFFF));
    for (list_item& each : listed.items) {
        each.sequence = 0xFFFF;
    }
    EXPECT_EQ(listed.fault(), "");
    listed_volume in_use;
    in_use.file.sequence(1);
    in_use.items[3].sequence = 0xFFFF;
    EXPECT_THAT(in_use.fault(), HasSubstr("sequence record 25: has sequence number 1"));
}

TEST(attribute_set, fails_at_a_broken_list) {
    const auto forced = [](std::size_t offset, unsigned width, std::uint64_t value) {
        listed_volume listed;
        listed.items[1].forced.push_back({offset, width, value});
        return listed.fault();
    };
    const std::string place = listed_volume().at_item(0x20);
    EXPECT_EQ(
        forced(4, 2, 0),
        "list record 24: attribute list, entry at 0x20: its length is no multiple of 8 from 26 on" + place);
    EXPECT_NE(forced(4, 2, 24), "");
    EXPECT_NE(forced(4, 2, 0x21), "");
    EXPECT_EQ(forced(4, 2, 0xFFF8),
              "list record 24: attribute list, entry at 0x20: it reaches past the end of the list" + place);
    EXPECT_EQ(forced(6, 1, 200),
              "list record 24: attribute list, entry at 0x20: its name is not inside of it" + place);
    listed_volume cut;
    bytes value = build_attribute_list(cut.items);
    value.resize(value.size() - 8);
    cut.file.attribute_list(value);
    EXPECT_EQ(copy_of(cut.volume).failed,
              "list record 24: attribute list, entry at 0x60: it reaches past the end of the list" +
                  at(cut.volume, value, 0x60));
}

TEST(attribute_set, has_one_list_of_at_most_256_KiB) {
    listed_volume large;
    large.file.attribute(attribute_builder::non_resident(0x20, {{300, 65}}));
    large.file.without_attribute_list();
    // Of type 0x20, 72 bytes long, non-resident.
    const bytes begins = from_hex("20 00 00 00  48 00 00 00  01");
    EXPECT_EQ(copy_of(large.volume).failed,
              "sizes record 24, $ATTRIBUTE_LIST \"\": has 266240 bytes, at most 262144 are possible" +
                  at(large.volume, begins, 0));
    listed_volume two;
    two.file.attribute(attribute_builder::resident(0x20, {}));
    EXPECT_THAT(two.fault(), HasSubstr("list record 24: has two attribute lists"));
}

TEST(attribute_set, holds_at_most_64_MiB_of_records) {
    const auto fault_with = [](std::size_t extensions) {
        volume_builder volume({.record_size = 65536, .mft_entries = 1100});
        file_builder& file = volume.add_file("a");
        file.list_in_clusters();
        for (std::size_t i = 0; i < extensions; ++i) {
            file.attribute(attribute_builder::resident(0x80, to_bytes("x")).named("s" + std::to_string(i)),
                           file.add_extension());
        }
        return copy_of(volume, u"s0").failed;
    };
    EXPECT_EQ(fault_with(1024), "");
    EXPECT_EQ(fault_with(1025),
              "memory record 24: needs 67174400 bytes for the records of its attribute list, 67108864 are "
              "possible");
}

TEST(attribute_set, lists_the_streams_there_are) {
    volume_builder volume;
    volume.add_file("a").data("x").stream("zone", "y").stream("Two", "z");
    EXPECT_EQ(copy_of(volume, u"other").failed,
              "no-stream record 24: no stream \"other\"; there are: \"\", \"zone\", \"Two\"");
}

}  // namespace quarry::test
