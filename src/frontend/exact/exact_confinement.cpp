#include "frontend/exact/exact_confinement.h"

#include "frontend/exact/destination_path.h"

namespace quarry::exact {

needed_files files_needed_by(const exact_options& options, const std::vector<std::string>& source_files) {
    needed_files files;
    files.sources = source_files;
    const std::vector<std::string> host = host_descriptions();
    files.sources.insert(files.sources.end(), host.begin(), host.end());
    if (!options.destination.empty()) {
        files.sealed_dirs = {split_destination(options.destination).directory};
        files.makes_dirs = options.tree;
    }
    return files;
}

}  // namespace quarry::exact
