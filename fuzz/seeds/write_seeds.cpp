// Writes the seeds that the builders of the tests make.
//
// Usage: write_seeds DIRECTORY     one directory for each target is made in it; earlier seeds are replaced
#include "fuzz/seeds/seeds.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    using namespace quarry::fuzz;
    if (argc != 2) {
        std::cerr << "usage: write_seeds DIRECTORY\n";
        return 2;
    }
    try {
        const std::filesystem::path corpus = argv[1];
        write_volume_seeds(seed_writer(corpus / "volume"));
        write_exact_volume_seeds(seed_writer(corpus / "exact_volume"));
        write_exact_parts_seeds(seed_writer(corpus / "exact_parts"));
        write_system_compression_seeds(seed_writer(corpus / "system_compression"));
        write_list_seeds(seed_writer(corpus / "list"));
        write_vmdk_file_seeds(seed_writer(corpus / "vmdk_file"));
        write_vmdk_chain_seeds(seed_writer(corpus / "vmdk_chain"));
        write_partition_table_seeds(seed_writer(corpus / "partition_table"));
        write_command_line_seeds(seed_writer(corpus / "command_line"));
        write_record_seeds(seed_writer(corpus / "record"));
        write_index_seeds(seed_writer(corpus / "index"));
        write_run_seeds(seed_writer(corpus / "runs"));
        write_text_seeds(seed_writer(corpus / "text"));
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return 1;
    }
    return 0;
}
