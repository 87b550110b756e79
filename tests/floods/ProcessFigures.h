// What a running process holds and has used, as the system tells it.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <sstream>
#include <string>

#include "TemporaryDirectory.h"

namespace volume {

inline std::string ProcessFolder(pid_t process)
{
    return "/proc/" + std::to_string(process) + "/";
}

// A number of the process's status, "VmRSS" for example; in KiB where it is an amount of memory.
inline long StatusOf(pid_t process, std::string const& field)
{
    std::string const status = tovu::test::ReadFile(ProcessFolder(process) + "status");
    std::string::size_type const line = status.find("\n" + field + ":");
    EXPECT_NE(std::string::npos, line) << field;
    return line == std::string::npos ? -1 : std::strtol(&status[line + field.size() + 2], nullptr, 10);
}

// How many descriptors below `end` a process has open.
inline long CountDescriptorsOf(pid_t process, long end = LONG_MAX)
{
    DIR* const folder = opendir((ProcessFolder(process) + "fd").c_str());
    EXPECT_NE(nullptr, folder) << "the process is gone";
    if (folder == nullptr)
        return -1;
    long count = 0;
    while (dirent const* const entry = readdir(folder)) {
        if (entry->d_name[0] != '.' && std::strtol(entry->d_name, nullptr, 10) < end)
            ++count;
    }
    closedir(folder);
    return count;
}

// The processor time that a process has used so far, in seconds. The name in front may hold blanks, and ends in ")".
inline double ProcessorSecondsOf(pid_t process)
{
    std::string const line = tovu::test::ReadFile(ProcessFolder(process) + "stat");
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string skipped;
    for (int i = 3; i < 14; ++i)
        fields >> skipped;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// What must come back to where it was when all clients have left.
struct Holdings
{
    long threads;
    long descriptors;

    bool operator==(Holdings const& other) const
    {
        return threads == other.threads && descriptors == other.descriptors;
    }
};

inline Holdings HoldingsOf(pid_t process)
{
    return {StatusOf(process, "Threads"), CountDescriptorsOf(process)};
}

inline std::string ToText(Holdings const& holdings)
{
    return std::to_string(holdings.threads) + " and " + std::to_string(holdings.descriptors);
}

}  // namespace volume
