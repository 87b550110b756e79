#include "tovu/util/JobQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <boost/thread/exceptions.hpp>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "CFunction.h"
#include "ChildProcess.h"
#include "ConditionCalls.h"
#include "FailingAllocation.h"
#include "JobQueueInside.h"
#include "Latch.h"
#include "MutexCalls.h"
#include "NoThreads.h"
#include "NotingJob.h"
#include "ParameterName.h"
#include "PrivateMember.h"

namespace tovu { namespace util { namespace {

using ThreadFunction = void*(void*);
using CreateFunction = test::CFunction<int(pthread_t*, pthread_attr_t const*, ThreadFunction*, void*)>;
CreateFunction createCall("pthread_create");
using JoinFunction = test::CFunction<int(pthread_t, void**)>;
JoinFunction joinCall("pthread_join");

}}}  // namespace tovu::util

extern "C" int pthread_create(pthread_t* handle, pthread_attr_t const* attributes, void* (*function)(void*),
                              void* argument) noexcept
{
    return tovu::util::createCall(handle, attributes, function, argument);
}

extern "C" int pthread_join(pthread_t handle, void** result)
{
    return tovu::util::joinCall(handle, result);
}

namespace tovu { namespace util { namespace {

using test::CountingJob;
using test::HeldWorker;
using test::Journal;
using test::Latch;
using test::MutexCalls;
using test::NotingJob;
using test::TryToTake;
using test::WaitingIn;
using test::WorkersOf;
using Job = JobQueue::Job;
using Names = std::vector<std::string>;
using Worker = JobQueue::Worker;

// One operation each: a class without one of the four is abstract, a class with all of them is not.
template <typename Base>
struct WithGetName : Base
{
    std::string GetName() const override { return ""; }
};
template <typename Base>
struct WithSetup : Base
{
    void Setup(bool const& /*stop*/) override {}
};
template <typename Base>
struct WithExecute : Base
{
    void Execute(bool const& /*stop*/) override {}
};
template <typename Base>
struct WithCleanup : Base
{
    void Cleanup(bool const& /*stop*/) override {}
};

static_assert(std::is_abstract<WithSetup<WithExecute<WithCleanup<Job>>>>::value, "GetName");
static_assert(std::is_abstract<WithGetName<WithExecute<WithCleanup<Job>>>>::value, "Setup");
static_assert(std::is_abstract<WithGetName<WithSetup<WithCleanup<Job>>>>::value, "Execute");
static_assert(std::is_abstract<WithGetName<WithSetup<WithExecute<Job>>>>::value, "Cleanup");
static_assert(!std::is_abstract<WithGetName<WithSetup<WithExecute<WithCleanup<Job>>>>>::value, "there is no other");

static_assert(sizeof(Job) == sizeof(void*), "a job has no data of its own");
static_assert(std::is_convertible<Worker*, Thread*>::value, "a worker is a thread");
static_assert(std::has_virtual_destructor<JobQueue>::value && std::has_virtual_destructor<Job>::value, "base classes");
static_assert(std::is_constructible<JobQueue, int, int>::value && !std::is_default_constructible<JobQueue>::value, "");
static_assert(!std::is_copy_constructible<JobQueue>::value && !std::is_copy_assignable<JobQueue>::value, "one owner");
static_assert(std::is_same<decltype(&JobQueue::Cancel), bool (JobQueue::*)(std::string const&)>::value, "");

class JobQueueTest : public testing::Test
{
protected:
    using Work = std::function<void(bool const& stop)>;

    JobQueueTest() { conditions_.mayWait = false; }

    void Enq(JobQueue& queue, std::string const& name, Work const& work = nullptr)
    {
        test::Enq(queue, new NotingJob(journal_, name, [work](std::string const& step, bool const& stop) {
                      if (work && step == "Execute")
                          work(stop);
                  }));
    }

    void Enq(JobQueue& queue, Names const& names)
    {
        for (std::string const& name : names)
            Enq(queue, name);
    }

    // Has a worker run a job, "watchful", that stays until the queue is stopped and then does `work`.
    void OccupyUntilStopped(JobQueue& queue, std::function<void()> const& work = nullptr)
    {
        auto const entered = std::make_shared<Latch>();
        Enq(queue, "watchful", [entered, work](bool const& stop) {
            entered->Arrive();
            EXPECT_TRUE(test::WaitUntilSet(stop)) << "the stop flag was not set";
            if (work)
                work();
        });
        EXPECT_TRUE(entered->WaitFor()) << "the job did not start";
    }

    void WaitForTheEndOf(std::string const& name)
    {
        EXPECT_TRUE(journal_.WaitFor("delete " + name)) << "the job did not come to its end";
    }

    test::ConditionCalls conditions_;  // of the test's own thread
    Journal journal_;
};

// ---- The pool.

TEST_F(JobQueueTest, RunsFromTheBeginning)
{
    JobQueue queue(1, 0);
    Enq(queue, "job");
    WaitForTheEndOf("job");
    EXPECT_EQ(Journal::OfRuns({"job"}), journal_.All());
}

TEST_F(JobQueueTest, RunsAsManyJobsAtOnceAsThereAreWorkers)
{
    Latch running;
    JobQueue queue(3, 0);
    for (char const* name : {"one", "two", "three"})
        Enq(queue, name, [&](bool const&) {
            running.Arrive();
            EXPECT_TRUE(running.WaitFor(3)) << "the jobs do not run at the same time";
        });
    EXPECT_TRUE(running.WaitFor(3)) << "the jobs do not run at the same time";
}

TEST_F(JobQueueTest, RunsNoMoreJobsAtOnceThanThereAreWorkers)
{
    std::atomic<int> running{0};
    std::atomic<bool> tooMany{false};
    JobQueue queue(2, 0);
    for (int i = 0; i < 200; ++i)
        Enq(queue, "job", [&](bool const&) {
            if (++running > 2)
                tooMany = true;
            std::this_thread::yield();
            --running;
        });
    Enq(queue, "last");
    WaitForTheEndOf("last");
    EXPECT_FALSE(tooMany);
}

TEST_F(JobQueueTest, WorkersHaveThePriorityOfTheQueue)
{
    constexpr int LOWEST = 19;  // which everybody may set
    int priority = 0;
    JobQueue queue(1, LOWEST);
    Enq(queue, "job", [&](bool const&) { priority = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); });
    WaitForTheEndOf("job");
    EXPECT_EQ(LOWEST, priority);
}

TEST_F(JobQueueTest, WorkersRunOnAnyProcessor)
{
    cpu_set_t own;
    cpu_set_t seen;
    ASSERT_EQ(0, sched_getaffinity(0, sizeof(own), &own));
    JobQueue queue(1, 0);
    Enq(queue, "job", [&](bool const&) { EXPECT_EQ(0, sched_getaffinity(0, sizeof(seen), &seen)); });
    WaitForTheEndOf("job");
    EXPECT_TRUE(CPU_EQUAL(&own, &seen));
}

TEST_F(JobQueueTest, WorkerThatDoesNotStartIsListedAllTheSame)
{
    std::unique_ptr<JobQueue> queue;
    {
        test::NoThreads noThreads;
        queue.reset(new JobQueue(2, 0));
    }
    ASSERT_EQ(2u, WorkersOf(*queue).size());
    Enq(*queue, "job");
    EXPECT_EQ(Names{"job"}, WaitingIn(*queue));

    for (Worker* const worker : WorkersOf(*queue))
        ASSERT_EQ(0, worker->Create(0, 0, false)) << "the queue cannot be stopped";
    WaitForTheEndOf("job");
}

TEST_F(JobQueueTest, WorkersAreListedInTheOrderOfTheirStart)
{
    std::vector<void const*> started;
    CreateFunction::Replacement const noting(
        createCall, [&](pthread_t* handle, pthread_attr_t const* attributes, ThreadFunction* function, void* thread) {
            started.push_back(thread);
            return createCall.System(handle, attributes, function, thread);
        });
    JobQueue const queue(3, 0);
    std::vector<void const*> listed;
    for (Thread const* const worker : WorkersOf(queue))
        listed.push_back(worker);
    EXPECT_EQ(started, listed);
}

// The memory for the second worker is missing when the first one runs already.
TEST_F(JobQueueTest, ConstructionThatFailsEndsTheWorkersThatDidStart)
{
    std::unique_ptr<test::FailingAllocation> failure;
    CreateFunction::Replacement const failing(
        createCall, [&](pthread_t* handle, pthread_attr_t const* attributes, ThreadFunction* function, void* thread) {
            int const error = createCall.System(handle, attributes, function, thread);
            failure.reset(new test::FailingAllocation(sizeof(Worker)));
            return error;
        });
    EXPECT_THROW(JobQueue(2, 0), std::bad_alloc);
    ASSERT_NE(nullptr, failure) << "the first worker was not started";
    EXPECT_TRUE(failure->HasFailed());
}

// A Stop that does not end spins: it does so in a child process, and nothing there is destroyed.
class EndlessStopTest : public JobQueueTest
{
protected:
    // Notes when Stop returns after all.
    void Stop()
    {
        queue_->Stop();
        returned_ = true;
    }

    // Takes so many of the entries that Stop queues that it cannot be about to return.
    void ExpectNoEnd()
    {
        conditions_.mayWait = true;
        for (int i = 0; i < 1000; ++i)
            EXPECT_EQ(nullptr, queue_->Deq().get());
        EXPECT_FALSE(returned_);
    }

    JobQueue* queue_ = nullptr;
    std::atomic<bool> returned_{false};
};

TEST_F(EndlessStopTest, WaitsForAWorkerThatDidNotStart)
{
    test::ExpectPassesInChild([this] {
        {
            test::NoThreads noThreads;
            queue_ = new JobQueue(1, 0);
        }
        std::thread([this] { Stop(); }).detach();
        ExpectNoEnd();
    });
}

TEST_F(EndlessStopTest, WaitsForTheWorkerWhoseJobCalledIt)
{
    test::ExpectPassesInChild([this] {
        Latch entered;
        queue_ = new JobQueue(1, 0);
        Enq(*queue_, "job", [&](bool const&) {
            entered.Arrive();
            Stop();
        });
        EXPECT_TRUE(entered.WaitFor()) << "the job did not start";
        ExpectNoEnd();
    });
}

class WorkerCountTest : public JobQueueTest, public testing::WithParamInterface<int>
{};

INSTANTIATE_TEST_SUITE_P(WithoutWorkers, WorkerCountTest, testing::Values(0, -1, INT_MIN));

TEST_P(WorkerCountTest, JobsAreKeptAndNotRun)
{
    {
        JobQueue queue(GetParam(), 0);
        Enq(queue, Names{"one", "two"});
        EXPECT_TRUE(WorkersOf(queue).empty());
        EXPECT_EQ((Names{"one", "two"}), WaitingIn(queue));
        EXPECT_TRUE(journal_.All().empty());
    }
    EXPECT_EQ((Names{"delete one", "delete two"}), journal_.All());
}

TEST_P(WorkerCountTest, StopReturnsAtOnceAndQueuesNothing)
{
    JobQueue queue(GetParam(), 0);
    queue.Stop();
    EXPECT_TRUE(test::StopFlag::Of(queue));
    EXPECT_TRUE(WaitingIn(queue).empty());
}

// ---- Running jobs.

TEST_F(JobQueueTest, StepsRunOneAfterTheOtherOnOneThreadOfThePool)
{
    std::vector<std::thread::id> threads;
    JobQueue queue(2, 0);
    test::Enq(queue, new NotingJob(journal_, "job", [&](std::string const&, bool const&) {
                  threads.push_back(std::this_thread::get_id());
              }));
    WaitForTheEndOf("job");
    EXPECT_EQ(Journal::OfRuns({"job"}), journal_.All());
    EXPECT_EQ(std::vector<std::thread::id>(3, threads.at(0)), threads);
    EXPECT_NE(std::this_thread::get_id(), threads[0]);
}

TEST_F(JobQueueTest, OneWorkerRunsTheJobsInTheOrderOfTheQueue)
{
    JobQueue queue(1, 0);
    HeldWorker held(queue, journal_);
    Enq(queue, Names{"one", "two", "three"});
    EXPECT_EQ((Names{"one", "two", "three"}), WaitingIn(queue));
    held.LetGo();
    WaitForTheEndOf("three");
    EXPECT_EQ(Journal::OfRuns({"held", "one", "two", "three"}), journal_.All());
}

TEST_F(JobQueueTest, NullEntriesAreSkipped)
{
    JobQueue queue(1, 0);
    HeldWorker held(queue, journal_);
    test::Enq(queue, nullptr);
    Enq(queue, "one");
    test::Enq(queue, nullptr);
    test::Enq(queue, nullptr);
    Enq(queue, "two");
    EXPECT_EQ((Names{"null", "one", "null", "null", "two"}), WaitingIn(queue));
    held.LetGo();
    WaitForTheEndOf("two");
    EXPECT_EQ(Journal::OfRuns({"held", "one", "two"}), journal_.All());
}

TEST_F(JobQueueTest, AHundredThousandJobsRunOnceEach)
{
    constexpr std::size_t JOBS = 100000;
    constexpr std::size_t PRODUCERS = 2;
    std::vector<std::atomic<unsigned char>> runs(JOBS);
    Latch deleted;
    JobQueue queue(4, 0);

    std::vector<std::thread> producers;
    for (std::size_t producer = 0; producer < PRODUCERS; ++producer)
        producers.emplace_back([&, producer] {
            for (std::size_t i = producer; i < JOBS; i += PRODUCERS)
                test::Enq(queue, new CountingJob(runs[i], deleted));
        });
    for (std::thread& producer : producers)
        producer.join();

    EXPECT_TRUE(deleted.WaitFor(JOBS)) << "not all of the jobs came to their end";
    std::size_t runOnce = 0;
    for (std::atomic<unsigned char> const& count : runs)
        runOnce += count == 1 ? 1 : 0;
    EXPECT_EQ(JOBS, runOnce);
}

TEST_F(JobQueueTest, EveryJobIsDeletedOnceWhileThreadsQueueCancelStopAndStart)
{
    constexpr std::size_t JOBS = 4000;
    std::vector<std::atomic<unsigned char>> runs(JOBS);
    Latch deleted;
    unsigned cancelled = 0;
    {
        JobQueue queue(4, 0);
        std::thread producer([&] {
            for (std::size_t i = 0; i < JOBS; ++i)
                test::Enq(queue, new CountingJob(runs[i], deleted));
        });
        std::thread canceller([&] {
            for (int i = 0; i < 500; ++i) {
                cancelled += queue.Cancel("counting") ? 1 : 0;
                if (i % 100 == 0)
                    queue.CancelAll();
            }
        });
        std::vector<std::thread> owners;
        for (int owner = 0; owner < 2; ++owner)
            owners.emplace_back([&] {
                for (int i = 0; i < 10; ++i) {
                    queue.Stop();
                    queue.Start();
                }
            });
        for (std::thread* const thread : {&producer, &canceller, &owners[0], &owners[1]})
            thread->join();
        EXPECT_EQ(4u, WorkersOf(queue).size());
    }
    EXPECT_EQ(JOBS, deleted.Count());
    std::size_t runCount = 0;
    for (std::atomic<unsigned char> const& count : runs) {
        EXPECT_LE(count, 1);
        runCount += count;
    }
    EXPECT_LE(runCount + cancelled, JOBS);
}

// ---- Putting jobs in and taking them out.

TEST_F(JobQueueTest, DeqTakesTheEntriesInOrderNullOnesToo)
{
    JobQueue queue(0, 0);
    Enq(queue, "one");
    test::Enq(queue, nullptr);
    Enq(queue, "two");
    EXPECT_EQ("one", queue.Deq()->GetName());
    EXPECT_EQ(nullptr, queue.Deq().get());
    EXPECT_EQ("two", queue.Deq()->GetName());
    EXPECT_TRUE(WaitingIn(queue).empty());
    EXPECT_EQ((Names{"delete one", "delete two"}), journal_.All()) << "the caller owns what it took";
}

TEST_F(JobQueueTest, EnqTakesTheJobFromItsOwner)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
    JobQueue queue(0, 0);
    std::auto_ptr<Job> job(new NotingJob(journal_, "job"));
    Job const* const address = job.get();
    queue.Enq(job);
    EXPECT_EQ(nullptr, job.get());
    std::auto_ptr<Job> const taken = queue.Deq();
    EXPECT_EQ(address, taken.get());
#pragma GCC diagnostic pop
}

TEST_F(JobQueueTest, AJobForWhichThereIsNoMemoryIsDeleted)
{
    JobQueue queue(0, 0);
    Job* const job = new NotingJob(journal_, "job");
    {
        test::FailingAllocation const failure;
        EXPECT_THROW(test::Enq(queue, job), std::bad_alloc);
    }
    EXPECT_EQ(Names{"delete job"}, journal_.All());
    EXPECT_TRUE(WaitingIn(queue).empty());
}

TEST_F(JobQueueTest, StopGoesOnWhenThereIsNoMemoryForAWakeUp)
{
    JobQueue queue(1, 0);
    test::FailingAllocation const failure;
    queue.Stop();
    EXPECT_TRUE(failure.HasFailed());
    EXPECT_TRUE(WorkersOf(queue).empty());
}

TEST_F(JobQueueTest, EnqWakesOneThread)
{
    JobQueue queue(0, 0);
    Enq(queue, "job");
    EXPECT_EQ(1u, conditions_.signals);
    test::Enq(queue, nullptr);
    EXPECT_EQ(2u, conditions_.signals);
    EXPECT_EQ(0u, conditions_.broadcasts);
}

TEST_F(JobQueueTest, DeqWaitsUntilThereIsAnEntry)
{
    Latch waiting;
    std::string name;
    JobQueue queue(0, 0);
    std::thread consumer([&] {
        test::ConditionCalls calls;
        calls.waiting = &waiting;
        name = queue.Deq()->GetName();
    });
    EXPECT_TRUE(waiting.WaitFor()) << "Deq does not wait";
    Enq(queue, "late");
    consumer.join();
    EXPECT_EQ("late", name);
}

TEST_F(JobQueueTest, DeqWaitsAgainWhenItIsWokenForNothing)
{
    Latch waiting;
    std::string name;
    JobQueue queue(0, 0);
    std::thread consumer([&] {
        test::ConditionCalls calls;
        calls.waiting = &waiting;
        calls.results = {0, 0, 0};
        name = queue.Deq()->GetName();
    });
    EXPECT_TRUE(waiting.WaitFor(4)) << "Deq does not wait again";
    Enq(queue, "late");
    consumer.join();
    EXPECT_EQ("late", name);
}

// ---- Cancelling.

TEST_F(JobQueueTest, CancelRemovesOnlyTheFirstMatch)
{
    std::vector<Job const*> jobs;
    JobQueue queue(0, 0);
    Enq(queue, Names{"one", "two", "three", "two"});
    for (Job const* const job : test::WaitingJobs::Of(queue))
        jobs.push_back(job);

    EXPECT_TRUE(queue.Cancel("two"));
    EXPECT_EQ((Names{"one", "three", "two"}), WaitingIn(queue));
    EXPECT_EQ(jobs[3], test::WaitingJobs::Of(queue).back());
    EXPECT_EQ(Names{"delete two"}, journal_.All());

    EXPECT_TRUE(queue.Cancel("two"));
    EXPECT_EQ((Names{"one", "three"}), WaitingIn(queue));
    EXPECT_FALSE(queue.Cancel("two"));
}

TEST_F(JobQueueTest, CancelOfANameThatNobodyHasIsFalseAndChangesNothing)
{
    JobQueue queue(0, 0);
    EXPECT_FALSE(queue.Cancel("job"));
    Enq(queue, Names{"one", "two"});
    EXPECT_FALSE(queue.Cancel("three"));
    EXPECT_EQ((Names{"one", "two"}), WaitingIn(queue));
    EXPECT_TRUE(journal_.All().empty());
}

TEST_F(JobQueueTest, CancelComparesEveryByteOfTheNames)
{
    JobQueue queue(0, 0);
    Enq(queue, std::string("a\0b", 3));
    for (std::string const& name : {std::string("a"), std::string("a\0", 2), std::string("a\0c", 3),
                                    std::string("a\0bc", 4), std::string("A\0b", 3), std::string()})
        EXPECT_FALSE(queue.Cancel(name)) << name;
    EXPECT_TRUE(queue.Cancel(std::string("a\0b", 3)));
}

TEST_F(JobQueueTest, CancelPassesOverNullEntries)
{
    JobQueue queue(0, 0);
    test::Enq(queue, nullptr);
    Enq(queue, "job");
    test::Enq(queue, nullptr);
    EXPECT_FALSE(queue.Cancel(""));
    EXPECT_TRUE(queue.Cancel("job"));
    EXPECT_EQ((Names{"null", "null"}), WaitingIn(queue));
}

TEST_F(JobQueueTest, CancelAsksNobodyBehindTheFirstMatch)
{
    class AskedJob : public NotingJob
    {
    public:
        AskedJob(Journal& journal, std::string const& name) : NotingJob(journal, name), journal_(journal) {}
        std::string GetName() const override
        {
            journal_.Note("asked " + NotingJob::GetName());
            return NotingJob::GetName();
        }

    private:
        Journal& journal_;
    };
    JobQueue queue(0, 0);
    for (char const* name : {"one", "two", "three"})
        test::Enq(queue, new AskedJob(journal_, name));
    EXPECT_TRUE(queue.Cancel("two"));
    EXPECT_EQ((Names{"asked one", "asked two", "delete two"}), journal_.All());
}

// Has no memory for its name.
class NamelessJob : public NotingJob
{
public:
    explicit NamelessJob(Journal& journal) : NotingJob(journal, "nameless") {}
    std::string GetName() const override { throw std::bad_alloc(); }
};

TEST_F(JobQueueTest, CancelLetsOutWhatANameThrowsAndChangesNothing)
{
    JobQueue queue(0, 0);
    test::Enq(queue, new NamelessJob(journal_));
    Enq(queue, "job");
    EXPECT_THROW(queue.Cancel("job"), std::bad_alloc);
    EXPECT_EQ(Names(), journal_.All());
    EXPECT_EQ(0, TryToTake(test::QueueMutex::Of(queue)));
}

TEST_F(JobQueueTest, CancelOfTheRunningJobIsFalseAndDoesNotDisturbIt)
{
    JobQueue queue(1, 0);
    HeldWorker held(queue, journal_);
    EXPECT_FALSE(queue.Cancel("held"));
    held.LetGo();
    WaitForTheEndOf("held");
    EXPECT_EQ(Journal::OfRuns({"held"}), journal_.All());
}

TEST_F(JobQueueTest, CancelAllDeletesTheJobsAndDropsTheNullEntries)
{
    JobQueue queue(0, 0);
    test::Enq(queue, nullptr);
    Enq(queue, Names{"one", "two"});
    test::Enq(queue, nullptr);
    queue.CancelAll();
    EXPECT_TRUE(WaitingIn(queue).empty());
    EXPECT_EQ((Names{"delete one", "delete two"}), journal_.All());
    EXPECT_NO_THROW(queue.CancelAll());
}

TEST_F(JobQueueTest, CancelAllDoesNotDisturbTheRunningJob)
{
    JobQueue queue(1, 0);
    HeldWorker held(queue, journal_);
    Enq(queue, "waiting");
    queue.CancelAll();
    EXPECT_EQ((Names{"Setup held", "Execute held", "delete waiting"}), journal_.All());
    held.LetGo();
    WaitForTheEndOf("held");
    Enq(queue, "next");
    WaitForTheEndOf("next");
}

// ---- Stopping and starting again.

TEST_F(JobQueueTest, StopWakesTheWorkersThatWait)
{
    JobQueue queue(4, 0);
    queue.Stop();
    EXPECT_TRUE(WorkersOf(queue).empty());
    EXPECT_TRUE(test::StopFlag::Of(queue));
}

TEST_F(JobQueueTest, StopReturnsAfterTheRunningJob)
{
    JobQueue queue(1, 0);
    OccupyUntilStopped(queue);
    queue.Stop();
    EXPECT_EQ(Journal::OfRuns({"watchful"}), journal_.All());
    EXPECT_TRUE(WorkersOf(queue).empty());
}

TEST_F(JobQueueTest, StopDeletesTheJobsThatWaitWithoutRunningThem)
{
    JobQueue queue(1, 0);
    OccupyUntilStopped(queue, [this] { WaitForTheEndOf("two"); });
    Enq(queue, Names{"one", "two"});
    queue.Stop();
    EXPECT_EQ((Names{"Setup watchful", "Execute watchful", "delete one", "delete two", "Cleanup watchful",
                     "delete watchful"}),
              journal_.All());
}

// Notes the stop flag when it is deleted.
class FlaggedJob : public NotingJob
{
public:
    FlaggedJob(Journal& journal, bool const& stop) : NotingJob(journal, "flagged"), journal_(journal), stop_(stop) {}
    ~FlaggedJob() override { journal_.Note(stop_ ? "stopped" : "running"); }

private:
    Journal& journal_;
    bool const& stop_;
};

TEST_F(JobQueueTest, StopSetsTheFlagBeforeItDeletesTheJobs)
{
    JobQueue queue(0, 0);
    test::Enq(queue, new FlaggedJob(journal_, test::StopFlag::Of(queue)));
    queue.Stop();
    EXPECT_EQ((Names{"stopped", "delete flagged"}), journal_.All());
}

// While the job runs, Stop has nobody to reap, and queues one entry for each look.
TEST_F(JobQueueTest, StopQueuesNullEntriesWhileAJobRuns)
{
    JobQueue queue(1, 0);
    OccupyUntilStopped(queue, [&] {
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(nullptr, queue.Deq().get());
    });
    queue.Stop();
    EXPECT_EQ(Journal::OfRuns({"watchful"}), journal_.All());
}

TEST_F(JobQueueTest, StopHoldsTheStartStopLockWhileItWaits)
{
    int found = -1;
    JobQueue queue(1, 0);
    Mutex const& lock = test::StartStopLock::Of(queue);
    OccupyUntilStopped(queue, [&] {
        EXPECT_EQ(nullptr, queue.Deq().get());
        found = TryToTake(lock);
    });
    queue.Stop();
    EXPECT_EQ(EBUSY, found);
    EXPECT_EQ(0, TryToTake(lock));
}

// Notes the end of the thread that it belongs to.
struct ThreadEnd
{
    ~ThreadEnd()
    {
        for (int i = 0; i < 10; ++i)
            std::this_thread::yield();
        ++*ended;
    }
    std::atomic<unsigned>* ended;
};

TEST_F(JobQueueTest, StopReturnsAfterTheEndOfTheThreads)
{
    constexpr unsigned WORKERS = 8;
    std::atomic<unsigned> ended{0};
    Latch running;
    JobQueue queue(WORKERS, 0);
    for (unsigned i = 0; i < WORKERS; ++i)
        Enq(queue, "job", [&](bool const&) {
            static thread_local ThreadEnd end = {&ended};
            EXPECT_EQ(&ended, end.ended);
            running.Arrive();
            EXPECT_TRUE(running.WaitFor(WORKERS)) << "the workers do not run at the same time";
        });
    ASSERT_TRUE(running.WaitFor(WORKERS)) << "the workers do not run at the same time";
    queue.Stop();
    EXPECT_EQ(WORKERS, ended);
}

TOVU_PRIVATE_MEMBER(ThreadHandle, pthread_t, Thread, handle_);
TOVU_PRIVATE_MEMBER(FinishedFlag, bool, Worker, finished_);

// The workers have no threads, but numbers for handles, and have finished all the same.
TEST_F(JobQueueTest, StopQueuesAnEntryAndJoinsTheFirstWorkerThatHasFinishedEachTime)
{
    std::unique_ptr<JobQueue> queue;
    {
        test::NoThreads const noThreads;
        queue.reset(new JobQueue(3, 0));
    }
    pthread_t handle = 0;
    for (Worker* const worker : WorkersOf(*queue)) {
        ThreadHandle::Of(*worker) = ++handle;
        FinishedFlag::Of(*worker) = true;
    }

    std::vector<pthread_t> joined;
    std::vector<std::size_t> listed;
    std::vector<Names> waiting;
    JoinFunction::Replacement const noting(joinCall, [&](pthread_t thread, void** /*result*/) {
        joined.push_back(thread);
        listed.push_back(WorkersOf(*queue).size());
        waiting.push_back(WaitingIn(*queue));
        return 0;
    });
    queue->Stop();
    EXPECT_EQ((std::vector<pthread_t>{1, 2, 3}), joined);
    EXPECT_EQ((std::vector<std::size_t>{3, 2, 1}), listed);
    EXPECT_EQ((std::vector<Names>{Names(1, "null"), Names(2, "null"), Names(3, "null")}), waiting);
    EXPECT_TRUE(WorkersOf(*queue).empty());
}

TEST_F(JobQueueTest, StopOnAStoppedPoolLeavesItsJobsAlone)
{
    JobQueue queue(1, 0);
    queue.Stop();
    queue.CancelAll();
    Enq(queue, "job");
    queue.Stop();
    EXPECT_EQ(Names{"job"}, WaitingIn(queue));
}

TEST_F(JobQueueTest, JobsQueuedWhileStoppedRunAfterStart)
{
    JobQueue queue(1, 0);
    queue.Stop();
    Enq(queue, Names{"one", "two"});
    EXPECT_TRUE(journal_.All().empty());
    queue.Start();
    WaitForTheEndOf("two");
    EXPECT_EQ(Journal::OfRuns({"one", "two"}), journal_.All());
}

TEST_F(JobQueueTest, JobsQueuedWhileStopWaitsAreKept)
{
    JobQueue queue(1, 0);
    OccupyUntilStopped(queue, [&] {
        EXPECT_EQ(nullptr, queue.Deq().get());
        Enq(queue, "late");
    });
    queue.Stop();
    EXPECT_EQ(Journal::OfRuns({"watchful"}), journal_.All());
    queue.Start();
    WaitForTheEndOf("late");
    EXPECT_EQ(Journal::OfRuns({"watchful", "late"}), journal_.All());
}

TEST_F(JobQueueTest, EntriesLeftOverByStopAreSkippedAfterStart)
{
    JobQueue queue(1, 0);
    OccupyUntilStopped(queue);
    queue.Stop();
    Enq(queue, "next");
    Names const waiting = WaitingIn(queue);
    ASSERT_GE(waiting.size(), 2u);
    EXPECT_EQ("null", waiting.front());
    queue.Start();
    WaitForTheEndOf("next");
}

TEST_F(JobQueueTest, CanBeStoppedAndStartedAgainAndAgain)
{
    JobQueue queue(2, 0);
    for (int i = 0; i < 20; ++i) {
        queue.Stop();
        EXPECT_TRUE(WorkersOf(queue).empty());
        queue.Start();
        EXPECT_EQ(2u, WorkersOf(queue).size());
    }
    Enq(queue, "job");
    WaitForTheEndOf("job");
}

TEST_F(JobQueueTest, StartOnARunningPoolDoesNothing)
{
    JobQueue queue(2, 0);
    std::list<Worker*> const workers = WorkersOf(queue);
    queue.Start();
    EXPECT_EQ(workers, WorkersOf(queue));
    EXPECT_FALSE(test::StopFlag::Of(queue));
}

// ---- Destruction.

TEST_F(JobQueueTest, DestructionDeletesTheJobsThatWaitWithoutRunningThem)
{
    {
        JobQueue queue(1, 0);
        queue.Stop();
        Enq(queue, Names{"one", "two"});
    }
    EXPECT_EQ((Names{"delete one", "delete two"}), journal_.All());
}

TEST_F(JobQueueTest, DestructionStopsThePoolAfterTheRunningJob)
{
    {
        JobQueue queue(1, 0);
        OccupyUntilStopped(queue);
    }
    EXPECT_EQ(Journal::OfRuns({"watchful"}), journal_.All());
}

// Notes how many locks were destroyed before it.
class LastJob : public NotingJob
{
public:
    LastJob(Journal& journal, std::ptrdiff_t& destroyed) : NotingJob(journal, "last"), destroyed_(destroyed) {}
    ~LastJob() override { destroyed_ = MutexCalls::Running()->Count("destroy"); }

private:
    std::ptrdiff_t& destroyed_;
};

TEST_F(JobQueueTest, DestructionEndsTheQueueMutexThenTheStartStopLockThenTheJobs)
{
    std::unique_ptr<JobQueue> queue(new JobQueue(0, 0));
    void const* const mutex = &test::QueueMutex::Of(*queue);
    void const* const lock = &test::StartStopLock::Of(*queue);
    std::ptrdiff_t destroyed = 0;
    queue->Stop();
    test::Enq(*queue, new LastJob(journal_, destroyed));

    MutexCalls const calls([&] { queue.reset(); });
    std::vector<void const*> ended;
    for (test::MutexCall const& call : calls.All())
        if (call.function == "destroy" && (call.mutex == mutex || call.mutex == lock))
            ended.push_back(call.mutex);
    EXPECT_EQ((std::vector<void const*>{mutex, lock}), ended);
    EXPECT_EQ(calls.Count("destroy"), destroyed);
}

// ---- A worker, on the thread of the test.

class JobQueueWorkerTest : public JobQueueTest
{
protected:
    // Queues a job that is the last one, since it stops the queue.
    void EnqStop()
    {
        Enq(queue_, "stop", [this](bool const&) { queue_.Stop(); });
    }

    JobQueue queue_{0, 0};
    Worker worker_{&queue_};
};

TEST_F(JobQueueWorkerTest, RunsJobsUntilTheFlagIsSet)
{
    Enq(queue_, "job");
    test::Enq(queue_, nullptr);
    EnqStop();
    EXPECT_FALSE(worker_.IsFinished());
    worker_.Run();
    EXPECT_TRUE(worker_.IsFinished());
    EXPECT_EQ(Journal::OfRuns({"job", "stop"}), journal_.All());
}

TEST_F(JobQueueWorkerTest, TakesNothingOnceTheFlagIsSet)
{
    queue_.Stop();
    Enq(queue_, "job");
    worker_.Run();
    EXPECT_TRUE(worker_.IsFinished());
    EXPECT_EQ(Names{"job"}, WaitingIn(queue_));
}

TEST_F(JobQueueWorkerTest, LooksAtTheFlagBeforeEachEntry)
{
    Enq(queue_, "stop", [this](bool const&) {
        queue_.Stop();
        Enq(queue_, "late");
        test::Enq(queue_, nullptr);
    });
    worker_.Run();
    EXPECT_EQ((Names{"late", "null"}), WaitingIn(queue_));
}

// A worker that waits for an entry and gets it only once the flag is set.
class WaitingWorkerTest : public JobQueueWorkerTest
{
protected:
    void RunAndStop(std::function<void()> const& enq)
    {
        Latch waiting;
        std::thread thread([&] {
            test::ConditionCalls calls;
            calls.waiting = &waiting;
            worker_.Run();
        });
        EXPECT_TRUE(waiting.WaitFor()) << "the worker does not wait for a job";
        queue_.Stop();
        enq();
        thread.join();
        EXPECT_TRUE(worker_.IsFinished());
    }
};

TEST_F(WaitingWorkerTest, EndsAfterANullEntry)
{
    RunAndStop([this] { test::Enq(queue_, nullptr); });
}

TEST_F(WaitingWorkerTest, RunsTheJobThatItHasTakenAndEnds)
{
    RunAndStop([this] { Enq(queue_, "late"); });
    EXPECT_EQ(Journal::OfRuns({"late"}), journal_.All());
}

TEST_F(JobQueueWorkerTest, IsNotFinishedWhileAJobRuns)
{
    bool finished = true;
    Enq(queue_, "job", [&](bool const&) {
        finished = worker_.IsFinished();
        queue_.Stop();
    });
    worker_.Run();
    EXPECT_FALSE(finished);
}

TEST_F(JobQueueWorkerTest, HandsTheQueuesOwnFlagToEachStepAlsoOnceItIsSet)
{
    std::vector<bool const*> flags;
    std::vector<bool> values;
    test::Enq(queue_, new NotingJob(journal_, "job", [&](std::string const& step, bool const& stop) {
                  flags.push_back(&stop);
                  values.push_back(stop);
                  if (step == "Setup")
                      queue_.Stop();
              }));
    worker_.Run();
    EXPECT_EQ(std::vector<bool const*>(3, &test::StopFlag::Of(queue_)), flags);
    EXPECT_EQ((std::vector<bool>{false, true, true}), values);
}

TEST_F(JobQueueWorkerTest, RunsJobsOutsideOfTheQueuesLocks)
{
    std::vector<int> found;
    test::Enq(queue_, new NotingJob(journal_, "job", [&](std::string const&, bool const&) {
                  found.push_back(TryToTake(test::QueueMutex::Of(queue_)));
                  found.push_back(TryToTake(test::StartStopLock::Of(queue_)));
              }));
    EnqStop();
    worker_.Run();
    EXPECT_EQ(std::vector<int>(6, 0), found);
}

// A job that ends its thread takes the worker along, and the pool can still be stopped.
TEST_F(JobQueueWorkerTest, EndsWithAThreadThatAJobEnds)
{
    JobQueue queue(1, 0);
    Enq(queue, "job", [](bool const&) { pthread_exit(nullptr); });
    WaitForTheEndOf("job");
    queue.Stop();
    EXPECT_EQ((Names{"Setup job", "Execute job", "delete job"}), journal_.All());
}

struct FailingStep
{
    char const* name;
    Names journal;
};

class FailingStepTest : public JobQueueWorkerTest, public testing::WithParamInterface<FailingStep>
{
protected:
    struct Failure : std::runtime_error
    {
        Failure() : runtime_error("a job failed") {}
    };

    Job* NewFailingJob()
    {
        std::string const failing = GetParam().name;
        return new NotingJob(journal_, "job", [failing](std::string const& step, bool const&) {
            if (step == failing)
                throw Failure();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Steps, FailingStepTest,
                         testing::Values(FailingStep{"Setup", {"Setup job", "delete job"}},
                                         FailingStep{"Execute", {"Setup job", "Execute job", "delete job"}},
                                         FailingStep{"Cleanup", Journal::OfRuns({"job"})}),
                         test::ParameterName());

TEST_P(FailingStepTest, DeletesTheJobAndFinishesTheWorker)
{
    test::Enq(queue_, NewFailingJob());
    Enq(queue_, "next");
    EXPECT_THROW(worker_.Run(), Failure);
    EXPECT_TRUE(worker_.IsFinished());
    EXPECT_EQ(GetParam().journal, journal_.All());
    EXPECT_EQ(Names{"next"}, WaitingIn(queue_));
}

TEST_P(FailingStepTest, EndsTheProcessFromAWorkersThread)
{
    test::ChildResult const result = test::RunInChild([this] {
        JobQueue queue(1, 0);
        test::Enq(queue, NewFailingJob());
        Latch never;
        never.WaitFor();
    });
    EXPECT_FALSE(result.exited) << "status " << result.code;
    EXPECT_EQ(SIGABRT, result.code) << result.output;
}

// ---- The locks.

// The calls of an operation, which are to hold one mutex from the first to the last.
void ExpectHeldThroughout(void const* mutex, MutexCalls const& calls)
{
    ASSERT_FALSE(calls.All().empty());
    EXPECT_EQ("lock", calls.All().front().function);
    EXPECT_EQ(mutex, calls.All().front().mutex);
    EXPECT_EQ("unlock", calls.All().back().function);
    EXPECT_EQ(mutex, calls.All().back().mutex);
}

TEST_F(JobQueueTest, TheQueueMutexIsHeldWhileEntriesAreTouched)
{
    JobQueue queue(0, 0);
    void const* const mutex = &test::QueueMutex::Of(queue);
    ExpectHeldThroughout(mutex, MutexCalls([&] { test::Enq(queue, nullptr); }));
    ExpectHeldThroughout(mutex, MutexCalls([&] { queue.Deq(); }));
    ExpectHeldThroughout(mutex, MutexCalls([&] { queue.Cancel("job"); }));
    ExpectHeldThroughout(mutex, MutexCalls([&] { queue.CancelAll(); }));
}

// Looks at the queue mutex when it is asked for its name and when it is deleted.
class LookingJob : public NotingJob
{
public:
    LookingJob(Journal& journal, boost::mutex const& mutex) : NotingJob(journal, "looking"), mutex_(mutex) {}
    ~LookingJob() override { EXPECT_EQ(EBUSY, TryToTake(mutex_)); }
    std::string GetName() const override
    {
        EXPECT_EQ(EBUSY, TryToTake(mutex_));
        return NotingJob::GetName();
    }

private:
    boost::mutex const& mutex_;
};

TEST_F(JobQueueTest, JobsAreCancelledUnderTheQueueMutex)
{
    JobQueue queue(0, 0);
    for (int i = 0; i < 2; ++i)
        test::Enq(queue, new LookingJob(journal_, test::QueueMutex::Of(queue)));
    EXPECT_TRUE(queue.Cancel("looking"));
    queue.CancelAll();
    EXPECT_EQ((Names{"delete looking", "delete looking"}), journal_.All());
}

TEST_F(JobQueueTest, StartAndStopHoldTheirLockFromBeginToEnd)
{
    JobQueue queue(2, 0);
    void const* const lock = &test::StartStopLock::Of(queue);
    ExpectHeldThroughout(lock, MutexCalls([&] { queue.Start(); }));
    ExpectHeldThroughout(lock, MutexCalls([&] { queue.Stop(); }));
    ExpectHeldThroughout(lock, MutexCalls([&] { queue.Stop(); }));
    ExpectHeldThroughout(lock, MutexCalls([&] { queue.Start(); }));
}

TEST_F(JobQueueTest, StopOnAStoppedPoolTakesNothingButItsLock)
{
    JobQueue queue(1, 0);
    queue.Stop();
    EXPECT_EQ("lock unlock ", MutexCalls([&] { queue.Stop(); }).Names());
}

TEST_F(JobQueueTest, MutexThatCannotBeLockedIsTheLockErrorOfBoost)
{
    MutexCalls::Failures const failures = {{"lock", {EINVAL}}};
    JobQueue queue(0, 0);
    Enq(queue, "job");
    MutexCalls([&] { EXPECT_THROW(Enq(queue, "lost"), boost::lock_error); }, failures);
    MutexCalls([&] { EXPECT_THROW(queue.Deq(), boost::lock_error); }, failures);
    MutexCalls([&] { EXPECT_THROW(queue.Cancel("job"), boost::lock_error); }, failures);
    MutexCalls([&] { EXPECT_THROW(queue.CancelAll(), boost::lock_error); }, failures);
    MutexCalls([&] { EXPECT_THROW(queue.Stop(), boost::lock_error); }, {{"lock", {0, EINVAL}}});
    EXPECT_EQ(0, TryToTake(test::StartStopLock::Of(queue)));
    EXPECT_EQ(Names{"job"}, WaitingIn(queue));
    EXPECT_EQ(Names{"delete lost"}, journal_.All());
}

// Its worker has no thread, which would be left behind.
TEST_F(JobQueueTest, MutexThatFailsWhileStopWakesItsWorkersIsTheLockErrorOfBoost)
{
    std::unique_ptr<JobQueue> queue;
    {
        test::NoThreads const noThreads;
        queue.reset(new JobQueue(1, 0));
    }
    MutexCalls([&] { EXPECT_THROW(queue->Stop(), boost::lock_error); }, {{"lock", {0, 0, EINVAL}}});
    EXPECT_EQ(0, TryToTake(test::StartStopLock::Of(*queue)));
}

TEST_F(JobQueueTest, WaitThatFailsIsTheConditionErrorOfBoost)
{
    JobQueue queue(0, 0);
    conditions_.results = {EINVAL};
    EXPECT_THROW(queue.Deq(), boost::condition_error);
    EXPECT_EQ(0, TryToTake(test::QueueMutex::Of(queue)));
}

TEST_F(JobQueueTest, InterruptedLockAndUnlockAreTriedAgain)
{
    MutexCalls::Failures const failures = {{"lock", {EINTR, EINTR}}, {"unlock", {EINTR}}};
    JobQueue queue(0, 0);
    MutexCalls([&] { test::Enq(queue, nullptr); }, failures);
    MutexCalls([&] { EXPECT_FALSE(queue.Cancel("job")); }, failures);
    MutexCalls([&] { EXPECT_EQ(nullptr, queue.Deq().get()); }, failures);
    MutexCalls([&] { queue.CancelAll(); }, failures);
    EXPECT_EQ(0, TryToTake(test::QueueMutex::Of(queue)));
}

TEST_F(JobQueueTest, MutexThatCannotBeMadeIsTheResourceErrorOfBoost)
{
    MutexCalls([] { EXPECT_THROW(JobQueue(0, 0), boost::thread_resource_error); }, {{"init", {0, EAGAIN}}});
}

// ---- What it holds.

TEST_F(JobQueueTest, KeepsCountPriorityFlagJobsAndWorkers)
{
    JobQueue queue(2, 7);
    EXPECT_EQ(2, test::WorkerCount::Of(queue));
    EXPECT_EQ(7, test::QueuePriority::Of(queue));
    EXPECT_FALSE(test::StopFlag::Of(queue));
    EXPECT_EQ(2u, test::Workers::Of(queue).size());
    queue.Stop();
    EXPECT_TRUE(test::StopFlag::Of(queue));
    queue.CancelAll();
    Enq(queue, "job");
    EXPECT_EQ("job", test::WaitingJobs::Of(queue).front()->GetName());
}

TOVU_PRIVATE_MEMBER(QueueOfWorker, JobQueue*, Worker, queue_);

TEST_F(JobQueueWorkerTest, KeepsTheQueueAndTheFinishedFlag)
{
    EXPECT_EQ(&queue_, QueueOfWorker::Of(worker_));
    bool const& finished = FinishedFlag::Of(worker_);
    EXPECT_FALSE(finished);
    queue_.Stop();
    worker_.Run();
    EXPECT_TRUE(finished);
}

}}}  // namespace tovu::util
