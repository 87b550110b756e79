#pragma once

#include <pthread.h>

namespace tovu { namespace util {

/// A POSIX mutex with default attributes: not recursive, shared by nothing but the threads of the process.
/// \code
///     static Mutex mutex;
///     Mutex::Guard const guard(mutex);  // locked until the end of the scope
/// \endcode
///
/// Guarantees: Lock and Unlock order the memory of the threads that use them, as pthread_mutex_lock(3) does.
///
/// Requirements: the thread that locked it unlocks it; nobody holds it when it is destroyed.
///
/// Threads: any.
/// Errors: none are reported.
class Mutex
{
public:
    /// Holds a Mutex for the length of a scope.
    /// \code
    ///     static Mutex mutex;
    ///     Mutex::Guard const guard(mutex);
    /// \endcode
    ///
    /// Ownership: borrows the mutex.
    /// Threads: made and destroyed by the same thread.
    class Guard
    {
    public:
        /// Blocks until the calling thread holds the mutex.
        explicit Guard(Mutex& mutex) : mutex_(mutex) { mutex_.Lock(); }
        Guard(Guard const&) = delete;
        Guard& operator=(Guard const&) = delete;
        ~Guard() { mutex_.Unlock(); }

    private:
        Mutex& mutex_;
    };

    /// Not locked.
    Mutex() noexcept { pthread_mutex_init(&mutex_, nullptr); }
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;
    ~Mutex();

    /// Blocks until the calling thread holds the mutex.
    void Lock() { pthread_mutex_lock(&mutex_); }

    /// Gives the mutex back. The calling thread holds it.
    void Unlock() { pthread_mutex_unlock(&mutex_); }

private:
    pthread_mutex_t mutex_;
};

}}  // namespace tovu::util
