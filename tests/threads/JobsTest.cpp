// Jobs that use the queue that runs them, and queues that go while they are busy.

#include <gtest/gtest.h>

#include <atomic>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "JobQueueInside.h"
#include "Latch.h"
#include "NotingJob.h"
#include "tovu/util/JobQueue.h"

namespace tovu { namespace util { namespace {

using test::CountingJob;
using test::DEADLINE;
using test::HeldWorker;
using test::Journal;
using test::Latch;
using test::NotingJob;

class JobsTest : public testing::Test
{
protected:
    using Work = std::function<void(bool const& stop)>;

    void Enq(JobQueue& queue, std::string const& name, Work const& work = nullptr)
    {
        test::Enq(queue, new NotingJob(journal_, name, [work](std::string const& step, bool const& stop) {
                      if (work && step == "Execute")
                          work(stop);
                  }));
    }

    // Runs `work` in a job, "inside", with the jobs waiting behind it.
    void RunInside(JobQueue& queue, Work const& work, std::vector<std::string> const& waiting = {})
    {
        HeldWorker held(queue, journal_);
        Enq(queue, "inside", work);
        for (std::string const& name : waiting)
            Enq(queue, name);
        held.LetGo();
        WaitForTheEndOf("inside");
    }

    void WaitForTheEndOf(std::string const& name)
    {
        EXPECT_TRUE(journal_.WaitFor("delete " + name)) << "the job did not come to its end";
    }

    // What happened behind the job that held the worker.
    Journal::Entries Happened()
    {
        Journal::Entries const all = journal_.All();
        return Journal::Entries(all.begin() + HELD_ENTRIES, all.end());
    }

    static constexpr int HELD_ENTRIES = 4;

    Journal journal_;
};

constexpr int JobsTest::HELD_ENTRIES;

// ---- From inside a job.

TEST_F(JobsTest, JobMayCancelOneThatWaits)
{
    JobQueue queue(1, 0);
    RunInside(queue, [&](bool const&) { EXPECT_TRUE(queue.Cancel("other")); }, {"other"});
    EXPECT_EQ((Journal::Entries{"Setup inside", "Execute inside", "delete other", "Cleanup inside", "delete inside"}),
              Happened());
}

TEST_F(JobsTest, JobDoesNotFindItself)
{
    JobQueue queue(1, 0);
    RunInside(queue, [&](bool const&) { EXPECT_FALSE(queue.Cancel("inside")); });
    EXPECT_EQ(Journal::OfRuns({"inside"}), Happened());
}

TEST_F(JobsTest, JobThatCancelsItsOwnNameTwiceMeetsItsNamesake)
{
    JobQueue queue(1, 0);
    auto const work = [&](bool const&) {
        EXPECT_TRUE(queue.Cancel("inside"));
        EXPECT_FALSE(queue.Cancel("inside"));
    };
    RunInside(queue, work, {"inside", "last"});
    WaitForTheEndOf("last");
    EXPECT_EQ((Journal::Entries{"Setup inside", "Execute inside", "delete inside", "Cleanup inside", "delete inside",
                                "Setup last", "Execute last", "Cleanup last", "delete last"}),
              Happened());
}

TEST_F(JobsTest, JobsThatRunAtOnceDoNotFindEachOther)
{
    JobQueue queue(2, 0);
    Latch running;
    Latch looked;
    auto const lookFor = [&](std::string const& other) {
        return [&, other](bool const&) {
            running.Arrive();
            EXPECT_TRUE(running.WaitFor(2)) << "the jobs did not run at once";
            EXPECT_FALSE(queue.Cancel(other));
            looked.Arrive();
            EXPECT_TRUE(looked.WaitFor(2));
        };
    };
    Enq(queue, "one", lookFor("two"));
    Enq(queue, "two", lookFor("one"));
    WaitForTheEndOf("one");
    WaitForTheEndOf("two");
}

TEST_F(JobsTest, JobMayCancelAllThatWait)
{
    JobQueue queue(1, 0);
    RunInside(queue, [&](bool const&) { queue.CancelAll(); }, {"one", "two"});
    EXPECT_EQ((Journal::Entries{"Setup inside", "Execute inside", "delete one", "delete two", "Cleanup inside",
                                "delete inside"}),
              Happened());
}

TEST_F(JobsTest, EachStepMayCancelAndQueue)
{
    JobQueue queue(1, 0);
    std::vector<bool> found;
    test::Enq(queue, new NotingJob(journal_, "inside", [&](std::string const& step, bool const&) {
                  Enq(queue, step);
                  found.push_back(queue.Cancel(step));
              }));
    WaitForTheEndOf("inside");
    EXPECT_EQ(std::vector<bool>(3, true), found);
}

TEST_F(JobsTest, JobsThatAJobQueuesRunBehindThoseThatWait)
{
    JobQueue queue(1, 0);
    auto const work = [&](bool const&) {
        Enq(queue, "third");
        Enq(queue, "fourth");
    };
    RunInside(queue, work, {"second"});
    WaitForTheEndOf("fourth");
    EXPECT_EQ(Journal::OfRuns({"inside", "second", "third", "fourth"}), Happened());
}

TEST_F(JobsTest, JobsMayQueueTheirSuccessorsAThousandTimesOver)
{
    constexpr unsigned JOBS = 1000;
    JobQueue queue(3, 0);
    std::atomic<unsigned> runs{0};
    std::function<void(bool const&)> const work = [&](bool const&) {
        if (++runs < JOBS)
            Enq(queue, std::to_string(runs), work);
        else
            Enq(queue, "last");
    };
    Enq(queue, "first", work);
    WaitForTheEndOf("last");
    EXPECT_EQ(JOBS, runs);
}

// ---- The end of a busy queue.

TEST_F(JobsTest, JobThatAJobQueuesWhileTheQueueGoesIsDeletedWithoutHavingRun)
{
    Latch entered;
    {
        JobQueue queue(1, 0);
        Enq(queue, "inside", [&](bool const& stop) {
            entered.Arrive();
            EXPECT_TRUE(test::WaitUntilSet(stop)) << "the stop flag was not set";
            Enq(queue, "late");
        });
        EXPECT_TRUE(entered.WaitFor()) << "the job did not start";
    }
    EXPECT_EQ((Journal::Entries{"Setup inside", "Execute inside", "Cleanup inside", "delete inside", "delete late"}),
              journal_.All());
}

// A queue in all its trouble: a job that runs until the queue stops, others that come, go and wait.
class BusyQueue
{
public:
    static constexpr unsigned PRODUCERS = 3;
    static constexpr unsigned JOBS = 60;  // of each producer

    /// Destroys one, and counts how many jobs were deleted and how many of them had run; each runs once at most.
    void Run()
    {
        Journal journal;
        Latch entered;
        JobQueue queue(3, 0);
        test::Enq(queue, new NotingJob(journal, "watchful", [&](std::string const& step, bool const& stop) {
                      if (step != "Execute")
                          return;
                      entered.Arrive();
                      EXPECT_TRUE(test::WaitUntilSet(stop)) << "the stop flag was not set";
                  }));
        std::thread canceller([&] {
            for (unsigned i = 0; i < JOBS; ++i)
                queue.Cancel("counting");
        });
        std::vector<std::thread> producers;
        for (unsigned producer = 0; producer < PRODUCERS; ++producer)
            producers.emplace_back([&, producer] {
                for (unsigned i = 0; i < JOBS; ++i)
                    test::Enq(queue, new CountingJob(runs[producer * JOBS + i], deleted));
            });
        EXPECT_TRUE(entered.WaitFor()) << "the job did not start";
        canceller.join();
        for (std::thread& producer : producers)
            producer.join();
    }

    std::vector<std::atomic<unsigned char>> runs = std::vector<std::atomic<unsigned char>>(PRODUCERS * JOBS);
    Latch deleted;
};

constexpr unsigned BusyQueue::PRODUCERS;
constexpr unsigned BusyQueue::JOBS;

TEST_F(JobsTest, EveryJobOfAQueueThatGoesWhileItIsBusyIsDeletedOnce)
{
    constexpr unsigned ROUNDS = 200;
    unsigned runCount = 0;
    for (unsigned round = 0; round < ROUNDS; ++round) {
        BusyQueue busy;
        busy.Run();
        ASSERT_EQ(busy.runs.size(), busy.deleted.Count()) << "round " << round;
        for (std::atomic<unsigned char> const& count : busy.runs) {
            ASSERT_LE(count, 1) << "round " << round;
            runCount += count;
        }
    }
    std::printf("%u queues went while they were busy: of %u jobs %u had run\n", ROUNDS,
                ROUNDS * BusyQueue::PRODUCERS * BusyQueue::JOBS, runCount);
}

// ---- What a queue that stops does meanwhile.

// Nobody ends this Stop, which spins: it does so in a child process, where nothing is destroyed.
TEST_F(JobsTest, JobThatStartsTheQueueWhileItStopsWaitsForStopWhichWaitsForIt)
{
    test::ExpectPassesInChild([this] {
        auto* const queue = new JobQueue(1, 0);
        std::atomic<bool> returned{false};
        Latch steps;
        Enq(*queue, "inside", [&returned, &steps, queue](bool const& stop) {
            steps.Arrive();
            EXPECT_TRUE(test::WaitUntilSet(stop)) << "the stop flag was not set";
            steps.Arrive();
            queue->Start();
            returned = true;
        });
        ASSERT_TRUE(steps.WaitFor(1)) << "the job did not start";
        std::thread([&returned, queue] {
            queue->Stop();
            returned = true;
        }).detach();
        ASSERT_TRUE(steps.WaitFor(2)) << "the job did not see the flag";
        for (int wakeUp = 0; wakeUp < 1000; ++wakeUp)
            EXPECT_EQ(nullptr, queue->Deq().get());
        EXPECT_FALSE(returned);
    });
}

std::size_t CountWaiting(JobQueue& queue)
{
    boost::unique_lock<boost::mutex> lock(test::QueueMutex::Of(queue));
    return test::WaitingJobs::Of(queue).size();
}

// Stop looks again and again whether its workers have ended, and queues an entry each time.
TEST_F(JobsTest, WakeUpsPileUpWhileStopWaitsForAJob)
{
    constexpr std::size_t MANY = 10000;
    JobQueue queue(1, 0);
    HeldWorker held(queue, journal_);
    std::thread stopping([&queue] { queue.Stop(); });
    auto const end = std::chrono::steady_clock::now() + DEADLINE;
    while (CountWaiting(queue) < MANY && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_LE(MANY, CountWaiting(queue));
    held.LetGo();
    stopping.join();
}

}}}  // namespace tovu::util
