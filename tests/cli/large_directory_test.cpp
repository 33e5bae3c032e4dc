// A directory of a hundred thousand files: read once in a run, and within the memory of any other copy; and
// listed in the memory that a small one takes.

#include "cli/command_line.h"
#include "support/index_tree.h"
#include "support/many_names.h"

#include <algorithm>

namespace quarry::test {
namespace {

constexpr std::uint64_t first_file = 100;
constexpr std::uint64_t files_in_directory = 100'000;
constexpr std::uint64_t mft_clusters = (first_file + files_in_directory) / 4 + 1;
constexpr std::uint64_t index_lcn = 4 + mft_clusters;
// Address space for a whole run, its program and libraries included.
constexpr std::uint64_t most_memory = 64ULL << 20;

std::string name_of(std::uint64_t file) {
    return "file " + std::to_string(100'000 + file);
}

class large_directories : public command_line_test {
  protected:
    // Directory 24, "many", with its files from entry 100 on, each with its own name as content.
    void SetUp() override {
        volume_builder volume({.mft_runs = runs({{4, mft_clusters}})});
        file_builder& many = volume.add_directory("many").without_index();
        const bytes information = standard_information().build();
        std::vector<index_entry> entries;
        entries.reserve(files_in_directory);
        for (std::uint64_t file = 0; file < files_in_directory; ++file) {
            const std::uint64_t entry = first_file + file;
            const file_name name = {.parent = many.file_reference(), .name = name_of(file)};
            volume.clusters().write_at(volume.record_position(entry),
                                       volume.new_record(entry)
                                           .add(attribute_builder::resident(0x10, information))
                                           .add(attribute_builder::resident(0x30, name.build()))
                                           .add(attribute_builder::resident(0x80, to_bytes(name_of(file))))
                                           .build());
            entries.push_back(name_entry(reference(entry, 1), name));
        }
        const index_tree tree = build_index_tree(std::move(entries), volume.cluster_size(), 512);
        volume.write_clusters(index_lcn, tree.blocks);
        many.attribute(attribute_builder::resident(0x90, build_index_root(tree.root, true)).named("$I30"));
        many.attribute(attribute_builder::non_resident(
                           0xA0, runs({{static_cast<std::int64_t>(index_lcn), tree.live_blocks}}))
                           .named("$I30"));
        volume.write_to(m_dir / "image");
        std::filesystem::create_directory(m_dir / "out");
    }
};

TEST_F(large_directories, are_read_once_in_a_run_and_in_little_memory) {
    const program_result result =
        run({"-image", "image", "-pipe", "-dst", "out/", "-diags", "log"},
            {.standard_input = "/many/FILE 199999\n/many/file 100000\n/many/file 200000\n",
             .time_limit = std::chrono::seconds(30),
             .memory_limit = most_memory});
    ASSERT_TRUE(result.exited) << result.signal << result.timed_out;
    EXPECT_EQ(result.err,
              "success: /many/FILE 199999\nsuccess: /many/file 100000\nfailed: /many/file 200000\n" +
                  std::string(emptied_status_line));
    EXPECT_EQ(text("out/FILE 199999"), "file 199999");
    EXPECT_EQ(text("out/file 100000"), "file 100000");
    const std::string log = text("log");
    EXPECT_NE(log.find("->info: # children [100000]\n"), std::string::npos);
    // The root directory and this one, each only for the first line.
    std::size_t times_read = 0;
    for (std::size_t at = log.find("get children nodes"); at != std::string::npos;
         at = log.find("get children nodes", at + 1)) {
        ++times_read;
    }
    EXPECT_EQ(times_read, 2U);
}

class many_names : public command_line_test {
  protected:
    [[nodiscard]] program_result listed(const std::string& image, std::uint64_t memory) const {
        return run({"-exact", "-image", image, "-list", "/", "-recurse"},
                   {.time_limit = std::chrono::seconds(120), .memory_limit = memory, .leaks_allowed = true});
    }
};

TEST_F(many_names, are_listed_in_memory_that_does_not_grow) {
    write_file(m_dir / "few", volume_of_many_names(500));
    write_file(m_dir / "many", volume_of_many_names(100'000));
    // Address space in which a few names can be listed, to the mebibyte. What each name kept would take more
    // than 20 bytes, so that 100,000 of them need more than the two mebibytes that are added.
    std::uint64_t memory = 4ULL << 20;
    program_result result = listed("few", memory);
    while (result.status != 0 && memory < most_memory) {
        memory += 1ULL << 20;
        result = listed("few", memory);
    }
    ASSERT_EQ(result.status, 0) << result.err;
    result = listed("many", memory + (2ULL << 20));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\t/many/file0099999.txt\n"), std::string::npos);
    // The directory, its files, and what the volume has of its own.
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 100'014);
}

}  // namespace
}  // namespace quarry::test
