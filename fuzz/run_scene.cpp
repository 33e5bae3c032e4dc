#include "fuzz/run_scene.h"

#include "disk/drive_source.h"
#include "frontend/run.h"
#include "fuzz/argument_script.h"
#include "support/memory_peak/memory_limit.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quarry::fuzz {

namespace {

namespace fs = std::filesystem;
using test::expect;

// When the image was last written, in seconds: long ago, so that any write afterwards shows.
constexpr ::time_t written_at = 1'000'000'000;

// While a run works, no file grows beyond so many bytes: an argument may ask for more clusters, and a volume
// claim a longer stream, than any disk has room for.
void limit_files(bool limited) {
    constexpr ::rlim_t most_bytes = 1024 * 1024;
    struct ::rlimit limit {};
    expect(::getrlimit(RLIMIT_FSIZE, &limit) == 0);
    limit.rlim_cur = limited ? std::min(most_bytes, limit.rlim_max) : limit.rlim_max;
    expect(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
}

void write_image(const sparse_input& image) {
    const int file = ::open(image_name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    expect(file >= 0);
    for (const file_piece& piece : pieces_of(image)) {
        expect(::pwrite(file, piece.content.data(), piece.content.size(),
                        static_cast<::off_t>(piece.offset)) == static_cast<::ssize_t>(piece.content.size()));
    }
    // A file system may not take a file of this length; the image ends with its last piece then.
    static_cast<void>(!::ftruncate(file, static_cast<::off_t>(length_of(image))));
    const struct ::timespec times[2] = {{written_at, 0}, {written_at, 0}};
    expect(::futimens(file, times) == 0);
    ::close(file);
}

// The lowest descriptor that is free.
int free_descriptor() {
    const int descriptor = ::dup(STDOUT_FILENO);
    ::close(descriptor);
    return descriptor;
}

bool is_temporary_name(const std::string& name) {
    return name.size() == 6 && name[0] == '_' &&
           name.find_first_not_of("0123456789abcdef", 1) == std::string::npos;
}

}  // namespace

run_scene::run_scene() : m_outside(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    expect(m_outside >= 0);
    // Words for users go nowhere; the lines of standard input come from memory.
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    expect(nowhere >= 0 && ::dup2(nowhere, STDOUT_FILENO) >= 0);
    expect(::dup2(m_lines.descriptor(), STDIN_FILENO) >= 0);
    // No variable of the environment is a path that an argument could be replaced by.
    expect(::clearenv() == 0 && ::setenv("NAME", "value", 1) == 0);
    quarry::device_directory() = m_directory.path().string();
}

void run_scene::enter(const sparse_input& image, const std::string& lines) const {
    expect(::chdir(m_directory.path().c_str()) == 0);
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
        fs::remove_all(entry.path());
    }
    write_image(image);
    fs::create_symlink(image_name, link_name);
    fs::create_symlink(image_name, "sda");
    fs::create_hard_link(image_name, hard_link_name);
    fs::create_directory(directory_name);
    m_lines.hold(std::vector<std::uint8_t>(lines.begin(), lines.end()));
    expect(::lseek(STDIN_FILENO, 0, SEEK_SET) == 0);
}

void run_scene::run(const std::vector<std::string>& words) const {
    std::vector<const char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    const int free_before = free_descriptor();
    limit_files(true);
    {
        const test::memory_limit limit;
        const int status = quarry::run(static_cast<int>(arguments.size()), arguments.data());
        expect(status == 0 || status == -1);
    }
    limit_files(false);
    expect(free_descriptor() == free_before);
    std::cout.clear();
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
        expect(!is_temporary_name(entry.path().filename().string()));
    }
}

void run_scene::expect_image_unchanged() const {
    struct ::stat image {};
    expect(::stat(image_name, &image) == 0);
    expect(image.st_nlink == 2 && image.st_mtim.tv_sec == written_at && image.st_mtim.tv_nsec == 0);
}

void run_scene::leave() const {
    expect(::fchdir(m_outside) == 0);
}

}  // namespace quarry::fuzz
