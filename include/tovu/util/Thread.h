#pragma once

#include <pthread.h>

namespace tovu { namespace util {

/// A base class that runs its virtual Run on a new POSIX thread.
/// \code
///     #include <cstdio>
///     class Greeter : public Thread
///     {
///         void Run() override { std::puts("Hello."); }
///     };
///     Greeter greeter;
///     if (greeter.Create(0, 0, false) == 0)
///         greeter.Wait();
/// \endcode
///
/// Guarantees:
///   - Create starts the thread with a nice value of its own and, if asked, on one processor;
///   - Wait joins it.
///
/// Requirements:
///   - the object outlives its thread. The destructor neither stops nor joins it: a derived class that owns a running
///     thread makes Run return and calls Wait before its own members go away;
///   - Run lets no exception out: one that leaves the thread ends the process.
///
/// Threads: Create and Wait are called by the owner; Run runs on the new thread.
/// Errors: reported by the `int` results alone, as error numbers; nothing is thrown.
class Thread
{
public:
    Thread();  ///< Starts nothing: Create does.
    Thread(Thread const&) = delete;
    Thread& operator=(Thread const&) = delete;
    virtual ~Thread();

    /// The body of the thread.
    virtual void Run() = 0;

    /// Starts the thread, see pthread_create(3). A second call starts a second thread and forgets the first handle.
    ///
    /// \param priority  The nice value of the thread, -20 to 19, applied by the thread itself. A value that may not be
    ///                  set (see setpriority(2)) is ignored.
    /// \param processor 0: any processor. Otherwise the one processor, by its number, that the thread is bound to after
    ///                  it has started; so processor 0 cannot be chosen. Numbers from 1024 on name no processor.
    /// \param reserved  Accepted and ignored.
    /// \return The error of pthread_create when it failed. Otherwise 0, or with a `processor` the result of
    ///         pthread_setaffinity_np(3): the thread runs even when that is an error.
    int Create(int priority, unsigned processor, bool reserved);

    /// Waits until Run has returned, see pthread_join(3).
    /// \return 0 or the error number of the join.
    int Wait();

    /// The entry point given to pthread_create: sets the priority, then calls Run of the Thread at `thread`.
    /// \return Null.
    static void* ThreadProc(void* thread);

private:
    pthread_t handle_ = pthread_t();  // meaningful once Create has succeeded
    int priority_ = 0;
};

}}  // namespace tovu::util
