#pragma once

#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "ChildProcess.h"
#include "ForeignPrograms.h"

namespace tovu { namespace test {

/// Starts the test program once more for the current test alone, and fails the test unless it passes there. For what is
/// settled when a program starts, by its environment for example. The test tells by something that it has set before in
/// which of the two it runs.
inline void ExpectPassesInAnotherProgram()
{
    testing::TestInfo const& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string const filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    // Its own name for it, which an emulator and memcheck give as well: in "/proc/self/exe" the kernel would find those.
    char program[PATH_MAX] = "";
    ASSERT_LT(0, readlink("/proc/self/exe", program, sizeof(program) - 1));
    if (!CanStart(program))
        GTEST_SKIP() << CANNOT_START;
    ChildResult const result = RunInChild([&] {
        for (char const* name : {"GTEST_OUTPUT", "GTEST_REPEAT", "GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX"})
            unsetenv(name);
        execl(program, "test", filter.c_str(), static_cast<char*>(nullptr));
        FAIL() << "the program could not be started again";
    });
    EXPECT_TRUE(result.exited && result.code == 0) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("[  PASSED  ] 1 test.")) << result.output;
}

}}  // namespace tovu::test
