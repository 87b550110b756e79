// Processes that end while there are lines to be logged.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "ChildProcess.h"
#include "Emulation.h"
#include "ForeignPrograms.h"
#include "Sanitizers.h"

namespace tovu { namespace util { namespace {

constexpr int STATUS = 42;              // of the program that is started
constexpr int STATUS_WITHOUT_LOG = 43;  // of the same, when it could not log

unsigned CountRuns()
{
    return test::IsEmulated() || test::RunsUnderMemcheck() ? 10 : test::MEMORY_IS_WATCHED ? 25 : 200;
}

class ExitTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!test::CanStart(EXITING_PROGRAM))
            GTEST_SKIP() << test::CANNOT_START;
    }

    static test::ChildResult Run(std::string const& way)
    {
        return test::RunInChild([&way] {
            execl(EXITING_PROGRAM, EXITING_PROGRAM, way.c_str(), static_cast<char*>(nullptr));
            FAIL() << "the program could not be started";
        });
    }
};

class QueuedExitTest : public ExitTest, public testing::WithParamInterface<char const*>
{};

TEST_P(QueuedExitTest, KeepsItsStatus)
{
    unsigned const runs = CountRuns();
    for (unsigned run = 0; run < runs; ++run) {
        test::ChildResult const result = Run(GetParam());
        ASSERT_TRUE(result.exited) << "run " << run << " ended by signal " << result.code;
        ASSERT_EQ(STATUS, result.code) << "run " << run << "\n" << result.output;
    }
    std::printf("%u processes ended with lines in the queue\n", runs);
}

INSTANTIATE_TEST_SUITE_P(Ways, QueuedExitTest, testing::Values("main", "thread", "stuck", "stuck_thread"),
                         [](testing::TestParamInfo<char const*> const& way) { return std::string(way.param); });

TEST_F(ExitTest, LinesBehindTheOneThatASinkHoldsAreLost)
{
    EXPECT_EQ("line 0\n", Run("stuck").output);
}

TEST_F(ExitTest, LoggingIsRefusedOnceWhatWasThereBeforeTheManagerGoes)
{
    test::ChildResult const result = Run("late");
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(STATUS_WITHOUT_LOG, result.code) << result.output;
}

TEST_F(ExitTest, ThreadThatLogsAsLateEndsTheProcess)
{
    test::ChildResult const result = Run("late_thread");
    EXPECT_FALSE(result.exited) << "status " << result.code;
    EXPECT_EQ(SIGABRT, result.code) << result.output;
}

}}}  // namespace tovu::util
