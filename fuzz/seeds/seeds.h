// Where seeds go, and who makes them.
#pragma once

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

void write_volume_seeds(const seed_writer& seeds);
void write_partition_table_seeds(const seed_writer& seeds);
void write_command_line_seeds(const seed_writer& seeds);
void write_record_seeds(const seed_writer& seeds);
void write_index_seeds(const seed_writer& seeds);
void write_run_seeds(const seed_writer& seeds);
void write_text_seeds(const seed_writer& seeds);

}  // namespace quarry::fuzz
