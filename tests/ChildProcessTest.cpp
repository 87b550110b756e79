#include "tovu/util/ChildProcess.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/noncopyable.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "CFunction.h"
#include "ChildOrSkip.h"
#include "ChildProcess.h"
#include "ChildPrograms.h"
#include "Descriptors.h"
#include "Emulation.h"
#include "EnvironmentVariable.h"
#include "ExecleWatch.h"
#include "FailingAllocation.h"
#include "ForeignPrograms.h"
#include "Interruptions.h"
#include "KillGuard.h"
#include "LastWords.h"
#include "MemoryGroup.h"
#include "OpenFlags.h"
#include "PipePair.h"
#include "PrivateMember.h"
#include "QueuedLog.h"
#include "Sanitizers.h"
#include "TemporaryDirectory.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

using test::CFunction;
using test::EndForgotten;
using test::EnvironmentVariable;
using test::LastWords;
using test::Shell;
using test::Waiting;
using Lines = std::vector<std::string>;
using StdIO = ChildProcess::StdIO;

CFunction<int(int*)> pipeCall("pipe");
CFunction<pid_t(pid_t, int*, int)> waitCall("waitpid");

static_assert(std::is_base_of<boost::noncopyable, ChildProcess>::value, "declared non-copyable");
static_assert(!std::is_copy_constructible<ChildProcess>::value, "non-copyable");
static_assert(!std::is_copy_assignable<ChildProcess>::value, "non-copyable");
static_assert(std::has_virtual_destructor<ChildProcess>::value, "a base class");
static_assert(std::is_nothrow_destructible<ChildProcess>::value, "the destructor never throws");
static_assert(!std::is_copy_constructible<StdIO>::value && !std::is_copy_assignable<StdIO>::value, "one owner");
static_assert(std::is_nothrow_destructible<StdIO>::value, "the destructor never throws");
static_assert(std::is_standard_layout<StdIO>::value, "plain data");
static_assert(ChildProcess::RESULT_SUCCESS == 0 && ChildProcess::RESULT_FAILURE == 1 &&
                  ChildProcess::RESULT_NO_CHILD == 2 && ChildProcess::RESULT_SIGNAL == 3,
              "");

char const* const LIMIT = "TOVU_CHILD_MEMSW_LIMIT";
char const* const MISSING = "/missing/program";

void TellQueuedLines(int descriptor)
{
    for (std::string const& line : test::TakeQueuedLines())
        EXPECT_EQ(static_cast<ssize_t>(line.size()), write(descriptor, line.data(), line.size()));
}

class ChildProcessTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { _canStart = test::CanStart(CHILD_PROGRAM); }

    void SetUp() override
    {
        if (!_canStart)
            GTEST_SKIP() << test::CANNOT_START;
    }

    ~ChildProcessTest() override
    {
        EXPECT_EQ(descriptors_, test::CountDescriptors());
        EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child is left behind";
    }

    // What CHILD_PROGRAM wrote about itself, those of its items that begin with `kind`; without that.
    Lines Report(std::string const& kind) const
    {
        std::istringstream report(test::ReadFile(report_));
        Lines items;
        for (std::string item; std::getline(report, item, '\0');) {
            if (item.compare(0, kind.size(), kind) == 0)
                items.push_back(item.substr(kind.size()));
        }
        return items;
    }

    bool HasReport() const { return access(report_.c_str(), F_OK) == 0; }

    // A script whose output can be read afterwards.
    std::string Writing(std::string const& commands) const { return "{ " + commands + "; } >" + output_; }
    std::string Output() const { return test::ReadFile(output_); }

    // What the shell says of its limits: the soft one, then the hard one.
    std::string Limits() const
    {
        EXPECT_EQ(0, Shell(Writing("ulimit -Sv; ulimit -Hv")).Exec());
        return Output();
    }

    static bool _canStart;
    std::size_t const descriptors_ = test::CountDescriptors();
    test::TemporaryDirectory const folder_;
    std::string const report_ = folder_ / "report";
    std::string const output_ = folder_ / "output";
    EnvironmentVariable const reportVariable_{"CHILD_REPORT", report_};
    EnvironmentVariable const noLimit_{LIMIT, nullptr};
};

bool ChildProcessTest::_canStart = false;

// ---- How a child ends.

TEST_F(ChildProcessTest, StartsIdle)
{
    ChildProcess process(CHILD_PROGRAM, false);
    EXPECT_EQ(-1, process.GetPid());
    EXPECT_EQ(-1, process.GetStatus());
    EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
    EXPECT_EQ(-1, process.GetStatus());
    EXPECT_FALSE(HasReport());
}

TEST_F(ChildProcessTest, ExitWithZeroIsSuccess)
{
    for (bool const flag : {false, true}) {
        ChildProcess process(CHILD_PROGRAM, flag);
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
        EXPECT_EQ(0, process.GetStatus());
        EXPECT_EQ(-1, process.GetPid());
    }
}

TEST_F(ChildProcessTest, ExitWithAnotherCodeIsAFailureWithThatStatus)
{
    for (int const code : {1, 7, 128, 255}) {
        Shell process("exit " + std::to_string(code));
        EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
        EXPECT_EQ(code, process.GetStatus());
        EXPECT_EQ(-1, process.GetPid());
    }
}

TEST_F(ChildProcessTest, EndBySignalHasTheSignalAsItsStatus)
{
    for (int const number : {SIGHUP, SIGKILL, SIGTERM, SIGUSR1}) {
        Shell process("kill -" + std::to_string(number) + " $$");
        EXPECT_EQ(ChildProcess::RESULT_SIGNAL, process.Exec());
        EXPECT_EQ(number, process.GetStatus());
        EXPECT_EQ(-1, process.GetPid());
    }
}

TEST_F(ChildProcessTest, SpawnReturnsTheProcessId)
{
    Shell process(Writing("echo $$"));
    int const pid = process.Spawn();
    EXPECT_EQ(pid, process.GetPid());
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Wait());
    EXPECT_EQ(std::to_string(pid) + "\n", Output());
}

TEST_F(ChildProcessTest, SecondWaitFindsNoChildAndKeepsTheStatus)
{
    Shell process("exit 7");
    process.Exec();
    EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
    EXPECT_EQ(7, process.GetStatus());
}

TEST_F(ChildProcessTest, CanRunSeveralTimes)
{
    Shell process(Writing("echo again >>" + report_ + "; wc -l <" + report_));
    for (char const* const lines : {"1\n", "2\n", "3\n"}) {
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
        EXPECT_EQ(lines, Output());
    }
}

TEST_F(ChildProcessTest, EachObjectWaitsForItsOwnChild)
{
    Shell first("exit 3");
    Shell second("exit 4");
    siginfo_t ended;
    EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(first.Spawn()), &ended, WEXITED | WNOWAIT));
    second.Spawn();
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, second.Wait());
    EXPECT_EQ(4, second.GetStatus());
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, first.Wait());
    EXPECT_EQ(3, first.GetStatus());
}

TEST_F(ChildProcessTest, WaitAsksOnceForTheEndOfTheChildAndForNothingElse)
{
    using Question = std::pair<pid_t, int>;
    Shell process("exit 0");
    pid_t const child = process.Spawn();
    std::vector<Question> questions;
    {
        decltype(waitCall)::Replacement const noting(waitCall, [&](pid_t asked, int* status, int options) {
            questions.emplace_back(asked, options);
            return waitCall.System(asked, status, options);
        });
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Wait());
        EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
    }
    EXPECT_EQ(std::vector<Question>(1, Question(child, 0)), questions);
}

TEST_F(ChildProcessTest, SpawnForgetsAChildThatWasNotWaitedFor)
{
    Waiting process;
    pid_t const first = process.Spawn();
    pid_t const second = process.Spawn();
    EXPECT_NE(first, second);
    EXPECT_EQ(second, process.GetPid());
    EXPECT_EQ(SIGUSR1, EndForgotten(first));
    process.Signal(SIGTERM);
    EXPECT_EQ(ChildProcess::RESULT_SIGNAL, process.Wait());
}

TEST_F(ChildProcessTest, DestructorNeitherEndsNorWaitsForTheChild)
{
    std::unique_ptr<Waiting> process(new Waiting);
    pid_t const child = process->Spawn();
    unsigned waits = 0;
    {
        decltype(waitCall)::Replacement const counting(waitCall, [&waits](pid_t asked, int* status, int options) {
            ++waits;
            return waitCall.System(asked, status, options);
        });
        process.reset();
    }
    EXPECT_EQ(0u, waits);
    EXPECT_EQ(SIGUSR1, EndForgotten(child));
}

TEST_F(ChildProcessTest, WaitFailsWhereTheSystemForgetsChildren)
{
    test::ExpectPassesInChild([] {
        Shell process("exit 7");
        process.Exec();
        ASSERT_NE(SIG_ERR, signal(SIGCHLD, SIG_IGN));
        EXPECT_LT(0, process.Spawn());
        EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
        EXPECT_EQ(ECHILD, errno);
        EXPECT_EQ(-1, process.GetPid());
        EXPECT_EQ(7, process.GetStatus());
    });
}

TEST_F(ChildProcessTest, InterruptedWaitForgetsTheChild)
{
    Waiting process;
    pid_t const child = process.Spawn();
    {
        test::Interruptions const interruptions(1000);
        EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
        EXPECT_EQ(EINTR, errno);
    }
    EXPECT_EQ(-1, process.GetPid());
    EXPECT_EQ(-1, process.GetStatus());
    EXPECT_EQ(-1, process.Signal(0));
    EXPECT_EQ(SIGUSR1, EndForgotten(child));
}

// The system tells of a stop as well when the waiting process traces the child.
TEST_F(ChildProcessTest, ChildThatHasOnlyStoppedIsForgottenToo)
{
    ChildProcess process(CHILD_PROGRAM, false);
    process.AddArgument("stop");
    pid_t const child = process.Spawn();
    int const result = process.Wait();
    if (result == ChildProcess::RESULT_FAILURE)
        GTEST_SKIP() << "a process may not be traced here";

    EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, result);
    EXPECT_EQ(-1, process.GetPid());
    EXPECT_EQ(-1, process.GetStatus());
    EXPECT_EQ(SIGKILL, EndForgotten(child, SIGKILL));
}

// ---- A child that never becomes the program.

TEST_F(ChildProcessTest, MissingProgramHasItsErrorAsTheStatus)
{
    ChildProcess process(MISSING, false);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(ENOENT, process.GetStatus());
}

TEST_F(ChildProcessTest, MissingProgramWithVariablesHasItsErrorAsTheStatus)
{
    ChildProcess process(MISSING, false);
    process.AddEnvironmentVariable("A=1");
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(ENOENT, process.GetStatus());
}

TEST_F(ChildProcessTest, FileThatMayNotBeExecutedHasItsErrorAsTheStatus)
{
    test::WriteFile(folder_ / "text", "text");
    for (std::string const& program : {folder_ / "text", folder_ / ""}) {
        ChildProcess process(program, false);
        EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
        EXPECT_EQ(EACCES, process.GetStatus());
    }
}

TEST_F(ChildProcessTest, ArgumentThatIsTooLongHasItsErrorAsTheStatus)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck does not survive an exec that the system refuses late";

    Shell process(std::string(100u << 20, ':'));
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(E2BIG, process.GetStatus());
}

TEST_F(ChildProcessTest, ChildThatFailsFlushesNothingOfItsParents)
{
    std::FILE* const file = std::fopen(output_.c_str(), "we");
    std::fputs("once", file);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, ChildProcess(MISSING, false).Exec());
    EXPECT_EQ("", Output());
    std::fclose(file);
}

// ---- Signals.

// As an id, the -1 of an object without a child would mean every process there is.
TEST_F(ChildProcessTest, SignalWithoutAChildSendsNothing)
{
    unsigned const before = test::KillCalls();
    ChildProcess process(CHILD_PROGRAM, false);
    EXPECT_EQ(-1, process.Signal(15));
    EXPECT_EQ(0, process.Exec());
    EXPECT_EQ(-1, process.Signal(15));
    EXPECT_EQ(before, test::KillCalls());
}

TEST_F(ChildProcessTest, SignalWithoutAChildLeavesErrnoAlone)
{
    errno = EDOM;
    EXPECT_EQ(-1, ChildProcess(CHILD_PROGRAM, false).Signal(0));
    EXPECT_EQ(EDOM, errno);
}

TEST_F(ChildProcessTest, SignalIsSentToTheChild)
{
    for (int const number : {SIGTERM, SIGUSR2}) {
        Waiting process;
        process.Spawn();
        EXPECT_EQ(0, process.Signal(0));
        EXPECT_EQ(0, process.Signal(number));
        EXPECT_EQ(ChildProcess::RESULT_SIGNAL, process.Wait());
        EXPECT_EQ(number, process.GetStatus());
    }
}

TEST_F(ChildProcessTest, SignalThatDoesNotExistIsAnError)
{
    Waiting process;
    process.Spawn();
    EXPECT_EQ(-1, process.Signal(9999));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, process.Signal(SIGKILL));
    EXPECT_EQ(ChildProcess::RESULT_SIGNAL, process.Wait());
    EXPECT_EQ(SIGKILL, process.GetStatus());
}

// ---- What the program is given.

TEST_F(ChildProcessTest, ArgumentsComeInTheirOrderBehindTheProgramsName)
{
    ChildProcess process(CHILD_PROGRAM, false);
    Lines const arguments = {"first", "", "with blanks", "$HOME;*'\"\\", "\n\xFF", "first"};
    for (std::string const& argument : arguments)
        process.AddArgument(argument);
    EXPECT_EQ(0, process.Exec());

    Lines expected = arguments;
    expected.insert(expected.begin(), "child_program");
    EXPECT_EQ(expected, Report("argument "));
}

TEST_F(ChildProcessTest, ProgramsNameIsTheLastComponentOfItsPath)
{
    ASSERT_EQ(0, symlink(CHILD_PROGRAM, (folder_ / "name with blanks").c_str()));
    EXPECT_EQ(0, ChildProcess(folder_ / "name with blanks", false).Exec());
    EXPECT_EQ(Lines{"name with blanks"}, Report("argument "));
}

TEST_F(ChildProcessTest, ProgramWithoutAPathIsSearchedFor)
{
    ASSERT_EQ(0, symlink(CHILD_PROGRAM, (folder_ / "searched").c_str()));
    EnvironmentVariable const path("PATH", "/missing:" + folder_ / "");
    EXPECT_EQ(0, ChildProcess("searched", false).Exec());
    EXPECT_EQ(Lines{"searched"}, Report("argument "));
}

TEST_F(ChildProcessTest, BackslashSeparatesTheNameOfAProgramWithoutSlashes)
{
    ASSERT_EQ(0, symlink(CHILD_PROGRAM, (folder_ / "back\\slash").c_str()));
    EnvironmentVariable const path("PATH", folder_ / "");
    EXPECT_EQ(0, ChildProcess("back\\slash", false).Exec());
    EXPECT_EQ(Lines{"slash"}, Report("argument "));
}

TEST_F(ChildProcessTest, EnvironmentIsInheritedWhenNoVariableIsAdded)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck takes its own variables from what a program inherits";

    EnvironmentVariable const variable("TOVU_TEST_VARIABLE", "inherited = yes");
    Lines own;
    for (char* const* entry = environ; *entry != nullptr; ++entry)
        own.push_back(*entry);
    EXPECT_EQ(0, ChildProcess(CHILD_PROGRAM, false).Exec());
    Lines inherited = Report("variable ");
    if (test::IsEmulated())
        std::reverse(inherited.begin(), inherited.end());
    EXPECT_EQ(own, inherited);
}

class ChildEnvironmentTest : public ChildProcessTest
{
protected:
    ChildEnvironmentTest() { process_.AddEnvironmentVariable("CHILD_REPORT=" + report_); }

    ChildProcess process_{CHILD_PROGRAM, false};
};

TEST_F(ChildEnvironmentTest, AddedVariablesAreTheWholeEnvironment)
{
    Lines expected = {"CHILD_REPORT=" + report_};
    for (char const* const entry : {"B=two words", "A="}) {
        process_.AddEnvironmentVariable(entry);
        expected.push_back(entry);
    }
    EXPECT_EQ(0, process_.Exec());
    Lines variables = Report("variable ");
    if (test::IsEmulated())
        std::reverse(variables.begin(), variables.end());
    EXPECT_EQ(expected, variables);
}

TEST_F(ChildEnvironmentTest, VariablesAreHandedOverAsTheyAre)
{
    if (test::IsEmulated())
        GTEST_SKIP() << "the emulator hands over each variable once, and nothing that is none";

    Lines expected = {"CHILD_REPORT=" + report_};
    for (char const* const entry : {"B=one", "no equals sign", "", "=", "B=again"}) {
        process_.AddEnvironmentVariable(entry);
        expected.push_back(entry);
    }
    EXPECT_EQ(0, process_.Exec());
    EXPECT_EQ(expected, Report("variable "));
}

TEST_F(ChildEnvironmentTest, ProgramIsNotSearchedFor)
{
    ASSERT_EQ(0, symlink(CHILD_PROGRAM, (folder_ / "searched").c_str()));
    EnvironmentVariable const path("PATH", folder_ / "");
    ChildProcess process("searched", false);
    process.AddEnvironmentVariable("PATH=" + folder_ / "");
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(ENOENT, process.GetStatus());
}

TEST_F(ChildEnvironmentTest, SingleArgumentIsTheArrayOfPointersToTheArguments)
{
    test::PipePair<> pipe;
    test::ExecleWatch const watch([&pipe](char const* argument) {
        std::string words;
        for (auto text = reinterpret_cast<char const* const*>(argument); *text != nullptr; ++text)
            words += std::string(*text) + "|";
        words += argument;
        EXPECT_LT(0, pipe.writer.Write(words.data(), static_cast<unsigned>(words.size())));
    });
    process_.AddArgument("lost");
    process_.AddArgument("lost as well");
    EXPECT_EQ(0, process_.Exec());

    Lines const arguments = Report("argument ");
    ASSERT_EQ(1u, arguments.size());
    EXPECT_EQ("child_program|lost|lost as well|" + arguments[0], test::Drain(pipe.reader.GetDescriptor()));
}

TEST_F(ChildProcessTest, DescriptorsAreInheritedAsTheyAre)
{
    int const inherited = open("/dev/null", O_WRONLY);
    int const kept = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    Lines expected;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        int const flags = fcntl(descriptor, F_GETFD);
        if (flags == -1 || (flags & FD_CLOEXEC) != 0)
            continue;
        std::string const number = std::to_string(descriptor);
        char target[PATH_MAX] = "";
        EXPECT_LT(0, readlink(("/proc/self/fd/" + number).c_str(), target, sizeof(target) - 1));
        expected.push_back(number + " " + target);
    }
    EXPECT_EQ(0, ChildProcess(CHILD_PROGRAM, false).Exec());
    close(inherited);
    close(kept);
    EXPECT_EQ(expected, Report("descriptor "));
}

TEST_F(ChildProcessTest, BlockedAndIgnoredSignalsAreInherited)
{
    test::ExpectPassesInChild([this] {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGUSR2);
        ASSERT_EQ(0, sigprocmask(SIG_SETMASK, &blocked, nullptr));
        ASSERT_NE(SIG_ERR, signal(SIGUSR1, SIG_IGN));
        ASSERT_NE(SIG_ERR, signal(SIGPIPE, SIG_DFL));
        EXPECT_EQ(0, ChildProcess(CHILD_PROGRAM, false).Exec());
        EXPECT_EQ(Lines{std::to_string(SIGUSR2)}, Report("blocked "));
        EXPECT_EQ(Lines{std::to_string(SIGUSR1)}, Report("ignored "));
    });
}

// ---- The limit of the address space.

// False where a process's limit is not kept, as by an emulator that has an address space of its own.
bool KeepsLimits()
{
    rlimit before = {};
    rlimit after = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_AS, &before));
    rlimit const lower = {before.rlim_max - 4096, before.rlim_max};
    EXPECT_EQ(0, setrlimit(RLIMIT_AS, &lower));
    EXPECT_EQ(0, getrlimit(RLIMIT_AS, &after));
    EXPECT_EQ(0, setrlimit(RLIMIT_AS, &before));
    return after.rlim_cur == lower.rlim_cur;
}

class AddressSpaceTest : public ChildProcessTest
{
protected:
    void SetUp() override
    {
        ChildProcessTest::SetUp();
        if (test::RunsUnderMemcheck())
            GTEST_SKIP() << "memcheck itself would find no address space";
        if (!KeepsLimits())
            GTEST_SKIP() << "the limit of an address space is not kept here";
    }
};

// Writes the limit of the calling process; without allocating, because there is little to allocate from.
void TellLimit(int descriptor)
{
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    EXPECT_EQ(static_cast<ssize_t>(sizeof(limit)), write(descriptor, &limit, sizeof(limit)));
}

// The limit that a child has which does not become a program, when the variable has this text.
rlimit LimitOfChild(std::string const& text)
{
    EnvironmentVariable const variable(LIMIT, text);
    LastWords words(&TellLimit);
    ChildProcess process(MISSING, false);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(ENOENT, process.GetStatus());

    std::string const bytes = words.Take();
    rlimit limit = {};
    EXPECT_EQ(sizeof(limit), bytes.size());
    std::memcpy(&limit, bytes.data(), std::min(bytes.size(), sizeof(limit)));
    return limit;
}

TEST_F(AddressSpaceTest, LimitIsInBytesAndTheHardLimitStays)
{
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_AS, &before));
    for (char const* const text : {"1048576", "67108865", "+67108865", "067108865"}) {
        rlimit const limit = LimitOfChild(text);
        EXPECT_EQ(std::stoul(text), limit.rlim_cur);
        EXPECT_EQ(before.rlim_max, limit.rlim_max);
    }
}

// Lowers the hard limit of the process, a child, and returns the new one.
rlim_t LowerHardLimit()
{
    rlimit limit = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_AS, &limit));
    limit.rlim_cur = limit.rlim_max = limit.rlim_max - 4096;
    EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
    return limit.rlim_max;
}

TEST_F(AddressSpaceTest, LowerHardLimitStays)
{
    test::ExpectPassesInChild([] {
        rlim_t const hard = LowerHardLimit();
        rlimit const limit = LimitOfChild("67108864");
        EXPECT_EQ(67108864u, limit.rlim_cur);
        EXPECT_EQ(hard, limit.rlim_max);
    });
}

TEST_F(AddressSpaceTest, LimitThatMayNotBeSetIsNoFailure)
{
    test::ExpectPassesInChild([] {
        rlim_t const hard = LowerHardLimit();
        EXPECT_EQ(hard, LimitOfChild(std::to_string(hard + 1)).rlim_cur);
    });
}

TEST_F(AddressSpaceTest, ProgramHasTheLimit)
{
    std::string const before = Limits();
    EnvironmentVariable const variable(LIMIT, "67108864");
    EXPECT_EQ("65536" + before.substr(before.find('\n')), Limits());
}

TEST_F(AddressSpaceTest, ProgramWithVariablesHasTheLimitAsWell)
{
    EnvironmentVariable const variable(LIMIT, "67108864");
    test::WriteFile(folder_ / "script", "#!/bin/sh\nulimit -Sv >" + output_ + "\n");
    ASSERT_EQ(0, chmod((folder_ / "script").c_str(), 0700));
    ChildProcess process(folder_ / "script", false);
    process.AddEnvironmentVariable("A=1");
    EXPECT_EQ(0, process.Exec());
    EXPECT_EQ("65536\n", Output());
}

TEST_F(AddressSpaceTest, ProgramThatWantsMoreThanTheLimitFails)
{
    Shell process("dd if=/dev/zero of=/dev/null bs=134217728 count=1 2>/dev/null");
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
    EnvironmentVariable const variable(LIMIT, "67108864");
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
}

TEST_F(ChildProcessTest, VariableOfTheChildIsNoLimit)
{
    ChildProcess process(CHILD_PROGRAM, false);
    process.AddEnvironmentVariable(std::string(LIMIT) + "=abc");
    EXPECT_EQ(0, process.Exec());
}

class BadLimitTest : public ChildProcessTest, public testing::WithParamInterface<char const*>
{
protected:
    EnvironmentVariable const variable_{LIMIT, GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Texts, BadLimitTest,
                         testing::Values("abc", "", " ", " 67108864", "67108864 ", "67108864k", "0x4000000", "1e9",
                                         "67108864.0", "18446744073709551616"));

TEST_P(BadLimitTest, EndsTheChildWithWhateverErrnoHolds)
{
    ChildProcess process(CHILD_PROGRAM, false);
    errno = EDOM;
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(EDOM, process.GetStatus());
    errno = 0;
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
    EXPECT_FALSE(HasReport());
}

TEST_F(ChildProcessTest, BadLimitIsNotLogged)
{
    test::ExpectPassesInChild([] {
        test::InitLogWithoutThread(LoggerMgr::LEVEL_DEBUG);
        EnvironmentVariable const variable(LIMIT, "abc");
        LastWords words(&TellQueuedLines);
        ChildProcess(CHILD_PROGRAM, false).Exec();
        EXPECT_EQ("", words.Take());
    });
}

// ---- Control groups. A folder with a file "tasks" does for one, and shows what is written.

class ControlGroupTest : public ChildProcessTest
{
protected:
    ControlGroupTest() { EXPECT_EQ(0, mkdir(group_.c_str(), 0700)); }

    std::string const group_ = folder_ / "group";
    std::string const tasks_ = group_ + "/tasks";
};

TEST_F(ControlGroupTest, ChildWritesItsIdAndNothingElse)
{
    test::WriteFile(tasks_, "");
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup(group_);
    int const pid = process.Spawn();
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Wait());
    EXPECT_EQ(std::to_string(pid), test::ReadFile(tasks_));
    EXPECT_TRUE(HasReport());
}

TEST_F(ControlGroupTest, EarlierContentIsReplaced)
{
    test::WriteFile(tasks_, "a longer text than any id\n");
    Shell process(Writing("cat " + tasks_));
    process.SetControlGroup(group_);
    int const pid = process.Spawn();
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Wait());
    EXPECT_EQ(std::to_string(pid), Output()) << "it is written before the program runs";
}

TEST_F(ControlGroupTest, LastGroupCountsAndAnEmptyOneIsNone)
{
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup("/missing");
    process.SetControlGroup(group_);
    EXPECT_EQ(0, process.Exec());
    EXPECT_EQ(0, unlink(tasks_.c_str()));
    process.SetControlGroup("");
    EXPECT_EQ(0, process.Exec());
    EXPECT_EQ(-1, access(tasks_.c_str(), F_OK));
}

TEST_F(ControlGroupTest, FolderWithoutTasksEndsTheChildWithItsError)
{
    for (char const* const folder : {"/proc", "/missing"}) {
        ChildProcess process(CHILD_PROGRAM, false);
        process.SetControlGroup(folder);
        EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
        EXPECT_EQ(ENOENT, process.GetStatus());
    }
    EXPECT_FALSE(HasReport());
}

TEST_F(ControlGroupTest, TasksThatCannotBeOpenedEndTheChildWithItsError)
{
    ASSERT_EQ(0, mkdir(tasks_.c_str(), 0700));
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup(group_);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(EISDIR, process.GetStatus());
    EXPECT_FALSE(HasReport());
}

// The path of the file is made in the child, which must not come back from there.
TEST_F(ControlGroupTest, NoMemoryForThePathEndsTheChildWithThatError)
{
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup(std::string(PATH_MAX, 'x'));
    test::FailingAllocation const failing(PATH_MAX + 1);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(ENOMEM, process.GetStatus());
    EXPECT_FALSE(HasReport());
}

TEST_F(ControlGroupTest, IdThatCannotBeWrittenIsNoFailure)
{
    ASSERT_EQ(0, symlink("/dev/full", tasks_.c_str()));
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup(group_);
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
    EXPECT_TRUE(HasReport());
}

TEST_F(ControlGroupTest, ChildInAGroupHasNoLimit)
{
    std::string const before = Limits();
    for (char const* const text : {"67108864", "abc"}) {
        EnvironmentVariable const variable(LIMIT, text);
        Shell process(Writing("ulimit -Sv; ulimit -Hv"));
        process.SetControlGroup(group_);
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());
        EXPECT_EQ(before, Output());
    }
}

// The child is held up in the write to a pipe that is full, with the file still open.
TEST_F(ControlGroupTest, TasksAreOpenedForWritingAndClosedOnExec)
{
    ASSERT_EQ(0, mkfifo(tasks_.c_str(), 0600));
    int const pipe = open(tasks_.c_str(), O_RDWR | O_CLOEXEC);
    test::FillUp(pipe);
    ChildProcess process(CHILD_PROGRAM, false);
    process.SetControlGroup(group_);
    int const pid = process.Spawn();

    int const flags = test::AwaitFlagsOfWriter(pid, tasks_);
    EXPECT_EQ(O_WRONLY | O_CLOEXEC, flags & (O_ACCMODE | O_CLOEXEC)) << "the child did not open the file";

    test::Drain(pipe);
    EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Wait());
    EXPECT_EQ(std::to_string(pid), test::Drain(pipe));
    close(pipe);
}

TEST_F(ControlGroupTest, ChildIsInTheGroup)
{
    test::ExpectPassesInChildOrSkips([this] {
        test::MemoryGroup const group(group_);
        Shell process(Writing("cat /proc/self/cgroup"));
        process.SetControlGroup(group.Folder());
        EXPECT_EQ(ChildProcess::RESULT_SUCCESS, process.Exec());

        std::string const groups = Output();
        std::string const line = groups.substr(groups.find("memory"));
        EXPECT_NE(std::string::npos, line.substr(0, line.find('\n')).find("/" + group.Name())) << groups;
        EXPECT_EQ("", test::ReadFile(group.Folder() + "/tasks")) << "it has ended";
    });
}

// ---- What is logged.

// Each runs in a process of its own, whose log keeps its lines.
void ExpectLogged(unsigned level, std::function<void()> const& body)
{
    test::ExpectPassesInChildOrSkips([&] {
        test::InitLogWithoutThread(level);
        body();
    });
}

// What `process` logs in the child.
std::string LoggedInChild(ChildProcess& process)
{
    LastWords words(&TellQueuedLines);
    EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec());
    EXPECT_EQ(Lines(), test::TakeQueuedLines()) << "the parent logs nothing";
    return words.Take();
}

std::string ExpectedLine(int line, std::string const& message)
{
    return "Error src/util/ChildProcess.cpp:" + std::to_string(line) + " " + message + "\n";
}

// Lets no process be started any more. That does not hold for root, who becomes somebody else first, but
// stays the saved user: what a process writes when it ends may belong to root.
void AllowNoMoreProcesses()
{
    if (getuid() == 0 && (setgroups(0, nullptr) == -1 || setgid(65534) == -1 || setresuid(65534, 65534, 0) == -1))
        test::SkipFromChild("root cannot become another user here");
    rlimit const none = {0, 0};
    ASSERT_EQ(0, setrlimit(RLIMIT_NPROC, &none));
}

TEST_F(ChildProcessTest, FailedForkIsLoggedAtLine103)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck does not survive a fork that fails";

    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        AllowNoMoreProcesses();
        Shell process("exit 7");
        EXPECT_EQ(-1, process.Spawn());
        EXPECT_EQ(-1, process.GetPid());
        EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Wait());
        EXPECT_EQ(-1, process.Signal(0));
        EXPECT_EQ(ChildProcess::RESULT_NO_CHILD, process.Exec());
        EXPECT_EQ(-1, process.GetStatus());
        EXPECT_EQ(Lines(2, ExpectedLine(103, "fork failed (Resource temporarily unavailable).")),
                  test::TakeQueuedLines());
    });
}

TEST_F(ChildProcessTest, FailedExecIsLoggedAtLine147)
{
    ExpectLogged(LoggerMgr::LEVEL_ERROR, [this] {
        ChildProcess missing("/missing/%s%n", false);
        EXPECT_EQ(ExpectedLine(147, "Failed to exec '/missing/%s%n' (No such file or directory)"),
                  LoggedInChild(missing));
        ChildProcess folder(folder_ / "", false);
        folder.AddEnvironmentVariable("A=1");
        EXPECT_EQ(ExpectedLine(147, "Failed to exec '" + folder_ / "" + "' (Permission denied)"),
                  LoggedInChild(folder));
    });
}

TEST_F(ControlGroupTest, GroupThatCannotBeOpenedIsLoggedAtLine120)
{
    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        ChildProcess process("some program", false);
        process.SetControlGroup("/missing/%s%n");
        EXPECT_EQ(
            ExpectedLine(120, "Failed to open cgroup /missing/%s%n for 'some program' (No such file or directory)"),
            LoggedInChild(process));
    });
}

TEST_F(ControlGroupTest, FailuresInTheChildAreQuietBelowTheThreshold)
{
    ExpectLogged(0, [] {
        ChildProcess process(MISSING, false);
        EXPECT_EQ("", LoggedInChild(process));
        process.SetControlGroup("/missing");
        EXPECT_EQ("", LoggedInChild(process));
    });
}

TEST_F(ChildProcessTest, FailedForkIsQuietBelowTheThreshold)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck does not survive a fork that fails";

    ExpectLogged(0, [] {
        AllowNoMoreProcesses();
        EXPECT_EQ(-1, Shell("exit 7").Spawn());
        EXPECT_EQ(Lines(), test::TakeQueuedLines());
    });
}

// There is no memory for the line that tells of a failure.
class UnloggedFailureTest : public ControlGroupTest
{
protected:
    static constexpr std::size_t LEAST_LINE = sizeof(std::pair<std::string, std::string>);

    // The next piece of memory that is not smaller than `least` is not to be had.
    static void Unlogged(std::function<void()> const& action, std::size_t least = LEAST_LINE)
    {
        test::FailingAllocation const failing(least);
        action();
    }

    static void ExpectUnloggedStatus(int status, ChildProcess& process, std::size_t least = LEAST_LINE)
    {
        LastWords words(&TellQueuedLines);
        Unlogged([&] { EXPECT_EQ(ChildProcess::RESULT_FAILURE, process.Exec()); }, least);
        EXPECT_EQ(status, process.GetStatus());
        EXPECT_EQ("", words.Take());
    }
};

TEST_F(UnloggedFailureTest, StatusOfTheChildIsTheErrorAllTheSame)
{
    ExpectLogged(LoggerMgr::LEVEL_ERROR, [this] {
        ASSERT_EQ(0, mkdir(tasks_.c_str(), 0700));
        ChildProcess process(MISSING, false);
        ExpectUnloggedStatus(ENOENT, process);
        process.SetControlGroup(group_);
        ExpectUnloggedStatus(EISDIR, process, 2 * tasks_.size());  // more than the path, less than the line with it
    });
}

TEST_F(UnloggedFailureTest, FailedForkIsToldByTheResultAllTheSame)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck does not survive a fork that fails";

    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        AllowNoMoreProcesses();
        Shell process("exit 7");
        Unlogged([&] { EXPECT_EQ(-1, process.Spawn()); });
        EXPECT_EQ(Lines(), test::TakeQueuedLines());
    });
}

// The time in a header is made with the help of a file, which is missing here: logging fails with ENOENT.
TEST_F(ControlGroupTest, StatusIsTheFirstErrorWhateverLoggingMeets)
{
    test::ExpectPassesInChild([this] {
        test::InitLogWithoutThread(LoggerMgr::LEVEL_ERROR, LoggerMgr::HEADER_TIME);
        EnvironmentVariable const zone("TZ", ":/missing");
        ChildProcess process(folder_ / "", false);
        process.Exec();
        EXPECT_EQ(EACCES, process.GetStatus());
        ASSERT_EQ(0, mkdir(tasks_.c_str(), 0700));
        process.SetControlGroup(group_);
        process.Exec();
        EXPECT_EQ(EISDIR, process.GetStatus());
    });
}

// ---- The pipes for the standard streams.

using Ends = std::vector<int>;

Ends EndsOf(StdIO const& pipes)
{
    return {pipes.inPipe[0], pipes.inPipe[1], pipes.outPipe[0], pipes.outPipe[1], pipes.errPipe[0], pipes.errPipe[1]};
}

unsigned CountOpen(Ends const& ends)
{
    unsigned count = 0;
    for (int const descriptor : ends)
        count += test::IsDescriptorOpen(descriptor) ? 1 : 0;
    return count;
}

TEST_F(ChildProcessTest, PipesHaveTheirReadingEndFirst)
{
    StdIO const pipes;
    for (int const* ends : {pipes.inPipe, pipes.outPipe, pipes.errPipe}) {
        char byte = 0;
        EXPECT_EQ(1, write(ends[1], "x", 1));
        EXPECT_EQ(1, read(ends[0], &byte, 1));
        EXPECT_EQ('x', byte);
        EXPECT_EQ(O_RDONLY, fcntl(ends[0], F_GETFL) & O_ACCMODE);
        EXPECT_EQ(O_WRONLY, fcntl(ends[1], F_GETFL) & O_ACCMODE);
    }
}

TEST_F(ChildProcessTest, PipesAreInheritedAndDoNotBlockLessThanOthers)
{
    StdIO const pipes;
    for (int const descriptor : EndsOf(pipes)) {
        EXPECT_EQ(0, fcntl(descriptor, F_GETFD));
        EXPECT_EQ(0, fcntl(descriptor, F_GETFL) & O_NONBLOCK);
    }
}

TEST_F(ChildProcessTest, PipesCloseTheirSixDescriptors)
{
    std::unique_ptr<StdIO> pipes(new StdIO);
    Ends const ends = EndsOf(*pipes);
    EXPECT_EQ(6u, CountOpen(ends));
    pipes.reset();
    EXPECT_EQ(0u, CountOpen(ends));
}

TEST_F(ChildProcessTest, PipesCloseADescriptorZeroToo)
{
    test::ExpectPassesInChild([] {
        close(STDIN_FILENO);
        std::unique_ptr<StdIO> pipes(new StdIO);
        EXPECT_EQ(0, pipes->inPipe[0]);
        pipes.reset();
        EXPECT_FALSE(test::IsDescriptorOpen(0));
    });
}

TEST_F(ChildProcessTest, PipesIgnoreWhatCannotBeClosed)
{
    std::unique_ptr<StdIO> pipes(new StdIO);
    Ends const ends = EndsOf(*pipes);
    close(pipes->inPipe[0]);
    close(pipes->outPipe[1]);
    pipes.reset();
    EXPECT_EQ(0u, CountOpen(ends));
}

TEST_F(ChildProcessTest, PipesLeaveAloneWhatIsMinusOne)
{
    std::unique_ptr<StdIO> pipes(new StdIO);
    int const taken = pipes->errPipe[0];
    pipes->errPipe[0] = -1;
    errno = 0;
    pipes.reset();
    EXPECT_EQ(0, errno) << "it was closed all the same";
    EXPECT_TRUE(test::IsDescriptorOpen(taken));
    close(taken);
}

// Leaves the process, a child, this many descriptors to open. The sanitizers have used those that they need before.
void AllowMoreDescriptors(unsigned count)
{
    test::TakeQueuedLines();
    int last = -1;
    Ends ends;
    for (unsigned i = 0; i < count; ++i)
        ends.push_back(last = dup(STDOUT_FILENO));
    for (int const descriptor : ends)
        close(descriptor);
    test::ForbidDescriptorsFrom(last + 1);
}

TEST_F(ChildProcessTest, PipesThatCannotBeMadeAreLoggedAtLines250And254And258)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck has made a pipe already when it refuses it";

    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        AllowMoreDescriptors(0);
        StdIO const pipes;
        EXPECT_EQ(Ends(6, -1), EndsOf(pipes));
        EXPECT_EQ((Lines{ExpectedLine(250, "pipe (inPipe) failed (Too many open files)."),
                         ExpectedLine(254, "pipe (outPipe) failed (Too many open files)."),
                         ExpectedLine(258, "pipe (errPipe) failed (Too many open files).")}),
                  test::TakeQueuedLines());
    });
}

TEST_F(ChildProcessTest, PipesAreMadeAsLongAsThereAreDescriptors)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "memcheck has made a pipe already when it refuses it";

    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        AllowMoreDescriptors(3);
        StdIO const pipes;
        EXPECT_EQ(2u, CountOpen({pipes.inPipe[0], pipes.inPipe[1]}));
        EXPECT_EQ((Ends{-1, -1, -1, -1}),
                  (Ends{pipes.outPipe[0], pipes.outPipe[1], pipes.errPipe[0], pipes.errPipe[1]}));
        EXPECT_EQ((Lines{ExpectedLine(254, "pipe (outPipe) failed (Too many open files)."),
                         ExpectedLine(258, "pipe (errPipe) failed (Too many open files).")}),
                  test::TakeQueuedLines());
    });
}

// No machine lacks a descriptor for one pipe and has two for the next, unless another thread closes some meanwhile.
TEST_F(ChildProcessTest, PipeThatCannotBeMadeDoesNotKeepTheOthersFromBeingMade)
{
    for (unsigned const failing : {0u, 1u, 2u}) {
        unsigned calls = 0;
        decltype(pipeCall)::Replacement const scarce(pipeCall, [&calls, failing](int* ends) {
            errno = EMFILE;
            return calls++ == failing ? -1 : pipeCall.System(ends);
        });
        StdIO const pipes;
        Ends const ends = EndsOf(pipes);
        EXPECT_EQ(4u, CountOpen(ends));
        EXPECT_EQ(-1, ends[2 * failing]);
        EXPECT_EQ(-1, ends[2 * failing + 1]);
    }
}

TEST_F(UnloggedFailureTest, PipesAreMadeAsFarAsTheyCanBe)
{
    ExpectLogged(LoggerMgr::LEVEL_ERROR, [] {
        unsigned calls = 0;
        decltype(pipeCall)::Replacement const scarce(pipeCall, [&calls](int* ends) {
            errno = EMFILE;
            return calls++ == 1 ? -1 : pipeCall.System(ends);
        });
        Unlogged([] {
            StdIO const pipes;
            Ends const ends = EndsOf(pipes);
            EXPECT_EQ(4u, CountOpen(ends));
            EXPECT_EQ((Ends{-1, -1}), (Ends{ends[2], ends[3]}));
        });
        EXPECT_EQ(Lines(), test::TakeQueuedLines());
    });
}

TEST_F(ChildProcessTest, PipesAreQuietWhenTheyAreMadeAndBelowTheThreshold)
{
    ExpectLogged(LoggerMgr::LEVEL_DEBUG, [] {
        StdIO const pipes;
        EXPECT_EQ(Lines(), test::TakeQueuedLines());
    });
    ExpectLogged(0, [] {
        AllowMoreDescriptors(0);
        StdIO const pipes;
        EXPECT_EQ(Lines(), test::TakeQueuedLines());
    });
}

// ---- What it holds.

typedef std::list<std::string> Texts;

TOVU_PRIVATE_MEMBER(Program, std::string, ChildProcess, program_);
TOVU_PRIVATE_MEMBER(Arguments, Texts, ChildProcess, arguments_);
TOVU_PRIVATE_MEMBER(Environment, Texts, ChildProcess, environment_);
TOVU_PRIVATE_MEMBER(Reserved1, std::string, ChildProcess, reserved1_);
TOVU_PRIVATE_MEMBER(Reserved2, std::string, ChildProcess, reserved2_);
TOVU_PRIVATE_MEMBER(Flag, bool, ChildProcess, flag_);
TOVU_PRIVATE_MEMBER(Status, int, ChildProcess, status_);
TOVU_PRIVATE_MEMBER(Pid, int, ChildProcess, pid_);
TOVU_PRIVATE_MEMBER(ControlGroup, std::string, ChildProcess, controlGroup_);
TOVU_PRIVATE_MEMBER(Pipes, std::unique_ptr<StdIO>, ChildProcess, stdio_);

TEST_F(ChildProcessTest, KeepsWhatItIsGiven)
{
    for (bool const flag : {false, true}) {
        ChildProcess process("program", flag);
        process.AddArgument("argument");
        process.AddEnvironmentVariable("A=1");
        process.SetControlGroup("/group");
        EXPECT_EQ("program", Program::Of(process));
        EXPECT_EQ(Texts{"argument"}, Arguments::Of(process));
        EXPECT_EQ(Texts{"A=1"}, Environment::Of(process));
        EXPECT_EQ("", Reserved1::Of(process));
        EXPECT_EQ("", Reserved2::Of(process));
        EXPECT_EQ(flag, Flag::Of(process));
        EXPECT_EQ("/group", ControlGroup::Of(process));
        EXPECT_EQ(nullptr, Pipes::Of(process));
    }
}

TEST_F(ChildProcessTest, KeepsTheStatusAndTheId)
{
    Shell process("exit 7");
    int const pid = process.Spawn();
    EXPECT_EQ(-1, Status::Of(process));
    EXPECT_EQ(pid, Pid::Of(process));
    process.Wait();
    EXPECT_EQ(7, Status::Of(process));
    EXPECT_EQ(-1, Pid::Of(process));
}

TEST_F(ChildProcessTest, GroupIsEmptyAtFirst)
{
    EXPECT_EQ("", ControlGroup::Of(ChildProcess("program", false)));
}

TEST_F(ChildProcessTest, DestructorDestroysThePipesItOwns)
{
    std::unique_ptr<ChildProcess> process(new ChildProcess("program", false));
    StdIO* const pipes = new StdIO;
    Ends const ends = EndsOf(*pipes);
    Pipes::Of(*process).reset(pipes);
    EXPECT_EQ(6u, CountOpen(ends));
    process.reset();
    EXPECT_EQ(0u, CountOpen(ends));
}

}}}  // namespace tovu::util

extern "C" int pipe(int* ends) noexcept
{
    return tovu::util::pipeCall(ends);
}

extern "C" pid_t waitpid(pid_t child, int* status, int options)
{
    return tovu::util::waitCall(child, status, options);
}
