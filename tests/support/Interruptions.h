#pragma once

#include <signal.h>
#include <sys/time.h>

#include <atomic>

namespace tovu { namespace test {

/// Interrupts the process's system calls for the length of a scope: SIGALRM every `microseconds`, with a handler that
/// does not restart them (no SA_RESTART).
class Interruptions
{
public:
    explicit Interruptions(long microseconds);
    Interruptions(Interruptions const&) = delete;
    Interruptions& operator=(Interruptions const&) = delete;
    ~Interruptions();

    /// How many signals have come so far.
    static unsigned Count();

    /// Ends those that are under way.
    static void End();

    /// True when the tests are run by tools/interrupt.
    static bool AreWanted();
};

}}  // namespace tovu::test
