// The program that ThreadsAndForkTest starts to see it end: with lines in the log manager's queue, a log thread at work,
// and, unless something stands in the way, the exit status 42. Its argument says how:
//
//   main           main returns; the sink takes each line
//   thread         as main, but another thread calls exit
//   stuck          main returns; the sink never comes back from the first line
//   stuck_thread   as stuck, but another thread calls exit
//   late           an exit handler logs, one that was there before the manager; it exits with 43 when it cannot
//   late_thread    a thread logs as late as that

#include <unistd.h>

#include <boost/thread/exceptions.hpp>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "../support/Latch.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"

namespace {

using tovu::test::Latch;
using tovu::util::Logger;
using tovu::util::LoggerMgr;

constexpr int STATUS = 42;
constexpr int STATUS_WITHOUT_LOG = 43;
constexpr int LINES = 2000;
constexpr unsigned LONGEST_RUN = 60;  // seconds, for a program that cannot end

[[noreturn]] void WaitForever()
{
    for (;;)
        pause();
}

class Sink : public Logger
{
public:
    Sink(bool stuck, Latch& reached) : stuck_(stuck), reached_(reached) {}

    void Log(std::string const& /*header*/, std::string const& message) override
    {
        if (write(STDOUT_FILENO, message.data(), message.size()) == -1)
            std::abort();
        reached_.Arrive();
        if (stuck_)
            WaitForever();
    }

private:
    bool const stuck_;
    Latch& reached_;
};

// Comes back when the log thread is at work and most lines wait for it.
void LeaveLines(bool stuck)
{
    static Latch* const reached = new Latch;  // the log thread uses it until the process ends
    LoggerMgr& manager = LoggerMgr::Instance();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
    manager.AddLogger(std::auto_ptr<Logger>(new Sink(stuck, *reached)));
#pragma GCC diagnostic pop
    manager.Init("exiting", LoggerMgr::LEVEL_INFO, 0, 0);
    for (int line = 0; line < LINES; ++line)
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "line %d\n", line);
    if (!reached->WaitFor())
        std::abort();
}

int ReturnFromMain(bool stuck)
{
    LeaveLines(stuck);
    return STATUS;
}

int ExitFromAThread(bool stuck)
{
    LeaveLines(stuck);
    std::thread([] { std::exit(STATUS); }).detach();
    WaitForever();
}

void LogLate()
{
    try {
        TOVU_LOG(LoggerMgr::LEVEL_INFO, "late\n");
    } catch (boost::lock_error const&) {
        _exit(STATUS_WITHOUT_LOG);
    }
}

int LogLateFromMain()
{
    std::atexit(&LogLate);
    return ReturnFromMain(true);
}

int LogLateFromAThread()
{
    static Latch* const late = new Latch;
    std::atexit([] {
        late->Arrive();
        WaitForever();
    });
    std::thread([] {
        if (late->WaitFor())
            TOVU_LOG(LoggerMgr::LEVEL_INFO, "late\n");
        _exit(STATUS_WITHOUT_LOG);
    }).detach();
    return ReturnFromMain(true);
}

}  // namespace

int main(int argc, char** argv)
{
    alarm(LONGEST_RUN);
    std::map<std::string, std::function<int()>> const ways = {
        {"main", [] { return ReturnFromMain(false); }},
        {"thread", [] { return ExitFromAThread(false); }},
        {"stuck", [] { return ReturnFromMain(true); }},
        {"stuck_thread", [] { return ExitFromAThread(true); }},
        {"late", &LogLateFromMain},
        {"late_thread", &LogLateFromAThread},
    };
    auto const way = ways.find(argc > 1 ? argv[1] : "");
    return way == ways.end() ? EXIT_FAILURE : way->second();
}
