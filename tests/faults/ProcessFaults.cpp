#include <dlfcn.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "FaultFixture.h"
#include "FaultLog.h"
#include "Latch.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/DynamicLibrary.h"
#include "tovu/util/JobQueue.h"

namespace tovu { namespace test {

namespace {

using util::ChildProcess;
using util::DynamicLibrary;
using util::JobQueue;

// An exception that leaves Spawn in the new process would go on here as a second copy of the test.
constexpr int ESCAPED = 199;

template <typename Action>
void InParentOnly(Action action)
{
    pid_t const parent = getpid();
    try {
        action();
    } catch (...) {
        if (getpid() != parent)
            _exit(ESCAPED);
        throw;
    }
}

void Execute(Run& run, ChildProcess& child)
{
    FaultLog::AwaitSleep();  // the new process logs
    FaultScope const scope(run.fault);
    InParentOnly([&] { run.out << child.Exec() << child.GetStatus(); });
}

// What a child leaves that ends before it becomes the program, for want of memory.
std::string const NO_MEMORY_IN_CHILD = "1 " + std::to_string(ENOMEM);

std::vector<Rule> WithChild(std::vector<Rule> rules)
{
    rules.push_back(Fails(Call::fork, Gives("2 -1").Logging("src/util/ChildProcess.cpp:103 fork failed (%E).")));
    rules.push_back(Fails(Call::waitpid, Gives("2 -1")));
    return rules;
}

void RunChildProcess(Run& run)
{
    ChildProcess child("sh", false);
    child.AddArgument("-c");
    child.AddArgument("exit 7");
    Execute(run, child);
}

Scenario ChildProcessScenario()
{
    return {"ChildProcess",
            {"ChildProcess"},
            RunChildProcess,
            "1 7",
            WithChild({Fails(Call::execvp, Gives("1 %N"))}),
            {NO_MEMORY_IN_CHILD},
            true};
}

void RunChildProcessWithEnvironment(Run& run)
{
    ChildProcess child("/bin/true", false);
    child.AddEnvironmentVariable("NAME=value");
    Execute(run, child);
}

Scenario ChildProcessWithEnvironmentScenario()
{
    return {"ChildProcessWithVariables",
            {"ChildProcess"},
            RunChildProcessWithEnvironment,
            "0 0",
            WithChild({Fails(Call::execle, Gives("1 %N"))}),
            {NO_MEMORY_IN_CHILD},
            true};
}

void RunChildProcessInGroup(Run& run)
{
    ChildProcess child("/bin/true", false);
    static std::string const group = FaultFolder() / ".";
    child.SetControlGroup(group);
    Execute(run, child);
}

Scenario ChildProcessInGroupScenario()
{
    return {"ChildProcessInAControlGroup",
            {"ChildProcess"},
            RunChildProcessInGroup,
            "0 0",
            WithChild({
                Fails(Call::fopen, Gives("1 %N")),
                Fails(Call::fprintf, Ignored()),
                Fails(Call::fclose, Ignored()),
                Fails(Call::execvp, Gives("1 %N")),
            }),
            {NO_MEMORY_IN_CHILD},
            true};
}

void RunChildProcessWithLimit(Run& run)
{
    static char variable[] = "TOVU_CHILD_MEMSW_LIMIT=4000000000";
    putenv(variable);
    ChildProcess child("/bin/true", false);
    Execute(run, child);
    unsetenv("TOVU_CHILD_MEMSW_LIMIT");
}

Scenario ChildProcessWithLimitScenario()
{
    return {"ChildProcessWithALimit",
            {"ChildProcess"},
            RunChildProcessWithLimit,
            "0 0",
            WithChild({
                Fails(Call::getrlimit, Ignored()),
                Fails(Call::setrlimit, Ignored()),
                Fails(Call::execvp, Gives("1 %N")),
            }),
            {NO_MEMORY_IN_CHILD},
            true};
}

// To a child that has ended and is still to be waited for.
void RunSignal(Run& run)
{
    ChildProcess child("/bin/true", false);
    FaultLog::AwaitSleep();
    child.Spawn();
    {
        FaultScope const scope(run.fault);
        run.out << child.Signal(0);
    }
    run.out << child.Wait();
}

Scenario SignalScenario()
{
    return {"ChildProcessSignal", {"ChildProcess"}, RunSignal, "0 0", {Fails(Call::kill, Gives("-1 0"))}, {}, true};
}

void RunStdIO(Run& run)
{
    FaultScope const scope(run.fault);
    ChildProcess::StdIO const pipes;
    run.out << (pipes.inPipe[0] != -1) << (pipes.outPipe[1] != -1) << (pipes.errPipe[0] != -1);
}

Scenario StdIOScenario()
{
    std::string const source = "src/util/ChildProcess.cpp";
    return {"ChildProcessStdIO",
            {"ChildProcess"},
            RunStdIO,
            "true true true",
            {
                Fails(Call::pipe, {Gives("false true true").Logging(source + ":250 pipe (inPipe) failed (%E)."),
                                   Gives("true false true").Logging(source + ":254 pipe (outPipe) failed (%E)."),
                                   Gives("true true false").Logging(source + ":258 pipe (errPipe) failed (%E).")}),
                Fails(Call::close, Times(6, Ignored())),
            },
            {},
            true};
}

void RunDynamicLibrary(Run& run)
{
    static std::string const plugin = PLUGIN;
    FaultScope const scope(run.fault);
    DynamicLibrary library;
    library.Load(plugin);
    run.out << (library.GetProc("PluginAnswer") != nullptr);
    library.Unload();
    run.out << "unloaded";
}

// The loader tells its failures in its own words. A library that could not be unloaded stays, and the destructor tries
// again.
Scenario DynamicLibraryScenario()
{
    std::string const source = "src/util/DynamicLibrary.cpp";
    Expected const fails = ThrowsOther("Exception '" + std::string(TEXT_OF_LOADER) + "' " + source);
    return {"DynamicLibrary",
            {"DynamicLibrary"},
            RunDynamicLibrary,
            "true unloaded",
            {
                Fails(Call::dlopen, fails),
                Fails(Call::dlclose, fails),
            },
            {"Exception '*' " + source},
            true};
}

// A library that the destructor could not unload stays as well: this takes it out of the process.
void CloseWhatIsLeft(std::string const& plugin)
{
    void* const left = dlopen((plugin + ".so").c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (left != nullptr) {
        dlclose(left);
        dlclose(left);
    }
}

void RunDynamicLibraryDestructor(Run& run)
{
    static std::string const plugin = PLUGIN;
    {
        FaultScope const scope(run.fault);
        DynamicLibrary library;
        library.Load(plugin);
        run.out << "loaded";
    }
    CloseWhatIsLeft(plugin);
}

Scenario DynamicLibraryDestructorScenario()
{
    std::string const source = "src/util/DynamicLibrary.cpp";
    std::string const words = TEXT_OF_LOADER;
    return {"DynamicLibraryDestructor",
            {"DynamicLibrary"},
            RunDynamicLibraryDestructor,
            "loaded",
            {
                Fails(Call::dlopen, ThrowsOther("Exception '" + words + "' " + source)),
                Fails(Call::dlclose, Ignored().Logging(source + " " + words)),
            },
            {"Exception '*' " + source},
            true};
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface

class NamedJob : public JobQueue::Job
{
public:
    explicit NamedJob(Latch& done) : done_(done) {}
    std::string GetName() const override { return "job"; }
    void Setup(bool const& /*stop*/) override {}
    void Execute(bool const& /*stop*/) override {}
    void Cleanup(bool const& /*stop*/) override { done_.Arrive(); }

private:
    Latch& done_;
};

std::auto_ptr<JobQueue::Job> MakeJob(Latch& done)
{
    return std::auto_ptr<JobQueue::Job>(new NamedJob(done));
}

// A queue without workers. It is destroyed without faults: it could not do without its mutex.
void RunJobQueue(Run& run)
{
    Latch done;
    std::unique_ptr<JobQueue> queue;
    {
        FaultScope const scope(run.fault);
        queue.reset(new JobQueue(0, 0));
        queue->Enq(MakeJob(done));
        run.out << queue->Cancel("job");
        queue->Enq(MakeJob(done));
        queue->CancelAll();
        queue->Enq(MakeJob(done));
    }
    run.out << done.Count();
}

Scenario JobQueueScenario()
{
    Expected const noResource = ThrowsOther("boost::thread_resource_error");
    Expected const noLock = ThrowsOther("boost::lock_error");
    return {"JobQueue",
            {"JobQueue"},
            RunJobQueue,
            "true 0",
            {
                // The lock of Start and Stop, whose failure nobody looks at; the queue's own; the one in the condition.
                Fails(Call::pthread_mutex_init, {Ignored(), noResource, noResource}),
                Fails(Call::pthread_cond_init, noResource),
                Fails(Call::pthread_condattr_init, noResource),
                // Those of Start, of the first Enq and its wake-up, of Cancel, of the second Enq and its wake-up, of
                // CancelAll, and of the third Enq and its wake-up.
                Fails(Call::pthread_mutex_lock, {Ignored(), noLock, AssertedByBoost(), noLock, noLock,
                                                 AssertedByBoost(), noLock, noLock, AssertedByBoost()}),
            },
            {},
            true};
}

// A worker that could not be started is waited for all the same, so this queue is left to the end of a process. The
// faults of threads that it starts are theirs.
void RunJobQueueWorker(Run& run)
{
    RunInFork(run, [](Run& inside) {
        bool const here = inside.fault.call == Call::malloc || inside.fault.call == Call::pthread_create;
        FaultScope const scope(inside.fault, here ? FaultScope::THIS_THREAD : FaultScope::ALL_THREADS);
        static JobQueue* const queue = new JobQueue(1, 0);
        static_cast<void>(queue);
        while (!here && FaultScope::CountOf(Call::pthread_cond_wait) == 0)
            sched_yield();
        while (inside.fault.call == Call::pthread_cond_wait && FaultScope::HasHappened())
            pause();
        inside.out << "made";
    });
}

Scenario JobQueueWorkerScenario()
{
    return {"JobQueueWorker",
            {"JobQueue"},
            RunJobQueueWorker,
            "made",
            {
                Fails(Call::pthread_cond_init, ThrowsOther("boost::thread_resource_error")),
                Fails(Call::pthread_condattr_init, ThrowsOther("boost::thread_resource_error")),
                Fails(Call::pthread_create, Ignored()),
                Fails(Call::setpriority, Ignored()),
                // The exception leaves the worker, where nobody catches it.
                Fails(Call::pthread_cond_wait, Gives("ended by signal " + std::to_string(SIGABRT))),
            },
            {},
            true,
            true};
}

void RunJobQueueStop(Run& run)
{
    Latch done;
    JobQueue queue(1, 0);
    queue.Enq(MakeJob(done));
    run.out << done.WaitFor();
    FaultScope const scope(run.fault);
    queue.Stop();
}

Scenario JobQueueStopScenario()
{
    return {"JobQueueStop", {"JobQueue"}, RunJobQueueStop, "true", {Fails(Call::pthread_join, Ignored())}, {}, false};
}

#pragma GCC diagnostic pop

}  // namespace

std::vector<Scenario> ProcessScenarios()
{
    return {ChildProcessScenario(),
            ChildProcessWithEnvironmentScenario(),
            ChildProcessInGroupScenario(),
            ChildProcessWithLimitScenario(),
            SignalScenario(),
            StdIOScenario(),
            DynamicLibraryScenario(),
            DynamicLibraryDestructorScenario(),
            JobQueueScenario(),
            JobQueueWorkerScenario(),
            JobQueueStopScenario()};
}

}}  // namespace tovu::test
