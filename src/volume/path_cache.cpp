#include "volume/path_cache.h"

#include <algorithm>
#include <cstring>

namespace quarry {

namespace {

// A node of a tree with its links and what the allocation takes.
constexpr std::uint64_t bytes_of_node = 48;
constexpr std::uint64_t bytes_of_directory = sizeof(dir_cache_entry) + bytes_of_node;
constexpr std::uint64_t bytes_of_number = sizeof(std::uint64_t) + bytes_of_node;
constexpr std::size_t longest_name = 0xFFFF;
// Blocks grow with what there is, so that a small directory takes little; a place in one has 16 bits.
constexpr std::size_t smallest_block = 256;
constexpr std::size_t largest_block = 0x10000;

}  // namespace

void child_name_table::add(std::string_view name, std::uint64_t child) {
    name = name.substr(0, longest_name);
    if (m_blocks.empty() || name.size() > m_left_of_last_block) {
        m_last_block_bytes =
            std::max(std::clamp<std::size_t>(m_block_memory, smallest_block, largest_block), name.size());
        m_blocks.push_back(std::make_unique_for_overwrite<char[]>(m_last_block_bytes));
        m_left_of_last_block = m_last_block_bytes;
        m_block_memory += m_last_block_bytes;
    }
    const std::size_t begin = m_last_block_bytes - m_left_of_last_block;
    std::memcpy(m_blocks.back().get() + begin, name.data(), name.size());
    m_left_of_last_block -= name.size();
    m_places.push_back({child, static_cast<std::uint32_t>(m_blocks.size() - 1),
                        static_cast<std::uint16_t>(begin), static_cast<std::uint16_t>(name.size())});
}

void child_name_table::put_in_order() {
    const auto comes_first = [this](const place& left, const place& right) {
        const int order = text_of(left).compare(text_of(right));
        return order != 0 ? order < 0 : left.child < right.child;
    };
    const auto same_name = [this](const place& left, const place& right) {
        return text_of(left) == text_of(right);
    };
    // Files are often made in the order of their names.
    if (!std::is_sorted(m_places.begin(), m_places.end(), comes_first)) {
        std::sort(m_places.begin(), m_places.end(), comes_first);
    }
    m_places.erase(std::unique(m_places.begin(), m_places.end(), same_name), m_places.end());
    m_places.shrink_to_fit();
}

std::optional<std::uint64_t> child_name_table::find(std::string_view name) const {
    const auto at = std::lower_bound(
        m_places.begin(), m_places.end(), name,
        [this](const place& each, std::string_view wanted) { return text_of(each) < wanted; });
    return at != m_places.end() && text_of(*at) == name ? std::optional(at->child) : std::nullopt;
}

std::vector<child_name_table::named_child> child_name_table::names() const {
    std::vector<named_child> result;
    for (const place& each : m_places) {
        result.emplace_back(text_of(each), each.child);
    }
    return result;
}

std::uint64_t child_name_table::memory() const {
    return m_places.capacity() * sizeof(place) + m_block_memory;
}

std::uint64_t directory_content::memory() const {
    return sizeof(*this) + m_children.held() * sizeof(std::uint64_t) + m_child_names.memory() +
           m_faults.capacity() * sizeof(m_faults.front());
}

dir_cache_entry* path_cache::find(std::uint64_t directory) {
    const auto found = m_directories.find(directory);
    return found == m_directories.end() ? nullptr : &found->second;
}

dir_cache_entry& path_cache::add(std::uint64_t directory, std::uint64_t parent, bool deleted) {
    const auto [place, is_new] = m_directories.try_emplace(directory);
    dir_cache_entry& entry = place->second;
    if (is_new) {
        entry.m_entry = directory;
        entry.m_parent = parent;
        entry.m_deleted = deleted;
        pay(bytes_of_directory);
    }
    return entry;
}

void path_cache::remember(std::uint64_t directory, std::uint64_t parent, bool deleted) {
    if (m_directories.count(directory) != 0) {
        return;
    }
    if (m_memory.left() < bytes_of_directory && m_content_memory != 0) {
        drop_contents();
    }
    if (m_memory.left() >= bytes_of_directory) {
        add(directory, parent, deleted);
    }
}

void path_cache::set_limits(std::uint64_t memory, std::uint64_t read_bytes) {
    m_has_limits = true;
    m_reads = read_budgets(read_bytes);
    m_memory_limit = memory;
    m_memory = budget(memory);
    m_memory.take(m_memory_taken);
}

void path_cache::keep(dir_cache_entry& directory, std::unique_ptr<const directory_content> content) {
    const std::uint64_t memory = content->memory();
    make_room(memory, directory);
    pay(memory);
    m_content_memory += memory;
    directory.m_entered = true;
    directory.m_content = std::move(content);
}

void path_cache::add_without_children(std::uint64_t entry) {
    if (!m_memory.spent() && m_without_children.insert(entry).second) {
        pay(bytes_of_number);
    }
}

void path_cache::pay(std::uint64_t amount) {
    m_memory.take(amount);
    m_memory_taken += amount;
}

// Counts what there is but for what was read of directories.
void path_cache::count_anew() {
    m_memory = budget(m_memory_limit);
    m_memory_taken = 0;
    m_content_memory = 0;
    pay(m_directories.size() * bytes_of_directory + m_without_children.size() * bytes_of_number);
}

// Of those that were looked into, it stays known that they were.
void path_cache::drop_contents() {
    for (auto& [number, entry] : m_directories) {
        entry.m_content.reset();
    }
    count_anew();
}

// Drops what is known of other directories if there is no room for `wanted` bytes: first what was read of
// them, then, if the entries themselves still take too much, all but `for_whom`.
void path_cache::make_room(std::uint64_t wanted, const dir_cache_entry& for_whom) {
    if (wanted <= m_memory.left()) {
        return;
    }
    drop_contents();
    if (m_memory.left() < bytes_of_directory) {
        m_without_children.clear();
        std::erase_if(m_directories, [&](const auto& known) { return &known.second != &for_whom; });
        count_anew();
    }
}

}  // namespace quarry
