#include "disk/vmdk_disk.h"

#include "disk/positioned_read.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace quarry {

namespace {

// Positions within a grain are of 32 bits.
constexpr std::uint64_t largest_row = 0x100000000;
constexpr std::uint64_t largest_number = std::numeric_limits<std::uint64_t>::max();

// What a plain read gives for a stretch of one grain, zeros where the file gives nothing. True if it gave
// all.
bool read_stretch(const vmdk_file& holder, std::span<std::uint8_t> out, std::uint64_t offset) {
    std::uint64_t length = out.size();
    if (!holder.read_mapped(holder.m_fd, out.data(), offset, length)) {
        length = 0;
    }
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(length), out.end(), std::uint8_t{0});
    return length == out.size();
}

// Bytes of a file from a position on, all of them or false.
bool read_row(const vmdk_file& holder, std::span<std::uint8_t> out, std::uint64_t position) {
    return position < holder.m_file_size && out.size() <= holder.m_file_size - position &&
           read_at_position(holder.m_fd, out, position) == static_cast<std::int64_t>(out.size());
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
    std::string cid = file->m_cid;
    m_files.try_emplace(std::move(cid), std::move(file));
    return true;
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
    // Ends at the base: link() gave each file of the chain the file in front of it as its parent.
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

// How many bytes from an offset on, at most `limit`, lie in one row with the place of the first: in one file,
// grain behind grain, or in none.
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

// The plain way: one look-up and one read for each grain. False if a grain did not give all of its bytes.
bool vmdk_disk::fill_grain_by_grain(std::span<std::uint8_t> out, std::uint64_t offset) {
    bool sound = true;
    // Each turn fills the rest of a grain or all that is left.
    for (std::uint64_t done = 0; done < out.size();) {
        const place here = place_of(offset + done);
        const std::span<std::uint8_t> chunk = out.subspan(done, std::min(here.m_chunk, out.size() - done));
        if (here.m_holder == nullptr) {
            std::fill(chunk.begin(), chunk.end(), std::uint8_t{0});
        } else {
            sound &= read_stretch(*here.m_holder, chunk, offset + done);
        }
        done += chunk.size();
    }
    return sound;
}

// The same with one read for grains that lie in a row, as far as that brings all of their bytes.
bool vmdk_disk::fill(std::span<std::uint8_t> out, std::uint64_t offset) {
    bool sound = true;
    // Each turn fills the rest of a grain or more.
    for (std::uint64_t done = 0; done < out.size();) {
        const place first = place_of(offset + done);
        const std::span<std::uint8_t> row =
            out.subspan(done, bytes_in_row(first, offset + done, out.size() - done));
        if (first.m_holder == nullptr) {
            std::fill(row.begin(), row.end(), std::uint8_t{0});
        } else if (!read_row(*first.m_holder, row, first.m_position)) {
            sound &= fill_grain_by_grain(row, offset + done);
        }
        done += row.size();
    }
    return sound;
}

bool vmdk_disk::read(void* buffer, std::uint64_t offset, std::uint64_t& length) {
    if (!m_ready || buffer == nullptr || length == 0 || length - 1 > largest_number - offset) {
        return false;
    }
    static_cast<void>(fill({static_cast<std::uint8_t*>(buffer), length}, offset));
    return true;
}

bool vmdk_disk::read_whole(void* buffer, std::uint64_t offset, std::uint64_t length) {
    if (!m_ready || !m_reads_join || buffer == nullptr || length == 0 ||
        length - 1 > largest_number - offset) {
        return false;
    }
    return fill({static_cast<std::uint8_t*>(buffer), length}, offset);
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
