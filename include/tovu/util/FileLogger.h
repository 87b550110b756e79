#pragma once

#include <string>

#include "tovu/util/Logger.h"

namespace tovu { namespace util {

/// The sink that writes to the system log. In spite of its name it writes no file.
/// \code
///     #include <syslog.h>
///     #include "tovu/util/LoggerMgr.h"
///     openlog("volumed", LOG_PID, LOG_LOCAL5);
///     LoggerMgr::Instance().AddLogger(std::auto_ptr<Logger>(new FileLogger("")));
/// \endcode
///
/// Every record has facility LOG_LOCAL5 and severity LOG_INFO (priority value 174) whatever the level of the line was.
/// The system log is neither opened nor closed here: call openlog(3) before, to choose the name that records carry.
///
/// Threads: as Logger; syslog(3) itself may be used from other threads at the same time.
/// Errors: none; syslog(3) drops a record that it cannot deliver.
class FileLogger : public Logger
{
public:
    /// `text` is kept for the owner's use and read by nothing in the library.
    explicit FileLogger(std::string const& text);
    ~FileLogger() override;

    /// Sends one record, "HEADER MESSAGE". With an empty header the record starts with the blank. Nothing is sent when
    /// both texts are empty.
    void Log(std::string const& header, std::string const& message) override;

private:
    std::string text_;
};

}}  // namespace tovu::util
