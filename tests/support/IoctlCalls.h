#pragma once

#include <sys/ioctl.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>

#include "CFunction.h"

// Defines ioctl(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

using IoctlFunction = CFunction<int(int, unsigned long, void*)>;
using IoctlReplacement = IoctlFunction::Replacement;

inline IoctlFunction& IoctlCall()
{
    static IoctlFunction call("ioctl");
    return call;
}

/// How often it was called so far. A signal handler may look.
inline volatile std::sig_atomic_t& IoctlCount()
{
    static volatile std::sig_atomic_t count = 0;
    return count;
}

/// Makes every call fail with `error` for the length of a scope.
class FailingIoctl
{
public:
    explicit FailingIoctl(int error)
        : replacement_(IoctlCall(), [error](int, unsigned long, void*) {
              errno = error;
              return -1;
          })
    {}

private:
    IoctlReplacement const replacement_;
};

}}  // namespace tovu::test

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    tovu::test::IoctlCount() = tovu::test::IoctlCount() + 1;
    return tovu::test::IoctlCall()(descriptor, request, argument);
}
