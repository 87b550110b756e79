#include "tovu/util/Mutex.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "MutexCalls.h"

namespace tovu { namespace util { namespace {

using test::MutexCalls;

static_assert(!std::is_polymorphic<Mutex>::value, "no virtual operations");
static_assert(!std::is_copy_constructible<Mutex>::value && !std::is_copy_assignable<Mutex>::value, "non-copyable");
static_assert(!std::is_copy_constructible<Mutex::Guard>::value, "a lock is given back once");
static_assert(!std::is_copy_assignable<Mutex::Guard>::value, "a lock is given back once");
static_assert(std::is_constructible<Mutex::Guard, Mutex&>::value, "made from a Mutex");
static_assert(!std::is_convertible<Mutex&, Mutex::Guard>::value, "not by accident");
static_assert(std::is_nothrow_destructible<Mutex>::value, "destructors never throw");

class MutexTest : public testing::Test
{
protected:
    // What another thread finds when it tries to take the mutex: EBUSY while somebody holds it, otherwise 0.
    int TryFromAnotherThread()
    {
        int result = -1;
        std::thread([&] {
            result = pthread_mutex_trylock(Native());
            if (result == 0)
                mutex_.Unlock();
        }).join();
        return result;
    }

    pthread_mutex_t* Native() { return reinterpret_cast<pthread_mutex_t*>(&mutex_); }

    Mutex mutex_;
};

TEST_F(MutexTest, StartsUnlocked)
{
    EXPECT_EQ(0, TryFromAnotherThread());
}

TEST_F(MutexTest, LockKeepsOthersOutUntilUnlock)
{
    mutex_.Lock();
    EXPECT_EQ(EBUSY, TryFromAnotherThread());
    mutex_.Unlock();
    EXPECT_EQ(0, TryFromAnotherThread());
}

TEST_F(MutexTest, IsNotRecursive)
{
    mutex_.Lock();
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(Native()));
    mutex_.Unlock();
}

TEST_F(MutexTest, CanBeLockedAgainAfterUnlock)
{
    mutex_.Lock();
    mutex_.Unlock();
    mutex_.Lock();
    EXPECT_EQ(EBUSY, TryFromAnotherThread());
    mutex_.Unlock();
}

TEST_F(MutexTest, GuardHoldsForTheLengthOfAScope)
{
    {
        Mutex::Guard guard(mutex_);
        EXPECT_EQ(EBUSY, TryFromAnotherThread());
    }
    EXPECT_EQ(0, TryFromAnotherThread());
}

TEST_F(MutexTest, GuardUnlocksWhenAnExceptionLeavesTheScope)
{
    EXPECT_THROW(
        {
            Mutex::Guard guard(mutex_);
            throw std::runtime_error("leaves");
        },
        std::runtime_error);
    EXPECT_EQ(0, TryFromAnotherThread());
}

TEST_F(MutexTest, ThreadsTakeTurns)
{
    constexpr unsigned THREADS = 4;
    constexpr unsigned ROUNDS = 5000;
    unsigned count = 0;  // plain: only the mutex keeps it whole

    std::vector<std::thread> threads;
    for (unsigned i = 0; i < THREADS; ++i)
        threads.emplace_back([&] {
            for (unsigned round = 0; round < ROUNDS; ++round) {
                Mutex::Guard guard(mutex_);
                ++count;
            }
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(THREADS * ROUNDS, count);
}

TEST_F(MutexTest, IsThePosixMutexFromInitToDestroy)
{
    void const* address = nullptr;
    MutexCalls const calls([&] {
        Mutex mutex;
        address = &mutex;
        mutex.Lock();
        mutex.Unlock();
    });

    EXPECT_EQ("init lock unlock destroy ", calls.Names());
    for (test::MutexCall const& call : calls.All())
        EXPECT_EQ(address, call.mutex) << call.function;
}

TEST_F(MutexTest, HasDefaultAttributes)
{
    MutexCalls const calls([] { Mutex mutex; });
    ASSERT_FALSE(calls.All().empty());
    EXPECT_TRUE(calls.All().front().defaultAttributes);
}

TEST_F(MutexTest, GuardLocksAndUnlocksOnce)
{
    MutexCalls const calls([&] { Mutex::Guard guard(mutex_); });
    EXPECT_EQ("lock unlock ", calls.Names());
}

}}}  // namespace tovu::util
