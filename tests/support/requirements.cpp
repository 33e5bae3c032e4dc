#include "support/requirements.h"

#include <filesystem>
#include <sstream>

namespace quarry::test {

bool has_program(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream directories(std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin");
    std::string directory;
    while (std::getline(directories, directory, ':')) {
        if (access((std::filesystem::path(directory) / name).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace quarry::test
