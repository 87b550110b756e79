// A program that is not linked with the library, and loads and unloads a plug-in that is: PassingHost PLUGIN LIBRARY. Ends
// well when the library has stayed: its log thread may be at work.

#include <dlfcn.h>

#include <cstdio>

int main(int argc, char* argv[])
{
    if (argc != 3)
        return 2;
    void* const plugin = dlopen(argv[1], RTLD_LAZY);
    if (plugin == nullptr || dlclose(plugin) != 0) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    return dlopen(argv[2], RTLD_LAZY | RTLD_NOLOAD) != nullptr ? 0 : 1;
}
