#include "tovu/util/Thread.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include "CFunction.h"
#include "ChildProcess.h"
#include "Latch.h"
#include "NoThreads.h"
#include "PrivateMember.h"
#include "Sanitizers.h"

namespace tovu { namespace util { namespace {

using test::Latch;

using AffinityFunction = test::CFunction<int(pthread_t, std::size_t, cpu_set_t const*)>;
AffinityFunction affinityCall("pthread_setaffinity_np");

static_assert(std::is_abstract<Thread>::value, "Run is for the derived class");
static_assert(std::is_polymorphic<Thread>::value && std::has_virtual_destructor<Thread>::value, "a base class");
static_assert(!std::is_copy_constructible<Thread>::value && !std::is_copy_assignable<Thread>::value, "non-copyable");
static_assert(std::is_same<decltype(&Thread::ThreadProc), void* (*)(void*)>::value, "what pthread_create starts");

// Runs a function of the test.
class FunctionThread : public Thread
{
public:
    explicit FunctionThread(std::function<void()> body) : body_(std::move(body)) {}
    void Run() override { body_(); }
    virtual int Added() { return 3; }

private:
    std::function<void()> body_;
};

int PriorityOf(pid_t thread)
{
    return getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
}

cpu_set_t OwnProcessors()
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    EXPECT_EQ(0, sched_getaffinity(0, sizeof(processors), &processors));
    return processors;
}

bool AreEqual(cpu_set_t const& left, cpu_set_t const& right)
{
    return CPU_EQUAL(&left, &right);
}

// A processor other than 0 that this process may run on, the highest; 0 when there is none.
unsigned AllowedProcessor()
{
    cpu_set_t const allowed = OwnProcessors();
    unsigned processor = CPU_SETSIZE - 1;
    while (processor > 0 && !CPU_ISSET(processor, &allowed))
        --processor;
    return processor;
}

// What a thread saw of itself in Run.
struct Observation
{
    unsigned runs;
    pthread_t handle;
    pid_t thread;
    int priority;
    cpu_set_t processors;
};

class ThreadTest : public testing::Test
{
protected:
    // Starts a thread that looks at itself once Create has returned, and waits for it.
    Observation Observe(int priority, unsigned processor, bool reserved = false)
    {
        Observation seen = {};
        Latch created;
        FunctionThread thread([&] {
            EXPECT_TRUE(created.WaitFor()) << "Create did not return";
            ++seen.runs;
            seen.handle = pthread_self();
            seen.thread = gettid();
            seen.priority = PriorityOf(seen.thread);
            seen.processors = OwnProcessors();
        });
        result_ = thread.Create(priority, processor, reserved);
        created.Arrive();
        EXPECT_EQ(0, thread.Wait());
        return seen;
    }

    int result_ = -1;  // of the last Create
};

TEST_F(ThreadTest, RunsOnceOnAThreadOfItsOwn)
{
    Observation const seen = Observe(0, 0);
    EXPECT_EQ(0, result_);
    EXPECT_EQ(1u, seen.runs);
    EXPECT_NE(gettid(), seen.thread);
}

TEST_F(ThreadTest, NothingRunsBeforeCreate)
{
    bool ran = false;
    {
        FunctionThread thread([&] { ran = true; });
    }
    EXPECT_FALSE(ran);
}

TEST_F(ThreadTest, WaitReturnsZeroAfterTheEndOfRun)
{
    Latch gate;
    int written = 0;  // plain: the join alone makes it visible
    FunctionThread thread([&] {
        EXPECT_TRUE(gate.WaitFor()) << "the gate stayed closed";
        written = 7;
    });
    ASSERT_EQ(0, thread.Create(0, 0, false));
    gate.Arrive();
    EXPECT_EQ(0, thread.Wait());
    EXPECT_EQ(7, written);
}

TEST_F(ThreadTest, WaitDiscardsTheResultOfTheThread)
{
    static int result = 7;
    FunctionThread thread([] { pthread_exit(&result); });
    ASSERT_EQ(0, thread.Create(0, 0, false));
    EXPECT_EQ(0, thread.Wait());
}

TEST_F(ThreadTest, WaitReturnsTheErrorOfTheJoin)
{
    if (test::THREADS_ARE_WATCHED)
        GTEST_SKIP() << "the sanitizer ends the process after a join that failed";

    Latch created;
    int result = 0;
    std::unique_ptr<FunctionThread> thread;
    thread.reset(new FunctionThread([&] {
        EXPECT_TRUE(created.WaitFor()) << "Create did not return";
        result = thread->Wait();
    }));
    ASSERT_EQ(0, thread->Create(0, 0, false));
    created.Arrive();
    EXPECT_EQ(0, thread->Wait());
    EXPECT_EQ(EDEADLK, result) << "a thread cannot wait for itself";
}

TEST_F(ThreadTest, CanBeStartedAgainAfterWait)
{
    unsigned runs = 0;
    FunctionThread thread([&] { ++runs; });
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, thread.Create(0, 0, false));
        ASSERT_EQ(0, thread.Wait());
    }
    EXPECT_EQ(3u, runs);
}

// The first thread is still held up when Wait returns: it was the second one that was joined.
TEST_F(ThreadTest, SecondCreateStartsASecondThreadAndForgetsTheFirst)
{
    struct Shared
    {
        Latch started;
        Latch gate;
        Latch finished;
    };
    auto const shared = std::make_shared<Shared>();
    bool first = true;
    FunctionThread thread([&first, shared] {
        std::shared_ptr<Shared> const kept = shared;
        if (!first)
            return;
        first = false;
        pthread_detach(pthread_self());
        kept->started.Arrive();
        EXPECT_TRUE(kept->gate.WaitFor()) << "the second thread was not joined";
        kept->finished.Arrive();
    });

    ASSERT_EQ(0, thread.Create(0, 0, false));
    ASSERT_TRUE(shared->started.WaitFor()) << "the first thread did not start";
    ASSERT_EQ(0, thread.Create(0, 0, false));
    EXPECT_EQ(0, thread.Wait());
    EXPECT_EQ(0u, shared->finished.Count());
    shared->gate.Arrive();
    EXPECT_TRUE(shared->finished.WaitFor()) << "the first thread did not end";
}

TEST_F(ThreadTest, DestructorNeitherEndsNorJoinsNorDetachesTheThread)
{
    Latch started;
    Latch gate;
    bool finished = false;
    pthread_t handle = {};

    class Abandoned : public Thread
    {
    public:
        explicit Abandoned(std::function<void()> const& body) : body_(body) {}
        void Run() override { body_(); }

    private:
        std::function<void()> const& body_;
    };
    std::function<void()> const body = [&] {
        handle = pthread_self();
        started.Arrive();
        EXPECT_TRUE(gate.WaitFor()) << "the destructor did not return";
        finished = true;
    };

    std::unique_ptr<Abandoned> thread(new Abandoned(body));
    ASSERT_EQ(0, thread->Create(0, 0, false));
    ASSERT_TRUE(started.WaitFor()) << "the thread did not start";
    thread.reset();
    gate.Arrive();
    EXPECT_EQ(0, pthread_join(handle, nullptr));
    EXPECT_TRUE(finished);
}

TEST_F(ThreadTest, ExceptionThatLeavesRunEndsTheProcess)
{
    test::ChildResult const result = test::RunInChild([] {
        FunctionThread thread([] { throw std::runtime_error("leaves"); });
        thread.Create(0, 0, false);
        thread.Wait();
    });
    EXPECT_FALSE(result.exited) << "status " << result.code;
    EXPECT_EQ(SIGABRT, result.code) << result.output;
}

class PriorityTest : public ThreadTest, public testing::WithParamInterface<int>
{
protected:
    // True when a thread of this process may get the priority at all: raising it takes a privilege.
    static bool IsAllowed(int priority)
    {
        bool allowed = false;
        std::thread([&] { allowed = setpriority(PRIO_PROCESS, 0, priority) == 0; }).join();
        return allowed;
    }
};

TEST_P(PriorityTest, IsTheNiceValueOfTheNewThread)
{
    if (!IsAllowed(GetParam()))
        GTEST_SKIP() << "this process may not set priority " << GetParam();
    EXPECT_EQ(GetParam(), Observe(GetParam(), 0).priority);
    EXPECT_EQ(0, result_);
}

TEST_P(PriorityTest, IsSetTogetherWithAProcessor)
{
    if (!IsAllowed(GetParam()))
        GTEST_SKIP() << "this process may not set priority " << GetParam();
    EXPECT_EQ(GetParam(), Observe(GetParam(), CPU_SETSIZE).priority);
}

TEST_P(PriorityTest, LeavesTheCreatorsPriorityAlone)
{
    int const before = PriorityOf(gettid());
    Observe(GetParam(), 0);
    EXPECT_EQ(before, PriorityOf(gettid()));
}

INSTANTIATE_TEST_SUITE_P(NiceValues, PriorityTest, testing::Values(-20, -5, 0, 1, 10, 19));

TEST_F(ThreadTest, PriorityThatMayNotBeSetIsIgnored)
{
    test::ExpectPassesInChild([this] {
        rlimit const none = {0, 0};
        ASSERT_EQ(0, setrlimit(RLIMIT_NICE, &none));
        if (getuid() == 0) {
            ASSERT_EQ(0, setgroups(0, nullptr));
            ASSERT_EQ(0, setgid(65534));
            ASSERT_EQ(0, setuid(65534));
        }
        int const before = PriorityOf(gettid());
        EXPECT_EQ(before, Observe(before - 1, 0).priority);
        EXPECT_EQ(0, result_);
    });
}

TEST_F(ThreadTest, ProcessorZeroLeavesTheAffinityUnchanged)
{
    EXPECT_TRUE(AreEqual(OwnProcessors(), Observe(0, 0).processors));
    EXPECT_EQ(0, result_);
}

TEST_F(ThreadTest, ProcessorZeroKeepsARestrictedAffinityToo)
{
    std::thread([this] {
        cpu_set_t restricted;
        CPU_ZERO(&restricted);
        CPU_SET(AllowedProcessor(), &restricted);
        EXPECT_EQ(0, sched_setaffinity(0, sizeof(restricted), &restricted));
        EXPECT_TRUE(AreEqual(restricted, Observe(0, 0).processors));
    }).join();
    EXPECT_EQ(0, result_);
}

TEST_F(ThreadTest, ProcessorNumberBindsTheThreadToThatProcessor)
{
    unsigned const processor = AllowedProcessor();
    if (processor == 0)
        GTEST_SKIP() << "there is no processor but 0 to bind a thread to";

    cpu_set_t expected;
    CPU_ZERO(&expected);
    CPU_SET(processor, &expected);
    EXPECT_TRUE(AreEqual(expected, Observe(0, processor).processors));
    EXPECT_EQ(0, result_);
}

TEST_F(ThreadTest, ProcessorBindsTheNewThreadOnly)
{
    cpu_set_t const before = OwnProcessors();
    Observe(0, AllowedProcessor());
    EXPECT_TRUE(AreEqual(before, OwnProcessors()));
}

class ProcessorSetTest : public ThreadTest, public testing::WithParamInterface<unsigned>
{};

// On a machine of any size: the system itself does not look at more of the set than it has processors.
TEST_P(ProcessorSetTest, HasThe1024BitsOfWhichThatOfTheProcessorIsSet)
{
    constexpr int ANSWER = 77;
    pthread_t handle = {};
    std::size_t size = 0;
    cpu_set_t processors = {};
    AffinityFunction::Replacement const noting(affinityCall,
                                               [&](pthread_t thread, std::size_t setSize, cpu_set_t const* set) {
                                                   handle = thread;
                                                   size = setSize;
                                                   processors = *set;
                                                   return ANSWER;
                                               });
    Observation const seen = Observe(0, GetParam());
    EXPECT_EQ(ANSWER, result_);
    EXPECT_EQ(seen.handle, handle);
    EXPECT_EQ(128u, size);
    EXPECT_EQ(GetParam() < 1024 ? 1 : 0, CPU_COUNT(&processors));
    EXPECT_EQ(GetParam() < 1024, CPU_ISSET(GetParam(), &processors) != 0);
}

INSTANTIATE_TEST_SUITE_P(Numbers, ProcessorSetTest,
                         testing::Values(1u, 2u, 31u, 32u, 64u, 1023u, 1024u, 1056u,
                                         std::numeric_limits<unsigned>::max()));

class MissingProcessorTest : public ThreadTest, public testing::WithParamInterface<unsigned>
{};

TEST_P(MissingProcessorTest, IsAnErrorAndTheThreadRunsAnywhere)
{
    cpu_set_t const own = OwnProcessors();
    if (GetParam() < CPU_SETSIZE && CPU_ISSET(GetParam(), &own))
        GTEST_SKIP() << "this machine does have processor " << GetParam();

    Observation const seen = Observe(0, GetParam());
    EXPECT_EQ(EINVAL, result_);
    EXPECT_EQ(1u, seen.runs);
    EXPECT_TRUE(AreEqual(own, seen.processors));
}

// From 1024 on the set stays empty: no number comes round to a lower one.
INSTANTIATE_TEST_SUITE_P(Numbers, MissingProcessorTest,
                         testing::Values(1023u, 1024u, 1025u, 1026u, 2049u, std::numeric_limits<unsigned>::max()));

TEST_F(ThreadTest, LastArgumentChangesNothing)
{
    for (bool reserved : {false, true}) {
        Observation const seen = Observe(3, 0, reserved);
        EXPECT_EQ(0, result_);
        EXPECT_EQ(1u, seen.runs);
        EXPECT_EQ(3, seen.priority);
        Observe(0, CPU_SETSIZE, reserved);
        EXPECT_EQ(EINVAL, result_);
    }
}

class FailedCreateTest : public ThreadTest, public testing::WithParamInterface<unsigned>
{};

TEST_P(FailedCreateTest, ReturnsItsErrorAndRunsNothing)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck refuses a stack without end with an error of its own";

    bool ran = false;
    FunctionThread thread([&] { ran = true; });
    {
        test::NoThreads noThreads;
        EXPECT_EQ(EAGAIN, thread.Create(0, GetParam(), false));
    }
    EXPECT_FALSE(ran);
}

TEST_P(FailedCreateTest, LeavesTheObjectReadyForAnotherTry)
{
    bool ran = false;
    FunctionThread thread([&] { ran = true; });
    {
        test::NoThreads noThreads;
        EXPECT_NE(0, thread.Create(0, GetParam(), false));
    }
    ASSERT_EQ(0, thread.Create(0, 0, false));
    EXPECT_EQ(0, thread.Wait());
    EXPECT_TRUE(ran);
}

INSTANTIATE_TEST_SUITE_P(Processors, FailedCreateTest, testing::Values(0u, 1u, 1023u, 1024u));

// On a thread of the standard library, which gives the entry point a nice value that it may change.
TEST_F(ThreadTest, EntryPointRunsTheObjectOnTheCallingThreadAndReturnsNull)
{
    pid_t caller = 0;
    pid_t runner = 0;
    void* result = &caller;
    FunctionThread thread([&] { runner = gettid(); });
    std::thread([&] {
        caller = gettid();
        result = Thread::ThreadProc(static_cast<Thread*>(&thread));
    }).join();
    EXPECT_EQ(nullptr, result);
    EXPECT_EQ(caller, runner);
}

TOVU_PRIVATE_MEMBER(Handle, pthread_t, Thread, handle_);
TOVU_PRIVATE_MEMBER(Priority, int, Thread, priority_);

TEST_F(ThreadTest, KeepsTheHandleAndThePriority)
{
    pthread_t self = {};
    Latch created;
    FunctionThread thread([&] {
        EXPECT_TRUE(created.WaitFor()) << "Create did not return";
        self = pthread_self();
    });
    ASSERT_EQ(0, thread.Create(7, 0, false));
    created.Arrive();
    ASSERT_EQ(0, thread.Wait());
    EXPECT_EQ(self, Handle::Of(thread));
    EXPECT_EQ(7, Priority::Of(thread));
}

TEST_F(ThreadTest, HandleStartsZeroed)
{
    FunctionThread const thread([] {});
    EXPECT_EQ(pthread_t(), Handle::Of(thread));
}

}}}  // namespace tovu::util

extern "C" int pthread_setaffinity_np(pthread_t thread, std::size_t size, cpu_set_t const* processors) noexcept
{
    return tovu::util::affinityCall(thread, size, processors);
}
