#include "tovu/util/JobQueue.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>

#include "Cost.h"
#include "Latch.h"
#include "NotingJob.h"

namespace tovu { namespace util { namespace {

using test::AllocationCounter;
using test::Cost;
using test::CostOf;
using test::CostOfListEntry;
using test::Latch;
using test::NO_COST;

class NamedJob : public JobQueue::Job
{
public:
    std::string GetName() const override { return "job"; }
    void Setup(bool const& /*stop*/) override {}
    void Execute(bool const& /*stop*/) override {}
    void Cleanup(bool const& /*stop*/) override {}
};

// The costs of an operation on a queue without workers, in which one job waits.
template <typename Operation>
Cost CostWithOneJob(Operation operation)
{
    JobQueue queue(0, 0);
    test::Enq(queue, new NamedJob);
    return CostOf([&] { operation(queue); });
}

TEST(JobQueueCosts, AJobTakesOneListEntry)
{
    JobQueue queue(0, 0);
    auto* const job = new NamedJob;
    EXPECT_EQ(CostOfListEntry<JobQueue::Job*>(), CostOf([&] { test::Enq(queue, job); }));
}

TEST(JobQueueCosts, AJobThatIsTakenLeavesNothing)
{
    JobQueue queue(0, 0);
    AllocationCounter const counter;
    for (int i = 0; i < 100; ++i) {
        test::Enq(queue, new NamedJob);
        queue.Deq();
    }
    EXPECT_EQ(0, counter.HeldBytes());
}

TEST(JobQueueCosts, TakingAndCancellingTakeNothing)
{
    EXPECT_EQ(NO_COST, CostWithOneJob([](JobQueue& queue) { queue.Deq(); }));
    EXPECT_EQ(NO_COST, CostWithOneJob([](JobQueue& queue) { queue.CancelAll(); }));
    std::string const name = "job";
    EXPECT_EQ(NO_COST, CostWithOneJob([&](JobQueue& queue) { EXPECT_TRUE(queue.Cancel(name)); }));
    std::string const another = "another";
    EXPECT_EQ(NO_COST, CostWithOneJob([&](JobQueue& queue) { EXPECT_FALSE(queue.Cancel(another)); }));
}

TEST(JobQueueCosts, AQueueTakesAnEntryAndAWorkerForEachThread)
{
    EXPECT_EQ(NO_COST, CostOf([] { JobQueue(0, 0); }));
    std::unique_ptr<JobQueue> queue;
    Cost const cost = CostOf([&] { queue.reset(new JobQueue(3, 0)); });
    Cost const entry = CostOfListEntry<JobQueue::Worker*>();
    EXPECT_EQ((Cost{1 + 3 * (1 + entry.blocks), sizeof(JobQueue) + 3 * (sizeof(JobQueue::Worker) + entry.bytes)}),
              cost);
}

// Counts what the worker takes from one such job to the next.
class CountingJob : public NamedJob
{
public:
    CountingJob(std::unique_ptr<AllocationCounter>& counter, Latch& done) : counter_(counter), done_(done) {}

    void Execute(bool const& /*stop*/) override
    {
        if (counter_ == nullptr) {
            counter_.reset(new AllocationCounter);
        } else {
            EXPECT_EQ(0U, counter_->Blocks());
            done_.Arrive();
        }
    }

private:
    std::unique_ptr<AllocationCounter>& counter_;
    Latch& done_;
};

TEST(JobQueueCosts, AWorkerTakesNothing)
{
    std::unique_ptr<AllocationCounter> counter;
    Latch done;
    JobQueue queue(1, 0);
    test::Enq(queue, new CountingJob(counter, done));
    test::Enq(queue, new NamedJob);
    test::Enq(queue, new CountingJob(counter, done));
    EXPECT_TRUE(done.WaitFor()) << "the jobs did not run";
}

}}}  // namespace tovu::util
