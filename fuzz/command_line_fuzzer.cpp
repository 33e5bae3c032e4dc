// Whole runs of the program, inside of this process: arguments, lines of standard input and an image, all
// three from the input.
//
// A run works in a directory of the fuzzer's own, which is emptied each time; no argument leads out of it
// (see argument_script). Whatever the arguments are, a run exits with 0 or -1, leaves the image as it was,
// closes what it opened and leaves no temporary file behind.
#include "disk/raw_disk_io.h"
#include "frontend/run.h"
#include "fuzz/argument_script.h"
#include "fuzz/command_line_input.h"
#include "support/expect.h"
#include "support/memory_file.h"
#include "support/temp_dir.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using quarry::fuzz::part;
using quarry::test::expect;

// What stays the same from run to run.
class scene {
  public:
    scene() : m_outside(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        expect(m_outside >= 0);
        // Words for users go nowhere; the lines of standard input come from memory.
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        expect(nowhere >= 0 && ::dup2(nowhere, STDOUT_FILENO) >= 0);
        expect(::dup2(m_lines.descriptor(), STDIN_FILENO) >= 0);
        // No variable of the environment is a path that an argument could be replaced by.
        expect(::clearenv() == 0 && ::setenv("NAME", "value", 1) == 0);
        quarry::device_directory() = m_directory.path().string();
    }
    scene(const scene&) = delete;
    scene& operator=(const scene&) = delete;

    // While a run works, no file grows beyond so many bytes: an argument may ask for more clusters, and a
    // volume claim a longer stream, than any disk has room for.
    static void limit_files(bool limited) {
        constexpr ::rlim_t most_bytes = 1024 * 1024;
        struct ::rlimit limit {};
        expect(::getrlimit(RLIMIT_FSIZE, &limit) == 0);
        limit.rlim_cur = limited ? std::min(most_bytes, limit.rlim_max) : limit.rlim_max;
        expect(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
    }

    // Goes into the directory, which then holds the image, two links to it and an empty directory.
    void enter(const part& image) const {
        expect(::chdir(m_directory.path().c_str()) == 0);
        for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
            fs::remove_all(entry.path());
        }
        quarry::test::write_file(quarry::fuzz::image_name, image);
        fs::create_symlink(quarry::fuzz::image_name, quarry::fuzz::link_name);
        fs::create_symlink(quarry::fuzz::image_name, "sda");
        fs::create_hard_link(quarry::fuzz::image_name, quarry::fuzz::hard_link_name);
        fs::create_directory(quarry::fuzz::directory_name);
    }
    void leave() const { expect(::fchdir(m_outside) == 0); }

    void type(const part& lines) const {
        const std::string text = typed_lines(lines);
        m_lines.hold(std::vector<std::uint8_t>(text.begin(), text.end()));
        expect(::lseek(STDIN_FILENO, 0, SEEK_SET) == 0);
    }

  private:
    // Each line is a path, and each must be harmless.
    [[nodiscard]] static std::string typed_lines(const part& lines) {
        constexpr std::size_t most_bytes = 2000;
        std::string text;
        std::string line;
        for (const std::uint8_t byte : lines) {
            line += static_cast<char>(byte);
            if (byte == '\n') {
                text += quarry::fuzz::harmless(line);
                line.clear();
            }
        }
        return (text + quarry::fuzz::harmless(line)).substr(0, most_bytes);
    }

    quarry::test::temp_dir m_directory;
    quarry::test::memory_file m_lines{"lines"};
    int m_outside;
};

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

// True if the image is named as a source, beyond doubt, whether or not another option hides it. A run that is
// not told so may be told to write there.
bool image_is_source(const std::vector<std::string>& words) {
    return words.size() > 2 && words[1] == "-image" && words[2] == quarry::fuzz::image_name;
}

void look_around(const part& image, const std::vector<std::string>& words) {
    if (image_is_source(words)) {
        expect(quarry::test::read_file(quarry::fuzz::image_name) == image);
        expect(fs::hard_link_count(quarry::fuzz::image_name) == 2);
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(".")) {
        expect(!is_temporary_name(entry.path().filename().string()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const scene here;
    const quarry::fuzz::command_line_input input = quarry::fuzz::take_apart(data, size);
    here.enter(input.image);
    here.type(input.lines);
    std::vector<const char*> arguments;
    const std::vector<std::string> words = quarry::fuzz::arguments_of(input.script);
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    const int free_before = free_descriptor();
    scene::limit_files(true);
    const int status = quarry::run(static_cast<int>(arguments.size()), arguments.data());
    scene::limit_files(false);
    expect(status == 0 || status == -1);
    expect(free_descriptor() == free_before);
    std::cout.clear();
    look_around(input.image, words);
    here.leave();
    return 0;
}
