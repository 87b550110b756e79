#include "tovu/util/Singleton.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/thread/exceptions.hpp>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "ChildProcess.h"
#include "Latch.h"
#include "MutexCalls.h"

namespace tovu { namespace util { namespace {

using test::ExpectPassesInChild;
using test::Latch;
using test::MutexCalls;

// One class for each NUMBER, so that a test can have an instance to itself.
template <int NUMBER>
class Registry : public Singleton<Registry<NUMBER>>
{
public:
    int value = NUMBER;
};

static_assert(std::is_base_of<boost::noncopyable, Registry<0>>::value, "non-copyable by its base");
static_assert(!std::is_copy_constructible<Registry<0>>::value, "there is one instance");
static_assert(!std::is_copy_assignable<Registry<0>>::value, "there is one instance");
static_assert(!std::is_default_constructible<Singleton<Registry<0>>>::value, "a base only");
static_assert(!std::is_polymorphic<Singleton<Registry<0>>>::value, "no virtual operations");
static_assert(sizeof(Registry<0>) == sizeof(int), "no members");
static_assert(std::is_same<decltype(Registry<0>::Instance()), Registry<0>&>::value, "a reference");

TEST(SingletonTest, EveryCallReturnsTheSameObject)
{
    Registry<1>& first = Registry<1>::Instance();
    first.value = 7;
    EXPECT_EQ(&first, &Registry<1>::Instance());
    EXPECT_EQ(7, Registry<1>::Instance().value);
}

TEST(SingletonTest, EachClassHasAnInstanceOfItsOwn)
{
    EXPECT_EQ(2, Registry<2>::Instance().value);
    EXPECT_EQ(3, Registry<3>::Instance().value);
}

class LateComer : public Singleton<LateComer>
{
public:
    LateComer() { ++constructed; }

    static unsigned constructed;
};
unsigned LateComer::constructed = 0;

TEST(SingletonTest, IsConstructedByTheFirstCall)
{
    ExpectPassesInChild([] {
        EXPECT_EQ(0u, LateComer::constructed);
        LateComer::Instance();
        EXPECT_EQ(1u, LateComer::constructed);
        LateComer::Instance();
        EXPECT_EQ(1u, LateComer::constructed);
    });
}

// A class that only its base may construct.
class Closed : public Singleton<Closed>
{
    friend class Singleton<Closed>;
    Closed() = default;
};

TEST(SingletonTest, MayUseAPrivateConstructorAsAFriend)
{
    EXPECT_EQ(&Closed::Instance(), &Closed::Instance());
}

// Its constructor ends only when all threads are about to ask for the instance, or are already waiting for it.
class Contended : public Singleton<Contended>
{
public:
    Contended()
    {
        ++constructed;
        EXPECT_TRUE(arrived.WaitFor(THREADS)) << "not all threads came";
    }

    static constexpr unsigned THREADS = 8;
    static Latch arrived;
    static std::atomic<unsigned> constructed;
};
Latch Contended::arrived;
std::atomic<unsigned> Contended::constructed{0};

TEST(SingletonTest, ThreadsAtOnceGetTheOneObject)
{
    std::vector<Contended*> instances(Contended::THREADS);
    std::vector<std::thread> threads;
    for (Contended*& instance : instances)
        threads.emplace_back([&instance] {
            Contended::arrived.Arrive();
            instance = &Contended::Instance();
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(1u, std::set<Contended*>(instances.begin(), instances.end()).size());
    EXPECT_EQ(1u, Contended::constructed);
}

// Fails to be constructed twice, then succeeds.
class Reluctant : public Singleton<Reluctant>
{
public:
    Reluctant()
    {
        if (++tries <= 2)
            throw std::runtime_error("try " + std::to_string(tries));
    }

    static unsigned tries;
};
unsigned Reluctant::tries = 0;

std::string FailureOf(unsigned tries)
{
    Reluctant::tries = tries;
    try {
        Reluctant::Instance();
    } catch (std::runtime_error const& error) {
        return error.what();
    }
    return "none";
}

TEST(SingletonTest, FailureOfTheConstructorPassesToTheCaller)
{
    ExpectPassesInChild([] { EXPECT_EQ("try 1", FailureOf(0)); });
}

TEST(SingletonTest, LaterCallTriesAgainAfterAFailure)
{
    ExpectPassesInChild([] {
        EXPECT_EQ("try 1", FailureOf(0));
        EXPECT_EQ("try 2", FailureOf(1));
        EXPECT_EQ("none", FailureOf(2));
        EXPECT_EQ(&Reluctant::Instance(), &Reluctant::Instance());
        EXPECT_EQ(3u, Reluctant::tries);
    });
}

TEST(SingletonTest, FailureOfTheConstructorUnlocksTheMutex)
{
    ExpectPassesInChild([] {
        MutexCalls const calls([] { FailureOf(0); });
        EXPECT_EQ("init lock unlock ", calls.Names());
    });
}

// Ends the process with a status of its own if it is ever destroyed.
class Immortal : public Singleton<Immortal>
{
public:
    ~Immortal() { _exit(3); }
};

TEST(SingletonTest, IsNotDestroyedWhenTheProcessExits)
{
    test::ChildResult const result = test::RunInChild([] {
        Immortal::Instance();
        std::exit(0);
    });
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(0, result.code) << result.output;
}

TEST(SingletonTest, FirstCallMakesTheMutexAndEveryCallLocksIt)
{
    ExpectPassesInChild([] {
        MutexCalls const first([] { Registry<4>::Instance(); });
        MutexCalls const second([] { Registry<4>::Instance(); });
        EXPECT_EQ("init lock unlock ", first.Names());
        EXPECT_EQ("lock unlock ", second.Names());
        EXPECT_EQ(first.All().front().mutex, second.All().front().mutex);
    });
}

// Ends the process with 0 when the handlers of exit have destroyed the mutex that was made first.
void ExitByWhatWasDestroyed()
{
    std::vector<test::MutexCall> const& calls = MutexCalls::Running()->All();
    bool const destroyed = std::any_of(calls.begin(), calls.end(), [&](test::MutexCall const& call) {
        return call.function == "destroy" && call.mutex == calls.front().mutex;
    });
    _exit(destroyed ? 0 : 3);
}

TEST(SingletonTest, MutexIsDestroyedWhenTheProcessExits)
{
    ExpectPassesInChild([] {
        std::atexit(&ExitByWhatWasDestroyed);  // before the mutex is made, so it runs after its destructor
        MutexCalls const calls([] {
            Registry<5>::Instance();
            std::exit(4);
        });
    });
}

TEST(SingletonTest, InterruptedLockAndUnlockAreTriedAgain)
{
    Registry<6>::Instance();
    MutexCalls const calls([] { EXPECT_EQ(6, Registry<6>::Instance().value); },
                           {{"lock", {EINTR, EINTR}}, {"unlock", {EINTR}}});
    EXPECT_EQ("lock lock lock unlock unlock ", calls.Names());
}

template <typename Failure>
std::string TextOfFailure(void (*action)(), MutexCalls::Failures const& failures)
{
    std::string text = "no failure";
    MutexCalls const calls(
        [&] {
            try {
                action();
            } catch (Failure const& failure) {
                text = failure.what();
            }
        },
        failures);
    return text;
}

TEST(SingletonTest, FailedLockIsTheLockErrorOfBoost)
{
    Registry<7>::Instance();
    std::string const text = TextOfFailure<boost::lock_error>([] { Registry<7>::Instance(); }, {{"lock", {EINVAL}}});
    EXPECT_EQ(0u, text.find("boost: mutex lock failed in pthread_mutex_lock")) << text;
    EXPECT_EQ(7, Registry<7>::Instance().value) << "the next call is not affected";
}

TEST(SingletonTest, FailureToMakeTheMutexIsTheResourceErrorOfBoost)
{
    ExpectPassesInChild([] {
        std::string const text =
            TextOfFailure<boost::thread_resource_error>([] { Registry<8>::Instance(); }, {{"init", {EAGAIN}}});
        EXPECT_EQ(0u, text.find("boost:: mutex constructor failed in pthread_mutex_init")) << text;
        EXPECT_EQ(8, Registry<8>::Instance().value) << "the next call makes it";
    });
}

}}}  // namespace tovu::util
