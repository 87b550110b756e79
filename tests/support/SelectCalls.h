#pragma once

#include <sys/select.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "Interposition.h"

// Defines select(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

/// The calls of select(2) in a scope: what each asks for, in order. They go on to the system; two hooks can act around
/// them on the calling thread, so that a test knows that it acts while the library waits. One scope at a time.
class SelectCalls
{
public:
    struct Call
    {
        int limit;
        fd_set reading;
        fd_set writing;
        bool hasExceptionSet;
        timeval const* timeout;
    };

    SelectCalls() { Current() = this; }
    SelectCalls(SelectCalls const&) = delete;
    SelectCalls& operator=(SelectCalls const&) = delete;
    ~SelectCalls() { Current() = nullptr; }

    std::vector<Call> calls;

    /// Runs before each call goes to the system.
    std::function<void()> before;

    /// Runs after each call, with its result and the sets that it leaves; returns the result for the caller. `errno`
    /// is kept.
    std::function<int(int result, fd_set* reading, fd_set* writing)> after;

    static SelectCalls*& Current()
    {
        static SelectCalls* current = nullptr;
        return current;
    }
};

/// The descriptors in a set, lowest first.
inline std::vector<int> Members(fd_set const& set)
{
    std::vector<int> members;
    for (int descriptor = 0; descriptor < FD_SETSIZE; ++descriptor) {
        if (FD_ISSET(descriptor, &set))
            members.push_back(descriptor);
    }
    return members;
}

}}  // namespace tovu::test

extern "C" int select(int limit, fd_set* reading, fd_set* writing, fd_set* exceptions, timeval* timeout)
{
    typedef int System(int, fd_set*, fd_set*, fd_set*, timeval*);
    static System* const system =
        tovu::test::NextFunction<System>(sizeof(time_t) > sizeof(long) ? "__select64" : "select");

    tovu::test::SelectCalls* const watch = tovu::test::SelectCalls::Current();
    if (watch == nullptr)
        return system(limit, reading, writing, exceptions, timeout);

    watch->calls.push_back({limit, *reading, *writing, exceptions != nullptr, timeout});
    if (watch->before)
        watch->before();
    int result = system(limit, reading, writing, exceptions, timeout);
    int const error = errno;
    if (watch->after)
        result = watch->after(result, reading, writing);
    errno = error;
    return result;
}
