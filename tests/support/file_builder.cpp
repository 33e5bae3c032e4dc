#include "support/file_builder.h"

#include "support/volume_builder.h"

namespace quarry::test {

namespace {

constexpr std::uint32_t data_type = 0x80;
constexpr std::uint32_t reparse_type = 0xC0;
constexpr std::uint32_t directory_attribute = 0x10000000;
constexpr std::uint32_t sparse_attribute = 0x200;
constexpr std::uint32_t reparse_attribute = 0x400;
constexpr std::uint32_t compressed_attribute = 0x800;

}  // namespace

file_builder::file_builder(volume_builder& volume, std::uint64_t entry, bool directory)
    : m_volume(&volume), m_entry(entry), m_directory(directory) {
    m_standard.attributes = directory ? directory_attribute : 0x20;
    m_records.push_back(volume.new_record(entry));
    m_record_entries.push_back(entry);
    if (directory) {
        m_records[0].flags(3);
    }
}

std::uint64_t file_builder::file_reference() const {
    return reference(m_entry, m_records[0].sequence());
}

attribute_builder file_builder::in_clusters(run_list where, const stream_settings& settings) const {
    m_volume->clusters().take(where);
    attribute_builder result = attribute_builder::non_resident(data_type, std::move(where));
    result.cluster_size(m_volume->cluster_size()).unit(settings.unit).flags(settings.flags);
    if (settings.allocated) {
        result.allocated(*settings.allocated);
    }
    if (settings.real) {
        result.real(*settings.real);
    }
    if (settings.initialized) {
        result.initialized(*settings.initialized);
    }
    if (settings.compressed) {
        result.compressed(*settings.compressed);
    }
    if (settings.id) {
        result.id(*settings.id);
    }
    return result;
}

file_builder& file_builder::add_content(ntfs_name name, bytes content) {
    if (content.size() <= m_volume->shape().record_size / 2) {
        m_real_size = name.units.empty() ? content.size() : m_real_size;
        return attribute(attribute_builder::resident(data_type, std::move(content)).named(std::move(name)));
    }
    return stored_stream(std::move(name), content);
}

file_builder& file_builder::data(bytes content) {
    return add_content({}, std::move(content));
}

file_builder& file_builder::data(run_list where, stream_settings settings) {
    return stream({}, std::move(where), settings);
}

file_builder& file_builder::data(const bytes& content, run_list where, stream_settings settings) {
    return stream({}, content, std::move(where), settings);
}

file_builder& file_builder::resident_data(bytes content) {
    m_real_size = content.size();
    return attribute(attribute_builder::resident(data_type, std::move(content)));
}

file_builder& file_builder::stored_data(const bytes& content, stream_settings settings) {
    return stored_stream({}, content, settings);
}

file_builder& file_builder::stream(ntfs_name name, bytes content) {
    return add_content(std::move(name), std::move(content));
}

file_builder& file_builder::stream(ntfs_name name, run_list where, stream_settings settings) {
    if (name.units.empty()) {
        m_real_size = settings.real.value_or(clusters_of(where) * m_volume->cluster_size());
        m_allocated_size = settings.allocated.value_or(clusters_of(where) * m_volume->cluster_size());
        m_standard.attributes |= (settings.flags & 0x8000) != 0 ? sparse_attribute : 0;
        m_standard.attributes |= (settings.flags & 0x0001) != 0 ? compressed_attribute : 0;
    }
    return attribute(in_clusters(std::move(where), settings).named(std::move(name)));
}

file_builder& file_builder::stream(ntfs_name name, const bytes& content, run_list where,
                                   stream_settings settings) {
    if (!settings.real) {
        settings.real = content.size();
    }
    m_volume->clusters().write(where, content);
    return stream(std::move(name), std::move(where), settings);
}

file_builder& file_builder::stored_stream(ntfs_name name, const bytes& content, stream_settings settings) {
    const run_list where = {m_volume->clusters().allocate(m_volume->clusters().clusters_for(content.size()))};
    return stream(std::move(name), content, where, settings);
}

file_builder& file_builder::attribute(attribute_builder attribute, std::size_t place) {
    m_attributes.push_back({std::move(attribute), place});
    return *this;
}

file_builder& file_builder::reparse(const reparse_point& value) {
    m_standard.attributes |= reparse_attribute;
    return attribute(attribute_builder::resident(reparse_type, value.build()));
}

file_builder& file_builder::chain_bytes(bytes raw, std::size_t place) {
    m_chain_bytes.emplace_back(std::move(raw), place);
    return *this;
}

std::size_t file_builder::add_extension(std::optional<std::uint64_t> entry) {
    const std::uint64_t number = entry ? *entry : m_volume->next_entry();
    m_records.push_back(m_volume->new_record(number));
    m_records.back().links(0).base(file_reference());
    m_record_entries.push_back(number);
    return m_records.size() - 1;
}

std::uint64_t file_builder::extension_entry(std::size_t place) const {
    return m_record_entries.at(place);
}

file_builder& file_builder::list_in_clusters() {
    m_list_in_clusters = true;
    return *this;
}

file_builder& file_builder::attribute_list(bytes value) {
    m_list_value = std::move(value);
    return *this;
}

file_builder& file_builder::without_attribute_list() {
    m_list_wanted = false;
    return *this;
}

file_builder& file_builder::name_space(std::uint8_t value) {
    m_names.at(0).name_space = value;
    return *this;
}

file_builder& file_builder::hard_link(ntfs_name name, std::uint64_t parent_entry, std::uint8_t name_space) {
    m_names.push_back({std::move(name), parent_entry, name_space, true});
    m_records[0].links(static_cast<std::uint16_t>(m_names.size()));
    return *this;
}

file_builder& file_builder::short_name(ntfs_name name) {
    return hard_link(std::move(name), m_names.at(0).parent_entry, dos_namespace);
}

file_builder& file_builder::without_names() {
    m_names.clear();
    return *this;
}

file_builder& file_builder::unindexed() {
    m_names.back().indexed = false;
    return *this;
}

file_builder& file_builder::times(const file_times& value) {
    m_standard.times = value;
    return *this;
}

file_builder& file_builder::attributes(std::uint32_t value) {
    m_standard.attributes = value;
    return *this;
}

file_builder& file_builder::security_id(std::uint32_t value) {
    m_standard.security_id = value;
    return *this;
}

file_builder& file_builder::sequence(std::uint16_t value) {
    m_records[0].sequence(value);
    return *this;
}

file_builder& file_builder::without_standard_information() {
    m_standard_information = false;
    return *this;
}

file_builder& file_builder::unsorted() {
    m_sorted = false;
    return *this;
}

file_builder& file_builder::deleted() {
    m_indexed = false;
    return deleted_but_indexed();
}

file_builder& file_builder::deleted_but_indexed() {
    m_deleted = true;
    m_records[0].flags(m_directory ? 2 : 0);
    return *this;
}

file_builder& file_builder::index_in_blocks() {
    m_index_in_blocks = true;
    return *this;
}

file_builder& file_builder::extra_entry(index_entry entry) {
    m_extra_entries.push_back(std::move(entry));
    return *this;
}

file_builder& file_builder::extra_index_block(bytes block) {
    m_index_in_blocks = true;
    m_extra_blocks.push_back(std::move(block));
    return *this;
}

file_builder& file_builder::index_root(bytes value) {
    m_index_root = std::move(value);
    return *this;
}

file_builder& file_builder::index_allocation_in(std::size_t place) {
    m_index_in_blocks = true;
    m_allocation_place = place;
    return *this;
}

file_builder& file_builder::index_root_in(std::size_t place) {
    m_root_place = place;
    return *this;
}

file_builder& file_builder::without_index() {
    m_index_wanted = false;
    return *this;
}

}  // namespace quarry::test
