#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "tovu/util/Logger.h"

namespace volume {

/// The sink of a service in the foreground: standard error.
class StandardErrorLogger : public tovu::util::Logger
{
public:
    void Log(std::string const& header, std::string const& message) override;
};

/// A sink that waits for one line. The log manager has no way to say that its queue is empty; but when the last line
/// has reached the last sink, all others have, too.
class LastLineLogger : public tovu::util::Logger
{
public:
    explicit LastLineLogger(std::string lastLine);

    void Log(std::string const& header, std::string const& message) override;

    /// Logs the last line, whatever the threshold is, and waits until it has come through, for a second at most: a
    /// system log that is stuck must not keep the service from ending.
    void LogAndWait();

private:
    std::string const lastLine_;
    std::mutex mutex_;
    std::condition_variable condition_;
    bool seen_ = false;  // guarded by mutex_
};

/// Gives the process's log manager a sink, to own.
void AddLogger(std::unique_ptr<tovu::util::Logger> logger);

}  // namespace volume
