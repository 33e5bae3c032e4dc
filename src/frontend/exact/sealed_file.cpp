#include "frontend/exact/sealed_file.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "frontend/output/exclusive_file.h"
#include "frontend/output/leftover.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <utility>

namespace quarry::exact {

namespace {

// Far more than chance needs; a directory full of such names gives up.
constexpr int most_attempts = 1000;
constexpr ::mode_t new_file_mode = 0666;
constexpr std::array<std::uint8_t, sealed_file::hole_block> zeros{};

bool all_zeros(std::span<const std::uint8_t> bytes) {
    return bytes.size() <= zeros.size() && std::memcmp(bytes.data(), zeros.data(), bytes.size()) == 0;
}

// Gives a file a name that nobody else has: 0, or the error number.
int rename_without_replacing(int directory, const char* from, const char* to) {
    if (::renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    // A kernel or a file system that does not know the flag: a second name is never made over another either.
    if (errno != ENOSYS && errno != EINVAL) {
        return errno;
    }
    if (::linkat(directory, from, directory, to, 0) != 0) {
        return errno;
    }
    if (::unlinkat(directory, from, 0) == 0) {
        return 0;
    }
    const int error = errno;
    ::unlinkat(directory, to, 0);
    return error;
}

}  // namespace

sealed_file::sealed_file(std::string directory, bool sparse)
    : m_directory(std::move(directory)), m_sparse(sparse) {
    if (!m_directory.ends_with('/')) {
        m_directory += '/';
    }
}

sealed_file::sealed_file(open_directory directory, bool sparse) : sealed_file(directory.path(), sparse) {
    m_directory_fd = directory.release();
}

sealed_file::~sealed_file() {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    remove_temporary();
    if (m_directory_fd >= 0) {
        ::close(m_directory_fd);
    }
}

void sealed_file::remove_temporary() {
    if (!m_temporary.empty()) {
        const signals_held_back quiet;
        ::unlinkat(m_directory_fd, m_temporary.c_str(), 0);
        m_temporary.clear();
        forget_leftover();
    }
}

tl::unexpected<failure> sealed_file::failed(failure_code code, int error) const {
    return fail(code, where::destination(shown_typed(m_directory)), std::strerror(error));
}

result<void> sealed_file::check_room(std::uint64_t size) const {
    struct ::statvfs room {};
    // Some file systems do not say how large they are; there a write fails.
    if (::fstatvfs(m_directory_fd, &room) != 0 || room.f_blocks == 0) {
        return {};
    }
    const std::uint64_t blocks = ::geteuid() == 0 ? room.f_bfree : room.f_bavail;
    const std::uint64_t block_size = room.f_frsize;
    if (block_size == 0 || size / block_size + (size % block_size != 0 ? 1 : 0) <= blocks) {
        return {};
    }
    return fail(
        failure_code::no_room, where::destination(shown_typed(m_directory)),
        std::to_string(size) + " bytes are needed, " + std::to_string(blocks * block_size) + " are free");
}

result<void> sealed_file::create(std::uint64_t size) {
    if (m_directory_fd < 0) {
        m_directory_fd = ::open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    if (m_directory_fd < 0) {
        return failed(failure_code::create, errno);
    }
    if (!m_sparse) {
        if (auto room = check_room(size); !room) {
            return room;
        }
    }
    // No signal may come between the file and its entry in what signals remove.
    const signals_held_back quiet;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        const std::string name = "_" + random_name();
        m_fd = ::openat(m_directory_fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                        new_file_mode);
        if (m_fd >= 0) {
            m_temporary = name;
            remove_if_interrupted(m_directory + name);
            return note_identity().and_then([&] { return m_sparse ? reach_size(size) : result<void>(); });
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return failed(failure_code::create, errno);
}

result<void> sealed_file::note_identity() {
    struct ::stat status {};
    if (::fstat(m_fd, &status) != 0) {
        return failed(failure_code::create, errno);
    }
    m_identity = {status.st_dev, status.st_ino};
    return {};
}

result<void> sealed_file::write_all(std::span<const std::uint8_t> bytes) {
    if (const int error = write_whole(m_fd, bytes.data(), bytes.size()); error != 0) {
        return failed(failure_code::write, error);
    }
    return {};
}

result<void> sealed_file::write_zeros(std::uint64_t length) {
    while (length > 0) {
        const std::uint64_t count = std::min<std::uint64_t>(length, zeros.size());
        if (auto written = write_all(std::span(zeros).first(static_cast<std::size_t>(count))); !written) {
            return written;
        }
        length -= count;
    }
    return {};
}

// Block by block: as long as a block holds nothing but zeros, they are kept back. A byte that is none brings
// them to the file; the end of the block makes them a hole.
result<void> sealed_file::append_sparsely(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::uint64_t block_left = hole_block - m_size % hole_block;
        const auto part =
            bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(block_left, bytes.size())));
        const bool block_may_be_hole = m_zeros_kept == m_size % hole_block;
        if (block_may_be_hole && all_zeros(part)) {
            m_zeros_kept += part.size();
        } else {
            // The position follows the holes only now.
            if (uninterrupted([&] {
                    return ::lseek(m_fd, static_cast<::off_t>(m_size - m_zeros_kept), SEEK_SET);
                }) < 0) {
                return failed(failure_code::write, errno);
            }
            auto written =
                write_zeros(std::exchange(m_zeros_kept, 0)).and_then([&] { return write_all(part); });
            if (!written) {
                return written;
            }
        }
        m_size += part.size();
        m_zeros_kept = m_size % hole_block == 0 ? 0 : m_zeros_kept;
        bytes = bytes.subspan(part.size());
    }
    return {};
}

result<void> sealed_file::append(std::span<const std::uint8_t> bytes) {
    if (m_sparse) {
        return append_sparsely(bytes);
    }
    auto written = write_all(bytes);
    if (written) {
        m_size += bytes.size();
    }
    return written;
}

result<void> sealed_file::append_hole(std::uint64_t length) {
    if (length > static_cast<std::uint64_t>(std::numeric_limits<::off_t>::max()) - m_size) {
        return failed(failure_code::write, EFBIG);
    }
    if (!m_sparse) {
        auto written = write_zeros(length);
        if (written) {
            m_size += length;
        }
        return written;
    }
    // What was never written is a hole; zeros kept before it join it.
    m_size += length;
    m_zeros_kept = 0;
    return {};
}

// The end of a sparse file may be a hole, so its size is set. That changes the time of modification, so it is
// not done a second time.
result<void> sealed_file::reach_size(std::uint64_t size) {
    if (m_sparse && m_reached != size) {
        if (size > static_cast<std::uint64_t>(std::numeric_limits<::off_t>::max())) {
            return failed(failure_code::write, EFBIG);
        }
        if (::ftruncate(m_fd, static_cast<::off_t>(size)) != 0) {
            return failed(failure_code::write, errno);
        }
        m_reached = size;
    }
    return {};
}

result<void> sealed_file::set_times(const file_times& times) {
    if (auto reached = reach_size(m_size); !reached) {
        return reached;
    }
    const std::array<std::timespec, 2> pair = {times.accessed, times.modified};
    if (::futimens(m_fd, pair.data()) != 0) {
        return failed(failure_code::write, errno);
    }
    return {};
}

// Gives the copy a name that another file may have: 0, or the error number.
int sealed_file::exchange_or_rename(const std::string& name) {
    const auto exchange = [&] {
        return ::renameat2(m_directory_fd, m_temporary.c_str(), m_directory_fd, name.c_str(),
                           RENAME_EXCHANGE) == 0;
    };
    if (exchange()) {
        m_earlier = earlier_file::has_temporary_name;
        struct ::stat status {};
        // A directory that came meanwhile is no file to replace.
        const bool is_directory =
            ::fstatat(m_directory_fd, m_temporary.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(status.st_mode);
        return is_directory && exchange() ? EISDIR : 0;
    }
    if (errno == ENOENT) {
        const int error = rename_without_replacing(m_directory_fd, m_temporary.c_str(), name.c_str());
        if (error != EEXIST) {
            return error;
        }
    } else if (errno != ENOSYS && errno != EINVAL) {
        return errno;
    }
    // A kernel or a file system that does not know the flag.
    m_earlier = earlier_file::lost;
    return ::renameat(m_directory_fd, m_temporary.c_str(), m_directory_fd, name.c_str()) == 0 ? 0 : errno;
}

result<void> sealed_file::give_name(const std::string& name, bool overwrite) {
    const signals_held_back quiet;
    const int error = overwrite ? exchange_or_rename(name)
                                : rename_without_replacing(m_directory_fd, m_temporary.c_str(), name.c_str());
    if (error == 0 && is_this_file(name)) {
        if (m_earlier != earlier_file::has_temporary_name) {
            m_temporary.clear();
            forget_leftover();
        }
        return {};
    }
    if (error == 0) {
        take_name_back(name);
    }
    std::string place = where::destination(shown_typed(m_directory + name));
    if (error == EEXIST) {
        return fail(failure_code::exists, std::move(place), "exists; say -overwrite");
    }
    return fail(failure_code::rename, std::move(place),
                error == 0 ? "another program replaced the temporary file" : std::strerror(error));
}

// Another program that may write to the directory can give the temporary name to a file of its own.
bool sealed_file::is_this_file(const std::string& name) const {
    struct ::stat status {};
    return ::fstatat(m_directory_fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           host_file{status.st_dev, status.st_ino} == m_identity;
}

// What has the name is another program's file: it goes back to where that program put it, and stays.
void sealed_file::take_name_back(const std::string& name) {
    if (m_earlier == earlier_file::has_temporary_name) {
        ::renameat2(m_directory_fd, m_temporary.c_str(), m_directory_fd, name.c_str(), RENAME_EXCHANGE);
    } else {
        rename_without_replacing(m_directory_fd, name.c_str(), m_temporary.c_str());
    }
    m_temporary.clear();
    forget_leftover();
}

// The names themselves must reach the disk. If that fails, what was there before is put back.
result<void> sealed_file::sync_directory(const std::string& name) {
    if (uninterrupted([&] { return ::fsync(m_directory_fd); }) == 0 || errno == EINVAL) {
        remove_temporary();
        return {};
    }
    auto told = failed(failure_code::sync, errno);
    const signals_held_back quiet;
    switch (m_earlier) {
        case earlier_file::none:
            ::unlinkat(m_directory_fd, name.c_str(), 0);
            break;
        case earlier_file::has_temporary_name:
            if (::renameat2(m_directory_fd, m_temporary.c_str(), m_directory_fd, name.c_str(),
                            RENAME_EXCHANGE) != 0) {
                told.value().why += "; the copy has its name, and the file that it replaced is now " +
                                    shown_typed(m_directory + m_temporary);
                m_temporary.clear();
                forget_leftover();
            }
            break;
        case earlier_file::lost:
            told.value().why += "; the copy has its name, but that may not be on the disk";
            break;
    }
    return told;
}

result<void> sealed_file::finish() {
    if (auto reached = reach_size(m_size); !reached) {
        return reached;
    }
    if (uninterrupted([&] { return ::fsync(m_fd); }) != 0) {
        return failed(failure_code::sync, errno);
    }
    if (::close(std::exchange(m_fd, -1)) != 0) {
        return failed(failure_code::write, errno);
    }
    return {};
}

result<void> sealed_file::seal(const std::string& name, bool overwrite) {
    return (m_fd >= 0 ? finish() : result<void>())
        .and_then([&] { return give_name(name, overwrite); })
        .and_then([&] { return sync_directory(name); });
}

}  // namespace quarry::exact
