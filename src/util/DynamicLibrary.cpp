#include "tovu/util/DynamicLibrary.h"

#include <dlfcn.h>

#include "DestructorGuard.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"

namespace tovu { namespace util {

namespace {

constexpr char const* EXTENSION = ".so";

// What the loader says of the calling thread's last failure.
std::string LoaderError()
{
    return FormatString("%s", dlerror());  // NOLINT(concurrency-mt-unsafe): the text is per thread
}

}  // namespace

DynamicLibrary::~DynamicLibrary()
{
    try {
        Unload();
    } catch (...) {
        internal::LogDestructorFailure(__FILE__, __LINE__);
    }
}

void DynamicLibrary::Load(std::string const& name)
{
    Unload();
    handle_ = dlopen((name + EXTENSION).c_str(), RTLD_LAZY);
    if (handle_ == nullptr)
        throw Exception(__FILE__, __LINE__, LoaderError());
}

void DynamicLibrary::Unload()
{
    if (handle_ == nullptr)
        return;

    if (dlclose(handle_) != 0)
        throw Exception(__FILE__, __LINE__, LoaderError());
    handle_ = nullptr;
}

void* DynamicLibrary::GetProc(std::string const& name) const
{
    if (handle_ == nullptr)
        throw Exception(__FILE__, __LINE__, FormatString("Cannot GetProc for %s: library not loaded", name.c_str()));

    void* const address = dlsym(handle_, name.c_str());
    if (address == nullptr)
        throw Exception(__FILE__, __LINE__, LoaderError());
    return address;
}

}}  // namespace tovu::util
