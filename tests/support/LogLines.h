#pragma once

#include <string>
#include <vector>

#include "CapturedLog.h"

namespace tovu { namespace test {

/// CapturedLog::Take with each line as one text: its header, then its message.
inline std::vector<std::string> TakeLines(CapturedLog& log)
{
    std::vector<std::string> lines;
    for (CapturedLog::Line const& line : log.Take())
        lines.push_back(line.header + line.message);
    return lines;
}

}}  // namespace tovu::test
