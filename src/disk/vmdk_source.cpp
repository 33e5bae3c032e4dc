#include "disk/vmdk_source.h"

#include "disk/vmdk_layout.h"
#include "foundation/ql_string.h"

#include <algorithm>

namespace quarry {

namespace {

// Flags that change nothing for a reader: the test characters of line ends are valid, a second directory
// exists.
constexpr std::uint32_t harmless_flags = 3;
// Grains of programs have 64 KiB. Positions in a grain have 32 bits.
constexpr std::uint64_t largest_grain = std::uint64_t{1} << 30;

// The rule that one file of the chain breaks; empty if it is sound.
std::string fault_of(const vmdk_file& file, const vmdk_file& base) {
    const vmdk_header header{byte_view(file.m_header)};
    if ((header.flags() & ~harmless_flags) != 0) {
        return "has compressed grains, grains of zeros or markers; " + std::string(read_by_raw_view);
    }
    if (file.m_grain_bytes != base.m_grain_bytes || file.m_grain_bytes > largest_grain) {
        return "has grains of another size";
    }
    const std::uint64_t capacity = base.capacity_bytes();
    if (file.capacity_bytes() != capacity) {
        return "has another capacity";
    }
    // Entries that were not read would pass for grains that are not there, and those for zeros.
    if (file.m_grain_tables.has_failed()) {
        return "has grain tables that cannot be read";
    }
    const std::uint64_t tables = capacity / file.m_table_span + (capacity % file.m_table_span != 0 ? 1 : 0);
    if (file.m_grain_directory.size() < tables || file.m_grain_tables.size() < tables) {
        return "has too few grain tables for its capacity";
    }
    const std::uint64_t table_bytes = std::uint64_t{header.grain_entries_per_table()} * sizeof(std::uint32_t);
    for (std::uint64_t i = 0; i < tables; ++i) {
        const std::uint64_t begin = file.m_grain_directory[static_cast<std::size_t>(i)] * vmdk_sector_size;
        if (begin == 0 || begin > file.m_file_size || table_bytes > file.m_file_size - begin) {
            return "has no grain table " + std::to_string(i) + " inside of it";
        }
    }
    return "";
}

// True if each of the files is the parent of the next and the first has none.
bool is_one_chain(const std::vector<vmdk_file*>& chain, std::size_t files) {
    for (std::size_t i = 1; i < chain.size(); ++i) {
        if (chain[i]->m_parent != chain[i - 1]) {
            return false;
        }
    }
    return chain.size() == files;
}

}  // namespace

std::unique_ptr<vmdk_source> vmdk_source::open(const std::vector<open_vmdk_file>& files, std::string& why) {
    auto source = std::make_unique<vmdk_source>();
    for (const open_vmdk_file& file : files) {
        if (!source->m_disk.add_open_file(file.path, file.descriptor)) {
            why =
                narrow(file.path) +
                " is no sparse VMDK file that can be read; give its -flat.vmdk to -image if it has one, or " +
                std::string(read_by_raw_view);
            return nullptr;
        }
    }
    if (source->m_disk.m_files.size() != files.size()) {
        why = "two files have the same content ID";
        return nullptr;
    }
    if (!source->m_disk.link() || !is_one_chain(source->m_disk.m_chain, files.size())) {
        why = "the files make no chain";
        return nullptr;
    }
    why = source->fault();
    return why.empty() ? std::move(source) : nullptr;
}

std::string vmdk_source::fault() const {
    for (const vmdk_file* file : m_disk.m_chain) {
        if (const std::string rule = fault_of(*file, *m_disk.m_base); !rule.empty()) {
            return file->m_path_utf8 + " " + rule;
        }
    }
    return "";
}

read_outcome vmdk_source::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    if (offset >= size()) {
        return {};
    }
    const std::uint64_t inside = std::min<std::uint64_t>(buffer.size(), size() - offset);
    return m_disk.read(buffer.first(static_cast<std::size_t>(inside)), offset);
}

}  // namespace quarry
