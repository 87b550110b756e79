#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tovu/util/JobQueue.h"

namespace volume {

/// The programs that clients may run, each by its name: the program's path and its arguments.
using JobPrograms = std::map<std::string, std::vector<std::string>>;

/// What became of a job.
struct JobOutcome
{
    bool cancelled;  ///< True when the program was not run; the rest means nothing then.
    int result;      ///< A RESULT_ value of tovu::util::ChildProcess.
    int status;      ///< The exit code, or the number of the signal.
};

/// Runs programs as jobs, two at a time, the others in the order in which they were asked for.
///
/// Threads: any may call everything.
class Jobs
{
public:
    explicit Jobs(JobPrograms programs);
    Jobs(Jobs const&) = delete;
    Jobs& operator=(Jobs const&) = delete;

    /// Stops, when that has not been done.
    ~Jobs();

    /// Queues the program and waits until it has ended or was cancelled.
    /// Throws Refusal for a name that is not on the list, and once Stop was called.
    JobOutcome Run(std::string const& name);

    /// Cancels the first job of that name that waits. \return False when none does.
    bool Cancel(std::string const& name);

    /// Cancels what waits and ends what runs, with SIGTERM and after five seconds with SIGKILL. Returns when there are
    /// no more children, and so every Run has its outcome.
    void Stop();

    /// While the result lives no program is started. Whoever opens a descriptor holds it until the descriptor is marked
    /// close-on-exec.
    std::unique_lock<std::mutex> HoldSpawns();

private:
    class ProgramJob;

    JobOutcome RunProgram(std::vector<std::string> const& command);
    void SignalChildren(int signal) const;

    JobPrograms const programs_;
    std::mutex mutex_;
    std::condition_variable childEnded_;
    bool stopping_ = false;   // guarded by mutex_, like children_
    std::set<int> children_;  // the process ids of those that have not been waited for
    tovu::util::JobQueue queue_;
};

}  // namespace volume
