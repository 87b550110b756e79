#pragma once

#include <pthread.h>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <list>
#include <string>
#include <vector>

#include "VirtualSlots.h"
#include "tovu/util/JobQueue.h"

// What a JobQueue holds, for tests that look at it from outside.

namespace tovu { namespace test {

/// The members, in their order.
struct JobQueueLayout
{
    virtual ~JobQueueLayout() = default;

    int workerCount = 0;
    int priority = 0;
    bool stop = false;
    std::list<util::JobQueue::Job*> jobs;
    std::list<util::JobQueue::Worker*> workers;
    util::Mutex startStopLock;
    boost::mutex mutex;
    boost::condition_variable condition;
};
static_assert(sizeof(util::JobQueue) == sizeof(JobQueueLayout), "no other members");

/// The members of a worker behind those of its base, in their order.
struct WorkerLayout : util::Thread
{
    void Run() override {}

    util::JobQueue* queue = nullptr;
    bool finished = false;
};
static_assert(sizeof(util::JobQueue::Worker) == sizeof(WorkerLayout), "no other members");

template <typename Member>
Member const& MemberOf(util::JobQueue const& queue, Member JobQueueLayout::*member)
{
    JobQueueLayout const layout;
    return MemberAt<Member>(queue, OffsetOf(layout, layout.*member));
}

/// The workers. For the thread that starts and stops the queue.
inline std::list<util::JobQueue::Worker*> const& WorkersOf(util::JobQueue const& queue)
{
    return MemberOf(queue, &JobQueueLayout::workers);
}

/// The names of the entries that wait, "null" for one without a job. Only while no other thread uses the queue.
inline std::vector<std::string> WaitingIn(util::JobQueue const& queue)
{
    std::vector<std::string> names;
    for (util::JobQueue::Job const* const job : MemberOf(queue, &JobQueueLayout::jobs))
        names.push_back(job == nullptr ? "null" : job->GetName());
    return names;
}

/// What somebody finds who tries to take a lock: EBUSY while it is held, otherwise 0.
template <typename Lock>
int TryToTake(Lock const& lock)
{
    auto* const mutex = reinterpret_cast<pthread_mutex_t*>(const_cast<Lock*>(&lock));
    int const error = pthread_mutex_trylock(mutex);
    if (error == 0)
        pthread_mutex_unlock(mutex);
    return error;
}

}}  // namespace tovu::test
