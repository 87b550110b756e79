#pragma once

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <memory>
#include <string>

#include "tovu/util/Mutex.h"
#include "tovu/util/OwnerList.h"
#include "tovu/util/Thread.h"

namespace tovu { namespace util {

/// A pool of worker threads that run jobs from one first-in-first-out queue.
/// \code
///     #include <unistd.h>
///     struct SyncJob : JobQueue::Job
///     {
///         std::string GetName() const override { return "sync"; }
///         void Setup(bool const&) override {}
///         void Execute(bool const&) override { sync(); }
///         void Cleanup(bool const&) override {}
///     };
///     JobQueue queue(2, 0);  // two workers, nice value 0
///     queue.Enq(std::auto_ptr<JobQueue::Job>(new SyncJob));
///     queue.Cancel("sync");  // true while it waits
/// \endcode
///
/// Guarantees:
///   - jobs are started in the order in which they were queued, each once;
///   - a job is deleted after it has run, when it is cancelled, or with the queue;
///   - no worker outlives the queue.
///
/// Requirements:
///   - Stop and the destructor wait for the jobs that run, without sleeping: a processor is busy and memory fills with
///     wake-up entries meanwhile. So jobs that run for long watch the stop flag;
///   - a job's destructor and GetName do not call the queue, which holds its mutex around them when it cancels;
///   - a job lets no exception out: one that leaves the worker thread ends the process.
///
/// Threads: any may call every operation. The jobs run on the workers' threads, as many at once as there are workers.
/// Errors: boost::lock_error, boost::condition_error and boost::thread_resource_error from the mutex and the condition;
///     std::bad_alloc.
class JobQueue
{
public:
    /// Something to do, with a name by which it can be cancelled.
    /// \code
    ///     #include <unistd.h>
    ///     class KeepInSync : public JobQueue::Job
    ///     {
    ///         std::string GetName() const override { return "keep in sync"; }
    ///         void Setup(bool const&) override { sync(); }
    ///         void Execute(bool const& stop) override
    ///         {
    ///             while (!__atomic_load_n(&stop, __ATOMIC_ACQUIRE) && sleep(1) == 0)
    ///                 sync();
    ///         }
    ///         void Cleanup(bool const&) override { sync(); }
    ///     };
    /// \endcode
    ///
    /// The three steps run one after the other on one worker thread, each with the queue's stop flag. The flag changes
    /// while they run and without a lock: read it with `__atomic_load_n(&stop, __ATOMIC_ACQUIRE)`.
    class Job
    {
    public:
        Job() = default;  ///< Holds nothing.
        Job(Job const&) = delete;
        Job& operator=(Job const&) = delete;
        virtual ~Job();

        /// The name that Cancel compares with. Names need not be unique.
        virtual std::string GetName() const = 0;

        /// The first step.
        virtual void Setup(bool const& stop) = 0;

        /// The second step: the work.
        virtual void Execute(bool const& stop) = 0;

        /// The last step. It is not run when an earlier one throws.
        virtual void Cleanup(bool const& stop) = 0;
    };

    /// One thread of the pool: takes jobs from the queue and runs them until the stop flag is set. The queue makes it;
    /// programs have no use for one.
    class Worker : public Thread
    {
    public:
        /// Borrows the queue. Does not start the thread: the queue does.
        explicit Worker(JobQueue* queue);
        ~Worker() override;

        /// An exception from a job passes out, once the job is deleted and the worker marked as finished.
        void Run() override;

        /// True once Run has ended.
        bool IsFinished() const;

    private:
        void RunJobs();

        JobQueue* queue_;        // not owned
        bool finished_ = false;  // shared between threads by atomic loads and stores
    };

    /// Starts the pool.
    /// \param workers  The number of worker threads. With 0 or less jobs are only kept.
    /// \param priority The nice value of the workers, see Thread::Create.
    JobQueue(int workers, int priority);

    JobQueue(JobQueue const&) = delete;
    JobQueue& operator=(JobQueue const&) = delete;

    /// Stops the pool; jobs that still wait are deleted without having run. When the mutex fails meanwhile, the process
    /// ends: its workers could not be left behind.
    virtual ~JobQueue();  // NOLINT(bugprone-exception-escape)

    /// Starts the workers of a stopped pool, and so the jobs that were queued meanwhile. Nothing happens on a running
    /// one.
    ///
    /// Whether the threads start is not checked. One that does not makes a later Stop wait without end. Called by a job
    /// while the pool is being stopped it never returns: it waits for Stop, which waits for the job.
    void Start();

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    /// Queues a job and owns it from now on, also while the pool is stopped. A null pointer is queued as well, and
    /// skipped by the workers.
    void Enq(std::auto_ptr<Job> job);

    /// Takes the first job, which may be null, out of the queue, and waits while there is none. Meant for the workers.
    std::auto_ptr<Job> Deq();
#pragma GCC diagnostic pop

    /// Deletes the first waiting job of that name.
    /// \return False when none waits under it. A job that runs is not found.
    bool Cancel(std::string const& name);

    /// Deletes every waiting job.
    void CancelAll();

    /// Sets the stop flag, deletes the jobs that wait, and waits until those that run have ended. Nothing happens on a
    /// stopped pool. Called by a job it never returns: it waits for its own worker.
    void Stop();

private:
    bool IsStopped() const;
    void WakeWorker();
    void ReapFinishedWorker();

    int workerCount_;
    int priority_;
    bool stop_ = true;           // true while stopped; written under startStopLock_, by atomic stores
    OwnerList<Job> jobs_;        // guarded by mutex_; the waiting jobs and wake-ups (null), front first
    OwnerList<Worker> workers_;  // guarded by startStopLock_
    Mutex startStopLock_;        // held for the whole of Start and Stop
    boost::mutex mutex_;
    boost::condition_variable condition_;  // notified once for each entry queued
};

}}  // namespace tovu::util
