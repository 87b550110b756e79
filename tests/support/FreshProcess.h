#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "ChildProcess.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// Fails the test unless `body` passes in a process whose log manager was never initialised: its threshold is 0, and
/// what is queued stays there. When an earlier test of this process has initialised it, the program runs the current
/// test once more by itself.
inline void ExpectPassesWithIdleLog(std::function<void()> const& body)
{
    if (util::LoggerMgr::Instance().GetLevel() == 0) {
        ExpectPassesInChild(body);
        return;
    }

    testing::TestInfo const& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string const filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    ChildResult const result = RunInChild([&] {
        for (char const* name : {"GTEST_OUTPUT", "GTEST_REPEAT", "GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX"})
            unsetenv(name);
        execl("/proc/self/exe", "test", filter.c_str(), static_cast<char*>(nullptr));
        FAIL() << "the program could not be started again";
    });
    EXPECT_TRUE(result.exited && result.code == 0) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("[  PASSED  ] 1 test.")) << result.output;
}

}}  // namespace tovu::test
