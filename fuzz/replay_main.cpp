// Runs a fuzz target over the files of directories, without a fuzzer: the seeds, and every input that once
// found something. So each build replays them, whatever its compiler.
//
// Usage: replay_TARGET [DIRECTORY]...     a directory that is not there holds nothing
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& directory) {
    std::vector<fs::path> files;
    if (fs::is_directory(directory)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
            if (entry.is_regular_file()) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

void replay(const fs::path& file) {
    // The name comes first, so that it is known of an input that ends the program.
    std::fprintf(stderr, "%s\n", file.c_str());
    std::ifstream stream(file, std::ios::binary);
    const std::vector<std::uint8_t> content{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(content.data(), content.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t replayed = 0;
    try {
        for (int i = 1; i < argc; ++i) {
            for (const fs::path& file : files_of(argv[i])) {
                replay(file);
                ++replayed;
            }
        }
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "%s\n", problem.what());
        return 1;
    }
    std::fprintf(stderr, "%zu inputs\n", replayed);
    // A target without a single input is one whose directory was misnamed.
    return replayed == 0 ? 1 : 0;
}
