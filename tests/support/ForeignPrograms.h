#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

// Under emulation the tests are of another processor than the machine, whose kernel starts programs of that processor
// only where it is told how (see binfmt_misc).

namespace tovu { namespace test {

constexpr char const* CANNOT_START = "the kernel is not told how to start a program of this processor";

/// Whether a program can be started: it is, with an argument that it takes for a question for help, and ends.
inline bool CanStart(char const* program)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    char argument[] = "--help";
    char* const argv[] = {const_cast<char*>(program), argument, nullptr};
    pid_t child = -1;
    bool const started = posix_spawn(&child, program, &actions, nullptr, argv, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (started)
        waitpid(child, nullptr, 0);
    return started;
}

}}  // namespace tovu::test
