#include "frontend/exact/sealed_file.h"

#include "support/temp_dir.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

namespace {

using namespace exact;
namespace fs = std::filesystem;
using octets = std::vector<std::uint8_t>;

constexpr std::size_t block = sealed_file::hole_block;

octets filled(std::size_t size, std::uint8_t value) {
    return octets(size, value);
}

bool is_too_large(const result<void>& done) {
    return !done && done.error().code == failure_code::write && done.error().why == "File too large";
}

// What a look gives in a process of its own, whose files may have 4096 bytes.
bool is_so_where_files_end_at_4096_bytes(const std::function<bool()>& look) {
    const ::pid_t child = ::fork();
    if (child == 0) {
        const struct ::rlimit limit { 4096, 4096 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
        ::_exit(look() ? 0 : 1);
    }
    int status = -1;
    return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

class sealed_file_test : public testing::Test {
  protected:
    [[nodiscard]] std::string directory() const { return m_dir.path().string(); }
    [[nodiscard]] std::string in_dir(const std::string& name) const { return (m_dir / name).string(); }

    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> list;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_dir.path())) {
            list.push_back(entry.path().filename().string());
        }
        std::sort(list.begin(), list.end());
        return list;
    }

    [[nodiscard]] octets content(const std::string& name) const {
        std::ifstream file(in_dir(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // Bytes that the file takes on the disk.
    [[nodiscard]] std::uint64_t room_of(const std::string& name) const {
        struct ::stat status {};
        EXPECT_EQ(::stat(in_dir(name).c_str(), &status), 0);
        return static_cast<std::uint64_t>(status.st_blocks) * 512;
    }

    void make_file(const std::string& name, const std::string& text) const {
        std::ofstream(in_dir(name)) << text;
    }

    temp_dir m_dir;
};

}  // namespace

TEST_F(sealed_file_test, gives_the_copy_its_name_only_when_it_is_whole) {
    sealed_file file(directory(), false);
    ASSERT_TRUE(file.create(6));
    ASSERT_TRUE(file.append(filled(4, 'a')));
    ASSERT_EQ(names().size(), 1u);
    EXPECT_EQ(names().front().size(), 6u);
    EXPECT_EQ(names().front().front(), '_');
    ASSERT_TRUE(file.append(filled(2, 'b')));
    EXPECT_EQ(file.size(), 6u);
    ASSERT_TRUE(file.seal("copy", false));
    EXPECT_EQ(names(), std::vector<std::string>{"copy"});
    EXPECT_EQ(content("copy"), (octets{'a', 'a', 'a', 'a', 'b', 'b'}));
}

TEST_F(sealed_file_test, leaves_nothing_when_it_is_given_up) {
    {
        sealed_file file(directory(), false);
        ASSERT_TRUE(file.create(4));
        ASSERT_TRUE(file.append(filled(4, 'a')));
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(sealed_file_test, of_no_bytes_is_a_copy_too) {
    sealed_file file(directory(), false);
    ASSERT_TRUE(file.create(0));
    ASSERT_TRUE(file.seal("copy", false));
    EXPECT_TRUE(content("copy").empty());
}

TEST_F(sealed_file_test, never_replaces_a_file_that_came_meanwhile) {
    {
        sealed_file file(directory(), false);
        ASSERT_TRUE(file.create(1));
        ASSERT_TRUE(file.append(filled(1, 'a')));
        make_file("copy", "mine");
        const auto sealed = file.seal("copy", false);
        ASSERT_FALSE(sealed);
        EXPECT_EQ(sealed.error().code, failure_code::exists);
        EXPECT_EQ(sealed.error().why, "exists; say -overwrite");
    }
    EXPECT_EQ(names(), std::vector<std::string>{"copy"});
    EXPECT_EQ(content("copy"), (octets{'m', 'i', 'n', 'e'}));
}

TEST_F(sealed_file_test, replaces_an_earlier_file_where_it_may) {
    make_file("copy", "something longer");
    sealed_file file(directory(), false);
    ASSERT_TRUE(file.create(1));
    ASSERT_TRUE(file.append(filled(1, 'a')));
    EXPECT_EQ(content("copy").size(), 16u);
    ASSERT_TRUE(file.seal("copy", true));
    EXPECT_EQ(names(), std::vector<std::string>{"copy"});
    EXPECT_EQ(content("copy"), octets{'a'});
}

TEST_F(sealed_file_test, gives_no_name_to_a_file_that_another_program_put_in_its_place) {
    for (const bool overwrite : {false, true}) {
        SCOPED_TRACE(overwrite);
        if (overwrite) {
            std::ofstream(in_dir("copy")) << "earlier";
        }
        const std::vector<std::string> before = names();
        std::string temporary;
        {
            sealed_file file(directory(), false);
            ASSERT_TRUE(file.create(3));
            ASSERT_TRUE(file.append(filled(3, 'a')));
            const std::vector<std::string> with_temporary = names();
            temporary = *std::find_if(with_temporary.begin(), with_temporary.end(),
                                      [](const std::string& name) { return name.front() == '_'; });
            fs::remove(in_dir(temporary));
            std::ofstream(in_dir(temporary)) << "other";
            const result<void> sealed = file.seal("copy", overwrite);
            ASSERT_FALSE(sealed);
            EXPECT_EQ(sealed.error().code, failure_code::rename);
            EXPECT_EQ(sealed.error().why, "another program replaced the temporary file");
        }
        // What is another program's stays where that put it.
        EXPECT_EQ(content(temporary), octets({'o', 't', 'h', 'e', 'r'}));
        fs::remove(in_dir(temporary));
        EXPECT_EQ(names(), before);
        if (overwrite) {
            EXPECT_EQ(content("copy"), octets({'e', 'a', 'r', 'l', 'i', 'e', 'r'}));
        }
    }
}

TEST_F(sealed_file_test, a_name_that_cannot_be_given_fails_and_leaves_nothing) {
    {
        sealed_file file(directory(), false);
        ASSERT_TRUE(file.create(0));
        const auto sealed = file.seal("no/such", false);
        ASSERT_FALSE(sealed);
        EXPECT_EQ(sealed.error().code, failure_code::rename);
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(sealed_file_test, a_directory_that_is_missing_fails) {
    sealed_file file(in_dir("sub"), false);
    const auto created = file.create(0);
    ASSERT_FALSE(created);
    EXPECT_EQ(created.error().code, failure_code::create);
    EXPECT_EQ(created.error().why, "No such file or directory");
}

TEST_F(sealed_file_test, more_than_there_is_room_for_fails_before_the_first_byte) {
    constexpr std::uint64_t too_much = std::uint64_t{1} << 62;
    sealed_file file(directory(), false);
    const auto created = file.create(too_much);
    ASSERT_FALSE(created);
    EXPECT_EQ(created.error().code, failure_code::no_room);
    EXPECT_TRUE(names().empty());
    // No room is looked for, but the file system must be able to count the bytes.
    sealed_file sparse(directory(), true);
    EXPECT_TRUE(sparse.create(std::uint64_t{1} << 42));
}

TEST_F(sealed_file_test, holes_are_zeros_without_sparse) {
    sealed_file file(directory(), false);
    ASSERT_TRUE(file.create(1));
    ASSERT_TRUE(file.append(filled(1, 'a')));
    ASSERT_TRUE(file.append_hole(2 * block + 1));
    ASSERT_TRUE(file.append(filled(1, 'b')));
    ASSERT_TRUE(file.seal("copy", false));
    octets expected = filled(2 * block + 3, 0);
    expected.front() = 'a';
    expected.back() = 'b';
    EXPECT_EQ(content("copy"), expected);
    EXPECT_GE(room_of("copy"), 2 * block);
}

TEST_F(sealed_file_test, holes_take_no_room_with_sparse) {
    constexpr std::uint64_t hole = std::uint64_t{1} << 40;
    sealed_file file(directory(), true);
    ASSERT_TRUE(file.create(0));
    ASSERT_TRUE(file.append(filled(10, 'a')));
    ASSERT_TRUE(file.append_hole(hole));
    ASSERT_TRUE(file.append(filled(10, 'b')));
    ASSERT_TRUE(file.append_hole(hole));
    ASSERT_TRUE(file.seal("copy", false));
    EXPECT_EQ(fs::file_size(in_dir("copy")), 2 * hole + 20);
    EXPECT_LE(room_of("copy"), 4 * block);
    std::ifstream copy(in_dir("copy"), std::ios::binary);
    copy.seekg(static_cast<std::streamoff>(hole + 9));
    std::string text(12, '?');
    copy.read(text.data(), 12);
    EXPECT_EQ(text, std::string(1, '\0') + std::string(10, 'b') + std::string(1, '\0'));
}

TEST_F(sealed_file_test, aligned_blocks_of_zeros_take_no_room_with_sparse) {
    octets bytes = filled(32 * block, 0);
    bytes[0] = 'a';
    bytes[20 * block + 5] = 'b';
    bytes[31 * block] = 'c';
    // Whatever the pieces are that the bytes come in, the file is the same.
    for (const std::size_t piece : {std::size_t{1000}, block - 1, block, 7 * block + 3, bytes.size()}) {
        sealed_file file(directory(), true);
        ASSERT_TRUE(file.create(bytes.size()));
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            ASSERT_TRUE(file.append(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at))));
        }
        ASSERT_TRUE(file.seal("copy", true));
        EXPECT_TRUE(content("copy") == bytes) << piece;
        EXPECT_LE(room_of("copy"), 3 * block) << piece;
        EXPECT_GE(room_of("copy"), 3 * block - 4096) << piece;
    }
}

TEST_F(sealed_file_test, zeros_at_the_end_count_to_the_size_with_sparse) {
    for (const std::size_t size : {std::size_t{1}, block - 1, block, block + 1, 3 * block}) {
        sealed_file file(directory(), true);
        ASSERT_TRUE(file.create(size));
        ASSERT_TRUE(file.append(filled(size, 0)));
        ASSERT_TRUE(file.seal("copy", true));
        EXPECT_TRUE(content("copy") == filled(size, 0)) << size;
    }
}

TEST_F(sealed_file_test, a_size_that_the_system_cannot_count_fails) {
    sealed_file file(directory(), true);
    ASSERT_TRUE(file.create(0));
    ASSERT_TRUE(file.append(filled(2, 'a')));
    const auto added = file.append_hole(0x7FFFFFFFFFFFFFFF);
    ASSERT_FALSE(added);
    EXPECT_EQ(added.error().code, failure_code::write);
    EXPECT_EQ(added.error().why, "File too large");
}

TEST_F(sealed_file_test, a_limit_on_the_size_of_files_fails_the_copy_and_leaves_nothing) {
    EXPECT_TRUE(is_so_where_files_end_at_4096_bytes([this] {
        sealed_file file(directory(), false);
        return file.create(0).has_value() && is_too_large(file.append(filled(4097, 'a')));
    }));
    EXPECT_TRUE(names().empty());
}

TEST_F(sealed_file_test, a_sparse_copy_that_is_too_large_fails_before_its_first_byte_and_leaves_nothing) {
    EXPECT_TRUE(is_so_where_files_end_at_4096_bytes([this] {
        sealed_file file(directory(), true);
        return is_too_large(file.create(std::uint64_t{1} << 40));
    }));
    EXPECT_TRUE(names().empty());
    sealed_file file(directory(), true);
    const auto created = file.create(0xFFFFFFFFFFFFFFFF);
    ASSERT_FALSE(created);
    EXPECT_EQ(created.error().why, "File too large");
}

TEST_F(sealed_file_test, a_signal_leaves_nothing) {
    const ::pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sealed_file file(directory(), false);
        if (file.create(0).has_value() && file.append(filled(10, 'a')).has_value()) {
            ::raise(SIGTERM);
        }
        ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_TRUE(names().empty());
}

TEST_F(sealed_file_test, times_are_those_that_were_given) {
    for (const bool sparse : {false, true}) {
        sealed_file file(directory(), sparse);
        ASSERT_TRUE(file.create(1));
        ASSERT_TRUE(file.append(filled(1, 'a')));
        ASSERT_TRUE(file.append_hole(block));
        ASSERT_TRUE(file.set_times({.accessed = {1000000000, 5}, .modified = {1234567890, 123456700}}));
        ASSERT_TRUE(file.seal("copy", true));
        struct ::stat status {};
        ASSERT_EQ(::stat(in_dir("copy").c_str(), &status), 0);
        EXPECT_EQ(status.st_size, static_cast<::off_t>(block + 1));
        EXPECT_EQ(status.st_atim.tv_sec, 1000000000) << sparse;
        EXPECT_EQ(status.st_mtim.tv_sec, 1234567890) << sparse;
        EXPECT_EQ(status.st_mtim.tv_nsec, 123456700) << sparse;
    }
}

}  // namespace quarry::test
