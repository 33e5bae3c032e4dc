#include "foundation/worker_pool.h"

#include <algorithm>
#include <csignal>
#include <sched.h>
#include <system_error>
#include <utility>

namespace quarry {

namespace {

unsigned cores_at_hand() {
    ::cpu_set_t cores;
    CPU_ZERO(&cores);
    // A set that is too small for this machine is one of very many cores.
    if (::sched_getaffinity(0, sizeof(cores), &cores) != 0) {
        return worker_pool::most_by_default;
    }
    return static_cast<unsigned>(std::max(CPU_COUNT(&cores), 1));
}

// In its scope the calling thread takes no signals but those of its own faults, and threads that it starts
// never take others. A fault of a thread is still handled as one of the owner is.
class faults_only {
  public:
    faults_only() {
        ::sigset_t others;
        ::sigfillset(&others);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
            ::sigdelset(&others, fault);
        }
        ::pthread_sigmask(SIG_BLOCK, &others, &m_before);
    }
    faults_only(const faults_only&) = delete;
    faults_only& operator=(const faults_only&) = delete;
    ~faults_only() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

  private:
    ::sigset_t m_before{};
};

}  // namespace

worker_pool::job::~job() {
    if (m_pool != nullptr) {
        m_pool->take_back(*this);
    }
}

worker_pool::~worker_pool() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_for_all.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

worker_pool* worker_pool::for_bytes(std::uint64_t bytes) {
    if (bytes < least_bytes) {
        return nullptr;
    }
    if (!std::exchange(m_started, true)) {
        start();
    }
    return m_threads.empty() ? nullptr : this;
}

// A system that has no more threads to give is no reason to end: the work is done by those that there are.
void worker_pool::start() {
    const unsigned workers = m_workers ? *m_workers : std::min(cores_at_hand(), most_by_default);
    const faults_only quiet;
    m_threads.reserve(workers - 1);
    try {
        while (m_threads.size() + 1 < workers) {
            m_threads.emplace_back([this] { serve(); });
        }
    } catch (const std::system_error&) {
        return;
    }
}

void worker_pool::serve() {
    std::unique_lock lock(m_mutex);
    // Ends with the pool.
    while (!m_ending) {
        if (job* const next = take_ready()) {
            carry_out(*next, lock);
        } else {
            m_for_all.wait(lock);
        }
    }
}

void worker_pool::begin(job& begun, lane* in) {
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(&begun);
        begun.m_pool = this;
        begun.m_lane = in;
        begun.m_place = in == nullptr ? 0 : in->m_begun++;
        begun.m_state = job::state::waiting;
    }
    m_for_all.notify_one();
}

void worker_pool::finish(job& begun) {
    std::unique_lock lock(m_mutex);
    while (begun.m_state == job::state::waiting || begun.m_state == job::state::running) {
        if (job* const next = take_ready()) {
            carry_out(*next, lock);
        } else {
            m_for_owner.wait(lock);
        }
    }
    begun.m_state = job::state::idle;
    begun.m_pool = nullptr;
    if (begun.m_thrown) {
        std::rethrow_exception(std::exchange(begun.m_thrown, nullptr));
    }
}

worker_pool::job* worker_pool::take_ready() {
    const auto found = std::find_if(m_queue.begin(), m_queue.end(), [](const job* waiting) {
        return waiting->m_lane == nullptr || waiting->m_lane->m_done == waiting->m_place;
    });
    if (found == m_queue.end()) {
        return nullptr;
    }
    job* const taken = *found;
    m_queue.erase(found);
    taken->m_state = job::state::running;
    return taken;
}

// The lock is held before and after.
void worker_pool::carry_out(job& taken, std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    std::exception_ptr thrown;
    try {
        taken.m_work();
    } catch (...) {
        thrown = std::current_exception();
    }
    lock.lock();
    taken.m_thrown = std::move(thrown);
    taken.m_state = job::state::done;
    if (taken.m_lane != nullptr) {
        // The next job of the lane may be done now.
        ++taken.m_lane->m_done;
        m_for_all.notify_one();
    }
    m_for_owner.notify_one();
}

void worker_pool::take_back(job& begun) {
    std::unique_lock lock(m_mutex);
    std::erase(m_queue, &begun);
    m_for_owner.wait(lock, [&] { return begun.m_state != job::state::running; });
}

}  // namespace quarry
