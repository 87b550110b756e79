#pragma once

#include <string>
#include <vector>

namespace volume {

/// What the command line of volumectl says.
struct Options
{
    std::string socketPath;  ///< One of socketPath and connect is set, the other is empty; none to discover services.
    std::string connect;     ///< "HOST:PORT"
    std::string broadcast;   ///< The address to discover services at; empty for all hosts of the network.
    bool xml;                ///< True to print answers as they came.
    bool help;
    bool version;
    std::vector<std::string> command;  ///< The command and its arguments.
};

/// Throws UsageError.
Options ParseOptions(int argc, char** argv);

/// The text for --help.
char const* Usage();

}  // namespace volume
