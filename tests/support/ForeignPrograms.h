#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

// Under emulation the tests are of another processor than the machine, whose kernel starts programs of that processor
// only where it is told how (see binfmt_misc).

namespace tovu { namespace test {

constexpr char const* CANNOT_START = "the kernel is not told how to start a program of this processor";

// In an emulator posix_spawn cannot tell that its child could not become the program: the child ends like this.
constexpr int NOT_STARTED = 127;

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
    int ended = 0;
    if (started)
        waitpid(child, &ended, 0);
    return started && !(WIFEXITED(ended) && WEXITSTATUS(ended) == NOT_STARTED);
}

}}  // namespace tovu::test
