#include <sched.h>

#include <cerrno>
#include <memory>
#include <string>

#include "FaultFixture.h"
#include "FaultLog.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"
#include "tovu/util/Mutex.h"
#include "tovu/util/OwnerList.h"
#include "tovu/util/Singleton.h"
#include "tovu/util/Thread.h"
#include "tovu/util/XercesUtils.h"

namespace tovu { namespace test {

namespace {

using util::Exception;
using util::FormatString;
using util::HexFormatstring;
using util::LoggerMgr;
using util::Mutex;
using util::OwnerList;
using util::Singleton;
using util::Thread;

void RunException(Run& run)
{
    FaultScope const scope(run.fault);
    errno = ENOENT;
    Exception exception("a.cpp", 1, Exception::FromErrorCode(5));
    exception.locations.push_back(Exception::Location("b.cpp", 2));
    run.out << exception.Report();
}

Scenario ExceptionScenario()
{
    std::string const trail = "\nTraceback:\nthrown from a.cpp, line 1\n  seen at b.cpp, line 2";
    return {"Exception",
            {"Exception"},
            RunException,
            "No such file or directory" + trail,
            {Fails(Call::strerror, Gives("[0x5:5 - Unable to find message text]" + trail))},
            // A string stream that gets no memory ends where it is.
            {"No such file or directory\nTraceback:\n*"},
            true};
}

void RunFormat(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << FormatString("%d %s", 42, "and a text that is too long to be kept without memory");
    run.out << HexFormatstring("a text");
}

Scenario FormatScenario()
{
    return {"Format",
            {"Format"},
            RunFormat,
            "42 and a text that is too long to be kept without memory 61 20 74 65 78 74 " + std::string(31, ' ') +
                "a text\n",
            {Fails(Call::vsnprintf, Ignored())},  // as if the text had not fitted
            // A string stream that gets no memory ends where it is.
            {"42 and a text that is too long to be kept without memory *"},
            true};
}

// In a child, where the sinks of this process get nothing: what Deq hands out is looked at.
void RunLoggerMgr(Run& run)
{
    RunInFork(run, [](Run& inside) {
        LoggerMgr& manager = LoggerMgr::Instance();
        FaultScope const scope(inside.fault);
        manager.Log(LoggerMgr::LEVEL_DEBUG, "a.cpp", 1, "%s", "text");
        std::pair<std::string, std::string> const line = manager.Deq();
        inside.out << line.first << line.second;
    });
}

Scenario LoggerMgrScenario()
{
    Expected const noLock = ThrowsOther("boost::lock_error");
    return {"LoggerMgr",
            {"LoggerMgr"},
            RunLoggerMgr,
            "Debug a.cpp:1  text",
            {
                Fails(Call::vsnprintf, Ignored()),
                Fails(Call::pthread_mutex_lock, {noLock, AssertedByBoost(), noLock}),
            },
            {},
            true};
}

// The manager is made, and its thread started, in the child.
void RunLoggerMgrInit(Run& run)
{
    RunInFork(run, [](Run& inside) {
        FaultScope const scope(inside.fault);
        LoggerMgr::Instance().Init("name", LoggerMgr::LEVEL_DEBUG, LoggerMgr::HEADER_HOST, 0);
        LoggerMgr::Instance().Log(LoggerMgr::LEVEL_DEBUG, "a.cpp", 1, "%s", "");
        inside.out << LoggerMgr::Instance().GetLevel();
    });
}

Scenario LoggerMgrInitScenario()
{
    Expected const noResource = ThrowsOther("boost::thread_resource_error");
    return {"LoggerMgrInit",
            {"LoggerMgr"},
            RunLoggerMgrInit,
            "4",
            {
                // The lock of the instance; the manager's own; the one in its condition.
                Fails(Call::pthread_mutex_init, Times(3, noResource)),
                Fails(Call::pthread_cond_init, noResource),
                Fails(Call::pthread_condattr_init, noResource),
                Fails(Call::pthread_create, Ignored()),
                Fails(Call::gethostname, Ignored()),
            },
            {},
            true,
            true};
}

void RunMutex(Run& run)
{
    FaultScope const scope(run.fault);
    Mutex mutex;
    {
        Mutex::Guard const guard(mutex);
        run.out << "held";
    }
    run.out << "released";
}

Scenario MutexScenario()
{
    return {"Mutex",
            {"Mutex"},
            RunMutex,
            "held released",
            {
                Fails(Call::pthread_mutex_init, Ignored()),
                Fails(Call::pthread_mutex_lock, Ignored()),
            },
            {},
            true};
}

void RunOwnerList(Run& run)
{
    FaultScope const scope(run.fault);
    OwnerList<std::string> texts;
    for (char const* const text : {"one", "two"}) {
        std::unique_ptr<std::string> owned(new std::string(text));
        texts.push_back(owned.get());
        owned.release();
    }
    run.out << texts.size();
}

Scenario OwnerListScenario()
{
    return {"OwnerList", {"OwnerList"}, RunOwnerList, "2", {}, {}, true};
}

class Single : public Singleton<Single>
{
public:
    int answer = 42;
};

// A child makes its first instance each time. What could not be made is made by the next one who asks.
void RunSingleton(Run& run)
{
    RunInFork(run, [](Run& inside) {
        FaultScope const scope(inside.fault);
        try {
            inside.out << Single::Instance().answer;
        } catch (std::bad_alloc const&) {
            inside.out << "not yet" << Single::Instance().answer;
        }
    });
}

Scenario SingletonScenario()
{
    return {"Singleton",
            {"Singleton"},
            RunSingleton,
            "42",
            {
                Fails(Call::pthread_mutex_init, ThrowsOther("boost::thread_resource_error")),
                Fails(Call::pthread_mutex_lock, ThrowsOther("boost::lock_error")),
            },
            {"not yet 42"},
            true};
}

class Counter : public Thread
{
public:
    void Run() override { __atomic_add_fetch(&count_, 1, __ATOMIC_RELAXED); }

    int Count() const { return __atomic_load_n(&count_, __ATOMIC_RELAXED); }

private:
    int count_ = 0;
};

void Start(Run& run)
{
    Counter counter;
    int const started = counter.Create(0, 0, false);
    run.out << started;
    if (started == 0)
        run.out << counter.Wait();
    run.out << counter.Count();
}

void RunThread(Run& run)
{
    FaultScope const scope(run.fault);
    Start(run);
}

Scenario ThreadScenario()
{
    return {"Thread",
            {"Thread"},
            RunThread,
            "0 0 1",
            {
                Fails(Call::pthread_create, Gives("%N 0")),
                Fails(Call::pthread_join, Gives("0 %N 1")),
            },
            {std::to_string(EAGAIN) + " 0", std::to_string(ENOMEM) + " 0"},
            true};
}

// Where there is no second processor the call fails without a fault, too.
void RunThreadOnProcessor(Run& run)
{
    cpu_set_t processors;
    CPU_ZERO(&processors);
    bool const another = sched_getaffinity(0, sizeof(processors), &processors) == 0 && CPU_ISSET(1, &processors) != 0;

    FaultScope const scope(run.fault);
    Counter counter;
    int const result = counter.Create(0, 1, false);
    bool const failed = FaultScope::HasHappened();
    run.out << (another || failed ? result : 0);
    if (!failed || run.fault.call == Call::pthread_setaffinity_np)
        run.out << counter.Wait();
    run.out << counter.Count();
}

Scenario ThreadOnProcessorScenario()
{
    return {"ThreadOnAProcessor",
            {"Thread"},
            RunThreadOnProcessor,
            "0 0 1",
            {
                Fails(Call::pthread_create, Gives("%N 0")),
                Fails(Call::pthread_setaffinity_np, Gives("%N 0 1")),
                Fails(Call::pthread_join, Gives("0 %N 1")),
            },
            {std::to_string(EAGAIN) + " 0", std::to_string(ENOMEM) + " 0"},
            true};
}

// The thread itself sets its priority.
void RunThreadPriority(Run& run)
{
    FaultScope const scope(run.fault, FaultScope::ALL_THREADS);
    Start(run);
}

Scenario ThreadPriorityScenario()
{
    Scenario scenario = ThreadScenario();
    scenario.name = "ThreadPriority";
    scenario.run = RunThreadPriority;
    scenario.rules.push_back(Fails(Call::setpriority, Ignored()));
    return scenario;
}

void RunXercesUtils(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << util::char2string("a text that is too long to be kept without memory");
    run.out << util::EncodeXMLCharEntities("<&>") << util::XMLFileLoc2string(42, "%u");
}

Scenario XercesUtilsScenario()
{
    return {"XercesUtils",
            {"XercesUtils"},
            RunXercesUtils,
            "a text that is too long to be kept without memory &lt;&amp;&gt; 42",
            {},
            {},
            true};
}

}  // namespace

std::vector<Scenario> FoundationScenarios()
{
    return {ExceptionScenario(),      FormatScenario(),     LoggerMgrScenario(),
            LoggerMgrInitScenario(),  MutexScenario(),      OwnerListScenario(),
            SingletonScenario(),      ThreadScenario(),     ThreadOnProcessorScenario(),
            ThreadPriorityScenario(), XercesUtilsScenario()};
}

}}  // namespace tovu::test
