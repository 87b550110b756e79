// Stands in front of the C library with the functions that end a process without its exit handlers.

#include "ProcessCounters.h"

#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <vector>

#include "Interposition.h"

namespace tovu { namespace test {

namespace {

// Of the library and of the program. A plain array, for it is filled before anything else is constructed.
std::array<ModuleCounters, 2> modules;
std::size_t moduleCount = 0;

// Begins anew behind it, since a program that cannot be started leaves the process as it is.
void WriteCounters()
{
    for (std::size_t i = 0; i < moduleCount; ++i) {
        modules[i].write();
        modules[i].reset();
    }
}

// At the end of a process that may have no descriptor left for files, and may have become another user than theirs.
void WriteLastCounters()
{
    closefrom(STDERR_FILENO + 1);
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);
    static_cast<void>(seteuid(0));
    WriteCounters();
}

// The arguments up to the null pointer, with it.
std::vector<char*> Arguments(char const* first, va_list rest)
{
    std::vector<char*> arguments;
    for (char const* argument = first; argument != nullptr; argument = va_arg(rest, char const*))
        arguments.push_back(const_cast<char*>(argument));
    arguments.push_back(nullptr);
    return arguments;
}

}  // namespace

void AddModuleCounters(ModuleCounters counters)
{
    modules.at(moduleCount++) = counters;
}

}}  // namespace tovu::test

extern "C" {

void _exit(int code)
{
    tovu::test::WriteLastCounters();
    tovu::test::NextFunction<void(int)>("_exit")(code);
    __builtin_trap();  // which does not return
}

void abort() noexcept
{
    tovu::test::WriteLastCounters();
    tovu::test::NextFunction<void()>("abort")();
    __builtin_trap();  // which does not return
}

int execvp(char const* file, char* const* arguments) noexcept
{
    tovu::test::WriteCounters();
    return tovu::test::NextFunction<int(char const*, char* const*)>("execvp")(file, arguments);
}

int execl(char const* path, char const* first, ...) noexcept
{
    va_list rest;
    va_start(rest, first);
    std::vector<char*> const arguments = tovu::test::Arguments(first, rest);
    va_end(rest);
    tovu::test::WriteCounters();
    return execv(path, arguments.data());
}

int execle(char const* path, char const* first, ...) noexcept
{
    va_list rest;
    va_start(rest, first);
    std::vector<char*> const arguments = tovu::test::Arguments(first, rest);
    char* const* const environment = va_arg(rest, char* const*);
    va_end(rest);
    tovu::test::WriteCounters();
    return execve(path, arguments.data(), environment);
}

}  // extern "C"
