// Threads that do work beside the one that owns them.
//
// The owner begins jobs and finishes each by name, so that what came of them is seen in the owner's order and
// never in that of the clock. While it waits for a job the owner does others itself: a pool of three workers
// starts two threads.
//
//     owner     | begin A, B, C | does B ...... | finish A, then B, then C
//     thread 1  |               | does A .......... |
//     thread 2  |               | does C ... |
//
// Jobs of one lane, such as the blocks of one digest, are done one after another, in the order in which they
// were begun. Jobs without a lane are done in any order.
//
// Threads are started when there is enough to do for the first time. A signal that is sent to the process is
// handled by the owner, never by one of them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace quarry {

class worker_pool {
  public:
    static constexpr unsigned most_workers = 64;
    // What there are if nobody says how many: the cores that the process may use, at most so many.
    static constexpr unsigned most_by_default = 4;
    // With fewer bytes to work on, starting threads and handing work over takes longer than they save.
    static constexpr std::uint64_t least_bytes = 0x100000;

    // Jobs that are done in order. A lane outlives its jobs.
    class lane {
        friend class worker_pool;
        std::uint64_t m_begun = 0;
        std::uint64_t m_done = 0;
    };

    // Something to be done, as often as it is begun. The owner has it at a fixed place.
    class job {
      public:
        explicit job(std::function<void()> work) : m_work(std::move(work)) {}
        job(const job&) = delete;
        job& operator=(const job&) = delete;
        // Waits for a job that is being done. One that was not reached yet is not done any more, and none
        // that was begun in its lane after it: all of them must end.
        ~job();

      private:
        friend class worker_pool;
        enum class state : std::uint8_t { idle, waiting, running, done };

        std::function<void()> m_work;
        worker_pool* m_pool = nullptr;  // since the job was begun, until it is finished
        lane* m_lane = nullptr;
        std::uint64_t m_place = 0;  // in the lane
        state m_state = state::idle;
        std::exception_ptr m_thrown;
    };

    // `workers` with the owner, 1 to most_workers; the number by default if there is none.
    explicit worker_pool(std::optional<unsigned> workers) : m_workers(workers) {}
    worker_pool(const worker_pool&) = delete;
    worker_pool& operator=(const worker_pool&) = delete;
    // All jobs are finished or destroyed.
    ~worker_pool();

    // The pool with its threads started, or null where the owner is to do everything itself: there is one
    // worker, there are too few bytes, or the system gives no thread.
    [[nodiscard]] worker_pool* for_bytes(std::uint64_t bytes);
    // How many were started.
    [[nodiscard]] std::size_t threads() const { return m_threads.size(); }

    // Leaves a job to whoever is free first. It is idle: new, or finished.
    void begin(job& begun, lane* in = nullptr);
    // Returns when a job that was begun is done, or at once for an idle one. Throws what the job threw.
    void finish(job& begun);

  private:
    void start();
    void serve();
    // The oldest job that may be done now, no longer in the queue; null if there is none.
    [[nodiscard]] job* take_ready();
    void carry_out(job& taken, std::unique_lock<std::mutex>& lock);
    void take_back(job& begun);

    std::optional<unsigned> m_workers;
    bool m_started = false;
    std::vector<std::thread> m_threads;

    std::mutex m_mutex;                 // for all below, and for the state of jobs and lanes
    std::condition_variable m_for_all;  // threads wait for jobs
    std::condition_variable m_for_owner;
    std::deque<job*> m_queue;  // begun, not reached yet, the oldest first
    bool m_ending = false;
};

}  // namespace quarry
