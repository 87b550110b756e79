#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace tovu { namespace test {

/// Lets every start of a thread fail for the length of a scope: the stack that a new thread gets by default is then
/// larger than any address space has room for, and pthread_create answers EAGAIN.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_attr_t huge;
        EXPECT_EQ(0, pthread_getattr_default_np(&before_));
        EXPECT_EQ(0, pthread_getattr_default_np(&huge));
        std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        EXPECT_EQ(0, pthread_attr_setstacksize(&huge, SIZE_MAX / 16 * 15 / page * page));
        EXPECT_EQ(0, pthread_setattr_default_np(&huge));
        pthread_attr_destroy(&huge);
    }

    NoThreads(NoThreads const&) = delete;
    NoThreads& operator=(NoThreads const&) = delete;

    ~NoThreads()
    {
        EXPECT_EQ(0, pthread_setattr_default_np(&before_));
        pthread_attr_destroy(&before_);
    }

private:
    pthread_attr_t before_;
};

}}  // namespace tovu::test
