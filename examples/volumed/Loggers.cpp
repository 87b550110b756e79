#include "Loggers.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "tovu/util/LoggerMgr.h"

namespace volume {

using tovu::util::Logger;
using tovu::util::LoggerMgr;

void StandardErrorLogger::Log(std::string const& header, std::string const& message)
{
    std::fprintf(stderr, "%s%s", header.c_str(), message.c_str());
}

LastLineLogger::LastLineLogger(std::string lastLine) : lastLine_(std::move(lastLine)) {}

void LastLineLogger::Log(std::string const& /*header*/, std::string const& message)
{
    if (message != lastLine_)
        return;
    std::lock_guard<std::mutex> lock(mutex_);
    seen_ = true;
    condition_.notify_all();
}

void LastLineLogger::LogAndWait()
{
    LoggerMgr::Instance().Log(LoggerMgr::LEVEL_INFO, __FILE__, __LINE__, "%s", lastLine_.c_str());
    std::unique_lock<std::mutex> lock(mutex_);
    condition_.wait_for(lock, std::chrono::seconds(1), [this] { return seen_; });
}

void AddLogger(std::unique_ptr<Logger> logger)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the library's interface
    LoggerMgr::Instance().AddLogger(std::auto_ptr<Logger>(logger.release()));
#pragma GCC diagnostic pop
}

}  // namespace volume
