#pragma once
// The data store's lock: glibc's adaptive mutex, which spins for a moment
// before it sleeps. Writers and the clients' notification threads (reading
// values back) hold it for well under a microsecond each time; when one
// finds it taken by the other core, sleeping and being woken would cost
// both a system call and a context switch, waiting a moment costs nothing.
// Satisfies Lockable, so std::lock_guard and std::unique_lock take it.

#include <pthread.h>

#include <system_error>

namespace cdsapi {

class AdaptiveMutex {
public:
    AdaptiveMutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ADAPTIVE_NP);
        pthread_mutex_init(&m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }

    ~AdaptiveMutex() { pthread_mutex_destroy(&m_mutex); }

    AdaptiveMutex(const AdaptiveMutex&) = delete;
    AdaptiveMutex& operator=(const AdaptiveMutex&) = delete;

    void lock()
    {
        if (const int error = pthread_mutex_lock(&m_mutex); error != 0) {
            throw std::system_error(error, std::system_category(), "data store lock");
        }
    }

    bool try_lock() { return pthread_mutex_trylock(&m_mutex) == 0; }

    void unlock() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex;
};

} // namespace cdsapi
