#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "ChildOrSkip.h"

namespace tovu { namespace test {

/// Takes the rights of root from the process, a child: permissions hold for it from then on. Skips the test where the
/// process cannot do so.
inline void BecomeNobody()
{
    constexpr unsigned NOBODY = 65534;

    if (getuid() != 0)
        return;
    if (setgroups(0, nullptr) == -1 || setgid(NOBODY) == -1 || setuid(NOBODY) == -1)
        SkipFromChild("this machine does not let root become another user");
}

/// What the system knows of a file, links not followed: sizes and dates of 64 bits on every build.
inline struct statx StatusOf(std::string const& path)
{
    struct statx status = {};
    EXPECT_EQ(0, statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status)) << path;
    return status;
}

/// Sets the dates of a file, links not followed, to seconds of 64 bits on every build. The date of its last status
/// change becomes the present.
inline void SetDates(std::string const& path, std::int64_t accessed, std::int64_t modified)
{
#ifdef SYS_utimensat_time64
    constexpr long SET_DATES = SYS_utimensat_time64;
#else
    constexpr long SET_DATES = SYS_utimensat;
#endif
    struct Date
    {
        std::int64_t seconds;
        std::int64_t nanoseconds;
    };
    Date const dates[] = {{accessed, 500000000}, {modified, 999999999}};
    EXPECT_EQ(0, syscall(SET_DATES, AT_FDCWD, path.c_str(), dates, AT_SYMLINK_NOFOLLOW)) << path;
}

}}  // namespace tovu::test
