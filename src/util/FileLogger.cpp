#include "tovu/util/FileLogger.h"

#include <syslog.h>

namespace tovu { namespace util {

FileLogger::FileLogger(std::string const& text) : text_(text) {}

FileLogger::~FileLogger() = default;

void FileLogger::Log(std::string const& header, std::string const& message)
{
    if (header.empty() && message.empty())
        return;

    // One priority for every level: the level, where it is wanted, stands in the header.
    syslog(LOG_LOCAL5 | LOG_INFO, "%s %s", header.c_str(), message.c_str());
}

}}  // namespace tovu::util
