// NTFS volumes made byte by byte, small enough to be read in a test and odd wherever the test wants them odd.
//
//     volume_builder volume;
//     volume.add_file("a.txt").data(runs({{100, 8}, {hole, 16}}));
//     const bytes image = volume.image();
//
// The places are known: the boot sector at byte 0, $MFT from `mft_lcn()` on (entry 0 $MFT, 5 the root
// directory, 6 $Bitmap, 9 $Secure when asked for), files and directories from entry 24 on in the order in
// which they are added, content that is given as bytes in the first free clusters after $MFT. Slots of $MFT
// that nothing uses are zero. `image()` may be called again after further changes.
#pragma once

#include "support/cluster_store.h"
#include "support/file_builder.h"
#include "support/record_builder.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <vector>

namespace quarry::test {

inline constexpr std::uint64_t root_entry = 5;
inline constexpr std::uint64_t first_user_entry = 24;

struct geometry {
    std::uint32_t bytes_per_sector = 512;
    std::uint32_t sectors_per_cluster = 8;
    std::uint32_t record_size = 1024;
    std::uint32_t mft_entries = 64;
    // Distance of the sector ends that update sequences protect.
    std::uint32_t stride = 512;
    // Where $MFT lies; empty for one run after the boot area. The first `mft_runs_in_record_0` of them are in
    // record 0 (0 means all), the others in an extension record at entry 15, each in an attribute of its own.
    run_list mft_runs = {};
    std::size_t mft_runs_in_record_0 = 0;
    // The volume has at least this many clusters.
    std::uint64_t total_clusters = 0;
    // All of the entries that a formatted volume has, so that other tools accept the volume. Unused slots
    // that the mirror of $MFT covers then hold empty records.
    bool system_files = false;
};

class volume_builder {
  public:
    explicit volume_builder(const geometry& shape = {});
    volume_builder(const volume_builder&) = delete;
    volume_builder& operator=(const volume_builder&) = delete;

    // The references stay good for the life of the volume.
    file_builder& add_file(ntfs_name name, std::uint64_t parent_entry = root_entry);
    file_builder& add_directory(ntfs_name name, std::uint64_t parent_entry = root_entry);
    file_builder& add_file_at(std::uint64_t entry, ntfs_name name, std::uint64_t parent_entry = root_entry);
    // $Secure with these bytes as its $SDS stream.
    file_builder& add_secure(const bytes& sds);
    // An entry that exists already: 0, 5, 6, or what was added.
    [[nodiscard]] file_builder& file(std::uint64_t entry) { return *m_files.at(entry); }
    [[nodiscard]] file_builder& root() { return file(root_entry); }

    [[nodiscard]] const geometry& shape() const { return m_shape; }
    [[nodiscard]] std::size_t cluster_size() const { return m_clusters.cluster_size(); }
    [[nodiscard]] std::uint64_t mft_lcn() const {
        return static_cast<std::uint64_t>(m_shape.mft_runs[0].lcn);
    }
    // Byte position of a record from the start of the volume.
    [[nodiscard]] std::uint64_t record_position(std::uint64_t entry) const;
    [[nodiscard]] cluster_store& clusters() { return m_clusters; }
    // Takes the clusters and writes the content from this LCN on.
    void write_clusters(std::uint64_t lcn, const bytes& content);

    // Numbers over the finished volume: the boot sector, the record of an entry as it is on disk.
    void force_boot(std::size_t offset, unsigned width, std::uint64_t value);
    void force_record(std::uint64_t entry, std::size_t offset, unsigned width, std::uint64_t value);
    // These bytes in the slot of an entry, zeros after them. No bytes: an unused slot.
    void replace_record(std::uint64_t entry, bytes content);

    // An empty record of this volume's size, for what is built by hand and put in place by replace_record.
    [[nodiscard]] record_builder new_record(std::uint64_t entry) const;
    // A free entry number, which is then taken. Throws std::length_error when $MFT is full.
    [[nodiscard]] std::uint64_t next_entry();

    // The bytes of a record as the image has them, sector ends replaced.
    [[nodiscard]] bytes record_on_disk(std::uint64_t entry) const;

    [[nodiscard]] bytes image() const;
    // The volume inside of a larger source, zeros ahead of it.
    [[nodiscard]] bytes image_at(std::uint64_t offset_bytes) const;
    void write_to(const std::filesystem::path& path) const;

  private:
    friend class volume_image;
    file_builder& add(std::uint64_t entry, bool directory, ntfs_name name, std::uint64_t parent_entry);
    file_builder& add_system(std::uint64_t entry, bool directory, ntfs_name name, std::uint64_t parent_entry);
    void add_mft();
    void add_system_files();

    geometry m_shape;
    cluster_store m_clusters;
    run_list m_mirror;
    std::map<std::uint64_t, std::unique_ptr<file_builder>> m_files;
    std::uint64_t m_next_entry = first_user_entry;
    std::vector<forced_number> m_forced_boot;
    std::map<std::uint64_t, std::vector<forced_number>> m_forced_records;
    std::map<std::uint64_t, bytes> m_replaced_records;
};

void write_file(const std::filesystem::path& path, const bytes& content);
[[nodiscard]] bytes read_file(const std::filesystem::path& path);

}  // namespace quarry::test
