#pragma once

#include <pthread.h>

#include <boost/thread/mutex.hpp>
#include <list>
#include <string>
#include <vector>

#include "PrivateMember.h"
#include "tovu/util/JobQueue.h"

// What a JobQueue holds, for tests that look into it.

namespace tovu { namespace test {

TOVU_PRIVATE_MEMBER(WorkerCount, int, util::JobQueue, workerCount_);
TOVU_PRIVATE_MEMBER(QueuePriority, int, util::JobQueue, priority_);
TOVU_PRIVATE_MEMBER(StopFlag, bool, util::JobQueue, stop_);
TOVU_PRIVATE_MEMBER(WaitingJobs, util::OwnerList<util::JobQueue::Job>, util::JobQueue, jobs_);
TOVU_PRIVATE_MEMBER(Workers, util::OwnerList<util::JobQueue::Worker>, util::JobQueue, workers_);
TOVU_PRIVATE_MEMBER(StartStopLock, util::Mutex, util::JobQueue, startStopLock_);
TOVU_PRIVATE_MEMBER(QueueMutex, boost::mutex, util::JobQueue, mutex_);

/// The workers. For the thread that starts and stops the queue.
inline std::list<util::JobQueue::Worker*> const& WorkersOf(util::JobQueue const& queue)
{
    return Workers::Of(queue);
}

/// The names of the entries that wait, "null" for one without a job. Only while no other thread uses the queue.
inline std::vector<std::string> WaitingIn(util::JobQueue const& queue)
{
    std::vector<std::string> names;
    for (util::JobQueue::Job const* const job : WaitingJobs::Of(queue))
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
