#include "frontend/output/leftover.h"

#include <array>
#include <climits>
#include <csignal>
#include <cstddef>
#include <unistd.h>

namespace quarry {

namespace {

// All that the handler may look at: its path is complete whenever the flag is set.
std::array<char, PATH_MAX> leftover_path{};
volatile std::sig_atomic_t has_leftover = 0;

extern "C" void remove_leftover(int signal) {
    quarry::remove_leftover_now();
    // From here on the system's own handling, so that whoever waits sees which signal it was.
    struct ::sigaction usual {};
    usual.sa_handler = SIG_DFL;
    ::sigaction(signal, &usual, nullptr);
    ::raise(signal);
}

// True for a signal whose usual effect is the end of the program, unless nothing can be done about it.
bool ends_the_program(int signal) {
    switch (signal) {
        case SIGKILL:
        case SIGSTOP:
        case SIGTSTP:
        case SIGTTIN:
        case SIGTTOU:
        case SIGCONT:
        case SIGCHLD:
        case SIGURG:
        case SIGWINCH:
            return false;
        default:
            return true;
    }
}

void install_handlers() {
    static bool installed = false;
    if (installed) {
        return;
    }
    installed = true;
    struct ::sigaction removing {};
    removing.sa_handler = remove_leftover;
    // A second signal waits until the file is gone.
    ::sigfillset(&removing.sa_mask);
    // Set first and looked at then: one call for most of them. Nothing comes in between (signals_held_back).
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        struct ::sigaction earlier {};
        if (ends_the_program(signal) && ::sigaction(signal, &removing, &earlier) == 0 &&
            earlier.sa_handler != SIG_DFL) {
            ::sigaction(signal, &earlier, nullptr);
        }
    }
}

}  // namespace

signals_held_back::signals_held_back() {
    ::sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &m_before);
}

signals_held_back::~signals_held_back() {
    ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

void remove_if_interrupted(const std::string& path) {
    has_leftover = 0;
    if (path.size() < leftover_path.size()) {
        leftover_path[path.copy(leftover_path.data(), path.size())] = '\0';
        has_leftover = 1;
        install_handlers();
    }
}

void remove_leftover_now() noexcept {
    if (has_leftover != 0) {
        ::unlink(leftover_path.data());
        has_leftover = 0;
    }
}

void forget_leftover() {
    has_leftover = 0;
}

}  // namespace quarry
