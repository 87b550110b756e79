#pragma once

#include <boost/noncopyable.hpp>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace tovu { namespace util {

/// Runs another program, if wanted in a control group or with less address space, and tells how it ended.
/// \code
///     #include "tovu/util/LoggerMgr.h"
///     ChildProcess scrub("/usr/sbin/scrub", false);
///     scrub.AddArgument("/srv/volumes/photos");
///     if (scrub.Exec() != 0)
///         TOVU_LOG(LoggerMgr::LEVEL_ERROR, "scrub: %d\n", scrub.GetStatus());
/// \endcode
///
/// The child inherits every descriptor that is not marked close-on-exec, the signal mask and the ignored signals.
///
/// When the environment variable TOVU_CHILD_MEMSW_LIMIT is set, a child without a control group may use that many bytes
/// of address space, see RLIMIT_AS in setrlimit(2). A value that is no decimal number ends the child instead.
///
/// Ownership: the object does not own the process: its destructor neither ends it nor waits for it.
/// Threads: one thread at a time. The child allocates memory and logs before it becomes the program, so it can hang when
///     another thread is just holding the log manager's lock as it is forked.
/// Errors: none are thrown beyond std::bad_alloc, before the fork. They are logged, and told by the results. What goes
///     wrong in the child before it is the program ends it, with `errno` as its exit code. (What it logs then stays in
///     its own copy of the queue, which has no thread to write it out.)
class ChildProcess : private boost::noncopyable
{
public:
    /// Three pipes for a child's standard streams, each with its reading end first. Nothing connects them to a child.
    /// \code
    ///     #include <unistd.h>
    ///     ChildProcess::StdIO pipes;
    ///     if (pipes.outPipe[1] != -1)
    ///         dup2(pipes.outPipe[1], STDOUT_FILENO);  // what the program and its children print now goes to outPipe[0]
    /// \endcode
    ///
    /// Ownership: owns the six descriptors; not copyable.
    /// Errors: a pipe that cannot be made is logged, and both its ends are -1.
    struct StdIO
    {
        StdIO();  ///< See pipe(2). The ends are inherited by child processes.
        StdIO(StdIO const&) = delete;
        StdIO& operator=(StdIO const&) = delete;
        ~StdIO();  ///< Closes the six.

        int inPipe[2];   ///< Meant for the child's standard input: [0] to read, [1] to write.
        int outPipe[2];  ///< Meant for its standard output.
        int errPipe[2];  ///< Meant for its standard error.
    };

    /// What Wait and Exec tell.
    static constexpr int RESULT_SUCCESS = 0;   ///< The child exited with 0.
    static constexpr int RESULT_FAILURE = 1;   ///< It exited with another code, see GetStatus.
    static constexpr int RESULT_NO_CHILD = 2;  ///< There is none to wait for, or waiting failed.
    static constexpr int RESULT_SIGNAL = 3;    ///< A signal ended it, see GetStatus.

    /// \param program A path, or a name that is searched for in PATH.
    /// \param flag    Kept and not used.
    ChildProcess(std::string const& program, bool flag);
    virtual ~ChildProcess();

    /// Adds an argument behind the others. The first one, the program's name, is there already.
    void AddArgument(std::string const& argument);

    /// Adds "NAME=value". With one or more of these the child gets exactly these variables, `program` is not searched
    /// for, and the arguments are not handed over: the child has a single one, of no certain text. A child that needs
    /// arguments gets no variables.
    void AddEnvironmentVariable(std::string const& entry);

    /// Puts the child into the control group of that folder, by writing its id into the file "tasks" there; an empty
    /// text, the default, into none.
    void SetControlGroup(std::string const& directory);

    /// Starts the child, see fork(2) and exec(3). A child that was started before and not waited for is forgotten.
    /// \return Its process id, or -1.
    int Spawn();

    /// Waits for the child, see waitpid(2).
    ///
    /// A signal that is caught meanwhile ends the wait: the result is RESULT_NO_CHILD, and the child is forgotten.
    /// \return One of the RESULT_ values.
    int Wait();

    /// Spawn and Wait.
    /// \return As Wait; RESULT_NO_CHILD also when the child could not be started.
    int Exec();

    /// Sends the child a signal, see kill(2).
    /// \return 0, or -1 with `errno` set; -1 also when there is no child, and `errno` is not set then.
    int Signal(int signal);

    /// The exit code of the child, or the number of the signal that ended it; -1 before the first has ended.
    int GetStatus() const { return status_; }

    /// The child's process id while it is to be waited for, else -1.
    int GetPid() const { return pid_; }

private:
    void EnterPlacement();
    void EnterControlGroup();
    [[noreturn]] void Execute(std::vector<char*> const& arguments, std::vector<char*> const& environment) const;

    std::string program_;
    std::list<std::string> arguments_;
    std::list<std::string> environment_;
    std::string reserved1_;
    std::string reserved2_;
    bool flag_ __attribute__((unused));  // part of the layout
    int status_ = -1;
    int pid_ = -1;
    std::string controlGroup_;  // a folder; empty for none
    std::unique_ptr<StdIO> stdio_;
};

}}  // namespace tovu::util
