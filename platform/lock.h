// Holding a lock during a scope.
#pragma once

#include <pthread.h>

// Holds the lock during a scope, if it could be taken. pthread_cancel is delayed: it would act
// while files are read, and the lock would never be released.
class held_lock {
public:
    explicit held_lock(pthread_mutex_t& lock) {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_);
        lock_ = pthread_mutex_lock(&lock) == 0 ? &lock : nullptr;
    }
    ~held_lock() {
        if (lock_ != nullptr) {
            pthread_mutex_unlock(lock_);
        }
        pthread_setcancelstate(before_, nullptr);
    }
    held_lock(const held_lock&) = delete;
    held_lock& operator=(const held_lock&) = delete;

private:
    pthread_mutex_t* lock_ = nullptr;
    int before_ = PTHREAD_CANCEL_ENABLE;
};
