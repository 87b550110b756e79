#pragma once

#include <dlfcn.h>

#include <cstring>

namespace tovu { namespace test {

/// The C library's own function behind one that a test program defines in its place.
template <typename Function>
Function* NextFunction(char const* name)
{
    void* const address = dlsym(RTLD_NEXT, name);
    Function* function = nullptr;
    std::memcpy(&function, &address, sizeof(function));
    return function;
}

}}  // namespace tovu::test
