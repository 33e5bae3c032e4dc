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

TEST(OpenFile, AnEmptyPathGivesNoDescriptor) {
    EXPECT_EQ(open_file(std::string(), O_RDONLY, 0), -1);
    EXPECT_EQ(open_file(std::wstring(), O_RDONLY, 0), -1);
}

TEST(OpenFile, APathToNothingGivesNoDescriptor) {
    EXPECT_EQ(open_file(std::string("/no/such/file"), O_RDONLY, 0), -1);
}

TEST(OpenFile, APathWithNonAsciiLettersReachesTheSystemAsUtf8) {
    const temp_dir dir;
    const int descriptor = open_file(wide(dir / "") + L"\u00E9", O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(descriptor, -1);
    ::close(descriptor);
    EXPECT_TRUE(std::filesystem::exists(dir / "\xC3\xA9"));
}

TEST(OpenFile, AWidePathThatFailsToConvertReachesTheSystemAsTheTextMadeSoFar) {
    const temp_dir dir;
    const int descriptor =
        open_file(wide(dir / "cut") + static_cast<wchar_t>(0x110000) + L"rest", O_WRONLY | O_CREAT, 0600);
    ASSERT_NE(descriptor, -1);
    ::close(descriptor);
    EXPECT_TRUE(std::filesystem::exists(dir / "cut"));
}

TEST(OpenFile, AFifoIsRefusedWithoutWaitingForItsOtherEnd) {
    const temp_dir dir;
    const std::string fifo = (dir / "fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(open_file(fifo, O_RDONLY, 0), -1);
    EXPECT_EQ(open_file(fifo, O_WRONLY, 0), -1);
    EXPECT_EQ(open_file(fifo, O_RDWR, 0), -1);
}

TEST(OpenFile, ASocketIsRefused) {
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

TEST(OpenFile, ACharacterDeviceIsAccepted) {
    const int descriptor = open_file(std::string("/dev/null"), O_RDONLY, 0);
    EXPECT_NE(descriptor, -1);
    ::close(descriptor);
}

TEST(OpenFile, ReadsWaitUnlessTheCallerAskedForTheOpposite) {
    const temp_dir dir;
    put(dir / "f", "x");
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_RDONLY) & O_NONBLOCK, 0);
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_RDONLY | O_NONBLOCK) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(flags_after_open((dir / "f").string(), O_WRONLY | O_APPEND) & (O_ACCMODE | O_APPEND),
              O_WRONLY | O_APPEND);
}

TEST(MayBeOpenedUnasked, OnlyARegularFileWithBytes) {
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

TEST(MayBeRead, WhateverIsThereButFifosAndSockets) {
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

TEST(FileIo, AClosedObjectRefusesEverything) {
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

TEST(FileIo, APathToNothingLeavesTheObjectClosed) {
    fileio file;
    EXPECT_FALSE(file.open(L"/no/such/file", false, true, false));
    EXPECT_FALSE(file.m_is_open);
    EXPECT_FALSE(file.m_keep_on_close);
    EXPECT_EQ(file.m_path, L"");
}

TEST(FileIo, OpeningNotesSizePathAndFlags) {
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

TEST(FileIo, OpeningASecondFileClosesTheFirst) {
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

TEST(FileIo, CreateMakesOrEmptiesAFileWithMode606) {
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

TEST(FileIo, WithoutCreateAFileMustExistAndKeepsItsBytes) {
    const temp_dir dir;
    fileio file;
    EXPECT_FALSE(file.open(wide(dir / "f"), true, false, false));
    put(dir / "f", "abc");
    ASSERT_TRUE(file.open(wide(dir / "f"), true, false, false));
    EXPECT_EQ(file.m_size, 3u);
    EXPECT_FALSE(file.open(wide(dir / "g"), false, false, true));  // create without write only reads
}

TEST(FileIo, AFileOpenedForReadingCannotBeWritten) {
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

TEST(FileIo, AppendedBytesAndTextGoToTheEnd) {
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

TEST(FileIo, WritingAtAnOffsetOverwritesAndGrows) {
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

TEST(FileIo, ReadingAcrossTheEndGivesTheBytesThatExist) {
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

TEST(FileIo, ReadingPastTheEndIsFalse) {
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

TEST(FileIo, ReadingIntoABufferTellsHowMuchCame) {
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

TEST(FileIo, AFileLongerThanOnePortionIsReadWhole) {
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

TEST(FileIo, ADirectoryOpensButGivesNoBytes) {
    const temp_dir dir;
    fileio file;
    ASSERT_TRUE(file.open(wide(dir.path()), false, false, false));
    bytes out;
    EXPECT_FALSE(file.read_at(out, 0x7FFFFFFFFFFFFFFF, 0));
    EXPECT_TRUE(out.empty());
}

TEST(FileIo, WriteAllWritesAtTheDescriptorsOwnPosition) {
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

TEST(FileIo, AFullDeviceRefusesTheBytes) {
    fileio file;
    ASSERT_TRUE(file.open(L"/dev/full", true, false, false));
    EXPECT_FALSE(file.write_all("x", 1));
}

TEST(FileIo, AskingForTheSizeDoesNotMoveThePosition) {
    const temp_dir dir;
    put(dir / "f", "abcdef");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    ASSERT_EQ(::lseek(file.m_fd, 3, SEEK_SET), 3);
    EXPECT_EQ(file.size(), 6u);
    EXPECT_EQ(::lseek(file.m_fd, 0, SEEK_CUR), 3);
}

TEST(FileIo, TheSizeIsThePresentOne) {
    const temp_dir dir;
    put(dir / "f", "abc");
    fileio file;
    ASSERT_TRUE(file.open(wide(dir / "f"), false, false, false));
    put(dir / "f", "abcdef");
    EXPECT_EQ(file.size(), 6u);
}

TEST(FileIo, AProcFileWhoseEndCannotBeSoughtCountsAs0x40000Bytes) {
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

TEST(FileIo, TheModeIsReadAsOctalDigits) {
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

TEST(FileIo, ClosingFlushesAndDropsTheAttachedStreamAndResetsTheFields) {
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

TEST(FileIo, TheEndOfTheObjectClosesTheFile) {
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

TEST(MemoryFile, BytesAreAppendedOverwrittenAndReadBack) {
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

TEST(MemoryFile, BytesWrittenBehindTheEndAreAppended) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_TRUE(file.append("ab", 2));
    EXPECT_TRUE(file.write_at("cd", 2, 0xFFFFFFFFFFFFFFF0));
    EXPECT_EQ(file.m_memory, of("abcd"));
}

TEST(MemoryFile, TextIsAppendedToo) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    std::ostringstream text;
    text << "n = " << 5;
    EXPECT_TRUE(file.append_text(text));
    EXPECT_EQ(file.m_memory, of("n = 5"));
}

TEST(MemoryFile, NullBytesAreRefusedAndALengthOf0Succeeds) {
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

TEST(MemoryFile, AFileCannotBeOpenedOnIt) {
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

TEST(MemoryFile, ItHasNoModeAndNoDescriptor) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    EXPECT_TRUE(file.set_mode("644"));
    EXPECT_TRUE(file.set_mode("nonsense"));
    EXPECT_FALSE(file.write_all("x", 1));
}

TEST(MemoryFile, ClosingDropsTheImage) {
    fileio file;
    ASSERT_TRUE(file.open_memory());
    ASSERT_TRUE(file.append("x", 1));
    file.close();
    EXPECT_TRUE(file.m_memory.empty());
    EXPECT_EQ(file.size(), 0u);
    EXPECT_FALSE(file.append("x", 1));
}

TEST(MemoryFile, AnOpenFileIsClosedForIt) {
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
