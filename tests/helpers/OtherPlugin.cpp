// A second plug-in for DynamicLibraryTest, which would use a function of the first if it could see it.

#include "../support/PluginJournal.h"

extern "C" {

int PluginAnswer() __attribute__((weak));

int OtherAnswer()
{
    return 43;
}

bool SeesTheFirstPlugin()
{
    return PluginAnswer != nullptr;
}
}

namespace {

__attribute__((constructor)) void Loaded()
{
    WriteToJournal("other plugin loaded\n");
}

__attribute__((destructor)) void Unloaded()
{
    WriteToJournal("other plugin unloaded\n");
}

}  // namespace
