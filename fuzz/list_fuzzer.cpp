// Lists of paths on one volume, copied in one run: what a run keeps from line to line, however many
// directories share an index and whatever is not found again and again.
//
// The input: options (1 byte), how many times the lines are typed (1), length of the lines (2), lines, and
// the image as sparse_input.h says. Beside what holds of every run (run_scene.h), the image does not change
// and no copy is longer than what the log announces.
#include "fuzz/argument_script.h"
#include "fuzz/list_input.h"
#include "fuzz/run_scene.h"
#include "support/volume_builder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using quarry::fuzz::list_input;
using quarry::test::expect;

constexpr std::array<const char*, 4> options = {"-meta", "-md5", "-raw", "-skip_sparse_clusters"};

std::vector<std::string> words_of(const list_input& input) {
    std::vector<std::string> words = {
        "quarry", "-image", quarry::fuzz::image_name, "-pipe", "-dst", "dir/", "-diags", "log", "-l3"};
    for (std::size_t bit = 0; bit < options.size(); ++bit) {
        if ((input.options >> bit & 1) != 0) {
            words.emplace_back(options[bit]);
        }
    }
    return words;
}

std::string typed_lines(const list_input& input) {
    constexpr std::size_t most_bytes = std::size_t{64} << 10;
    std::string once;
    std::istringstream lines(input.lines);
    for (std::string line; std::getline(lines, line);) {
        once += quarry::fuzz::harmless(line) + '\n';
    }
    std::string all;
    for (unsigned i = 0; i <= input.repeats && all.size() + once.size() <= most_bytes; ++i) {
        all += once;
    }
    return all;
}

// What the log announces: for each destination the largest stream that was to go there.
std::map<std::string, std::uint64_t> announced_sizes() {
    constexpr std::string_view destination = "->dst: ";
    constexpr std::string_view size = "->info: data size 0x";
    std::map<std::string, std::uint64_t> sizes;
    std::string current;
    const quarry::test::bytes text = quarry::test::read_file("log");
    std::istringstream log(std::string(text.begin(), text.end()));
    for (std::string line; std::getline(log, line);) {
        if (line.starts_with(destination)) {
            current = line.substr(destination.size());
        } else if (line.starts_with(size)) {
            std::uint64_t& largest = sizes[current];
            largest = std::max(largest, std::uint64_t{std::stoull(line.substr(size.size()), nullptr, 16)});
        }
    }
    return sizes;
}

void expect_no_copy_is_longer_than_announced() {
    const std::map<std::string, std::uint64_t> sizes = announced_sizes();
    for (const fs::directory_entry& entry : fs::directory_iterator(quarry::fuzz::directory_name)) {
        const std::string path = entry.path().string();
        const auto announced = sizes.find(path);
        expect(path.ends_with(".meta.txt") || announced == sizes.end() ||
               entry.file_size() <= announced->second);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const quarry::fuzz::run_scene scene;
    const list_input input = quarry::fuzz::take_list({data, size});
    scene.enter(input.image, typed_lines(input));
    scene.run(words_of(input));
    scene.expect_image_unchanged();
    if (fs::exists("log")) {
        expect_no_copy_is_longer_than_announced();
    }
    scene.leave();
    return 0;
}
