#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tovu/util/ChildProcess.h"

namespace tovu { namespace test {

/// Runs a script of the shell.
class Shell : public util::ChildProcess
{
public:
    explicit Shell(std::string const& script) : ChildProcess("/bin/sh", false)
    {
        AddArgument("-c");
        AddArgument(script);
    }
};

/// Runs until a signal ends it.
class Waiting : public util::ChildProcess
{
public:
    Waiting() : ChildProcess(CHILD_PROGRAM, false) { AddArgument("wait"); }

    /// Comes back once the child has become its program: a signal before that may meet whatever runs this one.
    int Spawn()
    {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        int const child = ChildProcess::Spawn();
        close(ends[1]);
        char none = 0;
        EXPECT_EQ(0, read(ends[0], &none, 1));
        close(ends[0]);
        return child;
    }
};

/// Ends a child that its object has forgotten, and returns the signal that really ended it.
inline int EndForgotten(pid_t child, int number = SIGUSR1)
{
    int ended = 0;
    EXPECT_EQ(0, kill(child, number));
    EXPECT_EQ(child, waitpid(child, &ended, 0));
    return WIFSIGNALED(ended) ? WTERMSIG(ended) : 0;
}

}}  // namespace tovu::test
