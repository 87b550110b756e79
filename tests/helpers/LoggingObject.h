#pragma once

#include "tovu/util/LoggerMgr.h"

namespace {

/// Logs its owner's name when it is made, whatever the threshold, and when it goes. For objects with static storage.
class LoggingObject
{
public:
    explicit LoggingObject(char const* owner) : owner_(owner)
    {
        using tovu::util::LoggerMgr;
        LoggerMgr::Instance().Log(LoggerMgr::LEVEL_INFO, __FILE__, __LINE__, "%s is made\n", owner_);
    }

    LoggingObject(LoggingObject const&) = delete;
    LoggingObject& operator=(LoggingObject const&) = delete;

    ~LoggingObject() { TOVU_LOG(tovu::util::LoggerMgr::LEVEL_INFO, "%s goes\n", owner_); }

private:
    char const* const owner_;
};

}  // namespace
