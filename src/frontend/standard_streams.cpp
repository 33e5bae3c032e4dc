#include "frontend/standard_streams.h"

#include <csignal>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace quarry {

namespace {

bool input_was_closed = false;
bool output_was_closed = false;

}  // namespace

void secure_standard_streams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) < 0) {
            input_was_closed = input_was_closed || fd == STDIN_FILENO;
            output_was_closed = output_was_closed || fd == STDOUT_FILENO;
            // The lowest free descriptor is the missing one.
            static_cast<void>(::open("/dev/null", O_RDWR));
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

bool standard_input_was_closed() {
    return input_was_closed;
}

bool standard_output_was_closed() {
    return output_was_closed;
}

}  // namespace quarry
