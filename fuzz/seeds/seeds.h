// Where seeds go, and who makes them.
#pragma once

#include "fuzz/sparse_input.h"
#include "support/volume_builder.h"

#include <filesystem>
#include <string>

namespace quarry::fuzz {

// Writes seeds into the directory of one target.
class seed_writer {
  public:
    explicit seed_writer(std::filesystem::path directory) : m_directory(std::move(directory)) {
        std::filesystem::create_directories(m_directory);
    }
    void write(const std::string& name, const test::bytes& content) const {
        test::write_file(m_directory / name, content);
    }

  private:
    std::filesystem::path m_directory;
};

// The input of a file with these bytes at its start; one of more than their length ends in a hole.
[[nodiscard]] inline test::bytes whole_file(const test::bytes& content, std::uint64_t length = 0) {
    return put_sparse({.stored = content, .places = {}, .length = length});
}

void write_volume_seeds(const seed_writer& seeds);
void write_exact_volume_seeds(const seed_writer& seeds);
void write_exact_parts_seeds(const seed_writer& seeds);
void write_system_compression_seeds(const seed_writer& seeds);
void write_list_seeds(const seed_writer& seeds);
void write_vmdk_file_seeds(const seed_writer& seeds);
void write_vmdk_chain_seeds(const seed_writer& seeds);
void write_partition_table_seeds(const seed_writer& seeds);
void write_command_line_seeds(const seed_writer& seeds);
void write_record_seeds(const seed_writer& seeds);
void write_index_seeds(const seed_writer& seeds);
void write_run_seeds(const seed_writer& seeds);
void write_text_seeds(const seed_writer& seeds);

}  // namespace quarry::fuzz
