#include "tovu/util/BroadcastSocket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <type_traits>

#include "BroadcastCases.h"
#include "BroadcastSockets.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"

namespace tovu { namespace test { namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Base, BroadcastCases, util::BroadcastSocket, );

}}}  // namespace tovu::test

namespace tovu { namespace util { namespace {

using test::BroadcastPeer;
using test::Loopback;

static_assert(std::is_convertible<BroadcastSocket*, Socket*>::value, "it is passed on as a socket");

class BroadcastSocketTest : public testing::Test
{
    test::DescriptorCensus const census_;
};

TEST_F(BroadcastSocketTest, InheritsEveryOperationOfASocket)
{
    EXPECT_EQ(test::StreamOperations(Socket(-1)), test::StreamOperations(BroadcastSocket(Loopback(), true)));
}

TEST_F(BroadcastSocketTest, TakesALocalAddress)
{
    test::TemporaryDirectory const folder;
    BroadcastSocket const socket(Socket::Address(folder / "socket"), true);
    EXPECT_EQ(AF_LOCAL, test::GetSocketOption(socket, SO_DOMAIN));
    EXPECT_EQ(SOCK_DGRAM, test::GetSocketOption(socket, SO_TYPE));
}

TEST_F(BroadcastSocketTest, IsNeitherBoundNorConnectedToItsAddress)
{
    BroadcastPeer const owner;
    BroadcastSocket const socket(owner.GetAddress(), true);
    EXPECT_EQ(Socket::Address(0, INADDR_ANY), socket.GetHostAddress());
    EXPECT_EQ(test::SocketFailure(ENOTCONN), test::FailureOf([&] { socket.GetPeerAddress(); }));
}

TEST_F(BroadcastSocketTest, SetsNoOptionOfTheSocket)
{
    BroadcastSocket const socket(Loopback(), true);
    EXPECT_FALSE(socket.IsBroadcast());
    EXPECT_FALSE(socket.IsReuseAddress());
}

TEST_F(BroadcastSocketTest, DoesNotWriteToItsAddress)
{
    BroadcastPeer const peer;
    BroadcastSocket socket(peer.GetAddress(), true);
    EXPECT_EQ(test::SocketFailure(EDESTADDRREQ), test::FailureOf([&] { test::WriteText(socket, "x"); }));
}

TEST_F(BroadcastSocketTest, ExchangesDatagramsWithAPeerThatItIsConnectedTo)
{
    BroadcastPeer const peer;
    BroadcastSocket socket(Loopback(), true);
    Socket::Address const to = peer.GetAddress();
    ASSERT_EQ(0, connect(socket.GetDescriptor(), &to.address.generic, to.length));

    EXPECT_EQ(4, test::WriteText(socket, "ping"));
    test::Datagram const received = peer.Receive();
    EXPECT_EQ("ping", received.bytes);
    peer.Send("pong", received.sender);
    EXPECT_EQ("pong", test::ReadText(socket));
}

}}}  // namespace tovu::util
