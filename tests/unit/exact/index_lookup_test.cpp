#include "exact/index_lookup.h"

#include "exact/path_walk.h"
#include "support/index_builder.h"
#include "support/memory_source.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

using namespace quarry::exact;

namespace {

constexpr std::uint64_t many = 24;  // the entry of the directory

// A directory with 300 names, "name 000" to "name 299", in blocks of two levels.
bytes image_of_many_names() {
    test::geometry shape;
    shape.mft_entries = 512;
    shape.system_files = true;
    volume_builder volume(shape);
    const std::uint64_t directory = volume.add_directory("many").entry();
    EXPECT_EQ(directory, many);
    volume.file(directory).index_in_blocks();
    for (int i = 0; i < 300; ++i) {
        const std::string digits = std::to_string(1000 + i).substr(1);
        volume.add_file("name " + digits, directory);
    }
    return volume.image();
}

// The directory of an image, looked up in.
class opened_directory {
  public:
    explicit opened_directory(bytes image) : m_source(std::move(image)) {
        m_volume = exact_volume::open(m_source, "disk.img", 0, m_source.size(), m_told).value();
        m_set = attribute_set::of(m_volume->table(), m_volume->table().read(many, m_told).value(), m_told)
                    .value();
    }

    [[nodiscard]] result<index_key> find(std::u16string_view name) {
        const auto index = directory_index::open(*m_volume, *m_set, m_told);
        return index ? look_up(*index, name, "/many/x", m_told) : passed_on(index);
    }
    [[nodiscard]] std::string failure_of(std::u16string_view name) {
        const auto found = find(name);
        EXPECT_FALSE(found.has_value());
        return found ? "" : found.error().text();
    }
    // The byte of the image at which a block of the directory begins.
    [[nodiscard]] std::size_t block_position(std::uint64_t block) const {
        const auto blocks = m_set->stored(m_volume->shape(), attr_index_allocation, u"$I30").value();
        return static_cast<std::size_t>(
            blocks.place_of(m_volume->bytes(), block * 4096, 4096, "").source_byte(0).value());
    }
    // The same of the value of an attribute in the record.
    [[nodiscard]] std::size_t value_position(std::uint32_t type) const {
        const piece& stored = m_set->of_type(type).front()->stored;
        return static_cast<std::size_t>(stored.holder->source_byte(stored.bytes.value()).value());
    }
    // The leaf in which a name would be.
    [[nodiscard]] std::uint64_t leaf_of(std::u16string_view name) {
        const auto index = directory_index::open(*m_volume, *m_set, m_told);
        index_node node = index->root().value();
        std::uint64_t leaf = 0;
        while (true) {
            const auto entry = std::find_if(node.entries.begin(), node.entries.end(), [&](const auto& each) {
                return !each.key || index->letters().compare(name, each.key->name) < 0;
            });
            if (!entry->child) {
                return leaf;
            }
            leaf = *entry->child;
            node = index->block(leaf, m_told).value();
        }
    }
    [[nodiscard]] const notices& told() const { return m_told; }

  private:
    memory_source m_source;
    notices m_told;
    std::unique_ptr<exact_volume> m_volume;
    std::optional<attribute_set> m_set;
};

}  // namespace

TEST(index_lookup, finds_every_name_of_the_tree_and_no_other) {
    opened_directory directory(image_of_many_names());
    for (std::uint64_t i = 0; i < 300; ++i) {
        const std::string digits = std::to_string(1000 + i).substr(1);
        const auto found = directory.find(u"NAME " + std::u16string(digits.begin(), digits.end()));
        ASSERT_TRUE(found.has_value()) << found.error().text();
        EXPECT_EQ(found->file, (exact::reference{25 + i, 1}));
    }
    EXPECT_EQ(directory.failure_of(u"name 300"), "path \"/many/x\": no such name");
    EXPECT_EQ(directory.failure_of(u"a"), "path \"/many/x\": no such name");
    EXPECT_EQ(directory.failure_of(u"name 15"), "path \"/many/x\": no such name");
}

TEST(index_lookup, fails_at_a_block_on_the_way_that_is_another) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    const std::uint64_t block = before.leaf_of(u"name 150");
    const std::size_t position = before.block_position(block);
    image[position + 16] = 99;
    const std::string text = opened_directory(image).failure_of(u"name 150");
    EXPECT_EQ(text, "index block " + std::to_string(block) +
                        " of record 24: says that it is block 99 (source byte " + hex(position + 16) + ")");
}

TEST(index_lookup, fails_at_a_torn_block_on_the_way_and_does_not_see_one_beside_it) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    const std::size_t position = before.block_position(before.leaf_of(u"name 150"));
    ASSERT_NE(before.leaf_of(u"name 150"), before.leaf_of(u"name 299"));
    image[position + 1022] ^= 1;
    opened_directory damaged(image);
    const auto found = damaged.find(u"name 150");
    ASSERT_FALSE(found.has_value());
    EXPECT_EQ(found.error().code, failure_code::torn);
    EXPECT_TRUE(damaged.find(u"name 299").has_value());
}

TEST(index_lookup, fails_at_leaves_that_have_changed_places) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    const std::uint64_t first = before.leaf_of(u"name 000");
    const std::uint64_t last = before.leaf_of(u"name 299");
    const auto one = image.begin() + static_cast<std::ptrdiff_t>(before.block_position(first));
    const auto other = image.begin() + static_cast<std::ptrdiff_t>(before.block_position(last));
    std::swap_ranges(one, one + 4096, other);
    std::swap_ranges(one + 16, one + 24, other + 16);  // each says that it is where it lies now
    opened_directory exchanged(image);
    const auto expect_failure = [&](std::u16string_view name, std::uint64_t leaf, std::size_t source_byte) {
        const auto found = exchanged.find(name);
        ASSERT_FALSE(found.has_value());
        EXPECT_EQ(found.error().code, failure_code::index_order);
        EXPECT_EQ(found.error().text(),
                  "index block " + std::to_string(leaf) +
                      " of record 24: keys do not fit between those of the node above (source byte " +
                      hex(source_byte) + ")");
    };
    // The last name of what was the last leaf: 104 bytes, and 16 of the entry without a key, before the end.
    const std::size_t node = before.block_position(first) + 24;
    expect_failure(u"name 000", first, node + image[node + 4] + 256u * image[node + 5] - 16 - 104);
    // The first name of what was the first leaf.
    const std::size_t other_node = before.block_position(last) + 24;
    expect_failure(u"name 299", last, other_node + image[other_node]);
}

TEST(index_lookup, fails_at_a_block_without_its_signature) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    const std::uint64_t block = before.leaf_of(u"name 150");
    const std::size_t position = before.block_position(block);
    image[position] = 'B';
    EXPECT_EQ(opened_directory(image).failure_of(u"name 150"),
              "index block " + std::to_string(block) +
                  " of record 24: begins with \"BNDX\", not \"INDX\" (source byte " + hex(position) + ")");
}

TEST(index_lookup, warns_of_a_block_that_the_bitmap_calls_free) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    EXPECT_TRUE(before.find(u"name 150").has_value());
    EXPECT_TRUE(before.told().all().empty());
    image[before.value_position(attr_bitmap)] = 0;
    image[before.value_position(attr_bitmap) + 1] = 0;
    opened_directory stale(image);
    EXPECT_TRUE(stale.find(u"name 150").has_value());
    ASSERT_FALSE(stale.told().all().empty());
    EXPECT_EQ(stale.told().all().front().code, "stale-block");
    EXPECT_EQ(stale.told().all().front().why, "the directory's $BITMAP calls the block free");
}

TEST(index_lookup, fails_at_a_child_that_lies_outside) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    // The first entry of the root: its child is in the last eight bytes.
    const std::size_t entry = before.value_position(attr_index_root) + 32;
    const std::size_t child = entry + image[entry + 8] - 8u;
    image[child + 7] = 1;
    const std::string text = opened_directory(image).failure_of(u"name 000");
    EXPECT_EQ(text.rfind("index block " + std::to_string(0x0100000000000000 + image[child]) +
                             " of record 24: lies outside of the ",
                         0),
              0u)
        << text;
}

TEST(index_lookup, fails_at_a_block_that_is_met_twice_and_below_32_nodes) {
    // A directory whose root leads to block 1, each block to the next one, and the last to `last_leads_to`.
    const auto chain = [](std::uint64_t blocks, std::optional<std::uint64_t> last_leads_to) {
        volume_builder volume({.mft_entries = 64, .system_files = true});
        file_builder& directory = volume.add_directory("many");
        directory.index_in_blocks().index_root(build_index_root({{.flags = 2, .sub_node = 1}}, true));
        for (std::uint64_t block = 1; block <= blocks; ++block) {
            const std::optional<std::uint64_t> next =
                block < blocks ? std::optional(block + 1) : last_leads_to;
            directory.extra_index_block(
                index_block_builder().vcn(block).add({.flags = 2, .sub_node = next}).build());
        }
        return opened_directory(volume.image()).failure_of(u"a");
    };
    EXPECT_EQ(chain(3, 2), "index block 2 of record 24: the block is met twice on the way");
    EXPECT_EQ(chain(31, std::nullopt), "path \"/many/x\": no such name");
    EXPECT_EQ(chain(32, std::nullopt), "index block 32 of record 24: the index is deeper than 32 nodes");
}

TEST(index_lookup, wants_a_root_of_names_with_blocks_of_a_sound_size) {
    const bytes image = image_of_many_names();
    opened_directory before(image);
    const std::size_t root = before.value_position(attr_index_root);
    const std::string end = " (source byte " + hex(root) + ")";
    const auto with = [&](std::size_t offset, std::uint64_t value) {
        return opened_directory(byte_writer(image).u32(root + offset, value).take()).failure_of(u"name 000");
    };
    EXPECT_EQ(with(0, 0x80), "index root of record 24: the index is not one of names" + end);
    EXPECT_EQ(with(4, 0), "index root of record 24: the index is not one of names" + end);
    for (const std::uint64_t size : {0u, 256u, 4095u, 131072u}) {
        EXPECT_EQ(with(8, size),
                  "index root of record 24: index blocks of " + std::to_string(size) + " bytes" + end);
    }
}

TEST(index_lookup, wants_a_directory) {
    volume_builder volume({.mft_entries = 64, .system_files = true});
    volume.add_file("no directory");
    EXPECT_EQ(opened_directory(volume.image()).failure_of(u"a"), "record 24: is no directory");
}

TEST(index_lookup, wants_one_root_that_is_resident) {
    const auto with = [](const std::vector<attribute_builder>& roots) {
        volume_builder volume({.mft_entries = 64, .system_files = true});
        file_builder& directory = volume.add_directory("many").without_index();
        for (const attribute_builder& root : roots) {
            directory.attribute(root);
        }
        return opened_directory(volume.image()).failure_of(u"a");
    };
    const attribute_builder sound =
        attribute_builder::resident(0x90, build_index_root({{.flags = 2}}, false)).named("$I30");
    const attribute_builder in_clusters = attribute_builder::non_resident(0x90, {{100, 1}}).named("$I30");
    const std::string end = " $INDEX_ROOT \"$I30\", not one that is resident";
    EXPECT_EQ(with({sound}), "path \"/many/x\": no such name");
    EXPECT_EQ(with({sound, sound}), "index root of record 24: 2 attributes" + end);
    EXPECT_EQ(with({in_clusters}), "index root of record 24: 1 attribute" + end);
    EXPECT_EQ(with({}), "index root of record 24: 0 attributes" + end);
}

TEST(index_lookup, in_a_case_sensitive_directory_takes_the_same_units_alone) {
    bytes image = image_of_many_names();
    opened_directory before(image);
    const std::size_t information = before.value_position(attr_standard_information);
    image = byte_writer(image).u32(information + 36, 0).u32(information + 40, 1).take();
    opened_directory sensitive(image);
    EXPECT_TRUE(sensitive.find(u"name 150").has_value());
    EXPECT_EQ(
        sensitive.failure_of(u"NAME 150"),
        "path \"/many/x\": no such name in a case-sensitive directory; names that differ in case: name 150");
}

}  // namespace quarry::test
