#include "tovu/util/ChildProcess.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Quietly.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Path.h"

namespace tovu { namespace util {

constexpr int ChildProcess::RESULT_SUCCESS;
constexpr int ChildProcess::RESULT_FAILURE;
constexpr int ChildProcess::RESULT_NO_CHILD;
constexpr int ChildProcess::RESULT_SIGNAL;

ChildProcess::ChildProcess(std::string const& program, bool flag) : program_(program), flag_(flag) {}

ChildProcess::~ChildProcess() = default;

void ChildProcess::AddArgument(std::string const& argument)
{
    arguments_.push_back(argument);
}

void ChildProcess::AddEnvironmentVariable(std::string const& entry)
{
    environment_.push_back(entry);
}

void ChildProcess::SetControlGroup(std::string const& directory)
{
    controlGroup_ = directory;
}

namespace {

constexpr char const* LIMIT_VARIABLE = "TOVU_CHILD_MEMSW_LIMIT";

void Append(std::vector<char*>& vector, std::list<std::string> const& texts)
{
    for (std::string const& text : texts)
        vector.push_back(const_cast<char*>(text.c_str()));  // cppcheck-suppress useStlAlgorithm ; no shorter with one
    vector.push_back(nullptr);
}

// strerror for a log line. The number is passed, since `errno` may have changed by the time the line is formatted.
char const* ErrorText(int error)
{
    return std::strerror(error);  // NOLINT(concurrency-mt-unsafe): glibc keeps one buffer for each thread
}

// A text that is no number ends the child, with whatever `errno` held before: no call has failed.
void LimitAddressSpace(char const* text)
{
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    unsigned long bytes = 0;
    if (!boost::conversion::try_lexical_convert(text, bytes))
        _exit(errno);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_AS, &limit);
}

}  // namespace

// What happens to the new process, in this order:
//
//   1. it enters its control group, or has its address space limited: one or the other, never both;
//   2. it becomes the program.
//
// The parent learns of a failure by the exit code alone, the `errno` of the step that failed: ENOENT looks like an exit
// with 2. Arguments are made before the fork: in the child another thread's half-finished work on the heap stays so. A
// child without memory for the little that is left to do ends: it must not go on as a second copy of the caller.
int ChildProcess::Spawn()
{
    std::string const name = Path(program_).GetFullFileName();
    std::vector<char*> arguments(1, const_cast<char*>(name.c_str()));
    Append(arguments, arguments_);
    std::vector<char*> environment;
    if (!environment_.empty())
        Append(environment, environment_);

    pid_ = fork();
    if (pid_ == 0) {
        try {
            EnterPlacement();
            Execute(arguments, environment);
        } catch (...) {
            _exit(errno);
        }
    } else if (pid_ < 0) {
        int const error = errno;
        internal::Quietly([&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "fork failed (%s).\n", ErrorText(error)); });
        return -1;
    }
    return pid_;
}

// Descriptors are not touched: a server marks its own close-on-exec, or its clients keep their connections to a child
// that knows nothing of them. An id that cannot be written is no failure: the program runs outside of the group.
void ChildProcess::EnterControlGroup()
{
    std::FILE* const tasks = std::fopen((controlGroup_ + "/tasks").c_str(), "we");
    if (tasks == nullptr) {
        int const error = errno;
        char const* const group = controlGroup_.c_str();
        char const* const name = program_.c_str();
        char const* const reason = ErrorText(error);
        internal::Quietly(
            [&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "Failed to open cgroup %s for '%s' (%s)\n", group, name, reason); });
        _exit(error);
    }
    static_cast<void>(std::fprintf(tasks, "%d", getpid()));
    static_cast<void>(std::fclose(tasks));
}

void ChildProcess::EnterPlacement()
{
    char const* const limit = std::getenv(LIMIT_VARIABLE);  // NOLINT(concurrency-mt-unsafe): alone in the new process
    if (!controlGroup_.empty())
        EnterControlGroup();
    else if (limit != nullptr)
        LimitAddressSpace(limit);
}

// With variables there is no search in PATH, and the program gets one argument, the bytes of the array of pointers up to
// the first zero. Kept so: who needs arguments gives no variables.
void ChildProcess::Execute(std::vector<char*> const& arguments, std::vector<char*> const& environment) const
{
    if (environment.empty())
        execvp(program_.c_str(), arguments.data());
    else
        execle(program_.c_str(), reinterpret_cast<char const*>(arguments.data()), nullptr, environment.data());

    int const error = errno;
    internal::Quietly(
        [&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "Failed to exec '%s' (%s)\n", program_.c_str(), ErrorText(error)); });
    _exit(error);
}

// The id is given up whatever waitpid answers: once it has been waited for, the system may give it to another process,
// and a signal sent to it then would meet a stranger.
//
//   exited with 0        RESULT_SUCCESS, status 0
//   exited with n        RESULT_FAILURE, status n
//   ended by signal k    RESULT_SIGNAL, status k
//   no child, an error   RESULT_NO_CHILD, the status as it was
//
// An error is one of these:
//
//   ECHILD   somebody else has waited for it, or SIGCHLD is ignored: then the system forgets how children ended
//   EINTR    a signal was caught; the child goes on, but this object knows it no more. Where signals are caught, the
//            thread that waits blocks them
int ChildProcess::Wait()
{
    if (pid_ == -1)
        return RESULT_NO_CHILD;

    int ended = 0;
    pid_t const waited = waitpid(pid_, &ended, 0);
    pid_ = -1;
    if (waited == -1)
        return RESULT_NO_CHILD;

    if (WIFEXITED(ended)) {
        status_ = WEXITSTATUS(ended);
        return status_ == 0 ? RESULT_SUCCESS : RESULT_FAILURE;
    }
    if (WIFSIGNALED(ended)) {
        status_ = WTERMSIG(ended);
        return RESULT_SIGNAL;
    }
    return RESULT_NO_CHILD;
}

// Blocks for as long as the child runs. A server does that on a thread that has nothing else to do, a job for example,
// and ends the child with a signal when it cannot wait any longer.
int ChildProcess::Exec()
{
    return Spawn() <= 0 ? RESULT_NO_CHILD : Wait();
}

// The result tells only that the signal was sent. A child that has ended but was not waited for still takes signals,
// which then do nothing. What fails:
//
//   EINVAL   there is no such signal. There is a signal 0, which is not sent but tells whether the child is still there
//   EPERM    the program runs as another user now, one that this process may not send signals to
//
// Children of the child are not reached: a program that starts others has to pass a signal on to them, or to end them
// before it ends itself.
int ChildProcess::Signal(int signal)
{
    return pid_ == -1 ? -1 : kill(pid_, signal);
}

// The pipes of a child's standard streams, seen from the parent:
//
//   inPipe    the child reads its standard input from [0], the parent writes to [1]
//   outPipe   the child writes its standard output to [1], the parent reads from [0]
//   errPipe   the child writes its standard error to [1], the parent reads from [0]
//
// Who connects them does so with dup2 in the child, and closes in each process the ends that the other one uses, or
// neither ever sees the end of the data. All six are inherited.
//
// A pipe holds 64 KiB, see pipe(7). A parent that writes its child's input without reading what the child writes
// meanwhile can wait for it forever, as the child does for the parent: use a StreamSelector and serve whichever is ready.

namespace {

// Both ends are -1 when it fails. Returns 0 or the error number.
int MakePipe(int (&ends)[2])
{
    ends[0] = ends[1] = -1;
    return pipe(ends) == 0 ? 0 : errno;
}

// The system frees a descriptor even when closing it fails, so there is nothing to do about that.
void ClosePipe(int const (&ends)[2])
{
    for (int const descriptor : ends) {
        if (descriptor != -1)
            close(descriptor);
    }
}

}  // namespace

ChildProcess::StdIO::~StdIO()
{
    ClosePipe(inPipe);
    ClosePipe(outPipe);
    ClosePipe(errPipe);
}

// One that cannot be made (EMFILE, ENFILE) does not keep the others from being tried: who owns them looks for -1.
ChildProcess::StdIO::StdIO()
{
    int error = MakePipe(inPipe);
    if (error != 0)
        internal::Quietly([&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "pipe (inPipe) failed (%s).\n", ErrorText(error)); });

    error = MakePipe(outPipe);
    if (error != 0)
        internal::Quietly([&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "pipe (outPipe) failed (%s).\n", ErrorText(error)); });

    error = MakePipe(errPipe);
    if (error != 0)
        internal::Quietly([&] { TOVU_LOG(LoggerMgr::LEVEL_ERROR, "pipe (errPipe) failed (%s).\n", ErrorText(error)); });
}

}}  // namespace tovu::util
