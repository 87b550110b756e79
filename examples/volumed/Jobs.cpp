#include "Jobs.h"

#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <utility>

#include "common/Protocol.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using tovu::util::ChildProcess;
using tovu::util::JobQueue;
using tovu::util::LoggerMgr;

namespace {

constexpr int WORKERS = 2;
constexpr std::chrono::seconds GRACE(5);  // between SIGTERM and SIGKILL
constexpr JobOutcome CANCELLED = {true, 0, 0};

// Waits until a child has ended, and leaves it to be waited for: so its id stays its own until it is struck off the
// list, and no signal meets a stranger.
void AwaitEnd(int child)
{
    siginfo_t info = {};
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) == -1 && errno == EINTR)
        continue;  // cppcheck-suppress redundantContinue ; stands for an empty body
}

}  // namespace

// Whatever becomes of a job, its outcome is told: when it is deleted without having run, that it was cancelled.
class Jobs::ProgramJob : public JobQueue::Job
{
public:
    ProgramJob(Jobs& jobs, std::string const& name, std::vector<std::string> const& command)
        : jobs_(jobs), name_(name), command_(command), outcome_(CANCELLED)
    {}

    ~ProgramJob() override { promise_.set_value(outcome_); }

    std::future<JobOutcome> GetOutcome() { return promise_.get_future(); }

    std::string GetName() const override { return name_; }

    void Setup(bool const& /*stop*/) override { TOVU_LOG(LoggerMgr::LEVEL_INFO, "Job %s begins.\n", name_.c_str()); }

    void Execute(bool const& /*stop*/) override { outcome_ = jobs_.RunProgram(command_); }

    void Cleanup(bool const& /*stop*/) override
    {
        if (outcome_.cancelled)
            TOVU_LOG(LoggerMgr::LEVEL_INFO, "Job %s is not run any more.\n", name_.c_str());
        else
            TOVU_LOG(LoggerMgr::LEVEL_INFO, "Job %s has ended with result %d, status %d.\n", name_.c_str(),
                     outcome_.result, outcome_.status);
    }

private:
    Jobs& jobs_;
    std::string const name_;
    std::vector<std::string> const& command_;  // on the list, which outlives the jobs
    JobOutcome outcome_;
    std::promise<JobOutcome> promise_;
};

Jobs::Jobs(JobPrograms programs) : programs_(std::move(programs)), queue_(WORKERS, 0) {}

Jobs::~Jobs()
{
    Stop();
}

JobOutcome Jobs::Run(std::string const& name)
{
    auto const program = programs_.find(name);
    if (program == programs_.end())
        throw Refusal{ERROR_NOT_FOUND};

    std::unique_ptr<ProgramJob> job(new ProgramJob(*this, name, program->second));
    std::future<JobOutcome> outcome = job->GetOutcome();
    {
        std::lock_guard<std::mutex> const lock(mutex_);
        if (stopping_)
            throw Refusal{ERROR_STOPPING};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the library's interface
        queue_.Enq(std::auto_ptr<JobQueue::Job>(job.release()));
#pragma GCC diagnostic pop
    }
    return outcome.get();
}

bool Jobs::Cancel(std::string const& name)
{
    return queue_.Cancel(name);
}

// The queue is stopped last: it would keep a processor busy for as long as a child runs.
void Jobs::Stop()
{
    {
        std::unique_lock<std::mutex> lock(mutex_);
        stopping_ = true;
        SignalChildren(SIGTERM);
        if (!childEnded_.wait_for(lock, GRACE, [this] { return children_.empty(); }))
            SignalChildren(SIGKILL);
        childEnded_.wait(lock, [this] { return children_.empty(); });
    }
    queue_.Stop();
}

std::unique_lock<std::mutex> Jobs::HoldSpawns()
{
    return std::unique_lock<std::mutex>(mutex_);
}

JobOutcome Jobs::RunProgram(std::vector<std::string> const& command)
{
    ChildProcess child(command.front(), false);
    for (std::size_t i = 1; i < command.size(); ++i)
        child.AddArgument(command[i]);

    int id = -1;
    {
        std::lock_guard<std::mutex> const lock(mutex_);
        if (stopping_)
            return CANCELLED;
        id = child.Spawn();
        if (id == -1)
            return JobOutcome{false, ChildProcess::RESULT_NO_CHILD, child.GetStatus()};
        children_.insert(id);
    }

    AwaitEnd(id);
    std::lock_guard<std::mutex> const lock(mutex_);
    children_.erase(id);
    childEnded_.notify_all();
    int const result = child.Wait();
    return JobOutcome{false, result, child.GetStatus()};
}

void Jobs::SignalChildren(int signal) const
{
    for (int const child : children_)
        kill(child, signal);
}

}  // namespace volume
