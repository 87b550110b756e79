#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Latch.h"
#include "tovu/util/JobQueue.h"

namespace tovu { namespace test {

/// What happened to the jobs of a test, in order, on whatever thread.
class Journal
{
public:
    using Entries = std::vector<std::string>;

    void Note(std::string const& entry)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        entries_.push_back(entry);
        changed_.notify_all();
    }

    Entries All()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return entries_;
    }

    /// False when the deadline came before the entry.
    bool WaitFor(std::string const& entry)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, DEADLINE,
                                 [&] { return std::find(entries_.begin(), entries_.end(), entry) != entries_.end(); });
    }

    /// The entries of jobs that run one after the other.
    static Entries OfRuns(std::vector<std::string> const& names)
    {
        Entries entries;
        for (std::string const& name : names)
            for (char const* event : {"Setup ", "Execute ", "Cleanup ", "delete "})
                entries.push_back(event + name);
        return entries;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    Entries entries_;
};

/// A job that notes its steps and its end: "Setup NAME", "Execute NAME", "Cleanup NAME", "delete NAME".
class NotingJob : public util::JobQueue::Job
{
public:
    /// What a test adds to each of the steps.
    using OnStep = std::function<void(std::string const& step, bool const& stop)>;

    NotingJob(Journal& journal, std::string const& name, OnStep onStep = nullptr)
        : journal_(journal), name_(name), onStep_(std::move(onStep))
    {}

    ~NotingJob() override { journal_.Note("delete " + name_); }

    std::string GetName() const override { return name_; }
    void Setup(bool const& stop) override { Step("Setup", stop); }
    void Execute(bool const& stop) override { Step("Execute", stop); }
    void Cleanup(bool const& stop) override { Step("Cleanup", stop); }

private:
    void Step(std::string const& step, bool const& stop)
    {
        journal_.Note(step + " " + name_);
        if (onStep_)
            onStep_(step, stop);
    }

    Journal& journal_;
    std::string const name_;
    OnStep const onStep_;
};

/// A job that counts its runs, and tells when it is deleted. For many of them.
class CountingJob : public util::JobQueue::Job
{
public:
    CountingJob(std::atomic<unsigned char>& runs, Latch& deleted) : runs_(runs), deleted_(deleted) {}
    ~CountingJob() override { deleted_.Arrive(); }

    std::string GetName() const override { return "counting"; }
    void Setup(bool const& /*stop*/) override { EXPECT_EQ(0, steps_++); }
    void Execute(bool const& /*stop*/) override { EXPECT_EQ(1, steps_++); }
    void Cleanup(bool const& /*stop*/) override
    {
        EXPECT_EQ(2, steps_++);
        ++runs_;
    }

private:
    std::atomic<unsigned char>& runs_;
    Latch& deleted_;
    int steps_ = 0;
};

/// Hands a job, or null, to the queue.
inline void Enq(util::JobQueue& queue, util::JobQueue::Job* job)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
    queue.Enq(std::auto_ptr<util::JobQueue::Job>(job));
#pragma GCC diagnostic pop
}

/// Lets a job wait for the queue's stop flag. False when the deadline came first.
inline bool WaitUntilSet(bool const& stop)
{
    auto const end = std::chrono::steady_clock::now() + DEADLINE;
    while (!__atomic_load_n(&stop, __ATOMIC_ACQUIRE)) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// Keeps one worker of a queue inside a job, "held", until it is let go: at the latest at the end of the scope, since a
/// queue that is stopped meanwhile spins.
class HeldWorker
{
public:
    HeldWorker(util::JobQueue& queue, Journal& journal)
    {
        std::shared_ptr<Latches> const latches = latches_;
        Enq(queue, new NotingJob(journal, "held", [latches](std::string const& step, bool const&) {
                if (step != "Execute")
                    return;
                latches->entered.Arrive();
                EXPECT_TRUE(latches->gate.WaitFor()) << "the held worker was not let go";
            }));
        EXPECT_TRUE(latches_->entered.WaitFor()) << "no worker took the job that holds it";
    }

    HeldWorker(HeldWorker const&) = delete;
    HeldWorker& operator=(HeldWorker const&) = delete;
    ~HeldWorker() { LetGo(); }

    void LetGo() { latches_->gate.Arrive(); }

private:
    struct Latches
    {
        Latch entered;
        Latch gate;
    };

    std::shared_ptr<Latches> const latches_ = std::make_shared<Latches>();
};

}}  // namespace tovu::test
