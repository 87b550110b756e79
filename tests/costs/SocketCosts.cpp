#include "tovu/util/Socket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

#include <memory>
#include <string>
#include <vector>

#include "Cost.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/ServerSocket.h"

namespace tovu { namespace util { namespace {

using Address = Socket::Address;
using test::Cost;
using test::CostOf;
using test::CostOfText;
using test::Loopback;
using test::NO_COST;

std::string const longPath = "/a/path/that/does/not/fit/into/a/string/object";

TEST(SocketAddressCosts, AnAddressTakesNothing)
{
    Cost const cost = CostOf([] {
        Address local(longPath);
        Address inet(80, htonl(INADDR_LOOPBACK));
        Address const family(static_cast<unsigned short>(AF_INET));
        EXPECT_EQ(80, inet.GetPort());
        inet.SetPort(81);
        EXPECT_TRUE(inet != family);
        local.SetPath(longPath);
        Address const copy(local);
        EXPECT_TRUE(copy == local);
        local.SetFamily(AF_INET);
        inet = local;
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST(SocketAddressCosts, ATextOfAnAddressTakesItsOwnBytesAndNoMore)
{
    Address const local(longPath);
    EXPECT_EQ(CostOfText(longPath), CostOf([&] { EXPECT_FALSE(local.AddrToString().empty()); }));
    Address const longest(80, INADDR_BROADCAST);  // 255.255.255.255
    EXPECT_EQ(NO_COST, CostOf([&] { EXPECT_EQ(15U, longest.AddrToString().size()); }));
}

TEST(SocketCosts, ARecordOfAnInterfaceTakesItsTexts)
{
    Cost const cost = CostOf([] {
        Socket::InterfaceInfo interface;
        interface.name = "eth0";
        interface.ipAddress = "255.255.255.255";
        Socket::InterfaceInfo const copy(interface);
        EXPECT_TRUE(copy.broadcastAddress.empty());
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST(SocketCosts, TheNameOfTheHostTakesItsOwnBytesAndNoMore)
{
    std::string const name = Socket::GetHostName();
    EXPECT_EQ(CostOfText(name), CostOf([] { Socket::GetHostName(); }));
}

TEST(SocketCosts, AConnectionTakesOneSocket)
{
    ServerSocket listener(Loopback(), 1, true);
    std::unique_ptr<ClientSocket> near;
    std::unique_ptr<Socket> far;
    Address const address = listener.GetHostAddress();
    EXPECT_EQ((Cost{1, sizeof(ClientSocket)}), CostOf([&] { near.reset(new ClientSocket(address, true)); }));
    EXPECT_EQ((Cost{1, sizeof(Socket)}), CostOf([&] { far.reset(listener.Accept().release()); }));
}

TEST(SocketCosts, TransfersAndQueriesTakeNothing)
{
    ServerSocket listener(Loopback(), 1, true);
    ClientSocket near(listener.GetHostAddress(), true);
    std::unique_ptr<Socket> const far(listener.Accept().release());
    Cost const cost = CostOf([&] {
        char byte = 'b';
        EXPECT_EQ(1, near.Write(&byte, 1));
        test::AwaitReadable(*far);
        unsigned long long waiting = 0;
        EXPECT_TRUE(far->IsDataAvailable(&waiting));
        EXPECT_TRUE(far->IsConnected());
        EXPECT_EQ(1, far->Read(&byte, 1));
        EXPECT_TRUE(far->GetPeerAddress() == near.GetHostAddress());
        near.SetBlocking(false);
        EXPECT_TRUE(near.IsBlocking());
        near.SetReuseAddress(true);
        EXPECT_TRUE(near.IsReuseAddress());
        near.Close();
    });
    EXPECT_EQ(NO_COST, cost);
}

TEST(SocketCosts, AListenerTakesThePathOfTheFileThatItRemoves)
{
    test::TemporaryDirectory const directory;
    std::string const path = directory / "socket-of-a-listener";
    Address const address(path);
    EXPECT_EQ(CostOfText(path), CostOf([&] { ServerSocket(address, 1, true); }));
}

TEST(SocketCosts, DatagramsTakeNothing)
{
    Cost const cost = CostOf([] {
        ServerBroadcastSocket server(Loopback(), true);
        ClientBroadcastSocket client(server.GetHostAddress(), true);
        char byte = 'b';
        EXPECT_EQ(1, client.Write(&byte, 1));
        Address from(static_cast<unsigned short>(AF_INET));
        EXPECT_EQ(1, server.Read(&byte, 1, from));
        EXPECT_EQ(1, client.Write(&byte, 1));
        EXPECT_EQ(1, server.Read(&byte, 1));
    });
    EXPECT_EQ(NO_COST, cost);
}

}}}  // namespace tovu::util
