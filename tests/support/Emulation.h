#pragma once

#include <limits.h>
#include <unistd.h>

#include <string>

#include "Sanitizers.h"

namespace tovu { namespace test {

/// True where the program runs in an emulator of its processor, which stands between it and the kernel: some calls have
/// effects of the emulator's making. It gives the program's name for "/proc/self/exe", as the kernel would, but knows no
/// other road there. memcheck does the same, and leaves those calls as they are.
inline bool IsEmulated()
{
    char named[PATH_MAX] = "";
    char real[PATH_MAX] = "";
    return !RunsUnderMemcheck() && readlink("/proc/self/exe", named, sizeof(named) - 1) > 0 &&
           readlink("/proc/thread-self/exe", real, sizeof(real) - 1) > 0 && std::string(named) != real;
}

}}  // namespace tovu::test
