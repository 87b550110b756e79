#pragma once

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Interposition.h"

// This header defines four functions of the C library, for the whole program: include it in one source file of a test.

namespace tovu { namespace test {

/// One call of a pthread_mutex_ function; `function` is the rest of its name.
struct MutexCall
{
    std::string function;
    void const* mutex;
    bool defaultAttributes;  ///< True for an "init" without attributes.
};

/// The pthread_mutex_ calls that one thread makes while it runs an action; some of them can be made to fail.
class MutexCalls
{
public:
    using Failures = std::map<std::string, std::vector<int>>;

    /// Runs `action`. Each listed failure is the answer to one call of that function, which then does nothing; the
    /// calls after the last go through.
    template <typename Action>
    explicit MutexCalls(Action action, Failures failures = Failures()) : failures_(std::move(failures))
    {
        struct Scope
        {
            explicit Scope(MutexCalls* calls) { Current() = calls; }
            ~Scope() { Current() = nullptr; }
        } scope(this);
        action();
    }

    std::vector<MutexCall> const& All() const { return calls_; }

    std::ptrdiff_t Count(std::string const& function) const
    {
        return std::count_if(calls_.begin(), calls_.end(),
                             [&](MutexCall const& call) { return call.function == function; });
    }

    /// The names of the calls in order, each with a blank behind it.
    std::string Names() const
    {
        std::string names;
        for (MutexCall const& call : calls_)
            names += call.function + " ";
        return names;
    }

    /// The calls of the action that this thread is in; null outside of one.
    static MutexCalls const* Running() { return Current(); }

    /// The error to answer with, or 0 when the call is to go through.
    static int Record(char const* function, void const* mutex, bool defaultAttributes = false)
    {
        MutexCalls* const calls = Current();
        if (calls == nullptr)
            return 0;

        calls->calls_.push_back({function, mutex, defaultAttributes});
        std::vector<int>& errors = calls->failures_[function];
        if (errors.empty())
            return 0;
        int const error = errors.front();
        errors.erase(errors.begin());
        return error;
    }

private:
    static MutexCalls*& Current()
    {
        static thread_local MutexCalls* current = nullptr;
        return current;
    }

    std::vector<MutexCall> calls_;
    Failures failures_;
};

}}  // namespace tovu::test

extern "C" int pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_mutex_init)>("pthread_mutex_init");
    int const error = tovu::test::MutexCalls::Record("init", mutex, attributes == nullptr);
    return error != 0 ? error : next(mutex, attributes);
}

extern "C" int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_mutex_destroy)>("pthread_mutex_destroy");
    int const error = tovu::test::MutexCalls::Record("destroy", mutex);
    return error != 0 ? error : next(mutex);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_mutex_lock)>("pthread_mutex_lock");
    int const error = tovu::test::MutexCalls::Record("lock", mutex);
    return error != 0 ? error : next(mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_mutex_unlock)>("pthread_mutex_unlock");
    int const error = tovu::test::MutexCalls::Record("unlock", mutex);
    return error != 0 ? error : next(mutex);
}
