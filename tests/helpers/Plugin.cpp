// A plug-in for DynamicLibraryTest.

#include <unistd.h>

#include "../support/PluginJournal.h"

extern "C" {

int pluginNumber = 7;

int PluginAnswer()
{
    return 42;
}

// Calls a function and reads a variable of the C library that nothing else in here uses: DynamicLibraryTest makes
// broken copies of this file by changing their names.
int PluginImports()
{
    return static_cast<int>(getpgrp()) + optind;
}
}

// A symbol that is there, with an address of 0.
__asm__(".globl pluginNull\n.set pluginNull, 0\n");

namespace {

__attribute__((constructor)) void Loaded()
{
    WriteToJournal("plugin loaded\n");
}

__attribute__((destructor)) void Unloaded()
{
    WriteToJournal("plugin unloaded\n");
}

}  // namespace
