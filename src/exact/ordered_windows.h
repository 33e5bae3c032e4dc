// Windows of a stream: each is read, decoded and handed on, and workers decode several at once.
//
//     owner     | read 0 | read 1 | read 2 | ........ hand on 0 | read 3 | hand on 1 | ...
//     workers            | decode 0 ..... |
//                                 | decode 1 ........... |
//                                          | decode 2 ...... |
//
// Reading and handing on are the owner's, in the order of the stream. A window that could not be decoded says
// so when it is handed on, so the first failure of the stream is the one that counts, however fast each
// worker is. Without workers there is one window, which is handed on before the next one is read.
#pragma once

#include "exact/failure.h"
#include "foundation/worker_pool.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace quarry::exact {

// A Window has `void decode()`, which changes nothing but the window, and `result<void> hand_on()`, after
// which it is empty again.
template <typename Window>
class ordered_windows {
  public:
    // `make` gives an empty window. `workers` may be null; they outlive this.
    ordered_windows(worker_pool* workers, std::function<Window()> make)
        : m_workers(workers), m_make(std::move(make)) {
        if (workers != nullptr) {
            // One is filled and one is handed on while each thread has one, and one more waits for it.
            m_most = workers->threads() + 3;
        }
    }

    // The window to fill.
    [[nodiscard]] Window& current() {
        const std::size_t at = m_begun % m_most;
        if (at == m_places.size()) {
            m_places.push_back(std::make_unique<place>(m_make()));
        }
        return m_places[at]->window;
    }

    // Leaves the current window to the workers. Where no other is empty, the oldest is handed on: fails as
    // that does, and then nothing more may be asked for.
    [[nodiscard]] result<void> begin_current() {
        Window& begun = current();
        if (m_workers == nullptr) {
            begun.decode();
        } else {
            m_workers->begin(m_places[m_begun % m_most]->decoding);
        }
        ++m_begun;
        return m_begun - m_handed_on == m_most ? hand_on_oldest() : result<void>();
    }

    // Hands on all that were begun. Fails as the first that fails does.
    [[nodiscard]] result<void> finish() {
        while (m_handed_on < m_begun) {
            if (auto handed_on = hand_on_oldest(); !handed_on) {
                return handed_on;
            }
        }
        return {};
    }

    // The end of a stream of which no more can be read: what was begun comes first. Always fails.
    [[nodiscard]] result<void> finish_with(failure why) {
        auto finished = finish();
        return finished ? tl::make_unexpected(std::move(why)) : finished;
    }

  private:
    struct place {
        explicit place(Window made) : window(std::move(made)), decoding([this] { window.decode(); }) {}
        Window window;
        worker_pool::job decoding;  // over before the window is
    };

    [[nodiscard]] result<void> hand_on_oldest() {
        place& oldest = *m_places[m_handed_on++ % m_most];
        if (m_workers != nullptr) {
            m_workers->finish(oldest.decoding);
        }
        return oldest.window.hand_on();
    }

    worker_pool* m_workers;
    std::function<Window()> m_make;
    std::size_t m_most = 1;
    std::uint64_t m_begun = 0;
    std::uint64_t m_handed_on = 0;
    std::vector<std::unique_ptr<place>> m_places;
};

}  // namespace quarry::exact
