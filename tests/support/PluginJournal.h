#pragma once

#include <cstdio>
#include <cstdlib>

namespace {

/// Lets a plug-in note when it is loaded and unloaded, in the file that PLUGIN_JOURNAL names; without one it notes
/// nothing. Only for C: a plug-in that shares C++ objects with the program is never taken out of memory.
inline void WriteToJournal(char const* line)
{
    char const* const path = std::getenv("PLUGIN_JOURNAL");
    if (path == nullptr)
        return;
    if (std::FILE* const journal = std::fopen(path, "a")) {
        std::fputs(line, journal);
        std::fclose(journal);
    }
}

}  // namespace
