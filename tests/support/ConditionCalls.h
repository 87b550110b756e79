#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <vector>

#include "Interposition.h"
#include "Latch.h"

// Defines three functions of the C library for the program, so include it in one source file only.

namespace tovu { namespace test {

/// How the calling thread waits at condition variables and wakes others, for the length of a scope.
class ConditionCalls
{
public:
    /// Thrown out of a wait that must not be.
    struct WouldWait
    {};

    ConditionCalls() : before_(Current()) { Current() = this; }
    ConditionCalls(ConditionCalls const&) = delete;
    ConditionCalls& operator=(ConditionCalls const&) = delete;
    ~ConditionCalls() { Current() = before_; }

    static ConditionCalls*& Current()
    {
        static thread_local ConditionCalls* current = nullptr;
        return current;
    }

    unsigned signals = 0;      ///< How often it woke one thread.
    unsigned broadcasts = 0;   ///< How often it woke all.
    Latch* waiting = nullptr;  ///< When set, told of each wait before it begins.
    std::vector<int> results;  ///< The next waits end at once, with these results.
    bool mayWait = true;       ///< When not, a wait fails the test instead of holding it up for ever.

private:
    ConditionCalls* const before_;
};

}}  // namespace tovu::test

extern "C" int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_wait)>("pthread_cond_wait");
    tovu::test::ConditionCalls* const calls = tovu::test::ConditionCalls::Current();
    if (calls == nullptr)
        return next(condition, mutex);

    if (calls->waiting != nullptr)
        calls->waiting->Arrive();
    if (!calls->results.empty()) {
        int const result = calls->results.front();
        calls->results.erase(calls->results.begin());
        return result;
    }
    if (!calls->mayWait) {
        ADD_FAILURE() << "the thread waits for something that nobody will do";
        throw tovu::test::ConditionCalls::WouldWait();
    }
    return next(condition, mutex);
}

extern "C" int pthread_cond_signal(pthread_cond_t* condition) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_signal)>("pthread_cond_signal");
    if (tovu::test::ConditionCalls* const calls = tovu::test::ConditionCalls::Current())
        ++calls->signals;
    return next(condition);
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    static auto* const next = tovu::test::NextFunction<decltype(pthread_cond_broadcast)>("pthread_cond_broadcast");
    if (tovu::test::ConditionCalls* const calls = tovu::test::ConditionCalls::Current())
        ++calls->broadcasts;
    return next(condition);
}
