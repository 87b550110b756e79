#pragma once

#include <string>

namespace tovu { namespace util {

/// One shared library, loaded while the program runs.
/// \code
///     DynamicLibrary plugin;
///     plugin.Load("/usr/lib/volumed/scrub");  // opens /usr/lib/volumed/scrub.so
///     auto const scrub = reinterpret_cast<void (*)(char const*)>(plugin.GetProc("Scrub"));
///     scrub("/srv/volumes/photos");
/// \endcode
///
/// Ownership: owns the loaded library; not copyable. The destructor unloads it and logs a failure instead of throwing.
///     Everything that came from the library, addresses, objects with its code, exceptions of its types, must be gone
///     before.
/// Threads: one thread at a time.
/// Errors: Exception with the text of dlerror(3).
class DynamicLibrary
{
public:
    /// Nothing is loaded.
    DynamicLibrary() = default;

    DynamicLibrary(DynamicLibrary const&) = delete;
    DynamicLibrary& operator=(DynamicLibrary const&) = delete;
    ~DynamicLibrary();

    /// Opens `name` with ".so" behind it, whatever it ends in, see dlopen(3): a name without a slash is searched for.
    /// Its symbols are bound when they are first used, and no other library sees them.
    ///
    /// A library that was loaded before is unloaded first. When that fails it stays, and nothing is loaded; when the
    /// load fails, nothing is loaded afterwards.
    void Load(std::string const& name);

    /// Gives the library back, see dlclose(3). Nothing happens when none is loaded. When it fails the library stays. One
    /// that g++ has compiled without -fno-gnu-unique often stays in memory all the same until the process ends.
    void Unload();

    /// The address of a symbol, see dlsym(3), valid until the library is unloaded. A symbol that is there but has the
    /// address null is an error, too, with the text "(null)". Throws "Cannot GetProc for NAME: library not loaded" when
    /// none is.
    void* GetProc(std::string const& name) const;

private:
    void* handle_ = nullptr;  // null when nothing is loaded
};

}}  // namespace tovu::util
