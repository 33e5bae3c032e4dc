#include "foundation/locks.h"

namespace quarry {

LightweightLock::LightweightLock() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

LightweightLock::~LightweightLock() {
    pthread_mutex_destroy(&m_mutex);
}

void LightweightLock::lock() {
    pthread_mutex_lock(&m_mutex);
}

void LightweightLock::unlock() {
    pthread_mutex_unlock(&m_mutex);
}

}  // namespace quarry
