#pragma once

#include "Scenario.h"

namespace tovu { namespace test {

/// The lines of level Error that the library logs, taken without any memory. The process's log manager belongs to this.
/// Until it is installed nothing is logged, and there is no log thread.
class FaultLog
{
public:
    /// Installs it, once for the process.
    static void Install();

    /// Appends the lines since the last time to `text`, each as "; SOURCE:LINE MESSAGE" with the first line of the
    /// message, and waits until all have come through. The log thread holds no memory then.
    static void Take(Text& text);

    /// Waits until the log thread sleeps and so holds no lock: a child process that is forked then can log.
    static void AwaitSleep();
};

}}  // namespace tovu::test
