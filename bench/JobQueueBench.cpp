// How many empty jobs a second does the pool run, from the first that is queued to the last that has run, with one,
// two and four workers? Ours makes, queues and deletes a named object for each. Beside it a pool of Boost's with the
// same named objects, and with a bare function for each job, which is less work: no object, and one block of memory
// less. The rest shows what queueing costs the caller while no worker runs, and whether the price of a job or of a
// cancellation grows with what waits.

#include "tovu/util/JobQueue.h"

#include <benchmark/benchmark.h>
#include <semaphore.h>

#include <atomic>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

using tovu::util::JobQueue;

namespace {

constexpr int BATCH = 10000;

// Lets one thread wait until a number of jobs has run.
class Countdown
{
public:
    Countdown() { sem_init(&done_, 0, 0); }
    Countdown(Countdown const&) = delete;
    Countdown& operator=(Countdown const&) = delete;
    ~Countdown() { sem_destroy(&done_); }

    void Start(int count) { left_.store(count, std::memory_order_relaxed); }

    void Count()
    {
        if (left_.fetch_sub(1) == 1)
            sem_post(&done_);
    }

    void Wait()
    {
        while (sem_wait(&done_) != 0)
            continue;
    }

private:
    std::atomic<int> left_{0};
    sem_t done_;
};

class CountedJob : public JobQueue::Job
{
public:
    explicit CountedJob(Countdown& countdown) : countdown_(countdown) {}

    std::string GetName() const override { return "counted"; }
    void Setup(bool const& /*stop*/) override {}
    void Execute(bool const& /*stop*/) override { countdown_.Count(); }
    void Cleanup(bool const& /*stop*/) override {}

private:
    Countdown& countdown_;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
void Enq(JobQueue& queue, JobQueue::Job* job)
{
    queue.Enq(std::auto_ptr<JobQueue::Job>(job));
}
#pragma GCC diagnostic pop

// Queues batches of jobs with `post(countdown)` and waits for the last job of each.
template <typename Post>
void RunBatches(benchmark::State& state, Post post)
{
    Countdown countdown;
    for (auto _ : state) {
        countdown.Start(BATCH);
        for (int i = 0; i < BATCH; ++i)
            post(countdown);
        countdown.Wait();
    }
    state.SetItemsProcessed(state.iterations() * BATCH);
}

int Workers(benchmark::State const& state)
{
    return static_cast<int>(state.range(0));
}

void EmptyJobsOurs(benchmark::State& state)
{
    JobQueue queue(Workers(state), 0);
    RunBatches(state, [&](Countdown& countdown) { Enq(queue, new CountedJob(countdown)); });
}

void EmptyJobsAsio(benchmark::State& state)
{
    boost::asio::thread_pool pool(static_cast<std::size_t>(Workers(state)));
    RunBatches(state, [&](Countdown& countdown) { boost::asio::post(pool, [&countdown] { countdown.Count(); }); });
    pool.join();
}

void EmptyJobsAsioNamed(benchmark::State& state)
{
    static bool const stop = false;
    boost::asio::thread_pool pool(static_cast<std::size_t>(Workers(state)));
    RunBatches(state, [&](Countdown& countdown) {
        boost::asio::post(pool, [job = std::unique_ptr<JobQueue::Job>(new CountedJob(countdown))] {
            job->Setup(stop);
            job->Execute(stop);
            job->Cleanup(stop);
        });
    });
    pool.join();
}

void OfWorkers(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("workers")->Arg(1)->Arg(2)->Arg(4)->MeasureProcessCPUTime()->UseRealTime();
}

BENCHMARK(EmptyJobsOurs)->Name("JobQueue_Enq_EmptyJobs/tovuutil")->Apply(OfWorkers);
BENCHMARK(EmptyJobsAsio)->Name("JobQueue_Enq_EmptyJobs/asio")->Apply(OfWorkers);
BENCHMARK(EmptyJobsAsioNamed)->Name("JobQueue_Enq_EmptyJobs/asio_named")->Apply(OfWorkers);

// ---- The caller's side, while no worker runs.

void WaitingJobsOurs(benchmark::State& state)
{
    Countdown countdown;
    JobQueue queue(0, 0);
    for (auto _ : state) {
        for (int i = 0; i < state.range(0); ++i)
            Enq(queue, new CountedJob(countdown));
        queue.CancelAll();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(WaitingJobsOurs)->Name("JobQueue_EnqAndCancelAll_Waiting/tovuutil")->Arg(16)->Arg(256)->Arg(4096);

// A list under a mutex, of which each new entry is told to a condition.
void WaitingJobsBare(benchmark::State& state)
{
    Countdown countdown;
    std::mutex mutex;
    std::condition_variable condition;
    std::list<std::unique_ptr<JobQueue::Job>> jobs;
    for (auto _ : state) {
        for (int i = 0; i < state.range(0); ++i) {
            std::unique_ptr<JobQueue::Job> job(new CountedJob(countdown));
            std::lock_guard<std::mutex> const lock(mutex);
            jobs.push_back(std::move(job));
            condition.notify_one();
        }
        std::lock_guard<std::mutex> const lock(mutex);
        jobs.clear();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(WaitingJobsBare)->Name("JobQueue_EnqAndCancelAll_Waiting/bare")->Arg(16)->Arg(256)->Arg(4096);

// Every job that waits is asked for its name, and none has the one that is looked for.
void CancelOurs(benchmark::State& state)
{
    Countdown countdown;
    JobQueue queue(0, 0);
    for (int i = 0; i < state.range(0); ++i)
        Enq(queue, new CountedJob(countdown));
    std::string const name = "another";
    for (auto _ : state)
        benchmark::DoNotOptimize(queue.Cancel(name));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(CancelOurs)->Name("JobQueue_Cancel_NoMatch/tovuutil")->Arg(16)->Arg(256)->Arg(4096);

}  // namespace
