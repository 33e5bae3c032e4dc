#include "foundation/locks.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace quarry {
namespace {

class counted_lock : public LockableObject {
  public:
    void lock() override { ++m_depth; }
    void unlock() override { --m_depth; }
    int m_depth = 0;
};

TEST(auto_lock, an_object_is_held_as_long_as_the_scope_lasts) {
    counted_lock object;
    {
        const AutoLock outer(object);
        EXPECT_EQ(object.m_depth, 1);
        const AutoLock inner(object);
        EXPECT_EQ(object.m_depth, 2);
    }
    EXPECT_EQ(object.m_depth, 0);
}

TEST(lightweight_lock, one_thread_at_a_time_is_inside_and_may_lock_again) {
    LightweightLock lock;
    std::atomic<int> inside = 0;
    std::atomic<int> most = 0;
    long long total = 0;  // guarded only by the lock
    const auto work = [&] {
        for (int i = 0; i < 10000; ++i) {
            const AutoLock outer(lock);
            const AutoLock inner(lock);
            const int now = ++inside;
            if (now > most) {
                most = now;
            }
            ++total;
            --inside;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(most, 1);
    EXPECT_EQ(total, 40000);
}

}  // namespace
}  // namespace quarry
