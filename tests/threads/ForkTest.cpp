// Processes that are forked while other threads log.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildOrSkip.h"
#include "ChildProcess.h"
#include "ChildPrograms.h"
#include "Descriptors.h"
#include "Emulation.h"
#include "Latch.h"
#include "OwnLog.h"
#include "PrivateMember.h"
#include "QueuedLog.h"
#include "Sanitizers.h"
#include "tovu/util/ChildProcess.h"
#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

using test::DEADLINE;
using test::Latch;
using test::Shell;
using Lines = std::vector<std::string>;

char const* const MISSING = "/missing/program";

// ---- Eight threads that log, a ninth that forks.

constexpr unsigned LOGGING_THREADS = 8;
constexpr unsigned LONGEST_BACKLOG = 10000;  // lines: a log thread that gets less time than eight would not keep up
constexpr unsigned LONGEST_RUN = 240;        // seconds; a process that hangs is ended then

unsigned CountForks()
{
    return test::IsEmulated() || test::RunsUnderMemcheck() ? 100 : test::MEMORY_IS_WATCHED ? 300 : 2000;
}

std::string LineOf(unsigned thread, unsigned line)
{
    return "thread " + std::to_string(thread) + ", line " + std::to_string(line) + ", to its end\n";
}

// Counts the lines that come whole and in their thread's order; the others as well.
class OrderSink : public Logger
{
public:
    void Log(std::string const& /*header*/, std::string const& message) override
    {
        unsigned thread = 0;
        bool const known = std::sscanf(message.c_str(), "thread %u", &thread) == 1 && thread < LOGGING_THREADS;
        if (known && message == LineOf(thread, next[thread]))
            ++next[thread];
        else
            ++misplaced;
        ++delivered;
    }

    std::atomic<unsigned> delivered{0};
    std::atomic<unsigned> misplaced{0};
    std::atomic<unsigned> next[LOGGING_THREADS] = {};
};

class LoggingThreads
{
public:
    LoggingThreads()
    {
        test::AddLogger(sink_);
        unsigned const flags = 0xff & ~LoggerMgr::HEADER_BANNER;
        LoggerMgr::Instance().Init("test", LoggerMgr::LEVEL_INFO, flags, 0);
        for (unsigned thread = 0; thread < LOGGING_THREADS; ++thread)
            threads_.emplace_back([this, thread] { LogLines(thread); });
    }

    /// Ends the threads. How many lines came through, each once and in its place: all of them.
    unsigned Stop()
    {
        stop_ = true;
        for (std::thread& thread : threads_)
            thread.join();
        EXPECT_TRUE(WaitFor([this] { return sink_->delivered >= logged_; })) << "lines are missing";
        EXPECT_EQ(logged_, sink_->delivered);
        EXPECT_EQ(0u, sink_->misplaced);
        for (unsigned thread = 0; thread < LOGGING_THREADS; ++thread)
            EXPECT_EQ(counts_[thread], sink_->next[thread]) << "thread " << thread;
        return logged_;
    }

private:
    template <typename Condition>
    static bool WaitFor(Condition condition)
    {
        auto const end = std::chrono::steady_clock::now() + DEADLINE;
        while (!condition() && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        return condition();
    }

    void LogLines(unsigned thread)
    {
        unsigned line = 0;
        for (; !stop_; ++line) {
            TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s", LineOf(thread, line).c_str());
            ++logged_;
            WaitFor([this] { return stop_ || logged_ < sink_->delivered + LONGEST_BACKLOG; });
        }
        counts_[thread] = line;
    }

    OrderSink* const sink_ = new OrderSink;  // the manager's
    std::atomic<bool> stop_{false};
    std::atomic<unsigned> logged_{0};
    unsigned counts_[LOGGING_THREADS] = {};
    std::vector<std::thread> threads_;
};

TEST(ForkTest, EveryProgramRunsAndEveryLineComesWhileEightThreadsLogAndANinthForks)
{
    test::ChildResult const result = test::RunInChild([] {
        alarm(LONGEST_RUN);
        std::size_t const descriptors = test::CountDescriptors();
        LoggingThreads threads;
        unsigned const forks = CountForks();
        for (unsigned i = 0; i < forks; ++i) {
            int const code = static_cast<int>(i % 256);
            Shell child("exit " + std::to_string(code));
            ASSERT_EQ(code == 0 ? ChildProcess::RESULT_SUCCESS : ChildProcess::RESULT_FAILURE, child.Exec()) << i;
            ASSERT_EQ(code, child.GetStatus()) << i;
        }
        unsigned const lines = threads.Stop();
        EXPECT_GT(lines, forks);
        EXPECT_EQ(descriptors, test::CountDescriptors());
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child is left behind";
        std::printf("%u programs ran while %u threads logged %u lines\n", forks, LOGGING_THREADS, lines);
    });
    EXPECT_TRUE(result.exited && result.code == 0) << result.code;
    std::printf("%s", result.output.c_str());
}

// ---- A child whose parent's log is busy.

TOVU_PRIVATE_MEMBER(QueueMutex, boost::mutex, LoggerMgr, mutex_);

// Another thread is just logging, for as long as this lives.
class BusyLog
{
public:
    BusyLog()
        : thread_([this] {
              boost::unique_lock<boost::mutex> lock(QueueMutex::Of(LoggerMgr::Instance()));
              taken_.Arrive();
              EXPECT_TRUE(gate_.WaitFor()) << "the log was not let go";
          })
    {
        EXPECT_TRUE(taken_.WaitFor()) << "the log could not be taken";
    }

    BusyLog(BusyLog const&) = delete;
    BusyLog& operator=(BusyLog const&) = delete;

    ~BusyLog()
    {
        gate_.Arrive();
        thread_.join();
    }

private:
    Latch taken_;
    Latch gate_;
    std::thread thread_;
};

// The number of the system call that the only thread of a process is in; -1 while it runs.
long SystemCallOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/syscall");
    long number = -1;
    file >> number;
    return file ? number : -1;
}

bool WaitsForALock(pid_t process)
{
    auto const end = std::chrono::steady_clock::now() + DEADLINE;
    while (SystemCallOf(process) != SYS_futex && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    return SystemCallOf(process) == SYS_futex;
}

void SkipUnlessCallsAreShown()
{
    if (test::IsEmulated() || test::RunsUnderMemcheck())
        test::SkipFromChild("the kernel shows the system calls of the emulator");
    if (!std::ifstream("/proc/self/syscall").good())
        test::SkipFromChild("the kernel does not show in which system call a process is");
}

// Its only thread waits for a lock that was another's when it was forked. There is no other thread to give it back.
TEST(ForkTest, ChildThatLogsHangsWhenTheLogWasBusyAsItWasForked)
{
    test::ExpectPassesInChildOrSkips([] {
        SkipUnlessCallsAreShown();
        test::InitLogWithoutThread(LoggerMgr::LEVEL_ERROR);
        ChildProcess child(MISSING, false);
        {
            BusyLog const busy;
            ASSERT_LT(0, child.Spawn());
            EXPECT_TRUE(WaitsForALock(child.GetPid()));
        }
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "the parent's log is free again\n");
        EXPECT_EQ(SYS_futex, SystemCallOf(child.GetPid())) << "the child's is not";
        EXPECT_EQ(0, child.Signal(SIGKILL));
        EXPECT_EQ(ChildProcess::RESULT_SIGNAL, child.Wait());
        EXPECT_EQ(SIGKILL, child.GetStatus());
    });
}

TEST(ForkTest, ChildWhoseProgramIsThereRunsItHoweverBusyTheLogWas)
{
    test::ExpectPassesInChild([] {
        test::InitLogWithoutThread(LoggerMgr::LEVEL_ERROR);
        BusyLog const busy;
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, Shell("exit 0").Exec());
    });
}

TEST(ForkTest, ChildBelowTheThresholdEndsHoweverBusyTheQueueWas)
{
    test::ExpectPassesInChild([] {
        test::InitLogWithoutThread(0);
        BusyLog const busy;
        ChildProcess child(MISSING, false);
        EXPECT_EQ(ChildProcess::RESULT_FAILURE, child.Exec());
        EXPECT_EQ(ENOENT, child.GetStatus());
    });
}

// ---- What a child logs.

TEST(ForkTest, LineOfAChildNeverComesToTheSinksOfItsParent)
{
    test::ExpectPassesInChild([] {
        test::OwnLog log;
        log.Hold();  // outside of the lock, which the child would not get otherwise
        EXPECT_EQ(ChildProcess::RESULT_FAILURE, ChildProcess(MISSING, false).Exec());
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "of the parent\n");
        log.LetGo();
        EXPECT_EQ((Lines{"held", "of the parent\n"}), log.Take());
    });
}

TEST(ForkTest, ForkedProcessHasACopyOfTheQueueThatNobodyEmpties)
{
    test::ExpectPassesInChild([] {
        test::OwnLog log;
        log.Hold();
        TOVU_LOG(LoggerMgr::LEVEL_ERROR, "of the parent\n");
        test::ExpectPassesInChild([] {
            TOVU_LOG(LoggerMgr::LEVEL_ERROR, "of the child\n");
            EXPECT_EQ((Lines{"of the parent\n", "of the child\n"}), test::TakeQueuedLines());
        });
        log.LetGo();
        EXPECT_EQ((Lines{"held", "of the parent\n"}), log.Take());
    });
}

}}}  // namespace tovu::util
