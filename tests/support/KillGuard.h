#pragma once

#include <signal.h>
#include <sys/types.h>

#include "Interposition.h"

// Defines kill(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

/// How many calls of kill(2) the program has made. Those that mean more than one process are only counted: a fault in
/// what is tested must not end everything else on the machine.
inline unsigned& KillCalls()
{
    static unsigned calls = 0;
    return calls;
}

}}  // namespace tovu::test

extern "C" int kill(pid_t process, int number) noexcept
{
    ++tovu::test::KillCalls();
    return process <= 0 ? 0 : tovu::test::NextFunction<int(pid_t, int)>("kill")(process, number);
}
