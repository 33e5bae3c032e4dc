// The lock family, kept for a future second thread. No lock is taken at run time.
#pragma once

#include <pthread.h>

namespace quarry {

class LockableObject {
  public:
    virtual ~LockableObject() = default;
    virtual void lock() = 0;
    virtual void unlock() = 0;
};

class LightweightLock : public LockableObject {
  public:
    LightweightLock();
    LightweightLock(const LightweightLock&) = delete;
    LightweightLock& operator=(const LightweightLock&) = delete;
    ~LightweightLock() override;
    void lock() override;
    void unlock() override;

  private:
    pthread_mutex_t m_mutex;
};

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
