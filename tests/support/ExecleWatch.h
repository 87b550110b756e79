#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdarg>
#include <functional>
#include <utility>

#include "Interposition.h"

// Defines execle(3) for the program, so include it in one source file only.

namespace tovu { namespace test {

/// Runs a function with the second argument of execle(3) just before each such call of this scope, in the process that
/// makes it. Expects a null pointer and the environment to follow that argument.
class ExecleWatch
{
public:
    explicit ExecleWatch(std::function<void(char const*)> look) : look_(std::move(look)) { Current() = this; }
    ExecleWatch(ExecleWatch const&) = delete;
    ExecleWatch& operator=(ExecleWatch const&) = delete;
    ~ExecleWatch() { Current() = nullptr; }

    static void Look(char const* argument)
    {
        if (Current() != nullptr)
            Current()->look_(argument);
    }

private:
    static ExecleWatch const*& Current()
    {
        static ExecleWatch const* current = nullptr;
        return current;
    }

    std::function<void(char const*)> const look_;
};

}}  // namespace tovu::test

extern "C" int execle(char const* path, char const* argument, ...) noexcept
{
    va_list rest;
    va_start(rest, argument);
    EXPECT_EQ(nullptr, va_arg(rest, char const*));
    char* const* const environment = va_arg(rest, char* const*);
    va_end(rest);

    tovu::test::ExecleWatch::Look(argument);
    auto* const next = tovu::test::NextFunction<int(char const*, char const*, ...)>("execle");
    return next(path, argument, static_cast<char const*>(nullptr), environment);
}
