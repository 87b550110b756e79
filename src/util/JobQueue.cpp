#include "tovu/util/JobQueue.h"

#include <algorithm>
#include <new>

namespace tovu { namespace util {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface

JobQueue::Job::~Job() = default;

JobQueue::Worker::Worker(JobQueue* queue) : queue_(queue) {}

JobQueue::Worker::~Worker() = default;

void JobQueue::Worker::Run()
{
    try {
        RunJobs();
    } catch (...) {
        __atomic_store_n(&finished_, true, __ATOMIC_RELEASE);
        throw;
    }
    __atomic_store_n(&finished_, true, __ATOMIC_RELEASE);
}

bool JobQueue::Worker::IsFinished() const
{
    return __atomic_load_n(&finished_, __ATOMIC_ACQUIRE);
}

void JobQueue::Worker::RunJobs()
{
    while (!queue_->IsStopped()) {
        std::auto_ptr<Job> const job(queue_->Deq());
        if (job.get() == nullptr)
            continue;

        job->Setup(queue_->stop_);
        job->Execute(queue_->stop_);
        job->Cleanup(queue_->stop_);
    }
}

JobQueue::JobQueue(int workers, int priority) : workerCount_(workers), priority_(priority)
{
    try {
        Start();
    } catch (...) {
        Stop();  // the workers that did start hold on to this queue
        throw;
    }
}

JobQueue::~JobQueue()  // NOLINT(bugprone-exception-escape): see the header
{
    Stop();
}

void JobQueue::Start()
{
    Mutex::Guard const guard(startStopLock_);
    if (!IsStopped())
        return;

    __atomic_store_n(&stop_, false, __ATOMIC_RELEASE);
    for (int i = 0; i < workerCount_; ++i) {
        std::unique_ptr<Worker> worker(new Worker(this));
        workers_.push_back(worker.get());
        worker.release()->Create(priority_, 0, false);
    }
}

void JobQueue::Enq(std::auto_ptr<Job> job)
{
    boost::unique_lock<boost::mutex> lock(mutex_);
    jobs_.push_back(job.get());
    job.release();
    condition_.notify_one();
}

std::auto_ptr<JobQueue::Job> JobQueue::Deq()
{
    boost::unique_lock<boost::mutex> lock(mutex_);
    while (jobs_.empty())
        condition_.wait(lock);

    std::auto_ptr<Job> job(jobs_.front());
    jobs_.pop_front();
    return job;
}

bool JobQueue::Cancel(std::string const& name)
{
    boost::unique_lock<boost::mutex> lock(mutex_);
    auto const found = std::find_if(jobs_.begin(), jobs_.end(),
                                    [&name](Job const* job) { return job != nullptr && job->GetName() == name; });
    if (found == jobs_.end())
        return false;

    delete *found;
    jobs_.erase(found);
    return true;
}

void JobQueue::CancelAll()
{
    boost::unique_lock<boost::mutex> lock(mutex_);
    for (Job const* job : jobs_)
        delete job;
    jobs_.clear();
}

// A worker that waits needs an entry to wake up for, and it is not known which one takes an entry. So one is queued for
// each look at the workers until all have gone; what is left over is skipped by the workers of a later Start.
void JobQueue::Stop()
{
    Mutex::Guard const guard(startStopLock_);
    if (IsStopped())
        return;

    __atomic_store_n(&stop_, true, __ATOMIC_RELEASE);
    CancelAll();
    while (!workers_.empty()) {
        WakeWorker();
        ReapFinishedWorker();
    }
}

bool JobQueue::IsStopped() const
{
    return __atomic_load_n(&stop_, __ATOMIC_ACQUIRE);
}

// Without memory the entries that are queued already have to do, or the next try.
void JobQueue::WakeWorker()
{
    try {
        Enq(std::auto_ptr<Job>());
    } catch (std::bad_alloc const&) {
        return;
    }
}

void JobQueue::ReapFinishedWorker()
{
    auto const finished =
        std::find_if(workers_.begin(), workers_.end(), [](Worker const* worker) { return worker->IsFinished(); });
    if (finished == workers_.end())
        return;

    (*finished)->Wait();
    delete *finished;
    workers_.erase(finished);
}

#pragma GCC diagnostic pop

}}  // namespace tovu::util
