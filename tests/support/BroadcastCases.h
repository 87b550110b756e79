#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "BroadcastSockets.h"
#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "FailingAllocation.h"
#include "IoctlCalls.h"
#include "LogLines.h"
#include "tovu/util/BroadcastSocket.h"

// What BroadcastSocket and the two classes that derive from it promise in the same words. Each one's test instantiates
// the cases.

namespace tovu { namespace test {

/// One that shows the address that it keeps.
template <typename Class>
class ShowingBroadcastSocket : public Class
{
public:
    using Class::Class;
    using Class::GetAddress;
};

template <typename Class>
class BroadcastCases : public testing::Test
{
    DescriptorCensus const census_;

    static_assert(std::is_base_of<util::Socket, Class>::value, "a socket");
    static_assert(!std::is_copy_constructible<Class>::value && !std::is_copy_assignable<Class>::value, "one owner");
    static_assert(std::is_nothrow_destructible<Class>::value, "destructors never throw");
};

TYPED_TEST_SUITE_P(BroadcastCases);

TYPED_TEST_P(BroadcastCases, IsADatagramSocketOfTheAddressesFamily)
{
    TypeParam const socket(Loopback(), true);
    EXPECT_EQ(AF_INET, GetSocketOption(socket, SO_DOMAIN));
    EXPECT_EQ(SOCK_DGRAM, GetSocketOption(socket, SO_TYPE));
    EXPECT_EQ(IPPROTO_UDP, GetSocketOption(socket, SO_PROTOCOL));
}

TYPED_TEST_P(BroadcastCases, KeepsAWholeCopyOfItsAddress)
{
    util::Socket::Address address(static_cast<unsigned short>(AF_LOCAL));
    std::memset(&address.address, 0x5A, sizeof(address.address));
    address.address.inet = Loopback().address.inet;
    address.length = sizeof(sockaddr_in);
    util::Socket::Address const before = address;

    ShowingBroadcastSocket<TypeParam> const socket(address, true);
    address = util::Socket::Address::Empty;
    EXPECT_EQ(before.length, socket.GetAddress().length);
    EXPECT_EQ(0, std::memcmp(&before.address, &socket.GetAddress().address, sizeof(before.address)));
}

TYPED_TEST_P(BroadcastCases, BlockingSocketIsInBlockingMode)
{
    FailingIoctl const modeIsNotTouched(ENOBUFS);
    EXPECT_FALSE(TypeParam(Loopback(), true).IsBlocking());
}

TYPED_TEST_P(BroadcastCases, OtherSocketIsInNonBlockingMode)
{
    EXPECT_TRUE(TypeParam(Loopback(), false).IsBlocking());  // its sense is reversed
}

TYPED_TEST_P(BroadcastCases, FailureToSetTheModeCarriesTheBaseClassOnly)
{
    FailingIoctl const failing(ENOBUFS);
    EXPECT_EQ(Failure(ENOBUFS, {"src/util/Socket.cpp", "src/util/BroadcastSocket.cpp"}),
              FailureOf([] { TypeParam(Loopback(), false); }));
}

TYPED_TEST_P(BroadcastCases, ForeignExceptionFromSettingTheModePassesUnchanged)
{
    FailingIoctl const failing(ENOBUFS);
    FailingAllocation const failingText;
    EXPECT_THROW(TypeParam(Loopback(), false), std::bad_alloc);
    EXPECT_TRUE(failingText.HasFailed());
}

TYPED_TEST_P(BroadcastCases, CreationIsOutsideTheTrail)
{
    EXPECT_EQ(SocketFailure(EAFNOSUPPORT), FailureOf([] { TypeParam(util::Socket::Address::Empty, true); }));
    ExpectPassesInChild([] {
        AllowNoMoreDescriptors();
        EXPECT_EQ(SocketFailure(EMFILE), FailureOf([] { TypeParam(Loopback(), true); }));
    });
}

TYPED_TEST_P(BroadcastCases, DestructorClosesTheDescriptor)
{
    std::unique_ptr<TypeParam> socket(new TypeParam(Loopback(), true));
    int const descriptor = socket->GetDescriptor();
    socket.reset();
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
}

TYPED_TEST_P(BroadcastCases, DestructorLogsAFailedClose)
{
    CapturedLog log;
    {
        TypeParam const socket(Loopback(), true);
        close(socket.GetDescriptor());
    }
    std::vector<std::string> const lines = TakeLines(log);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(0u, lines[0].find("Error src/util/Socket.cpp:")) << lines[0];
    EXPECT_NE(std::string::npos, lines[0].find(ErrnoText(EBADF) + "\nTraceback:\nthrown from src/util/Socket.cpp,"));
}

REGISTER_TYPED_TEST_SUITE_P(BroadcastCases, IsADatagramSocketOfTheAddressesFamily, KeepsAWholeCopyOfItsAddress,
                            BlockingSocketIsInBlockingMode, OtherSocketIsInNonBlockingMode,
                            FailureToSetTheModeCarriesTheBaseClassOnly,
                            ForeignExceptionFromSettingTheModePassesUnchanged, CreationIsOutsideTheTrail,
                            DestructorClosesTheDescriptor, DestructorLogsAFailedClose);

}}  // namespace tovu::test
