#pragma once

#include <memory>

#include "tovu/util/Logger.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace test {

/// Gives the process's log manager a sink, to own.
inline void AddLogger(util::Logger* logger)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
    util::LoggerMgr::Instance().AddLogger(std::auto_ptr<util::Logger>(logger));
#pragma GCC diagnostic pop
}

}}  // namespace tovu::test
