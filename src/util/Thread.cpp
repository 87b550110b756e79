#include "tovu/util/Thread.h"

#include <sched.h>
#include <sys/resource.h>

namespace tovu { namespace util {

Thread::Thread() = default;

Thread::~Thread() = default;

int Thread::Create(int priority, unsigned processor, bool /*reserved*/)
{
    priority_ = priority;
    int const error = pthread_create(&handle_, nullptr, &Thread::ThreadProc, this);
    if (error != 0 || processor == 0)
        return error;

    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (processor < CPU_SETSIZE)
        CPU_SET(processor, &processors);
    return pthread_setaffinity_np(handle_, sizeof(processors), &processors);
}

int Thread::Wait()
{
    return pthread_join(handle_, nullptr);
}

void* Thread::ThreadProc(void* thread)
{
    auto* const self = static_cast<Thread*>(thread);
    setpriority(PRIO_PROCESS, 0, self->priority_);  // on Linux this is the calling thread alone
    self->Run();
    return nullptr;
}

}}  // namespace tovu::util
