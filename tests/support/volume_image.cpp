#include "support/volume_image.h"

#include "support/index_tree.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::uint32_t bitmap_type = 0xB0;
constexpr std::uint32_t data_type = 0x80;

std::u16string upper_ascii(std::u16string name) {
    for (char16_t& unit : name) {
        if (unit >= u'a' && unit <= u'z') {
            unit = static_cast<char16_t>(unit - u'a' + u'A');
        }
    }
    return name;
}

void set_bit(bytes& bitmap, std::uint64_t bit) {
    bitmap.at(static_cast<std::size_t>(bit / 8)) |= static_cast<std::uint8_t>(1u << (bit % 8));
}

}  // namespace

volume_image::volume_image(const volume_builder& volume) : m_volume(volume), m_clusters(volume.m_clusters) {}

bytes volume_image::build() {
    for (const auto& [entry, file] : m_volume.m_files) {
        if (entry != 6) {
            build_file(*file);
        }
    }
    build_volume_bitmap();
    write_mft();
    m_clusters.write_at(0, boot_sector());
    return m_clusters.content(m_total_clusters);
}

file_name volume_image::key_of(const file_builder& file, std::size_t name) const {
    const file_builder::placed_name& placed = file.m_names[name];
    const auto parent = m_volume.m_files.find(placed.parent_entry);
    const std::uint64_t parent_reference = parent == m_volume.m_files.end()
                                               ? reference(placed.parent_entry, 1)
                                               : parent->second->file_reference();
    return {.parent = parent_reference,
            .name = placed.name,
            .name_space = placed.name_space,
            .times = file.m_standard.times,
            .allocated = file.m_allocated_size,
            .real = file.m_real_size,
            .attributes = file.m_standard.attributes};
}

std::vector<volume_image::placed_attribute> volume_image::names_and_information(
    const file_builder& file) const {
    std::vector<placed_attribute> result;
    if (file.m_standard_information) {
        result.push_back({attribute_builder::resident(0x10, file.m_standard.build()), 0});
    }
    for (std::size_t i = 0; i < file.m_names.size(); ++i) {
        result.push_back({attribute_builder::resident(0x30, key_of(file, i).build()).indexed(), 0});
    }
    return result;
}

void volume_image::build_file(const file_builder& file) {
    std::vector<placed_attribute> attributes = names_and_information(file);
    attributes.insert(attributes.end(), file.m_attributes.begin(), file.m_attributes.end());
    if (file.entry() == 0) {
        attributes.push_back({in_record_or_clusters(bitmap_type, mft_bitmap()), 0});
    }
    if (!file.is_directory() || !file.m_index_wanted) {
        build_records(file, std::move(attributes));
        return;
    }
    if (!file.m_index_in_blocks) {
        std::vector<placed_attribute> with_index = attributes;
        const std::vector<placed_attribute> index = index_in_root(file);
        with_index.insert(with_index.end(), index.begin(), index.end());
        try {
            build_records(file, std::move(with_index));
            return;
        } catch (const std::length_error&) {
            // Too many children for the record: they move into blocks.
        }
    }
    const std::vector<placed_attribute> index = index_in_blocks(file);
    attributes.insert(attributes.end(), index.begin(), index.end());
    build_records(file, std::move(attributes));
}

void volume_image::build_records(const file_builder& file, std::vector<placed_attribute> attributes) {
    std::vector<std::uint16_t> next_id(file.m_records.size(), 0);
    if (file.m_sorted) {
        std::stable_sort(attributes.begin(), attributes.end(), [](const auto& a, const auto& b) {
            return a.attribute.type() < b.attribute.type();
        });
    }
    for (placed_attribute& each : attributes) {
        std::uint16_t& next = next_id.at(each.place);
        if (!each.attribute.id()) {
            each.attribute.id(next);
        }
        next = std::max(next, static_cast<std::uint16_t>(*each.attribute.id() + 1));
    }
    const bool listed = file.m_list_value || (file.m_records.size() > 1 && file.m_list_wanted);
    if (listed) {
        const auto after_information =
            std::find_if(attributes.begin(), attributes.end(),
                         [](const auto& each) { return each.attribute.type() > 0x20; });
        const std::ptrdiff_t index = after_information - attributes.begin();
        attribute_builder list = attribute_list(file, attributes);
        list.id(next_id[0]);
        attributes.insert(attributes.begin() + index, {std::move(list), 0});
    }
    std::vector<record_builder> records = file.m_records;
    for (const placed_attribute& each : attributes) {
        records[each.place].add(each.attribute);
    }
    for (const auto& [raw, place] : file.m_chain_bytes) {
        records.at(place).add_bytes(raw);
    }
    for (std::size_t i = 0; i < records.size(); ++i) {
        m_records[file.m_record_entries[i]] = records[i].build();
    }
}

attribute_builder volume_image::attribute_list(const file_builder& file,
                                               const std::vector<placed_attribute>& attributes) {
    std::vector<list_item> items;
    items.reserve(attributes.size());
    for (const placed_attribute& each : attributes) {
        items.push_back({.type = each.attribute.type(),
                         .record = file.m_record_entries[each.place],
                         .sequence = file.m_records[each.place].sequence(),
                         .id = *each.attribute.id(),
                         .name = each.attribute.name(),
                         .lowest_vcn = each.attribute.lowest_vcn()});
    }
    const bytes value = file.m_list_value ? *file.m_list_value : build_attribute_list(items);
    return file.m_list_in_clusters ? in_clusters(0x20, value) : attribute_builder::resident(0x20, value);
}

attribute_builder volume_image::in_clusters(std::uint32_t type, const bytes& content) {
    const run_list where = {m_clusters.allocate(m_clusters.clusters_for(content.size()))};
    m_clusters.write(where, content);
    return attribute_builder::non_resident(type, where)
        .cluster_size(m_clusters.cluster_size())
        .real(content.size());
}

std::vector<index_entry> volume_image::children(const file_builder& directory) const {
    std::vector<std::pair<std::u16string, index_entry>> found;
    for (const auto& [entry, file] : m_volume.m_files) {
        for (std::size_t i = 0; i < file->m_names.size(); ++i) {
            const file_builder::placed_name& name = file->m_names[i];
            if (file->m_indexed && name.indexed && name.parent_entry == directory.entry()) {
                found.emplace_back(upper_ascii(name.name.units),
                                   name_entry(file->file_reference(), key_of(*file, i)));
            }
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<index_entry> result;
    result.reserve(found.size());
    for (auto& [name, entry] : found) {
        result.push_back(std::move(entry));
    }
    result.insert(result.end(), directory.m_extra_entries.begin(), directory.m_extra_entries.end());
    return result;
}

std::vector<volume_image::placed_attribute> volume_image::index_in_root(const file_builder& directory) const {
    const bytes value = directory.m_index_root
                            ? *directory.m_index_root
                            : build_index_root(children(directory), false, index_block_size,
                                               static_cast<std::uint32_t>(m_clusters.cluster_size()));
    return {{attribute_builder::resident(0x90, value).named("$I30"), directory.m_root_place}};
}

std::vector<volume_image::placed_attribute> volume_image::index_in_blocks(const file_builder& directory) {
    const auto cluster = static_cast<std::uint32_t>(m_clusters.cluster_size());
    index_tree tree = build_index_tree(children(directory), cluster, m_volume.shape().stride);
    for (const bytes& block : directory.m_extra_blocks) {
        tree.blocks.insert(tree.blocks.end(), block.begin(), block.end());
    }
    bytes bitmap(8);
    bitmap.resize(std::max<std::size_t>(8, (tree.live_blocks + 63) / 64 * 8));
    for (std::size_t block = 0; block < tree.live_blocks; ++block) {
        set_bit(bitmap, block);
    }
    const bytes root = directory.m_index_root ? *directory.m_index_root
                                              : build_index_root(tree.root, true, index_block_size, cluster);
    return {{attribute_builder::resident(0x90, root).named("$I30"), directory.m_root_place},
            {in_clusters(0xA0, tree.blocks).named("$I30"), directory.m_allocation_place},
            {in_record_or_clusters(bitmap_type, bitmap).named("$I30"), 0}};
}

attribute_builder volume_image::in_record_or_clusters(std::uint32_t type, const bytes& content) {
    const bool fits = content.size() <= m_volume.shape().record_size / 4;
    return fits ? attribute_builder::resident(type, content) : in_clusters(type, content);
}

bytes volume_image::mft_bitmap() const {
    bytes bitmap((std::size_t{m_volume.shape().mft_entries} + 63) / 64 * 8);
    for (const auto& [entry, file] : m_volume.m_files) {
        for (const std::uint64_t record : file->m_record_entries) {
            if (!file->m_deleted) {
                set_bit(bitmap, record);
            }
        }
    }
    return bitmap;
}

void volume_image::build_volume_bitmap() {
    const file_builder& file = *m_volume.m_files.at(6);
    // The bitmap's own clusters count too: one cluster of it covers more clusters than it takes.
    const std::uint64_t bits_per_cluster = m_clusters.cluster_size() * 8;
    const std::uint64_t wanted = std::max(m_clusters.end_cluster(), m_volume.shape().total_clusters);
    const std::uint64_t own = wanted / bits_per_cluster + 1;
    const run where = m_clusters.allocate(own);
    m_total_clusters = std::max(m_clusters.end_cluster(), m_volume.shape().total_clusters);
    bytes bitmap(static_cast<std::size_t>((m_total_clusters + 63) / 64 * 8));
    for (std::uint64_t bit = 0; bit < bitmap.size() * 8; ++bit) {
        // Bits past the last cluster are set, as the file system keeps them.
        if (bit >= m_total_clusters || m_clusters.taken(bit)) {
            set_bit(bitmap, bit);
        }
    }
    m_clusters.write({where}, bitmap);
    std::vector<placed_attribute> attributes = names_and_information(file);
    attributes.insert(attributes.end(), file.m_attributes.begin(), file.m_attributes.end());
    attributes.push_back({attribute_builder::non_resident(data_type, {where})
                              .cluster_size(m_clusters.cluster_size())
                              .real(bitmap.size()),
                          0});
    build_records(file, std::move(attributes));
}

void volume_image::write_mft() {
    const geometry& shape = m_volume.shape();
    byte_writer table(std::size_t{shape.mft_entries} * shape.record_size);
    const auto put = [&](std::uint64_t entry, bytes record) {
        record.resize(shape.record_size);
        table.raw(static_cast<std::size_t>(entry) * shape.record_size, record);
    };
    // Other tools want a record, used or not, in each slot that the mirror covers.
    const std::size_t mirror_size = clusters_of(m_volume.m_mirror) * m_clusters.cluster_size();
    for (std::uint64_t entry = 0; entry < mirror_size / shape.record_size && entry < shape.mft_entries;
         ++entry) {
        put(entry, m_volume.new_record(entry).flags(0).links(0).build());
    }
    for (const auto& [entry, record] : m_records) {
        put(entry, record);
    }
    for (const auto& [entry, record] : m_volume.m_replaced_records) {
        put(entry, record);
    }
    for (const auto& [entry, changes] : m_volume.m_forced_records) {
        for (const forced_number& change : changes) {
            table.number(static_cast<std::size_t>(entry) * shape.record_size + change.offset, change.width,
                         change.value);
        }
    }
    if (!m_volume.m_mirror.empty()) {
        bytes mirror(table.content().begin(), table.content().begin() + static_cast<std::ptrdiff_t>(std::min(
                                                                            mirror_size, table.size())));
        m_clusters.write(m_volume.m_mirror, mirror);
    }
    m_clusters.write(shape.mft_runs, table.take());
}

bytes volume_image::boot_sector() const {
    const geometry& shape = m_volume.shape();
    const std::uint64_t cluster = m_clusters.cluster_size();
    const auto as_clusters = [&](std::uint64_t size) -> std::uint64_t {
        if (size >= cluster) {
            return size / cluster;
        }
        std::uint64_t exponent = 0;
        while ((std::uint64_t{1} << exponent) < size) {
            ++exponent;
        }
        return 256 - exponent;
    };
    byte_writer boot(512);
    boot.raw(0, from_hex("eb 52 90")).text(3, "NTFS    ").u16(11, shape.bytes_per_sector);
    boot.u8(13, shape.sectors_per_cluster).u8(21, 0xF8).u16(24, 63).u16(26, 255).u32(36, 0x00800080);
    boot.u64(40, m_total_clusters * shape.sectors_per_cluster)
        .u64(48, m_volume.mft_lcn())
        .u64(56, m_volume.m_mirror.empty() ? m_volume.mft_lcn()
                                           : static_cast<std::uint64_t>(m_volume.m_mirror[0].lcn));
    boot.u8(64, as_clusters(shape.record_size)).u8(68, as_clusters(index_block_size));
    boot.u64(72, 0x1122334455667788).u16(510, 0xAA55);
    bytes result = boot.take();
    apply(result, m_volume.m_forced_boot);
    return result;
}

}  // namespace quarry::test
