#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "ChildProcess.h"

namespace tovu { namespace test {

constexpr int SKIPPED_EXIT_CODE = 77;

/// Ends the child process of ExpectPassesInChildOrSkips: this machine lacks what the test needs.
[[noreturn]] inline void SkipFromChild(char const* reason)
{
    std::printf("%s", reason);
    std::fflush(stdout);
    _exit(SKIPPED_EXIT_CODE);
}

/// ExpectPassesInChild for a body that may call SkipFromChild: the test is then skipped with the reason given.
inline void ExpectPassesInChildOrSkips(std::function<void()> const& body)
{
    ChildResult const result = RunInChild(body);
    if (result.exited && result.code == SKIPPED_EXIT_CODE)
        GTEST_SKIP() << result.output;
    EXPECT_TRUE(result.exited) << "ended by signal " << result.code << "\n" << result.output;
    EXPECT_EQ(0, result.code) << result.output;
}

/// Gives the child a network of its own, without any interface that is up.
inline void EnterOwnNetwork()
{
    if (!EnterNamespace(CLONE_NEWNET))
        SkipFromChild("this machine gives a process no network of its own");
}

}}  // namespace tovu::test
