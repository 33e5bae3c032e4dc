// A chain of sparse VMDK files that acts as one disk.
//
// A base disk and the snapshots taken from it form a chain: each snapshot names its parent by content ID.
// What was written after a snapshot is in the newer file, so a read goes to the newest file that holds the
// grain, then down to the base; a grain that no file holds was never written and reads as zeros. As a
// byte_source the disk says which grains cannot be read; for the readers of a buffer and a length they are
// zeros too, so that such a read never fails for what is on the disk.
#pragma once

#include "disk/byte_source.h"
#include "disk/vmdk_file.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quarry {

// The parent's content ID that makes a file the base of a chain. Compared byte for byte: in quotes, in
// capitals or with a carriage return after it, it is the ID of a file that is missing.
inline constexpr const char* cid_of_no_parent = "ffffffff";

class vmdk_disk final : public byte_source {
  public:
    explicit vmdk_disk(bool writable) : m_writable(writable) {}
    // Opens files and keeps each under its content ID, the first of those that share one. False at the first
    // that is no sparse file or cannot be opened.
    [[nodiscard]] bool add_files(const std::vector<std::wstring>& list);
    [[nodiscard]] bool add_file(const std::wstring& path);
    // The same for a file that the caller has open; see vmdk_file::open_duplicate.
    [[nodiscard]] bool add_open_file(const std::wstring& path, int descriptor);

    // Makes the chain out of the files. False if there is no base, or a parent that is not among them.
    [[nodiscard]] bool link();

    // Reads what the chain holds, also beyond the size that the base claims. A grain that its file does not
    // give in full ends the read; the loss reaches to the end of the grain, its error is EIO unless the
    // system has another. Gives nothing for a chain that is not ready and a range that leaves 64 bits.
    [[nodiscard]] read_outcome read(std::span<std::uint8_t> buffer, std::uint64_t offset) override;
    // Of the base; 0 before link() made a chain.
    [[nodiscard]] std::uint64_t size() const override {
        return m_base == nullptr ? 0 : m_base->capacity_bytes();
    }
    [[nodiscard]] std::uint64_t content_size() const override { return std::min(size(), stored_bytes()); }
    [[nodiscard]] std::uint32_t sector_size() const override { return vmdk_sector_size; }

    // Reads `length` bytes from byte `offset` of the disk on into `buffer`, which holds that many. False for
    // a chain that is not ready, a null buffer, a length of 0, and a range that leaves 64 bits; `length` and
    // the buffer are then as before. Otherwise every byte of the buffer is filled.
    [[nodiscard]] bool read(void* buffer, std::uint64_t offset, std::uint64_t& length);

    // True if a byte of the disk is the same wherever the read that brings it begins, so that several reads
    // may be joined into one.
    //
    // Deliberate: where grains of different sizes meet, a read goes on to the end of the grain it found; the
    // newest file is not asked for each of its grains. The user sees the older bytes over a newer file's
    // smaller grain.
    [[nodiscard]] bool reads_join() const { return m_reads_join; }

    // Byte offset of the first partition that the base file's first sector names, of whatever type; 0 if it
    // names none or the chain is not ready.
    [[nodiscard]] std::uint64_t disk_offset() const;

    // Bytes that all files of the chain store, at most 2^63.
    [[nodiscard]] std::uint64_t stored_bytes() const;

    std::map<std::string, std::unique_ptr<vmdk_file>> m_files;  // by content ID
    vmdk_file* m_newest = nullptr;                              // where reads begin
    vmdk_file* m_base = nullptr;
    bool m_writable = false;
    bool m_ready = false;
    std::vector<vmdk_file*> m_chain;  // the base first, then each child

  private:
    void keep(std::unique_ptr<vmdk_file> file);

    // Where an offset of the disk is found.
    struct place {
        vmdk_file* m_holder = nullptr;  // null if no file holds it
        std::uint64_t m_position = 0;   // in the holder
        std::uint64_t m_chunk = 0;  // bytes from the offset on that are read from there without another look
    };

    [[nodiscard]] place place_of(std::uint64_t offset);
    void find_neighbourhood(std::uint64_t offset);
    [[nodiscard]] std::uint64_t bytes_in_row(const place& first, std::uint64_t offset, std::uint64_t limit);
    [[nodiscard]] read_outcome read_row(std::span<std::uint8_t> out, std::uint64_t offset,
                                        const place& first);

    // What the last lookup found: a range of offsets within one grain of every file, and the place where the
    // first of them is stored. Later lookups within the range need not ask the files.
    grain_span m_known;
    place m_known_place;
    bool m_reads_join = false;
};

}  // namespace quarry
