#include "frontend/exact/exact_confinement.h"

#include "frontend/exact/destination_path.h"

namespace quarry::exact {

needed_files files_needed_by(const exact_options& options, const std::vector<std::string>& source_files) {
    needed_files files;
    files.sources = source_files;
    files.read_dirs = host_descriptions();
    if (!options.destination.empty()) {
        files.sealed_dirs = {split_destination(options.destination).directory};
        files.reads_sealed = options.resume;
        files.makes_dirs = options.tree;
    }
    return files;
}

}  // namespace quarry::exact
