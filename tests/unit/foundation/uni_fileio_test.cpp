#include "foundation/uni_fileio.h"

#include "support/temp_dir.h"

#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace uni {
namespace {

using bytes = std::vector<std::uint8_t>;
using quarry::test::temp_dir;

std::wstring wide(const std::filesystem::path& path) {
    return path.wstring();
}

void put(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bytes of(const std::string& text) {
    return {text.begin(), text.end()};
}

// The status flags of a path opened by open_file, or -1 if it is refused.
int flags_after_open(const std::string& path, int flags) {
    const int descriptor = open_file(path, flags, 0600);
    if (descriptor == -1) {
        return -1;
    }
    const int now = ::fcntl(descriptor, F_GETFL);
    ::close(descriptor);
    return now;
}

TEST(open_file, an_empty_path_gives_no_descriptor) {
    EXPECT_EQ(open_file(std::string(), O_RDONLY, 0), -1);
    EXPECT_EQ(open_file(std::wstring(), O_RDONLY, 0), -1);
}

TEST(open_file, a_path_to_nothing_gives_no_descriptor) {
    EXPECT_EQ(open_file(std::string("/no/such/file"), O_RDONLY, 0), -1);
}

TEST(open_file, a_path_with_non_ascii_letters_reaches_the_system_as_utf8) {
    const temp_dir dir;
    const int descriptor = open_file(wide(dir / "") + L"\u00E9", O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(descriptor, -1);
    ::close(descriptor);
    EXPECT_TRUE(std::filesystem::exists(dir / "\xC3\xA9"));
}

TEST(open_file, a_wide_path_that_fails_to_convert_reaches_the_system_as_the_text_made_so_far) {
    const temp_dir dir;
    const int descriptor =
        open_file(wide(dir / "cut") + static_cast<wchar_t>(0x110000) + L"rest", O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(descriptor, -1);
    ::close(descriptor);
    EXPECT_TRUE(std::filesystem::exists(dir / "cut"));
}

TEST(open_file, a_fifo_is_refused_without_waiting_for_its_other_end) {
    const temp_dir dir;
    const std::string fifo = (dir / "fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(open_file(fifo, O_RDONLY, 0), -1);
    EXPECT_EQ(open_file(fifo, O_WRONLY, 0), -1);
    EXPECT_EQ(open_file(fifo, O_RDWR, 0), -1);
}

TEST(open_file, a_socket_is_refused) {
    const temp_dir dir;
    const std::string path = (dir / "socket").string();
    ::sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, path.size());
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const ::sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(open_file(path, O_RDONLY, 0), -1);
    ::close(socket);
}

TEST(open_file, a_character_device_is_accepted) {
    const int descriptor = open_file(std::string("/dev/null"), O_RDONLY, 0);
    EXPECT_NE(descriptor, -1);
    ::close(descriptor);
}

TEST(open_file, reads_wait_unless_the_caller_asked_for_the_opposite) {
    const temp_dir dir;
    put(dir / "f", "x");
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_RDONLY) & O_NONBLOCK, 0);
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_RDONLY | O_NONBLOCK) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_WRONLY | O_APPEND) & (O_ACCMODE | O_APPEND),
              O_WRONLY | O_APPEND);
}

TEST(may_be_opened_unasked, only_a_regular_file_with_bytes) {
    const temp_dir dir;
    put(dir / "file", "x");
    put(dir / "empty", "");
    std::filesystem::create_symlink(dir / "file", dir / "link");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_TRUE(may_be_opened_unasked(wide(dir / "file")));
    EXPECT_TRUE(may_be_opened_unasked(wide(dir / "link")));
    for (const std::filesystem::path& other :
         {dir / "empty", dir / "fifo", dir / "missing", dir.path(), std::filesystem::path("/dev/null"),
          std::filesystem::path("/proc/self/status"), std::filesystem::path()}) {
        EXPECT_FALSE(may_be_opened_unasked(wide(other))) << other;
    }
}

TEST(may_be_read, whatever_is_there_but_fifos_and_sockets) {
    const temp_dir dir;
    put(dir / "file", "x");
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (const std::filesystem::path& path : {dir / "file", dir.path(), std::filesystem::path("/dev/null")}) {
        EXPECT_TRUE(may_be_read(wide(path))) << path;
    }
    EXPECT_FALSE(may_be_read(wide(dir / "fifo")));
    EXPECT_FALSE(may_be_read(wide(dir / "missing")));
    std::filesystem::permissions(dir / "file", std::filesystem::perms::none);
    EXPECT_EQ(may_be_read(wide(dir / "file")), ::geteuid() == 0);
}

TEST(file_io, a_closed_object_refuses_everything) {
    fileio file;
    bytes out = {1};
    std::uint64_t length = 1;
    EXPECT_FALSE(file.append("x", 1));
    EXPECT_FALSE(file.append("x", 0));
    EXPECT_FALSE(file.append_text(std::ostringstream("x")));
    EXPECT_FALSE(file.write_at("x", 1, 0));
    EXPECT_FALSE(file.read_at(out, 1, 0));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(file.read_at(out, 0, 0));
    EXPECT_FALSE(file.read_into(&length, length, 0));
    EXPECT_EQ(length, 0u);
    EXPECT_FALSE(file.write_all("x", 1));
    EXPECT_FALSE(file.set_mode("644"));
    EXPECT_EQ(file.size(), 0u);
    file.close();
}

TEST(file_io, a_path_to_nothing_leaves_the_object_closed) {
    fileio file;
    EXPECT_FALSE(file.open(L"/no/such/file", false, true, false));
    EXPECT_FALSE(file.m_is_open);
    EXPECT_FALSE(file.m_keep_on_close);
    EXPECT_EQ(file.m_path, L"");
}

TEST(file_io, opening_notes_size_path_and_flags) {
    const temp_dir dir;
    put(dir / "f", "twelve bytes");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, true, false));
    EXPECT_TRUE(file.m_is_open);
    EXPECT_TRUE(file.m_keep_on_close);
    EXPECT_FALSE(file.m_open_write);
    EXPECT_EQ(file.m_size, 12u);
    EXPECT_EQ(file.m_path, wide(dir / "f"));
    EXPECT_NE(file.m_fd, -1);
}

TEST(file_io, opening_a_second_file_closes_the_first) {
    const temp_dir dir;
    put(dir / "one", "1");
    put(dir / "two", "22");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "one"), false, false, false));
    ASSERT_TRUE(file.open(wide(dir / "two"), false, false, false));
    EXPECT_EQ(file.m_size, 2u);
    EXPECT_FALSE(file.open(wide(dir / "none"), false, false, false));
    EXPECT_FALSE(file.m_is_open);
    EXPECT_EQ(file.m_fd, -1);
}

TEST(file_io, create_makes_or_empties_a_file_with_mode_606) {
    const temp_dir dir;
    const ::mode_t before = ::umask(0);
    fileio file;
    EXPECT_TRUE(file.open(wide(dir / "new"), true, false, true));
    ::umask(before);
    struct ::stat status = {};
    ASSERT_EQ(::stat((dir / "new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0606u);
    ASSERT_TRUE(file.append("abc", 3));
    ASSERT_TRUE(file.open(wide(dir / "new"), true, false, true));
    EXPECT_EQ(file.m_size, 0u);
    EXPECT_TRUE(file.m_open_write);
}

TEST(file_io, without_create_a_file_must_exist_and_keeps_its_bytes) {
    const temp_dir dir;
    fileio file;
    EXPECT_FALSE(file.open(wide(dir / "f"), true, false, false));
    put(dir / "f", "abc");
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    EXPECT_EQ(file.m_size, 3u);
    EXPECT_FALSE(file.open(wide(dir / "g"), false, false, true));  // create without write only reads
}

TEST(file_io, a_file_opened_for_reading_cannot_be_written) {
    const temp_dir dir;
    put(dir / "f", "abc");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    EXPECT_FALSE(file.append("x", 1));
    EXPECT_FALSE(file.write_at("x", 1, 0));
    EXPECT_FALSE(file.write_all("x", 1));
    EXPECT_TRUE(file.append("x", 0));
    file.close();
    EXPECT_EQ(content(dir / "f"), "abc");
}

TEST(file_io, appended_bytes_and_text_go_to_the_end) {
    const temp_dir dir;
    put(dir / "f", "abc");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    ASSERT_TRUE(file.append("de", 2));
    EXPECT_EQ(file.m_size, 5u);
    std::ostringstream text;
    text << "f" << 1;
    ASSERT_TRUE(file.append_text(text));
    ASSERT_TRUE(file.append_text(std::ostringstream()));
    EXPECT_EQ(file.m_size, 7u);
    EXPECT_FALSE(file.append(nullptr, 1));
    file.close();
    EXPECT_EQ(content(dir / "f"), "abcdef1");
}

TEST(file_io, writing_at_an_offset_overwrites_and_grows) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    ASSERT_TRUE(file.write_at("XY", 2, 1));
    EXPECT_EQ(file.m_size, 6u);
    ASSERT_TRUE(file.write_at("123", 3, 5));
    EXPECT_EQ(file.m_size, 8u);
    EXPECT_FALSE(file.write_at(nullptr, 1, 0));
    EXPECT_TRUE(file.write_at("x", 0, 0));
    EXPECT_FALSE(file.write_at("x", 1, 0x8000000000000000));
    file.close();
    EXPECT_EQ(content(dir / "f"), "aXYde123");
}

TEST(file_io, reading_across_the_end_gives_the_bytes_that_exist) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    bytes out;
    EXPECT_TRUE(file.read_at(out, 3, 1));
    EXPECT_EQ(out, of("bcd"));
    EXPECT_TRUE(file.read_at(out, 100, 4));
    EXPECT_EQ(out, of("ef"));
    EXPECT_TRUE(file.read_at(out, 0xFFFFFFFFFFFFFFFF, 0));
    EXPECT_EQ(out, of("abcdef"));
    EXPECT_TRUE(file.read_at(out, 0, 0));
    EXPECT_TRUE(out.empty());
}

TEST(file_io, reading_past_the_end_is_false) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    bytes out = {1};
    for (const std::uint64_t offset : {6u, 7u, 0x80000000u}) {
        EXPECT_FALSE(file.read_at(out, 1, offset));
        EXPECT_TRUE(out.empty());
    }
    EXPECT_FALSE(file.read_at(out, 1, 0xFFFFFFFFFFFFFFFF));
    EXPECT_FALSE(file.read_at(out, 1, 0x7FFFFFFFFFFFFFFF));
}

TEST(file_io, reading_into_a_buffer_reports_how_much_came) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    std::string buffer(8, '.');
    std::uint64_t length = 8;
    EXPECT_TRUE(file.read_into(buffer.data(), length, 2));
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(buffer, "cdef....");
    length = 8;
    EXPECT_FALSE(file.read_into(buffer.data(), length, 6));
    EXPECT_EQ(length, 0u);
    length = 8;
    EXPECT_FALSE(file.read_into(nullptr, length, 0));
    EXPECT_EQ(length, 0u);
    length = 0;
    EXPECT_TRUE(file.read_into(buffer.data(), length, 0));
}

TEST(file_io, a_file_longer_than_one_portion_is_read_whole) {
    const temp_dir dir;
    std::string text;
    for (int i = 0; text.size() < 5u << 20; ++i) {
        text += std::to_string(i);
    }
    put(dir / "f", text);
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    bytes out;
    EXPECT_TRUE(file.read_at(out, text.size(), 0));
    EXPECT_EQ(out, of(text));
    EXPECT_TRUE(file.read_at(out, text.size(), 3));
    EXPECT_EQ(out, of(text.substr(3)));
}

TEST(file_io, a_directory_opens_but_gives_no_bytes) {
    const temp_dir dir;
    fileio file;
    ASSERT_TRUE(file.open(wide(dir.path()), false, false, false));
    bytes out;
    EXPECT_FALSE(file.read_at(out, 0x7FFFFFFFFFFFFFFF, 0));
    EXPECT_TRUE(out.empty());
}

TEST(file_io, write_all_writes_at_the_descriptors_own_position) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    ASSERT_EQ(::lseek(file.m_fd, 2, SEEK_SET), 2);
    EXPECT_TRUE(file.write_all("12", 2));
    EXPECT_TRUE(file.write_all("3", 1));
    EXPECT_FALSE(file.write_all(nullptr, 1));
    EXPECT_TRUE(file.write_all("x", 0));
    EXPECT_EQ(content(dir / "f"), "ab123f");
}

TEST(file_io, a_full_device_refuses_the_bytes) {
    fileio file;
    ASSERT_TRUE(file.open(L"/dev/full", true, false, false));
    EXPECT_FALSE(file.write_all("x", 1));
}

TEST(file_io, asking_for_the_size_does_not_move_the_position) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    ASSERT_EQ(::lseek(file.m_fd, 3, SEEK_SET), 3);
    EXPECT_EQ(file.size(), 6u);
    EXPECT_EQ(::lseek(file.m_fd, 0, SEEK_CUR), 3);
}

TEST(file_io, the_size_is_the_present_one) {
    const temp_dir dir;
    put(dir / "f", "abc");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    put(dir / "f", "abcdef");
    EXPECT_EQ(file.size(), 6u);
}

TEST(file_io, a_proc_file_whose_end_cannot_be_sought_counts_as_0x40000_bytes) {
    fileio file;
    ASSERT_TRUE(file.open(L"/proc/self/status", false, false, false));
    ASSERT_EQ(::lseek(file.m_fd, 0, SEEK_END), -1) << "this kernel can seek to the end of the file";
    EXPECT_EQ(file.size(), 0x40000u);
    bytes out;
    ASSERT_TRUE(file.read_at(out, 5, 0));
    EXPECT_EQ(out, of("Name:"));
    ASSERT_TRUE(file.read_at(out, 0x40000, 0));
    EXPECT_LT(out.size(), 0x40000u);
}

TEST(file_io, the_mode_is_read_as_octal_digits) {
    const temp_dir dir;
    put(dir / "f", "");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    struct ::stat status = {};
    EXPECT_TRUE(file.set_mode("640"));
    ASSERT_EQ(::stat((dir / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
    EXPECT_TRUE(file.set_mode("0600"));
    EXPECT_FALSE(file.set_mode("rw-"));
    EXPECT_FALSE(file.set_mode("888"));
    EXPECT_FALSE(file.set_mode("7777777"));
    ASSERT_EQ(::stat((dir / "f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

class flush_counter : public std::stringbuf {
  public:
    explicit flush_counter(int& flushes) : m_flushes(flushes) {}
    int sync() override {
        ++m_flushes;
        return 0;
    }

  private:
    int& m_flushes;
};

TEST(file_io, closing_flushes_and_drops_the_attached_stream_and_resets_the_fields) {
    const temp_dir dir;
    int flushes = 0;
    flush_counter buffer(flushes);
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, true, true));
    file.m_ostream = std::make_unique<std::ostream>(&buffer);
    file.m_position = 7;
    const int descriptor = file.m_fd;
    file.close();
    EXPECT_EQ(flushes, 1);
    EXPECT_EQ(file.m_ostream, nullptr);
    EXPECT_EQ(file.m_fd, -1);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(file.m_size, 0u);
    EXPECT_EQ(file.m_position, 0u);
    EXPECT_EQ(file.m_path, L"");
    EXPECT_FALSE(file.m_is_open || file.m_open_write || file.m_keep_on_close || file.m_in_memory);
}

TEST(file_io, the_end_of_the_object_closes_the_file) {
    const temp_dir dir;
    put(dir / "f", "x");
    int descriptor = -1;
    {
        fileio file;
        ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
        descriptor = file.m_fd;
    }
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST(memory_file, bytes_are_appended_overwritten_and_read_back) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_TRUE(file.append("abcd", 4));
    EXPECT_EQ(file.m_size, 4u);
    EXPECT_EQ(file.m_position, 4u);
    EXPECT_TRUE(file.write_at("XY", 2, 1));
    EXPECT_EQ(file.m_memory, of("aXYd"));
    EXPECT_EQ(file.m_position, 3u);
    EXPECT_TRUE(file.write_at("1234", 4, 2));
    EXPECT_EQ(file.m_memory, of("aX1234"));
    EXPECT_EQ(file.size(), 6u);
    bytes out;
    EXPECT_TRUE(file.read_at(out, 3, 1));
    EXPECT_EQ(out, of("X12"));
    EXPECT_TRUE(file.read_at(out, 100, 5));
    EXPECT_EQ(out, of("4"));
    EXPECT_FALSE(file.read_at(out, 1, 6));
    EXPECT_FALSE(file.read_at(out, 1, 0xFFFFFFFFFFFFFFFF));
    std::string buffer(3, '.');
    std::uint64_t length = 3;
    EXPECT_TRUE(file.read_into(buffer.data(), length, 4));
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(buffer, "34.");
}

TEST(memory_file, bytes_written_past_the_end_are_appended) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_TRUE(file.append("ab", 2));
    EXPECT_TRUE(file.write_at("cd", 2, 0xFFFFFFFFFFFFFFF0));
    EXPECT_EQ(file.m_memory, of("abcd"));
}

TEST(memory_file, text_is_appended_too) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    std::ostringstream text;
    text << "n = " << 5;
    EXPECT_TRUE(file.append_text(text));
    EXPECT_EQ(file.m_memory, of("n = 5"));
}

TEST(memory_file, null_bytes_are_refused_and_a_length_of_0_succeeds) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_FALSE(file.append(nullptr, 1));
    EXPECT_FALSE(file.write_at(nullptr, 1, 0));
    EXPECT_TRUE(file.append("x", 0));
    EXPECT_TRUE(file.write_at("x", 0, 9));
    EXPECT_TRUE(file.m_memory.empty());
    bytes out;
    EXPECT_TRUE(file.read_at(out, 0, 0));
}

TEST(memory_file, a_file_cannot_be_opened_on_it) {
    const temp_dir dir;
    put(dir / "f", "x");
    fileio file;
    ASSERT_TRUE(file.open_memory());
    ASSERT_TRUE(file.append("kept", 4));
    EXPECT_FALSE(file.open(wide(dir / "f"), false, false, false));
    EXPECT_EQ(file.m_memory, of("kept"));
    EXPECT_TRUE(file.m_in_memory);
    EXPECT_TRUE(file.open_memory());
    EXPECT_EQ(file.m_memory, of("kept"));
}

TEST(memory_file, it_has_no_mode_and_no_descriptor) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_TRUE(file.set_mode("644"));
    EXPECT_TRUE(file.set_mode("nonsense"));
    EXPECT_FALSE(file.write_all("x", 1));
}

TEST(memory_file, closing_drops_the_image) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    ASSERT_TRUE(file.append("x", 1));
    file.close();
    EXPECT_TRUE(file.m_memory.empty());
    EXPECT_EQ(file.size(), 0u);
    EXPECT_FALSE(file.append("x", 1));
}

TEST(memory_file, an_open_file_is_closed_for_it) {
    const temp_dir dir;
    put(dir / "f", "x");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    ASSERT_TRUE(file.open_memory());
    EXPECT_EQ(file.m_fd, -1);
    EXPECT_TRUE(file.append("y", 1));
    EXPECT_EQ(content(dir / "f"), "x");
}

}  // namespace
}  // namespace uni
