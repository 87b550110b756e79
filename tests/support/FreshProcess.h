#pragma once

#include <functional>

#include "AnotherProgram.h"
#include "ChildProcess.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// Fails the test unless `body` passes in a process whose log manager was never initialised: its threshold is 0, and
/// what is queued stays there. When an earlier test of this process has initialised it, the program runs the current
/// test once more by itself.
inline void ExpectPassesWithIdleLog(std::function<void()> const& body)
{
    if (util::LoggerMgr::Instance().GetLevel() == 0) {
        ExpectPassesInChild(body);
        return;
    }

    ExpectPassesInAnotherProgram();
}

}}  // namespace tovu::test
