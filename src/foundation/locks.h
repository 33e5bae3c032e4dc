// The lock family, kept for a future second thread. No lock is taken at run time.
#pragma once

#include <pthread.h>

namespace quarry {

// Something that one thread at a time may hold.
class LockableObject {
  public:
    LockableObject() = default;
    LockableObject(const LockableObject&) = delete;
    LockableObject& operator=(const LockableObject&) = delete;
    virtual ~LockableObject() = default;
    // Waits until no other thread holds the object.
    virtual void lock() = 0;
    // Undoes one lock() of this thread.
    virtual void unlock() = 0;
};

// A recursive mutex: the thread that holds it may lock it again.
class LightweightLock : public LockableObject {
  public:
    LightweightLock();
    ~LightweightLock() override;
    void lock() override;
    void unlock() override;

  private:
    pthread_mutex_t m_mutex;
};

// Holds an object for as long as the scope lasts.
class AutoLock {
  public:
    explicit AutoLock(LockableObject& object) : m_object(object) { m_object.lock(); }
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;
    ~AutoLock() { m_object.unlock(); }

  private:
    LockableObject& m_object;
};

}  // namespace quarry
