#include "exact/index_walk.h"

#include "support/index_builder.h"
#include "support/opened_exact_volume.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

constexpr std::uint64_t walked_entry = 24;

std::u16string name_of_number(std::uint64_t number) {
    const std::string digits = std::to_string(100000 + number).substr(1);
    return u"name " + std::u16string(digits.begin(), digits.end());
}

// A directory, entry 24, whose index has `count` names, "name 00000" and so on; the files need not exist.
bytes image_of_names(std::uint64_t count) {
    volume_builder volume({.mft_entries = 64, .system_files = true});
    file_builder& directory = volume.add_directory("many");
    for (std::uint64_t i = 0; i < count; ++i) {
        directory.extra_entry(
            name_entry(test::reference(1000 + i, 1),
                       {.parent = test::reference(walked_entry, 1), .name = name_of_number(i)}));
    }
    return volume.image();
}

struct walked {
    std::vector<std::u16string> names;
    std::string damage;  // one line each
    std::size_t rests = 0;
};

class walked_directory {
  public:
    explicit walked_directory(bytes image) : m_opened(std::move(image)) {}

    // All names; the walk rests after every `rest_after` of them.
    [[nodiscard]] walked walk(std::size_t rest_after = 0) {
        walked out;
        const auto tell = [&](const failure& each) { out.damage += each.text() + "\n"; };
        auto begun = index_walk::begin(m_opened.volume(), attributes(), m_budget, tell, m_told);
        if (!begun) {
            out.damage = text_of(begun.error());
            return out;
        }
        while (const index_key* const key = begun->next(tell, m_told)) {
            out.names.push_back(key->name);
            if (rest_after != 0 && out.names.size() % rest_after == 0) {
                begun->rest();
                EXPECT_TRUE(begun->rests());
                EXPECT_TRUE(begun->wake(m_told).has_value());
                ++out.rests;
            }
        }
        return out;
    }
    [[nodiscard]] attribute_set attributes() {
        return attribute_set::of(m_opened.volume().table(),
                                 m_opened.volume().table().read(walked_entry, m_told).value(), m_told)
            .value();
    }
    // The byte of the image at which a block of the directory begins.
    [[nodiscard]] std::size_t block_position(std::uint64_t block) {
        const attribute_set set = attributes();
        const auto blocks = set.stored(m_opened.volume().shape(), attr_index_allocation, u"$I30").value();
        return static_cast<std::size_t>(
            blocks.place_of(m_opened.volume().bytes(), block * 4096, 4096, "").source_byte(0).value());
    }
    [[nodiscard]] std::uint64_t blocks() {
        return attributes().stored(m_opened.volume().shape(), attr_index_allocation, u"$I30").value().size() /
               4096;
    }
    [[nodiscard]] exact_volume& volume() { return m_opened.volume(); }
    [[nodiscard]] memory_source& source() { return m_opened.source(); }
    [[nodiscard]] notices& told() { return m_told; }

  private:
    opened_exact_volume m_opened;
    index_budget m_budget = index_budget(0x1000000);
    notices m_told;
};

std::vector<std::u16string> names_up_to(std::uint64_t count) {
    std::vector<std::u16string> names;
    for (std::uint64_t i = 0; i < count; ++i) {
        names.push_back(name_of_number(i));
    }
    return names;
}

// Levels of the tree: nodes from the root to the first leaf.
unsigned levels_of(walked_directory& directory) {
    const attribute_set set = directory.attributes();
    const auto index = directory_index::open(directory.volume(), set, directory.told()).value();
    index_node node = index.root().value();
    unsigned levels = 1;
    while (node.entries.front().child) {
        node = index.block(*node.entries.front().child, directory.told()).value();
        ++levels;
    }
    return levels;
}

}  // namespace

TEST(index_walk, gives_every_name_once_in_order_from_trees_of_one_to_four_levels) {
    struct row {
        std::uint64_t names;
        unsigned levels;
    };
    for (const row& each : {row{3, 1}, {100, 2}, {1000, 3}, {5000, 4}}) {
        walked_directory directory(image_of_names(each.names));
        EXPECT_EQ(levels_of(directory), each.levels);
        const walked all = directory.walk();
        EXPECT_TRUE(all.names == names_up_to(each.names)) << each.names << ": " << all.names.size();
        EXPECT_EQ(all.damage, "");
    }
}

TEST(index_walk, announces_the_children_of_a_node_but_the_first) {
    walked_directory directory(image_of_names(100));
    ASSERT_EQ(levels_of(directory), 2u);
    const attribute_set set = directory.attributes();
    const auto index = directory_index::open(directory.volume(), set, directory.told()).value();
    const std::vector<index_node_entry> children = index.root().value().entries;
    ASSERT_GT(children.size(), 1u);
    memory_source::announcements expected;
    for (auto each = children.begin() + 1; each != children.end(); ++each) {
        expected.emplace_back(directory.block_position(*each->child), 4096);
    }
    directory.source().announced().clear();
    EXPECT_EQ(directory.walk().damage, "");
    EXPECT_EQ(directory.source().announced(), expected);
}

TEST(index_walk, goes_on_where_it_rested) {
    for (const std::size_t rest_after : {1u, 7u, 99u}) {
        walked_directory directory(image_of_names(5000));
        const walked all = directory.walk(rest_after);
        EXPECT_TRUE(all.names == names_up_to(5000)) << all.names.size();
        EXPECT_EQ(all.damage, "");
        EXPECT_EQ(all.rests, 5000 / rest_after);
    }
}

TEST(index_walk, does_not_go_on_in_a_directory_that_is_another_than_before_its_rest) {
    struct row {
        std::uint64_t names_before;
        std::uint64_t names_after;
        std::string why;
    };
    for (const row& each :
         {row{4, 1, "index root of record 24: is no longer what it was"},
          row{5000, 3, " of record 24: lies outside of the 0 bytes of $INDEX_ALLOCATION"}}) {
        walked_directory directory(image_of_names(each.names_before));
        std::string damage;
        const auto tell = [&](const failure& each_damage) { damage += each_damage.text() + "\n"; };
        index_budget budget(0x1000000);
        auto walk =
            index_walk::begin(directory.volume(), directory.attributes(), budget, tell, directory.told());
        ASSERT_TRUE(walk.has_value());
        for (std::uint64_t i = 0; i < each.names_before; ++i) {
            ASSERT_NE(walk->next(tell, directory.told()), nullptr);
        }
        walk->rest();
        directory.source().content() = image_of_names(each.names_after);
        const auto awake = walk->wake(directory.told());
        ASSERT_FALSE(awake.has_value());
        EXPECT_TRUE(awake.error().text().ends_with(each.why)) << awake.error().text();
        EXPECT_EQ(walk->next(tell, directory.told()), nullptr);
        EXPECT_EQ(damage, "");
    }
}

TEST(index_walk, does_not_go_on_in_a_directory_that_is_gone_after_its_rest) {
    walked_directory directory(image_of_names(100));
    const auto tell = [](const failure&) {};
    index_budget budget(0x1000000);
    auto walk = index_walk::begin(directory.volume(), directory.attributes(), budget, tell, directory.told());
    ASSERT_TRUE(walk.has_value());
    ASSERT_NE(walk->next(tell, directory.told()), nullptr);
    walk->rest();
    directory.source().content() = volume_builder({.mft_entries = 64, .system_files = true}).image();
    EXPECT_FALSE(walk->wake(directory.told()).has_value());
    EXPECT_EQ(walk->next(tell, directory.told()), nullptr);
}

TEST(index_walk, passes_over_a_torn_block_and_tells_it_once) {
    bytes image = image_of_names(100);
    walked_directory before(image);
    // The builder fills block 0 with the first names.
    const std::size_t position = before.block_position(0);
    image[position + 1022] ^= 1;
    for (const std::size_t rest_after : {0u, 1u}) {
        const walked rest = walked_directory(image).walk(rest_after);
        std::vector<std::u16string> expected = names_up_to(100);
        const auto first_left = std::find(expected.begin(), expected.end(), rest.names.front());
        ASSERT_NE(first_left, expected.end());
        EXPECT_GT(first_left - expected.begin(), 20);
        expected.erase(expected.begin(), first_left);
        EXPECT_TRUE(rest.names == expected);
        EXPECT_EQ(rest.damage.rfind("index block 0 of record 24: torn: sector 1 ends in ", 0), 0u);
        EXPECT_EQ(std::count(rest.damage.begin(), rest.damage.end(), '\n'), 1);
    }
}

TEST(index_walk, takes_the_entries_ahead_of_a_broken_one) {
    bytes image = image_of_names(100);
    walked_directory before(image);
    const std::vector<std::u16string> whole = before.walk().names;
    // The third entry of the block: its length becomes 9. Each has 16 bytes, a key of 66 and a name of 20.
    const std::size_t position = before.block_position(0);
    const std::size_t first = position + 24 + image[position + 24];
    const std::size_t third = first + 2 * std::size_t{104};
    ASSERT_EQ(image[third + 8], 104);
    image[third + 8] = 9;
    const walked rest = walked_directory(image).walk();
    ASSERT_GT(rest.names.size(), 2u);
    EXPECT_EQ(rest.names[0], u"name 00000");
    EXPECT_EQ(rest.names[1], u"name 00001");
    // The next one is in the root, after the whole block.
    const auto next = std::find(whole.begin(), whole.end(), rest.names[2]);
    EXPECT_GT(next - whole.begin(), 20);
    EXPECT_EQ(rest.names.size() - 2, static_cast<std::size_t>(whole.end() - next));
    EXPECT_EQ(rest.damage, "index block 0 of record 24: entry at " + hex(third - position - 24) +
                               ": has a length of 9 (source byte " + hex(third) + ")\n");
}

TEST(index_walk, gives_names_out_of_order_and_tells_where) {
    bytes image = image_of_names(3);
    walked_directory before(image);
    const attribute_set set = before.attributes();
    const piece root = set.pieces(attr_index_root, u"$I30").front();
    const auto value = static_cast<std::size_t>(root.holder->source_byte(root.bytes.value()).value());
    // The last letter of the second name, "name 00001".
    const std::size_t second = value + 32 + 104;
    ASSERT_EQ(image[second + 16 + 66 + 18], '1');
    image[second + 16 + 66 + 18] = '7';
    const walked all = walked_directory(image).walk();
    EXPECT_EQ(all.names, (std::vector<std::u16string>{u"name 00000", u"name 00007", u"name 00002"}));
    EXPECT_EQ(all.damage, "index root of record 24: keys do not rise at " + hex(16 + 2 * 104) +
                              " (source byte " + hex(second + 104) + ")\n");
}

TEST(index_walk, tells_of_keys_that_do_not_fit_between_those_of_the_node_above) {
    bytes image = image_of_names(100);
    walked_directory before(image);
    const std::size_t position = before.block_position(1);
    const std::size_t first = position + 24 + image[position + 24];
    // The first name of the second block sorts ahead of all of the first block.
    ASSERT_EQ(image[first + 16 + 66], 'n');
    image[first + 16 + 66] = 'a';
    const walked all = walked_directory(image).walk();
    EXPECT_EQ(all.names.size(), 100u);
    EXPECT_EQ(all.damage,
              "index block 1 of record 24: keys do not fit between those of the node above (source byte " +
                  hex(first) + ")\n");
}

TEST(index_walk, ends_in_an_index_that_leads_back_into_itself_or_down_without_end) {
    // The root leads to block 1, each block to the next one and the last to `last_leads_to`. A last block
    // that leads nowhere has a name.
    const auto chain = [](std::uint64_t blocks, std::optional<std::uint64_t> last_leads_to) {
        volume_builder volume({.mft_entries = 64, .system_files = true});
        file_builder& directory = volume.add_directory("many");
        directory.index_in_blocks().index_root(build_index_root({{.flags = 2, .sub_node = 1}}, true));
        for (std::uint64_t block = 1; block <= blocks; ++block) {
            const std::optional<std::uint64_t> next =
                block < blocks ? std::optional(block + 1) : last_leads_to;
            index_block_builder built;
            built.vcn(block);
            if (!next) {
                built.add(name_entry(test::reference(1000 + block, 1), {.name = name_of_number(block)}));
            }
            directory.extra_index_block(built.add({.flags = 2, .sub_node = next}).build());
        }
        return walked_directory(volume.image()).walk();
    };
    EXPECT_EQ(chain(31, std::nullopt).names.size(), 1u);
    EXPECT_EQ(chain(31, std::nullopt).damage, "");
    EXPECT_EQ(chain(3, 2).damage, "index block 2 of record 24: the block is met twice on the way\n");
    EXPECT_EQ(chain(40, std::nullopt).names.size(), 0u);
    EXPECT_EQ(chain(40, std::nullopt).damage,
              "index block 32 of record 24: the index is deeper than 32 nodes\n");
}

TEST(index_walk, knows_the_keys_that_come_next_in_a_node) {
    walked_directory directory(image_of_names(3));
    const auto tell = [](const failure&) {};
    index_budget budget(0x1000000);
    auto walk =
        index_walk::begin(directory.volume(), directory.attributes(), budget, tell, directory.told()).value();
    const auto at_hand = [&] {
        std::vector<std::u16string> names;
        walk.for_each_at_hand([&](const index_key& key) { names.push_back(key.name); });
        return names;
    };
    EXPECT_TRUE(at_hand().empty());
    EXPECT_NE(walk.next(tell, directory.told()), nullptr);
    EXPECT_EQ(at_hand(), names_up_to(3));
    EXPECT_NE(walk.next(tell, directory.told()), nullptr);
    EXPECT_EQ(at_hand(), (std::vector<std::u16string>{u"name 00001", u"name 00002"}));
}

}  // namespace quarry::test
