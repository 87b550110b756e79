// A program that is not linked with the library and loads two plug-ins that are, each for itself: PluginHost THROWING
// CATCHING. Ends well when the second one catches what the first one throws.

#include <dlfcn.h>

#include <cstdio>
#include <string>

namespace {

template <typename Function>
Function Load(char const* plugin, char const* name)
{
    void* const handle = dlopen(plugin, RTLD_NOW | RTLD_LOCAL);
    void* const function = handle == nullptr ? nullptr : dlsym(handle, name);
    if (function == nullptr)
        std::fprintf(stderr, "%s\n", dlerror());
    return reinterpret_cast<Function>(function);
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 3)
        return 2;
    auto const pluginThrows = Load<void (*)()>(argv[1], "PluginThrows");
    auto const catchFrom = Load<void (*)(void (*)(), std::string&)>(argv[2], "CatchFrom");
    if (pluginThrows == nullptr || catchFrom == nullptr)
        return 2;

    std::string report;
    catchFrom(pluginThrows, report);
    std::printf("%s\n", report.c_str());
    return report == "The plug-in has failed.\nTraceback:\nthrown from plugin.cpp, line 9" ? 0 : 1;
}
