#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace tovu { namespace test {

/// How a child process ended, and what it wrote to its standard output and error.
struct ChildResult
{
    bool exited;  ///< True when it ended by itself; then `code` is its exit status, otherwise the signal.
    int code;
    std::string output;
};

/// Runs `body` in a forked child and waits for it: for what a process can do only once, or what may end it. A failed
/// expectation in the body makes the exit status 1 and is printed; an exception that escapes makes it 2. The child runs
/// no exit handlers. Call it while the test runs one thread only.
ChildResult RunInChild(std::function<void()> const& body);

/// Fails the test unless `body` ends with status 0 in a child process.
void ExpectPassesInChild(std::function<void()> const& body);

/// Gives the calling process, a child, a mount or network namespace of its own (CLONE_NEWNS, CLONE_NEWNET), as root or
/// through a user namespace. False with `errno` set when this machine allows neither: the test is then skipped aloud.
bool EnterNamespace(int flags);

/// EnterNamespace(CLONE_NEWNS) in which nothing that is mounted shows outside.
bool EnterMountNamespace();

}}  // namespace tovu::test
