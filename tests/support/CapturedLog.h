#pragma once

#include <string>
#include <vector>

namespace tovu { namespace test {

/// What the process's log manager hands to its sinks, seen by a sink of the test's own.
///
/// The manager is one for the process and never ends, so the sink is installed once, at level Debug with flags 0x82
/// (the level's name and the location), and stays. A test that needs other settings runs in a process of its own (see
/// ChildProcess.h) and calls LoggerMgr::Init there.
class CapturedLog
{
public:
    struct Line
    {
        std::string header;  ///< "Error src/util/Pipe.cpp:20 "
        std::string message;
    };

    /// Installs the sink on first use, and forgets the lines captured so far.
    CapturedLog();

    /// The lines logged since construction or the last call, in order. Waits until all of them have come through.
    std::vector<Line> Take();
};

}}  // namespace tovu::test
