#pragma once

#include <fcntl.h>
#include <limits.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>

#include "Latch.h"

namespace tovu { namespace test {

/// The flags, O_CLOEXEC among them, of the descriptor with which another process writes to a file; 0 when it has none.
inline int FlagsOfWriter(pid_t process, std::string const& path)
{
    std::string const folder = "/proc/" + std::to_string(process);
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        std::string const number = std::to_string(descriptor);
        char target[PATH_MAX] = "";
        if (readlink((folder + "/fd/" + number).c_str(), target, sizeof(target) - 1) == -1 || path != target)
            continue;

        std::ifstream information(folder + "/fdinfo/" + number);
        std::string word;
        while (information >> word && word != "flags:")
            continue;
        int flags = 0;
        information >> std::oct >> flags;
        if ((flags & O_ACCMODE) == O_WRONLY)
            return flags;
    }
    return 0;
}

/// Waits until the other process has opened the file for writing. 0 when the deadline came first.
inline int AwaitFlagsOfWriter(pid_t process, std::string const& path)
{
    auto const deadline = std::chrono::steady_clock::now() + DEADLINE;
    int flags = 0;
    while (flags == 0 && std::chrono::steady_clock::now() < deadline)
        flags = FlagsOfWriter(process, path);
    return flags;
}

}}  // namespace tovu::test
