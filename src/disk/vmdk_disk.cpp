#include "disk/vmdk_disk.h"

#include "disk/positioned_read.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace quarry {

namespace {

// Positions within a grain are of 32 bits.
constexpr std::uint64_t largest_row = 0x100000000;
constexpr std::uint64_t largest_number = std::numeric_limits<std::uint64_t>::max();

// Bytes of a file from a position on, as far as the file goes.
read_outcome read_file(const vmdk_file& file, std::span<std::uint8_t> out, std::uint64_t position) {
    if (position >= file.m_file_size) {
        return {};
    }
    const std::uint64_t inside = std::min<std::uint64_t>(out.size(), file.m_file_size - position);
    return read_from_descriptor(file.m_fd, out.first(static_cast<std::size_t>(inside)), position);
}

}  // namespace

bool vmdk_disk::add_files(const std::vector<std::wstring>& list) {
    return std::all_of(list.begin(), list.end(), [this](const std::wstring& path) { return add_file(path); });
}

bool vmdk_disk::add_file(const std::wstring& path) {
    auto file = std::make_unique<vmdk_file>();
    if (!file->open(path, m_writable)) {
        return false;
    }
    keep(std::move(file));
    return true;
}

bool vmdk_disk::add_open_file(const std::wstring& path, int descriptor) {
    auto file = std::make_unique<vmdk_file>();
    if (!file->open_duplicate(path, descriptor)) {
        return false;
    }
    keep(std::move(file));
    return true;
}

void vmdk_disk::keep(std::unique_ptr<vmdk_file> file) {
    std::string cid = file->m_cid;
    m_files.try_emplace(std::move(cid), std::move(file));
}

bool vmdk_disk::link() {
    m_chain.clear();
    m_base = nullptr;
    m_newest = nullptr;
    m_ready = false;
    m_known = {};
    bool complete = true;
    for (const auto& [cid, file] : m_files) {
        if (file->m_parent_cid == cid_of_no_parent) {
            m_base = file.get();
            m_chain.push_back(file.get());
            continue;
        }
        const auto parent = m_files.find(file->m_parent_cid);
        if (parent == m_files.end()) {
            complete = false;
            continue;
        }
        file->m_parent = parent->second.get();
        file->m_parent->m_child = file.get();
    }
    if (!complete || m_base == nullptr) {
        return false;
    }
    m_newest = m_base;
    std::size_t steps = 0;
    while (m_newest->m_child != nullptr && steps++ <= m_files.size()) {
        m_newest = m_newest->m_child;
        m_chain.push_back(m_newest);
    }
    m_ready = m_newest->m_child == nullptr;
    m_reads_join = std::all_of(m_chain.begin(), m_chain.end(), [this](const vmdk_file* file) {
        return file->m_grain_bytes == m_base->m_grain_bytes && file->m_grain_bytes <= largest_row;
    });
    return true;
}

// Asks the files from the newest down to the one that holds the offset, and keeps the answer with the offsets
// around it that get the same one.
void vmdk_disk::find_neighbourhood(std::uint64_t offset) {
    m_known = {0, largest_number};
    vmdk_file* holder = nullptr;
    std::uint64_t position = 0;
    // Ends at the base: link() gave each file of the chain the file before it as its parent.
    for (vmdk_file* file = m_newest; file != nullptr && holder == nullptr; file = file->m_parent) {
        const grain_span span = file->span_of(offset);
        m_known = {std::max(m_known.m_begin, span.m_begin), std::min(m_known.m_end, span.m_end)};
        if (file->map_offset(offset, position)) {
            holder = file;
        }
    }
    const std::uint64_t inside = offset - m_known.m_begin;
    const vmdk_file& measure = holder != nullptr ? *holder : *m_base;
    m_known_place = {holder, position - inside, measure.bytes_to_grain_end(offset) + inside};
}

vmdk_disk::place vmdk_disk::place_of(std::uint64_t offset) {
    if (offset < m_known.m_begin || offset >= m_known.m_end) {
        find_neighbourhood(offset);
    }
    const std::uint64_t inside = offset - m_known.m_begin;
    return {m_known_place.m_holder, m_known_place.m_position + inside, m_known_place.m_chunk - inside};
}

// How many bytes from an offset on, at most `limit`, are contiguous with the first: in one file, each grain
// right after the one before, or in none.
std::uint64_t vmdk_disk::bytes_in_row(const place& first, std::uint64_t offset, std::uint64_t limit) {
    std::uint64_t joined = std::min(first.m_chunk, limit);
    // Each turn adds bytes or is the last.
    while (joined < limit) {
        const place next = place_of(offset + joined);
        const bool adjacent = next.m_holder == nullptr || next.m_position == first.m_position + joined;
        if (next.m_holder != first.m_holder || !adjacent) {
            break;
        }
        joined += std::min(next.m_chunk, limit - joined);
    }
    return joined;
}

// Bytes that lie in one row of a file: with one read, or grain by grain where that does not bring all of
// them. Ends at the first grain that does not come in full.
read_outcome vmdk_disk::read_row(std::span<std::uint8_t> out, std::uint64_t offset, const place& first) {
    const vmdk_file& holder = *first.m_holder;
    const bool lies_in_file =
        first.m_position < holder.m_file_size && out.size() <= holder.m_file_size - first.m_position;
    if (lies_in_file && read_file(holder, out, first.m_position).bytes == out.size()) {
        return {out.size(), 0, 0};
    }
    read_outcome outcome;
    // Each turn brings the rest of a grain or is the last.
    while (outcome.bytes < out.size()) {
        const place here = place_of(offset + outcome.bytes);
        const std::span<std::uint8_t> rest = out.subspan(outcome.bytes);
        const std::span<std::uint8_t> grain = rest.first(std::min<std::uint64_t>(here.m_chunk, rest.size()));
        const read_outcome came = read_file(holder, grain, here.m_position);
        outcome.bytes += came.bytes;
        if (came.bytes < grain.size()) {
            outcome.error = came.error == 0 ? EIO : came.error;
            outcome.lost = grain.size() - came.bytes;
            break;
        }
    }
    return outcome;
}

read_outcome vmdk_disk::read(std::span<std::uint8_t> buffer, std::uint64_t offset) {
    read_outcome outcome;
    if (!m_ready || buffer.empty() || buffer.size() - 1 > largest_number - offset) {
        return outcome;
    }
    // Each turn brings the rest of a grain or more, or is the last.
    while (outcome.bytes < buffer.size() && outcome.lost == 0) {
        const std::uint64_t begin = offset + outcome.bytes;
        const place first = place_of(begin);
        const std::span<std::uint8_t> rest = buffer.subspan(outcome.bytes);
        const std::span<std::uint8_t> row = rest.first(bytes_in_row(first, begin, rest.size()));
        if (first.m_holder == nullptr) {
            std::fill(row.begin(), row.end(), std::uint8_t{0});
            outcome.bytes += row.size();
            continue;
        }
        const read_outcome came = read_row(row, begin, first);
        outcome = {outcome.bytes + came.bytes, came.error, came.lost};
    }
    return outcome;
}

bool vmdk_disk::read(void* buffer, std::uint64_t offset, std::uint64_t& length) {
    if (!m_ready || buffer == nullptr || length == 0 || length - 1 > largest_number - offset) {
        return false;
    }
    static_cast<void>(read_with_zeros(*this, {static_cast<std::uint8_t*>(buffer), length}, offset));
    return true;
}

std::uint64_t vmdk_disk::stored_bytes() const {
    constexpr std::uint64_t most = largest_number / 2;
    std::uint64_t sum = 0;
    for (const vmdk_file* file : m_chain) {
        sum += std::min(file->m_stored_bytes, most - sum);
    }
    return sum;
}

std::uint64_t vmdk_disk::disk_offset() const {
    return m_ready && !m_base->m_volume_offsets.empty() ? m_base->m_volume_offsets.front() : 0;
}

}  // namespace quarry
