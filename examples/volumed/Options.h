#pragma once

#include <string>

namespace volume {

/// What the command line of volumed says.
struct Options
{
    std::string socketPath;
    std::string listen;  ///< "HOST:PORT"; empty for no TCP listener.
    unsigned logLevel;   ///< A level of tovu::util::LoggerMgr.
    bool foreground;
    bool help;
    bool version;
};

/// Throws UsageError.
Options ParseOptions(int argc, char** argv);

/// The text for --help.
char const* Usage();

}  // namespace volume
