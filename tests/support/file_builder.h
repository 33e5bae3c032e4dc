// One file or directory of a volume under construction: its names, its attributes, its extension records.
#pragma once

#include "support/attribute_builder.h"
#include "support/attribute_list_builder.h"
#include "support/attribute_values.h"
#include "support/index_builder.h"
#include "support/record_builder.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quarry::test {

class volume_builder;

// What a non-resident stream says of itself where that differs from what its runs imply. Sizes in bytes.
struct stream_settings {
    std::optional<std::uint64_t> real = {};
    std::optional<std::uint64_t> initialized = {};
    std::optional<std::uint64_t> allocated = {};
    std::optional<std::uint64_t> compressed = {};
    std::uint8_t unit = 0;
    std::uint16_t flags = 0;
    std::optional<std::uint16_t> id = {};
};

class file_builder {
  public:
    file_builder(volume_builder& volume, std::uint64_t entry, bool directory);

    [[nodiscard]] std::uint64_t entry() const { return m_entry; }
    [[nodiscard]] std::uint64_t file_reference() const;
    [[nodiscard]] bool is_directory() const { return m_directory; }

    // The unnamed $DATA. Bytes go into the record if there are at most half a record of them, into clusters
    // of their own otherwise.
    file_builder& data(bytes content);
    file_builder& data(std::string_view text) { return data(to_bytes(text)); }
    // Only runs: the clusters keep whatever is written to them by other means.
    file_builder& data(run_list where, stream_settings settings = {});
    // Content written through the runs; the real size is that of the content.
    file_builder& data(const bytes& content, run_list where, stream_settings settings = {});
    file_builder& resident_data(bytes content);
    file_builder& stored_data(const bytes& content, stream_settings settings = {});
    // The same for a named $DATA.
    file_builder& stream(ntfs_name name, bytes content);
    file_builder& stream(ntfs_name name, std::string_view text) {
        return stream(std::move(name), to_bytes(text));
    }
    file_builder& stream(ntfs_name name, run_list where, stream_settings settings = {});
    file_builder& stream(ntfs_name name, const bytes& content, run_list where, stream_settings settings = {});
    file_builder& stored_stream(ntfs_name name, const bytes& content, stream_settings settings = {});
    // Any attribute, in the base record (place 0) or in an extension record.
    file_builder& attribute(attribute_builder attribute, std::size_t place = 0);
    file_builder& reparse(const reparse_point& value);
    // Bytes after the last attribute of a record, before the end marker: whatever a test wants in the chain.
    file_builder& chain_bytes(bytes raw, std::size_t place = 0);

    // A new extension record; the answer is its place. With one, an $ATTRIBUTE_LIST is made unless a test
    // forbids it.
    [[nodiscard]] std::size_t add_extension(std::optional<std::uint64_t> entry = {});
    [[nodiscard]] std::uint64_t extension_entry(std::size_t place) const;
    file_builder& list_in_clusters();
    // This value in place of the one that follows from the attributes; with or without extension records.
    file_builder& attribute_list(bytes value);
    file_builder& without_attribute_list();

    // Names. The first one is given when the file is added.
    file_builder& name_space(std::uint8_t value);
    file_builder& hard_link(ntfs_name name, std::uint64_t parent_entry,
                            std::uint8_t name_space = win32_namespace);
    file_builder& short_name(ntfs_name name);
    file_builder& without_names();
    // A name that the record holds but no index does.
    file_builder& unindexed();

    file_builder& times(const file_times& value);
    file_builder& attributes(std::uint32_t value);
    file_builder& security_id(std::uint32_t value);
    file_builder& sequence(std::uint16_t value);
    file_builder& without_standard_information();
    // The attributes are in the record as they were added, not by type.
    file_builder& unsorted();
    // The record's in-use bit is clear and no index names it...
    file_builder& deleted();
    // ...or an index block still does.
    file_builder& deleted_but_indexed();

    // Directories.
    file_builder& index_in_blocks();
    file_builder& extra_entry(index_entry entry);
    // These bytes as a further block of the index, after those that hold the children.
    file_builder& extra_index_block(bytes block);
    file_builder& index_root(bytes value);
    file_builder& index_allocation_in(std::size_t place);
    file_builder& index_root_in(std::size_t place);
    file_builder& without_index();

    // The base record and the extension records, for forcing: what is added to their chains here comes before
    // all else.
    [[nodiscard]] record_builder& record(std::size_t place = 0) { return m_records.at(place); }

  private:
    friend class volume_image;
    friend class volume_builder;
    struct placed_attribute {
        attribute_builder attribute;
        std::size_t place;
    };
    struct placed_name {
        ntfs_name name;
        std::uint64_t parent_entry;
        std::uint8_t name_space;
        bool indexed;
    };
    [[nodiscard]] attribute_builder in_clusters(run_list where, const stream_settings& settings) const;
    file_builder& add_content(ntfs_name name, bytes content);

    volume_builder* m_volume;
    std::uint64_t m_entry;
    bool m_directory;
    bool m_deleted = false;
    bool m_indexed = true;
    bool m_sorted = true;
    bool m_standard_information = true;
    bool m_list_in_clusters = false;
    bool m_list_wanted = true;
    std::optional<bytes> m_list_value;
    standard_information m_standard;
    std::uint64_t m_real_size = 0;  // of the unnamed $DATA, for the copies of it in $FILE_NAME
    std::uint64_t m_allocated_size = 0;
    std::vector<record_builder> m_records;
    std::vector<std::uint64_t> m_record_entries;
    std::vector<placed_attribute> m_attributes;
    std::vector<std::pair<bytes, std::size_t>> m_chain_bytes;
    std::vector<placed_name> m_names;
    bool m_index_in_blocks = false;
    bool m_index_wanted = true;
    std::size_t m_allocation_place = 0;
    std::size_t m_root_place = 0;
    std::optional<bytes> m_index_root;
    std::vector<index_entry> m_extra_entries;
    std::vector<bytes> m_extra_blocks;
};

}  // namespace quarry::test
