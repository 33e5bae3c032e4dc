#include "foundation/worker_pool.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <fstream>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace quarry::test {

using job = worker_pool::job;

namespace {

constexpr std::uint64_t much = worker_pool::least_bytes;

// Something that threads wait for until the test says so.
class gate {
  public:
    void open() {
        {
            const std::lock_guard lock(m_mutex);
            m_open = true;
        }
        m_opened.notify_all();
    }
    void wait() {
        std::unique_lock lock(m_mutex);
        m_opened.wait(lock, [this] { return m_open; });
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_open = false;
};

}  // namespace

TEST(worker_pool, starts_one_thread_less_than_there_are_workers) {
    for (const unsigned workers : {2u, 4u, 64u}) {
        worker_pool pool(workers);
        EXPECT_EQ(pool.for_bytes(much), &pool);
        EXPECT_EQ(pool.threads(), workers - 1);
        EXPECT_EQ(pool.for_bytes(much), &pool);
        EXPECT_EQ(pool.threads(), workers - 1);
    }
}

TEST(worker_pool, of_one_worker_starts_no_thread) {
    worker_pool pool(1);
    EXPECT_EQ(pool.for_bytes(much), nullptr);
    EXPECT_EQ(pool.threads(), 0u);
}

TEST(worker_pool, starts_no_thread_for_little_work) {
    worker_pool pool(4);
    EXPECT_EQ(pool.for_bytes(much - 1), nullptr);
    EXPECT_EQ(pool.threads(), 0u);
    EXPECT_EQ(pool.for_bytes(much), &pool);
    EXPECT_EQ(pool.for_bytes(much - 1), nullptr);
}

TEST(worker_pool, has_as_many_workers_as_cores_and_four_at_most_by_default) {
    ::cpu_set_t before;
    ASSERT_EQ(::sched_getaffinity(0, sizeof(before), &before), 0);
    std::vector<int> cores;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &before)) {
            cores.push_back(core);
        }
    }
    ::cpu_set_t some;
    CPU_ZERO(&some);
    for (std::size_t count = 1; count <= std::min<std::size_t>(cores.size(), 6); ++count) {
        CPU_SET(cores[count - 1], &some);
        ASSERT_EQ(::sched_setaffinity(0, sizeof(some), &some), 0);
        worker_pool pool(std::nullopt);
        static_cast<void>(pool.for_bytes(much));
        EXPECT_EQ(pool.threads(), std::min<std::size_t>(count, 4) - 1);
    }
    ASSERT_EQ(::sched_setaffinity(0, sizeof(before), &before), 0);
}

TEST(worker_pool, does_every_job_once_each_time_it_is_begun) {
    for (const unsigned workers : {2u, 3u, 64u}) {
        std::array<int, 200> done{};
        worker_pool pool(workers);
        ASSERT_NE(pool.for_bytes(much), nullptr);
        std::deque<job> jobs;
        for (int& count : done) {
            jobs.emplace_back([&count] { ++count; });
        }
        for (int turn = 1; turn <= 3; ++turn) {
            for (job& each : jobs) {
                pool.begin(each);
            }
            for (job& each : jobs) {
                pool.finish(each);
            }
            EXPECT_TRUE(std::all_of(done.begin(), done.end(), [&](int count) { return count == turn; }));
        }
    }
}

TEST(worker_pool, finishing_a_job_that_was_not_begun_does_nothing) {
    int done = 0;
    worker_pool pool(2);
    ASSERT_NE(pool.for_bytes(much), nullptr);
    job never([&done] { ++done; });
    pool.finish(never);
    pool.begin(never);
    pool.finish(never);
    pool.finish(never);
    EXPECT_EQ(done, 1);
}

TEST(worker_pool, the_owner_helps_while_it_waits) {
    worker_pool pool(2);
    ASSERT_NE(pool.for_bytes(much), nullptr);
    gate helped;
    // The one thread waits, so nobody but the owner can do these.
    std::thread::id done_by;
    job second([&] { done_by = std::this_thread::get_id(); });
    job third([&helped] { helped.open(); });
    std::atomic<bool> reached = false;
    job first([&] {
        reached = true;
        helped.wait();
    });
    pool.begin(first);
    while (!reached) {
        std::this_thread::yield();
    }
    pool.begin(second);
    pool.begin(third);
    pool.finish(first);
    pool.finish(second);
    pool.finish(third);
    EXPECT_EQ(done_by, std::this_thread::get_id());
}

TEST(worker_pool, jobs_of_a_lane_are_done_in_order_and_never_two_at_once) {
    for (const unsigned workers : {2u, 4u, 16u}) {
        worker_pool pool(workers);
        ASSERT_NE(pool.for_bytes(much), nullptr);
        constexpr int count = 300;
        std::array<std::vector<int>, 3> seen;  // not guarded: that is the lane's task
        std::array<worker_pool::lane, 3> lanes;
        std::deque<job> jobs;
        for (int i = 0; i < count; ++i) {
            jobs.emplace_back([&seen, i] { seen.at(static_cast<std::size_t>(i % 3)).push_back(i); });
        }
        for (int i = 0; i < count; ++i) {
            pool.begin(jobs[static_cast<std::size_t>(i)], &lanes.at(static_cast<std::size_t>(i % 3)));
        }
        for (job& each : jobs) {
            pool.finish(each);
        }
        for (int lane = 0; lane < 3; ++lane) {
            const std::vector<int>& in_lane = seen.at(static_cast<std::size_t>(lane));
            ASSERT_EQ(in_lane.size(), 100u);
            for (int i = 0; i < 100; ++i) {
                EXPECT_EQ(in_lane[static_cast<std::size_t>(i)], 3 * i + lane);
            }
        }
    }
}

TEST(worker_pool, what_a_job_throws_comes_out_where_it_is_finished) {
    worker_pool pool(3);
    ASSERT_NE(pool.for_bytes(much), nullptr);
    bool throws = true;
    job fine([] {});
    job failing([&throws] {
        if (throws) {
            throw std::runtime_error("of the job");
        }
    });
    pool.begin(fine);
    pool.begin(failing);
    pool.finish(fine);
    try {
        pool.finish(failing);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& thrown) {
        EXPECT_STREQ(thrown.what(), "of the job");
    }
    throws = false;
    pool.begin(failing);
    EXPECT_NO_THROW(pool.finish(failing));
}

TEST(worker_pool, a_job_that_ends_is_over_or_never_begins) {
    std::atomic<int> running = 0;
    std::atomic<int> done = 0;
    worker_pool pool(2);
    ASSERT_NE(pool.for_bytes(much), nullptr);
    gate let_go;
    {
        worker_pool::lane lane;
        std::deque<job> jobs;
        for (int i = 0; i < 5; ++i) {
            jobs.emplace_back([&] {
                ++running;
                let_go.wait();
                ++done;
                --running;
            });
        }
        for (job& each : jobs) {
            pool.begin(each, &lane);
        }
        while (running == 0) {
            std::this_thread::yield();
        }
        let_go.open();
    }
    EXPECT_EQ(running, 0);
    const int done_before = done;
    EXPECT_GE(done_before, 1);
    // What is begun afterwards finds nothing of them in its way.
    job next([] {});
    pool.begin(next);
    pool.finish(next);
    EXPECT_EQ(done, done_before);
}

TEST(worker_pool, its_threads_take_no_signal_but_those_of_their_own_faults) {
    worker_pool pool(2);
    ASSERT_NE(pool.for_bytes(much), nullptr);
    ::sigset_t of_thread;
    ::sigset_t of_owner;
    gate looked;
    job look([&] {
        ::pthread_sigmask(SIG_SETMASK, nullptr, &of_thread);
        looked.open();
    });
    pool.begin(look);
    looked.wait();
    pool.finish(look);
    ::pthread_sigmask(SIG_SETMASK, nullptr, &of_owner);
    const std::set<int> faults = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
    // 32 and 33 are the C library's.
    for (int signal = 1; signal < 32; ++signal) {
        const bool cannot_be_blocked = signal == SIGKILL || signal == SIGSTOP;
        EXPECT_EQ(::sigismember(&of_thread, signal) == 0, cannot_be_blocked || faults.count(signal) == 1)
            << signal;
        EXPECT_EQ(::sigismember(&of_owner, signal), 0) << signal;
    }
    EXPECT_EQ(::sigismember(&of_thread, SIGRTMIN), 1);
    EXPECT_EQ(::sigismember(&of_thread, SIGRTMAX), 1);
}

}  // namespace quarry::test
