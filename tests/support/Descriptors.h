#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstddef>

namespace tovu { namespace test {

/// True when `descriptor` is open in this process.
inline bool IsDescriptorOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) != -1;
}

/// How many descriptors this process holds: the same before and after means that none was lost.
inline std::size_t CountDescriptors()
{
    DIR* const folder = opendir("/proc/self/fd");
    std::size_t count = 0;
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

/// Lets this process, a child, open no descriptor from `first` on. What is open stays so.
inline void ForbidDescriptorsFrom(int first)
{
    rlimit limit = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = static_cast<rlim_t>(first);
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
}

}}  // namespace tovu::test
