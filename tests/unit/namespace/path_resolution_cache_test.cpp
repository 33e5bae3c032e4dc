#include "namespace/path_resolution.h"
#include "unit/namespace/path_lookup.h"

#include <algorithm>

namespace quarry::test {
namespace {

// The states in which a directory can be in the cache.

TEST_F(path_resolution_test, in_a_directory_that_is_not_in_the_cache_and_has_no_index_finds_none) {
    m_volume.root().without_index();
    const lookup result = find(LR"(\a)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.log, (lines{R"(anal: \a)", "root dir", "seg: a", "info: get children nodes",
                                 "info: none found", R"(inode not found for \a)"}));
    EXPECT_TRUE(ntfs().m_path_cache.directories().empty());
}

TEST_F(path_resolution_test, in_a_directory_that_is_not_in_the_cache_fails_when_its_index_fails_in_part) {
    // The root gives a child, and the allocation then fails the directory.
    m_volume.add_file("a");
    m_volume.root().without_index();
    m_volume.root().attribute(
        attribute_builder::resident(0x90, build_index_root({name_entry(reference(24, 1), {.name = "a"})}))
            .named("$I30"));
    m_volume.root().attribute(
        attribute_builder::non_resident(0xA0, runs({{40, 1}})).initialized(0).named("$I30"));
    EXPECT_EQ(find(LR"(\a)").log.at(4), "info: none found");
    // With an entry in the cache the result is not asked for.
    ntfs().m_path_cache.add(5, 5, false);
    EXPECT_TRUE(find(LR"(\a)").found);
}

TEST_F(path_resolution_test, in_a_directory_in_the_cache_without_children_finds_no_names_either) {
    m_volume.add_directory("dir").without_index();
    const lookup result = find(LR"(\dir\a)");
    EXPECT_FALSE(result.found);
    EXPECT_EQ(lines(result.log.begin() + 7, result.log.end()),
              (lines{"seg: a", "info: get children nodes", "info: # children [0]", "info: get children names",
                     "err: no child names", R"(inode not found for \dir\a)"}));
    const lookup again = find(LR"(\dir\a)");
    EXPECT_EQ(lines(again.log.begin() + 5, again.log.end()), lines(result.log.begin() + 7, result.log.end()))
        << "an empty directory has the same lines again";
}

TEST_F(path_resolution_test,
       in_a_directory_whose_children_have_no_names_reports_the_same_of_each_child_again) {
    m_volume.add_file("nameless").without_names();
    const std::uint64_t directory = m_volume.add_directory("dir").entry();
    const std::uint64_t child = m_volume.add_file("child", directory).without_names().entry();
    m_volume.file(directory).extra_entry(name_entry(reference(child, 1), {.name = "child"}));
    m_volume.file(directory).extra_entry(name_entry(reference(60, 1), {.name = "unused"}));
    const lines first = find(LR"(\dir\child)").log;
    EXPECT_EQ(lines(first.end() - 7, first.end()),
              (lines{"info: get children nodes", "info: # children [2]", "info: get children names",
                     "err: namelookup: inode 0x1a", "err: readFR: inode 0x3c", "err: no child names",
                     R"(inode not found for \dir\child)"}));
    for (int i = 0; i < 2; ++i) {
        const lines again = find(LR"(\dir\child)").log;
        EXPECT_EQ(again,
                  (lines{R"(anal: \dir\child)", "root dir", "seg: dir", "info: cache lookup",
                         "info: inode found for seg: dir : 0x19", "seg: child", "info: get children names",
                         "err: namelookup: inode 0x1a", "err: readFR: inode 0x3c", "err: no child names",
                         R"(inode not found for \dir\child)"}));
    }
}

// A volume whose records are gone after the first lookup: whatever is answered then was remembered.
TEST_F(path_resolution_test, reads_nothing_again_of_directories_that_yield_nothing) {
    m_volume.add_directory("empty").without_index();
    m_volume.add_file("file");
    std::vector<lines> first;
    const auto paths = {LR"(\empty\a)", LR"(\file\a)"};
    for (const wchar_t* path : paths) {
        EXPECT_FALSE(find(path).found);
        first.push_back(find(path).log);
    }
    write_file(m_opened->path(), bytes(m_volume.record_position(5)));
    std::size_t i = 0;
    for (const wchar_t* path : paths) {
        EXPECT_EQ(find(path).log, first[i++]);
    }
}

// Of each directory the names take more than half of what the cache may hold.
TEST_F(path_resolution_test,
       in_a_directory_that_was_dropped_from_the_cache_finds_the_same_with_the_same_lines) {
    const std::uint64_t one = m_volume.add_directory("one").entry();
    const std::uint64_t two = m_volume.add_directory("two").entry();
    m_volume.add_file("a", one);
    m_volume.add_file("b", two);
    const auto look_up_all = [this] {
        std::vector<lookup> found;
        for (const wchar_t* path : {LR"(\one\a)", LR"(\two\b)", LR"(\two\none)", LR"(\one\a)"}) {
            found.push_back(find(path));
        }
        return found;
    };
    const std::vector<lookup> kept = look_up_all();
    for (const std::uint64_t memory : {1000u, 1500u, 2000u}) {
        ntfs().m_path_cache.clear();
        ntfs().m_path_cache.set_limits(memory, budget::unlimited);
        const std::vector<lookup> dropped = look_up_all();
        for (std::size_t i = 0; i < kept.size(); ++i) {
            EXPECT_EQ(dropped[i].entry, kept[i].entry) << memory;
            EXPECT_EQ(dropped[i].log, kept[i].log) << memory;
        }
    }
}

// Looks at the memory of a cache with each line that it takes.
class memory_watching_log : public capturing_log {
  public:
    explicit memory_watching_log(const path_cache& cache) : m_cache(cache) {}
    std::uint64_t most = 0;

  protected:
    void write_log_line(const std::string& text) override {
        capturing_log::write_log_line(text);
        most = std::max(most, m_cache.memory());
    }

  private:
    const path_cache& m_cache;
};

// A file system of nothing but directories: their names cost little, what is remembered of each of them more.
TEST(path_resolution_in_little_memory, of_many_directories_keeps_no_more_than_the_cache_may_hold) {
    volume_builder volume({.mft_entries = 300});
    file_builder& many = volume.add_directory("many").index_in_blocks();
    for (int i = 0; i < 200; ++i) {
        volume.add_directory("d" + std::to_string(i), many.entry());
    }
    volume.add_file("file", volume.add_directory("d200", many.entry()).entry());
    // Its record cannot be read, which gives a line when all others have been read.
    many.extra_entry(name_entry(reference(299, 1), {.name = "unused"}));
    opened_volume opened(volume);
    const lookup kept = resolve(&opened.ntfs(), LR"(\many\d200\file)");
    ASSERT_TRUE(kept.found);
    EXPECT_GT(opened->m_path_cache.memory(), 12000U);
    opened->m_path_cache.clear();
    opened->m_path_cache.set_limits(12000, budget::unlimited);
    memory_watching_log log(opened->m_path_cache);
    std::uint64_t entry = 0;
    std::uint64_t parent = 0;
    std::wstring found_path;
    std::wstring path = LR"(\many\d200\file)";
    EXPECT_TRUE(resolve_path(entry, parent, found_path, &opened.ntfs(), path, true, log));
    EXPECT_EQ(entry, kept.entry);
    EXPECT_EQ(log.lines, kept.log);
    EXPECT_LE(log.most, 12000U);
}

TEST_F(path_resolution_test, keeps_in_the_cache_what_it_learned) {
    const std::uint64_t outer = m_volume.add_directory("Outer").entry();
    m_volume.add_directory("Gone").deleted_but_indexed();
    m_volume.add_file("File.txt", outer);
    ASSERT_TRUE(find(LR"(\Outer)").found);
    const std::map<std::uint64_t, dir_cache_entry>& cache = ntfs().m_path_cache.directories();
    ASSERT_EQ(cache.size(), 3u);
    const dir_cache_entry& root = cache.at(5);
    EXPECT_EQ(root.m_entry, 5u);
    EXPECT_EQ(root.m_parent, 5u);
    EXPECT_TRUE(root.m_is_dir);
    EXPECT_FALSE(root.m_deleted);
    ASSERT_NE(root.m_content, nullptr);
    const _inode_collection& children = root.m_content->m_children;
    EXPECT_EQ(std::vector<std::uint64_t>(children.begin(), children.end()),
              (std::vector<std::uint64_t>{0, 5, 6, 24, 25}));
    using names = std::vector<child_name_table::named_child>;
    EXPECT_EQ(root.m_content->m_child_names.names(),
              (names{{"$bitmap", 6}, {"$mft", 0}, {"gone", 25}, {"outer", 24}}))
        << "the root lists itself, and passes over itself";
    const dir_cache_entry& known = cache.at(24);
    EXPECT_EQ(known.m_entry, 24u);
    EXPECT_EQ(known.m_parent, 5u);
    EXPECT_TRUE(known.m_is_dir);
    EXPECT_FALSE(known.m_deleted);
    EXPECT_FALSE(known.m_entered);
    EXPECT_EQ(known.m_content, nullptr);
    EXPECT_TRUE(cache.at(25).m_deleted);
    ASSERT_TRUE(find(LR"(\Outer\file.txt)").found);
    ASSERT_NE(known.m_content, nullptr);
    EXPECT_EQ(known.m_content->m_child_names.names(), (names{{"file.txt", 26}}));
}

TEST_F(path_resolution_test, keeps_the_directory_through_which_another_was_first_reached) {
    const std::uint64_t one = m_volume.add_directory("one").entry();
    const std::uint64_t two = m_volume.add_directory("two").entry();
    m_volume.add_directory("shared", one).hard_link("shared", two);
    ASSERT_TRUE(find(LR"(\two\shared)").found);
    ASSERT_TRUE(find(LR"(\one\shared)").found);
    EXPECT_EQ(ntfs().m_path_cache.find(26)->m_parent, two);
}

TEST_F(path_resolution_test, of_a_child_that_is_its_own_directory_passes_over_it) {
    const std::uint64_t own = m_volume.add_directory("own").entry();
    m_volume.file(own).extra_entry(name_entry(reference(own, 1), {.name = "own"}));
    m_volume.add_file("a", own);
    EXPECT_EQ(entry_of(LR"(\own\a)"), 25u);
    EXPECT_EQ(entry_of(LR"(\own\own)"), 0u);
}

}  // namespace
}  // namespace quarry::test
