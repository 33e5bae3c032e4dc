// A copy on its way to its name.
//
// The bytes go to a temporary file in the directory of the destination. Only when all of them are written and
// on the disk does the file get its name, in one step; whoever looks sees what was there before, or the whole
// copy, and never a part of it:
//
//     _3fa07  <- bytes, holes      fsync      renamed to  letter.txt      fsync of the directory
//
// A file that is replaced has the temporary name until the directory is on the disk, so that it can be put
// back.
//
// The temporary file is gone when its owner is, or when a signal ends the run. Only SIGKILL leaves it.
#pragma once

#include "exact/failure.h"
#include "frontend/exact/destination_tree.h"
#include "frontend/exact/made_copies.h"

#include <cstdint>
#include <ctime>
#include <span>
#include <string>

namespace quarry::exact {

// Times of a file, as the system takes them.
struct file_times {
    std::timespec accessed{};
    std::timespec modified{};
};

class sealed_file {
  public:
    // The blocks that `sparse` looks at, in bytes.
    static constexpr std::uint64_t hole_block = 65536;

    // `directory` is where the copy will be. With `sparse`, holes and aligned blocks of zeros take no space.
    sealed_file(std::string directory, bool sparse);
    // The same in a directory that is open already.
    sealed_file(open_directory directory, bool sparse);
    sealed_file(const sealed_file&) = delete;
    sealed_file& operator=(const sealed_file&) = delete;
    // Removes the temporary file unless it got its name.
    ~sealed_file();

    // Makes the temporary file. `size` is what the copy will have in bytes; a file system with less space
    // fails with no-room, unless the copy is sparse. A file that cannot be made fails with create. A sparse
    // one has its size from the start, so that one too large for the file system fails at once, with write.
    [[nodiscard]] result<void> create(std::uint64_t size);
    // Appends bytes. Fails with write.
    [[nodiscard]] result<void> append(std::span<const std::uint8_t> bytes);
    // Appends `length` zero bytes that are a hole where the copy is sparse. Fails with write.
    [[nodiscard]] result<void> append_hole(std::uint64_t length);
    // The file itself, once it is made: the same under its name.
    [[nodiscard]] const host_file& identity() const { return m_identity; }
    [[nodiscard]] bool is_sparse() const { return m_sparse; }
    // Bytes so far.
    [[nodiscard]] std::uint64_t size() const { return m_size; }
    // Gives the file these times; to be called after the last byte. Fails with write.
    [[nodiscard]] result<void> set_times(const file_times& times);
    // Brings all bytes to the disk; to be called after the last one and the times. Fails with write and sync.
    [[nodiscard]] result<void> finish();
    // Finishes the file unless it is finished, and gives it its name in the directory. A file of that name is
    // replaced with `overwrite`, else it fails with exists. Fails with write, sync or rename otherwise; what
    // was there before is there again then. Only where the file system cannot exchange two names the copy
    // keeps the name if the directory cannot be brought to the disk, and the failure says so. Fails with
    // rename if another program has put a file of its own in the place of the temporary one.
    [[nodiscard]] result<void> seal(const std::string& name, bool overwrite);

  private:
    [[nodiscard]] result<void> check_room(std::uint64_t size) const;
    [[nodiscard]] result<void> note_identity();
    [[nodiscard]] result<void> write_all(std::span<const std::uint8_t> bytes);
    [[nodiscard]] result<void> write_zeros(std::uint64_t length);
    [[nodiscard]] result<void> append_sparsely(std::span<const std::uint8_t> bytes);
    [[nodiscard]] result<void> reach_size(std::uint64_t size);
    [[nodiscard]] result<void> give_name(const std::string& name, bool overwrite);
    [[nodiscard]] int exchange_or_rename(const std::string& name);
    [[nodiscard]] bool is_this_file(const std::string& name) const;
    void take_name_back(const std::string& name);
    [[nodiscard]] result<void> sync_directory(const std::string& name);
    // What give_name() did to the file that had the name.
    enum class earlier_file : std::uint8_t { none, has_temporary_name, lost };

    [[nodiscard]] tl::unexpected<failure> failed(failure_code code, int error) const;
    void remove_temporary();

    std::string m_directory;  // with "/" at its end
    bool m_sparse;
    int m_directory_fd = -1;
    int m_fd = -1;
    std::string m_temporary;  // the name in the directory; empty: there is nothing to remove
    earlier_file m_earlier = earlier_file::none;
    host_file m_identity;
    std::uint64_t m_size = 0;        // of the copy so far
    std::uint64_t m_reached = 0;     // the size that a sparse file was given
    std::uint64_t m_zeros_kept = 0;  // zero bytes at the end, all in one block, that may become a hole
};

}  // namespace quarry::exact
