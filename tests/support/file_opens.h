// How a file is opened, whoever opens it: this program or one that it starts.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace quarry::test {

class file_opens {
  public:
    explicit file_opens(const std::filesystem::path& path)
        : m_events(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_NE(::inotify_add_watch(m_events, path.c_str(), IN_CLOSE), -1);
    }
    file_opens(const file_opens&) = delete;
    file_opens& operator=(const file_opens&) = delete;
    ~file_opens() { ::close(m_events); }

    struct kinds {
        bool reading = false;
        bool writing = false;
    };
    // In which ways the file was opened, and closed again, since the last call.
    [[nodiscard]] kinds take() const {
        kinds seen;
        std::vector<char> buffer(65536);
        // Each turn takes events that are there.
        for (ssize_t size = read_events(buffer); size > 0; size = read_events(buffer)) {
            for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
                inotify_event event = {};
                std::memcpy(&event, buffer.data() + at, sizeof event);
                seen.reading |= (event.mask & IN_CLOSE_NOWRITE) != 0;
                seen.writing |= (event.mask & IN_CLOSE_WRITE) != 0;
                at += sizeof event + event.len;
            }
        }
        return seen;
    }

  private:
    ssize_t read_events(std::vector<char>& buffer) const {
        return ::read(m_events, buffer.data(), buffer.size());
    }
    int m_events;
};

}  // namespace quarry::test
