#include "support/run_program.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quarry::test {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool address_sanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool address_sanitizer = true;
#else
constexpr bool address_sanitizer = false;
#endif
#else
constexpr bool address_sanitizer = false;
#endif

struct pipe_ends {
    int read = -1;
    int write = -1;
};

pipe_ends make_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    return {ends[0], ends[1]};
}

void close_end(int& end) {
    if (end >= 0) {
        close(end);
        end = -1;
    }
}

void connect_output(int stream, output_end state, int captured) {
    if (state == output_end::captured) {
        dup2(captured, stream);
    } else if (state == output_end::closed) {
        close(stream);
    } else {
        pipe_ends unread = make_pipe();
        close_end(unread.read);
        dup2(unread.write, stream);
    }
}

void limit_resource(int resource, std::uint64_t most) {
    if (most != 0) {
        const rlimit limit{most, most};
        setrlimit(static_cast<__rlimit_resource>(resource), &limit);
    }
}

bool become_nobody() {
    constexpr uid_t nobody = 65534;
    return setgroups(0, nullptr) == 0 && setgid(nobody) == 0 && setuid(nobody) == 0;
}

[[noreturn]] void become_program(const std::vector<std::string>& arguments, const program_options& options,
                                 const pipe_ends& in, const pipe_ends& out, const pipe_ends& err) {
    dup2(in.read, STDIN_FILENO);
    connect_output(STDOUT_FILENO, options.standard_output, out.write);
    connect_output(STDERR_FILENO, options.standard_error, err.write);
    if (options.close_standard_input) {
        close(STDIN_FILENO);
    }
    for (const auto& [name, value] : options.environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (options.leaks_allowed) {
        const char* const earlier = std::getenv("ASAN_OPTIONS");
        // The last word on an option counts.
        setenv("ASAN_OPTIONS",
               ((earlier != nullptr ? earlier + std::string(":") : "") + "detect_leaks=0").c_str(), 1);
    }
    limit_resource(RLIMIT_AS, memory_limit_works() ? options.memory_limit : 0);
    limit_resource(RLIMIT_FSIZE, options.file_size_limit);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    }
    argv.push_back(nullptr);
    const bool in_place = options.directory.empty() || chdir(options.directory.c_str()) == 0;
    if (in_place && options.as_nobody) {
        // Found while the way to it is still open.
        const int program = open(argv[0], O_PATH | O_CLOEXEC);
        if (program >= 0 && become_nobody()) {
            fexecve(program, argv.data(), environ);
        }
    } else if (in_place) {
        execvp(argv[0], argv.data());
    }
    _exit(127);
}

// Moves what a pipe holds into `text`; false once the other side has closed it.
bool drain(int end, std::string& text) {
    std::array<char, 65536> buffer{};
    const ssize_t count = read(end, buffer.data(), buffer.size());
    if (count > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
}

std::chrono::milliseconds time_to_run(const program_options& options) {
    constexpr std::chrono::milliseconds most = std::chrono::minutes(5);
    const auto allowed =
        std::chrono::duration_cast<std::chrono::milliseconds>(options.time_limit * time_allowance());
    return std::max(options.time_limit, std::min(allowed, most));
}

// Feeds the input and gathers both outputs until the program has closed them; false if the time was up first.
bool exchange(const program_options& options, pipe_ends& in, pipe_ends& out, pipe_ends& err,
              program_result& result) {
    const auto end = std::chrono::steady_clock::now() + time_to_run(options);
    std::size_t fed = 0;
    fcntl(in.write, F_SETFL, O_NONBLOCK);
    while (out.read >= 0 || err.read >= 0) {
        if (fed == options.standard_input.size()) {
            close_end(in.write);
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        std::array<pollfd, 3> ends{{{in.write, POLLOUT, 0}, {out.read, POLLIN, 0}, {err.read, POLLIN, 0}}};
        poll(ends.data(), ends.size(), static_cast<int>(left.count()));
        if (ends[0].revents != 0) {
            const ssize_t count =
                write(in.write, options.standard_input.data() + fed, options.standard_input.size() - fed);
            if (count > 0) {
                fed += static_cast<std::size_t>(count);
            } else if (errno != EAGAIN && errno != EINTR) {
                fed = options.standard_input.size();
            }
        }
        if (ends[1].revents != 0 && !drain(out.read, result.out)) {
            close_end(out.read);
        }
        if (ends[2].revents != 0 && !drain(err.read, result.err)) {
            close_end(err.read);
        }
    }
    return true;
}

}  // namespace

bool memory_limit_works() {
    return !address_sanitizer;
}

bool leak_check_is_built_in() {
    return address_sanitizer;
}

double time_allowance() {
    return address_sanitizer ? 20.0 : 1.0;
}

program_result run_program(const std::vector<std::string>& arguments, const program_options& options) {
    std::signal(SIGPIPE, SIG_IGN);
    pipe_ends in = make_pipe();
    pipe_ends out = make_pipe();
    pipe_ends err = make_pipe();
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        std::signal(SIGPIPE, SIG_DFL);
        become_program(arguments, options, in, out, err);
    }
    close_end(in.read);
    close_end(out.write);
    close_end(err.write);
    program_result result;
    if (!exchange(options, in, out, err, result)) {
        result.timed_out = true;
        kill(child, SIGKILL);
    }
    close_end(in.write);
    close_end(out.read);
    close_end(err.read);
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    result.exited = WIFEXITED(status);
    result.status = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.peak_memory_kib = usage.ru_maxrss;
    return result;
}

}  // namespace quarry::test
