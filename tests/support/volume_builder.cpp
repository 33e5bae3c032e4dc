#include "support/volume_builder.h"

#include "support/system_files.h"
#include "support/volume_image.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::uint64_t boot_area_bytes = 16384;
constexpr std::uint64_t mft_extension_entry = 15;
constexpr std::uint32_t data_type = 0x80;

geometry with_mft_place(geometry shape) {
    if (shape.mft_runs.empty()) {
        const std::uint64_t cluster = std::uint64_t{shape.bytes_per_sector} * shape.sectors_per_cluster;
        const std::uint64_t size = std::uint64_t{shape.mft_entries} * shape.record_size;
        shape.mft_runs = {{static_cast<std::int64_t>((boot_area_bytes + cluster - 1) / cluster),
                           (size + cluster - 1) / cluster}};
    }
    return shape;
}

}  // namespace

volume_builder::volume_builder(const geometry& shape)
    : m_shape(with_mft_place(shape)),
      m_clusters(std::size_t{shape.bytes_per_sector} * shape.sectors_per_cluster) {
    m_clusters.take({{0, m_clusters.clusters_for(boot_area_bytes)}});
    m_clusters.take(m_shape.mft_runs);
    add_mft();
    add_system(root_entry, true, ".", root_entry);
    add_system(6, false, "$Bitmap", root_entry);
    if (m_shape.system_files) {
        add_system_files();
    }
}

file_builder& volume_builder::add(std::uint64_t entry, bool directory, ntfs_name name,
                                  std::uint64_t parent_entry) {
    if (entry >= m_shape.mft_entries) {
        throw std::length_error("$MFT is full: give the volume more mft_entries");
    }
    auto file = std::make_unique<file_builder>(*this, entry, directory);
    file->m_names.push_back({std::move(name), parent_entry, win32_namespace, true});
    return *(m_files[entry] = std::move(file));
}

file_builder& volume_builder::add_system(std::uint64_t entry, bool directory, ntfs_name name,
                                         std::uint64_t parent_entry) {
    file_builder& file = add(entry, directory, std::move(name), parent_entry);
    file.sequence(static_cast<std::uint16_t>(entry == 0 ? 1 : entry));
    return file.name_space(win32_and_dos_namespace).attributes(directory ? 0x10000006 : 6);
}

file_builder& volume_builder::add_file(ntfs_name name, std::uint64_t parent_entry) {
    return add(next_entry(), false, std::move(name), parent_entry);
}

file_builder& volume_builder::add_directory(ntfs_name name, std::uint64_t parent_entry) {
    return add(next_entry(), true, std::move(name), parent_entry);
}

file_builder& volume_builder::add_file_at(std::uint64_t entry, ntfs_name name, std::uint64_t parent_entry) {
    m_next_entry = std::max(m_next_entry, entry + 1);
    return add(entry, false, std::move(name), parent_entry);
}

file_builder& volume_builder::add_secure(const bytes& sds) {
    const auto cluster = static_cast<std::uint32_t>(cluster_size());
    file_builder& secure = add_system(9, false, "$Secure", root_entry);
    secure.attribute(
        attribute_builder::resident(0x90, build_view_index_root(0x12, {}, cluster)).named("$SDH"));
    secure.attribute(
        attribute_builder::resident(0x90, build_view_index_root(0x10, {}, cluster)).named("$SII"));
    return secure.stored_stream("$SDS", sds);
}

void volume_builder::add_mft() {
    file_builder& mft = add_system(0, false, "$MFT", root_entry);
    const run_list& all = m_shape.mft_runs;
    const std::size_t in_record_0 =
        m_shape.mft_runs_in_record_0 == 0 ? all.size() : std::min(m_shape.mft_runs_in_record_0, all.size());
    const auto split = all.begin() + static_cast<std::ptrdiff_t>(in_record_0);
    const run_list first(all.begin(), split);
    const std::uint64_t size = std::uint64_t{m_shape.mft_entries} * m_shape.record_size;
    mft.attribute(attribute_builder::non_resident(data_type, first)
                      .cluster_size(cluster_size())
                      .allocated(clusters_of(all) * cluster_size())
                      .real(size));
    if (split == all.end()) {
        return;
    }
    const std::size_t place = mft.add_extension(mft_extension_entry);
    std::uint64_t vcn = clusters_of(first);
    for (auto piece = split; piece != all.end(); ++piece) {
        mft.attribute(attribute_builder::non_resident(data_type, {*piece})
                          .cluster_size(cluster_size())
                          .lowest_vcn(vcn)
                          .allocated(0)
                          .real(0)
                          .initialized(0),
                      place);
        vcn += piece->length;
    }
}

void volume_builder::add_system_files() {
    // A mirror holds the first four records, or a whole cluster of them.
    const std::uint64_t mirror_size =
        std::max(std::uint64_t{m_shape.record_size} * 4, std::uint64_t{cluster_size()});
    m_mirror = {m_clusters.allocate(m_clusters.clusters_for(mirror_size))};
    add_system(1, false, "$MFTMirr", root_entry).data(m_mirror, {.real = mirror_size});
    // A log without a single record in it: the volume was left clean.
    add_system(2, false, "$LogFile", root_entry).stored_data(bytes(65536, 0xFF));
    add_system(3, false, "$Volume", root_entry)
        .attribute(attribute_builder::resident(0x60, ntfs_name("built").on_disk()))
        .attribute(attribute_builder::resident(0x70, volume_information(3, 1)))
        .attribute(attribute_builder::resident(data_type, {}));
    add_system(4, false, "$AttrDef", root_entry).stored_data(attribute_definitions());
    add_system(7, false, "$Boot", root_entry)
        .data(runs({{0, m_clusters.clusters_for(8192)}}), {.real = 8192});
    add_system(8, false, "$BadClus", root_entry).data("").stream("$Bad", run_list{}, {});
    add_secure(bytes(16));
    add_system(10, false, "$UpCase", root_entry).stored_data(upper_case_table());
    add_system(11, true, "$Extend", root_entry);
}

std::uint64_t volume_builder::record_position(std::uint64_t entry) const {
    const std::uint64_t byte = entry * m_shape.record_size;
    std::uint64_t vcn = byte / cluster_size();
    for (const run& piece : m_shape.mft_runs) {
        if (vcn < piece.length) {
            return (static_cast<std::uint64_t>(piece.lcn) + vcn) * cluster_size() + byte % cluster_size();
        }
        vcn -= piece.length;
    }
    throw std::out_of_range("no such entry in $MFT");
}

void volume_builder::write_clusters(std::uint64_t lcn, const bytes& content) {
    const run_list where = {{static_cast<std::int64_t>(lcn), m_clusters.clusters_for(content.size())}};
    m_clusters.take(where);
    m_clusters.write(where, content);
}

void volume_builder::force_boot(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced_boot.push_back({offset, width, value});
}

void volume_builder::force_record(std::uint64_t entry, std::size_t offset, unsigned width,
                                  std::uint64_t value) {
    m_forced_records[entry].push_back({offset, width, value});
}

void volume_builder::replace_record(std::uint64_t entry, bytes content) {
    m_replaced_records[entry] = std::move(content);
}

record_builder volume_builder::new_record(std::uint64_t entry) const {
    return record_builder(m_shape.record_size, m_shape.stride).entry(entry);
}

std::uint64_t volume_builder::next_entry() {
    if (m_next_entry >= m_shape.mft_entries) {
        throw std::length_error("$MFT is full: give the volume more mft_entries");
    }
    return m_next_entry++;
}

bytes volume_builder::image() const {
    return volume_image(*this).build();
}

bytes volume_builder::record_on_disk(std::uint64_t entry) const {
    const bytes whole = image();
    const auto from = whole.begin() + static_cast<std::ptrdiff_t>(record_position(entry));
    return {from, from + static_cast<std::ptrdiff_t>(m_shape.record_size)};
}

bytes volume_builder::image_at(std::uint64_t offset_bytes) const {
    return byte_writer().raw(static_cast<std::size_t>(offset_bytes), image()).take();
}

void volume_builder::write_to(const std::filesystem::path& path) const {
    write_file(path, image());
}

void write_file(const std::filesystem::path& path, const bytes& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

bytes read_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path.string());
    }
    const std::string content{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return to_bytes(content);
}

}  // namespace quarry::test
