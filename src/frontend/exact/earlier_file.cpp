#include "frontend/exact/earlier_file.h"

#include "exact/name_text.h"
#include "foundation/descriptor_io.h"
#include "foundation/md5.h"
#include "foundation/sha256.h"
#include "frontend/exact/destination_path.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quarry::exact {

namespace {

constexpr std::size_t bytes_of_a_read = 0x100000;

tl::unexpected<failure> refused(failure_code code, const std::string& path, std::string why) {
    return fail(code, where::destination(shown_typed(path)), std::move(why));
}

// The digest as small hexadecimal digits, of what the descriptor reads from its position on.
result<std::string> sha256_of(const owned_descriptor& file, const std::string& path) {
    sha256_ctx context;
    sha256_init(&context);
    std::vector<char> block(bytes_of_a_read);
    // Ends with the file.
    while (true) {
        const ::ssize_t count = uninterrupted([&] { return ::read(file.get(), block.data(), block.size()); });
        if (count < 0) {
            return refused(failure_code::exists, path,
                           std::string("exists and cannot be read: ") + std::strerror(errno));
        }
        if (count == 0) {
            break;
        }
        sha256_update(&context, block.data(), static_cast<std::size_t>(count));
    }
    sha256_digest digest{};
    sha256_final(digest, &context);
    std::string text;
    hex_text(text, digest.data(), digest.size(), false);
    return text;
}

result<void> bring_to_disk(const owned_descriptor& file, const std::string& path) {
    if (file.get() < 0) {
        return refused(failure_code::create, path, std::strerror(errno));
    }
    if (uninterrupted([&] { return ::fsync(file.get()); }) != 0 && errno != EINVAL) {
        return refused(failure_code::sync, path, std::strerror(errno));
    }
    return {};
}

}  // namespace

result<std::uint64_t> size_of_earlier_file(const std::string& path) {
    struct ::stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return refused(failure_code::exists, path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return refused(failure_code::exists, path, "is no regular file");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

result<void> expect_same_bytes(const std::string& path, std::string_view sha256) {
    const owned_descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) {
        return refused(failure_code::exists, path,
                       std::string("exists and cannot be read: ") + std::strerror(errno));
    }
    return sha256_of(file, path)
        .and_then([&](const std::string& digest) {
            return digest == sha256
                       ? result<void>()
                       : refused(failure_code::exists, path, "exists with other bytes; say -overwrite");
        })
        .and_then([&] { return bring_to_disk(file, path); })
        .and_then([&] {
            const std::string directory = split_destination(path).directory;
            return bring_to_disk(
                owned_descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), directory);
        });
}

}  // namespace quarry::exact
