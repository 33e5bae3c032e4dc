// Whole runs of the program: arguments, lines of standard input and an image with holes, all three from the
// input. What must hold of every run is in run_scene.h; beside that a run leaves the image as it was where
// that is named as the source, beyond doubt.
#include "fuzz/argument_script.h"
#include "fuzz/command_line_input.h"
#include "fuzz/run_scene.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using quarry::fuzz::part;

// Each line is a path, and each must be harmless.
std::string typed_lines(const part& lines) {
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

// True if the image is named as a source, beyond doubt, whether or not another option hides it. A run to
// which it is not named so may be asked to write there.
bool image_is_source(const std::vector<std::string>& words) {
    return words.size() > 2 && words[1] == "-image" && words[2] == quarry::fuzz::image_name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::fuzz::run_scene scene;
    const quarry::fuzz::command_line_input input = quarry::fuzz::take_apart(data, size);
    const std::vector<std::string> words = quarry::fuzz::arguments_of(input.script);
    scene.enter(quarry::fuzz::take_sparse(input.image), typed_lines(input.lines));
    scene.run(words);
    if (image_is_source(words)) {
        scene.expect_image_unchanged();
    }
    scene.leave();
    return 0;
}
