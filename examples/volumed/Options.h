#pragma once

#include <string>

#include "Jobs.h"

namespace volume {

/// What the command line of volumed says.
struct Options
{
    std::string socketPath;
    std::string listen;      ///< "HOST:PORT"; empty for no TCP listener.
    std::string discover;    ///< The port to answer discovery on; empty for none.
    std::string sendFolder;  ///< Where Send finds its files; empty for nowhere.
    std::string database;    ///< The SQLite file; empty for none.
    std::string plugins;     ///< The folder; empty for none.
    JobPrograms jobs;        ///< What RunJob may run.
    unsigned logLevel;       ///< A level of tovu::util::LoggerMgr.
    bool foreground;
    bool help;
    bool version;
};

/// Throws UsageError.
Options ParseOptions(int argc, char** argv);

/// The text for --help.
char const* Usage();

}  // namespace volume
