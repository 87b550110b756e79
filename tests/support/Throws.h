#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tovu/util/Exception.h"

namespace tovu { namespace test {

/// Runs `action` and returns the Exception that it throws; fails the test, and returns one from nowhere, when it throws
/// none.
template <typename Action>
util::Exception Thrown(Action action)
{
    try {
        action();
    } catch (util::Exception const& exception) {
        return exception;
    }
    ADD_FAILURE() << "no Exception was thrown";
    return util::Exception("nowhere", 0, "nothing was thrown");
}

/// The text that an Exception for a failed system call has.
inline std::string ErrnoText(int error)
{
    errno = error;
    return util::Exception::FromErrorCode(error);
}

}}  // namespace tovu::test

/// Expects that `statement` throws an Exception whose throw site is `file` (relative to the project root) and `line`.
#define EXPECT_THROWN_AT(sourceFile, sourceLine, statement)                           \
    do {                                                                              \
        auto const thrownException = ::tovu::test::Thrown([&] { statement; });        \
        EXPECT_STREQ(sourceFile, thrownException.locations.front().file);             \
        EXPECT_EQ(std::uint32_t{sourceLine}, thrownException.locations.front().line); \
    } while (false)

/// Expects that `statement` throws an Exception with the text of `error`, an errno value.
#define EXPECT_THROWS_ERRNO(error, statement) \
    EXPECT_EQ(::tovu::test::ErrnoText(error), ::tovu::test::Thrown([&] { statement; }).what())
