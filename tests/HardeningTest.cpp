// What a hardened build of the library does that another one does not promise.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

#include "ChildProcess.h"
#include "tovu/util/Socket.h"
#include "tovu/util/StreamSelector.h"

namespace tovu { namespace util { namespace {

// A socket whose descriptor is `number`.
int SocketNumbered(int number)
{
    rlimit limit = {};
    EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    limit.rlim_cur = limit.rlim_max;
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    return dup2(socket(AF_LOCAL, SOCK_STREAM, 0), number);
}

TEST(HardeningTest, TheLastDescriptorOfTheSetsCanBeWatched)
{
    test::ExpectPassesInChild([] {
        Socket const socket(SocketNumbered(FD_SETSIZE - 1));
        StreamSelector selector;
        selector.AddStreamForReading(socket);
        EXPECT_TRUE(selector.IsStreamReadyForReading(socket));
    });
}

TEST(HardeningTest, ADescriptorPastTheSetsEndsTheProcess)
{
    test::ChildResult const result = test::RunInChild([] {
        int const descriptor = SocketNumbered(FD_SETSIZE);
        ASSERT_EQ(FD_SETSIZE, descriptor) << "the limit of descriptors is too low here";
        Socket const socket(descriptor);
        StreamSelector selector;
        selector.AddStreamForReading(socket);
        _exit(0);
    });
    EXPECT_FALSE(result.exited);
    EXPECT_EQ(SIGABRT, result.code) << result.output;
}

}}}  // namespace tovu::util
