#pragma once

#include <string>
#include <utility>
#include <vector>

#include "NoThreads.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// Sets the log manager's threshold and flags in a process, a child, whose log has no thread and gets none: its lines
/// stay in the queue.
inline void InitLogWithoutThread(unsigned level,
                                 unsigned flags = util::LoggerMgr::HEADER_LEVEL | util::LoggerMgr::HEADER_LOCATION)
{
    NoThreads const noThreads;
    util::LoggerMgr::Instance().Init("test", level, flags, 0);
}

/// Takes the lines, header and message, out of the queue of a log without thread. Does not wait.
inline std::vector<std::string> TakeQueuedLines()
{
    char const* const end = "QueuedLog: everything before this line has been taken";
    util::LoggerMgr& manager = util::LoggerMgr::Instance();
    manager.Log(util::LoggerMgr::LEVEL_ERROR, "", 0, "%s", end);

    std::vector<std::string> lines;
    for (auto line = manager.Deq(); line.second != end; line = manager.Deq())
        lines.push_back(line.first + line.second);
    return lines;
}

}}  // namespace tovu::test
