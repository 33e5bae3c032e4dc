#include "support/vmdk_builder.h"

#include "support/volume_builder.h"

#include <algorithm>
#include <stdexcept>

namespace quarry::test {

namespace {

constexpr std::uint64_t sector = 512;
constexpr std::uint64_t descriptor_first_sector = 1;

std::uint64_t divide_upwards(std::uint64_t value, std::uint64_t step) {
    return (value + step - 1) / step;
}

}  // namespace

vmdk_builder& vmdk_builder::put(std::uint64_t grain, bytes content) {
    content.resize(grain_bytes());
    m_held.push_back({grain, std::move(content)});
    return *this;
}

vmdk_builder& vmdk_builder::put_all(std::uint64_t first_grain, const bytes& content) {
    for (std::size_t done = 0; done < content.size(); done += grain_bytes()) {
        const std::size_t end = std::min<std::size_t>(content.size(), done + grain_bytes());
        put(first_grain++, bytes(content.begin() + static_cast<std::ptrdiff_t>(done),
                                 content.begin() + static_cast<std::ptrdiff_t>(end)));
    }
    return *this;
}

vmdk_builder& vmdk_builder::table_entry(std::uint64_t grain, std::uint32_t first_sector) {
    m_entries[grain] = first_sector;
    return *this;
}

vmdk_builder& vmdk_builder::force(std::size_t offset, unsigned width, std::uint64_t value) {
    m_forced.push_back({offset, width, value});
    return *this;
}

vmdk_builder& vmdk_builder::cut(std::size_t length) {
    m_length = length;
    return *this;
}

std::uint64_t vmdk_builder::directory_entries() const {
    return divide_upwards(grains, entries_per_table);
}

std::uint64_t vmdk_builder::directory_offset() const {
    return (descriptor_first_sector + descriptor_sectors) * sector;
}

std::uint64_t vmdk_builder::table_sectors() const {
    return divide_upwards(entries_per_table * std::uint64_t{4}, sector);
}

std::uint64_t vmdk_builder::table_offset(std::uint64_t table) const {
    return directory_offset() +
           (divide_upwards(directory_entries() * 4, sector) + table * table_sectors()) * sector;
}

std::uint64_t vmdk_builder::entry_offset(std::uint64_t grain) const {
    return table_offset(grain / entries_per_table) + grain % entries_per_table * 4;
}

std::uint64_t vmdk_builder::overhead_sectors() const {
    return table_offset(directory_entries()) / sector;
}

std::uint64_t vmdk_builder::grain_offset(std::uint64_t grain) const {
    for (std::size_t index = 0; index < m_held.size(); ++index) {
        if (m_held[index].grain == grain) {
            return overhead_sectors() * sector + index * grain_bytes();
        }
    }
    throw std::logic_error("no such grain was put");
}

std::string vmdk_builder::descriptor_text() const {
    if (descriptor) {
        return *descriptor;
    }
    std::string text = "# Disk DescriptorFile" + line_end + "version=1" + line_end;
    const auto add = [&](const std::string& key, const std::string& value) {
        if (!value.empty()) {
            text += key + "=" + value + line_end;
        }
    };
    add("encoding", encoding);
    add("CID", cid);
    add("parentCID", parent_cid);
    add("createType", "\"monolithicSparse\"");
    add("parentFileNameHint", parent_hint);
    return text + line_end + "# Extent description" + line_end + "RW 512 SPARSE \"disk.vmdk\"" + line_end;
}

bytes vmdk_builder::build() const {
    byte_writer out(overhead_sectors() * sector);
    out.text(0, "KDMV").u32(4, 1).u32(8, 3);
    out.u64(at_capacity, grains * grain_sectors).u64(at_grain_size, grain_sectors);
    out.u64(at_descriptor_offset, descriptor_first_sector).u64(at_descriptor_size, descriptor_sectors);
    out.u32(at_entries_per_table, entries_per_table).u64(at_directory_offset, directory_offset() / sector);
    out.u64(at_overhead, overhead_sectors()).text(73, "\n \r\n");
    const std::string text = descriptor_text();
    if (text.size() > descriptor_sectors * sector) {
        throw std::logic_error("the descriptor needs more sectors");
    }
    out.text(descriptor_first_sector * sector, text);
    for (std::uint64_t table = 0; table < directory_entries(); ++table) {
        out.u32(directory_offset() + 4 * table, table_offset(table) / sector);
    }
    for (const held_grain& held : m_held) {
        out.u32(entry_offset(held.grain), out.size() / sector);
        out.raw(out.size(), held.content);
    }
    for (const auto& [grain, first_sector] : m_entries) {
        out.u32(entry_offset(grain), first_sector);
    }
    bytes content = out.take();
    apply(content, m_forced);
    content.resize(m_length.value_or(content.size()));
    return content;
}

void vmdk_builder::write(const std::filesystem::path& path) const {
    write_file(path, build());
}

}  // namespace quarry::test
