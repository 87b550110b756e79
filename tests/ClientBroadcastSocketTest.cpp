#include "tovu/util/ClientBroadcastSocket.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "BroadcastCases.h"
#include "BroadcastSockets.h"
#include "CFunction.h"
#include "ChildOrSkip.h"
#include "FailingAllocation.h"
#include "Interruptions.h"
#include "NetworkPair.h"
#include "ParameterName.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "Throws.h"

namespace tovu { namespace test { namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Client, BroadcastCases, util::ClientBroadcastSocket, );

}}}  // namespace tovu::test

namespace tovu { namespace util { namespace {

using test::BroadcastPeer;
using test::CFunction;
using test::FailureOf;
using test::Loopback;
using test::LoopbackBroadcast;
using test::NetworkPair;
using test::WriteText;

using Address = Socket::Address;

CFunction<int(int, int, int, void const*, socklen_t)> setsockoptCall("setsockopt");
CFunction<ssize_t(int, void const*, std::size_t, int, sockaddr const*, socklen_t)> sendtoCall("sendto");

static_assert(std::is_base_of<BroadcastSocket, ClientBroadcastSocket>::value, "a broadcast socket");

// A failure of Write.
std::string WriteFailure(int error)
{
    return test::Failure(error, {"src/util/ClientBroadcastSocket.cpp"});
}

// A system that sets no option.
class FailingSetsockopt
{
public:
    explicit FailingSetsockopt(int error)
        : replacement_(setsockoptCall, [error](int, int, int, void const*, socklen_t) {
              errno = error;
              return -1;
          })
    {}

private:
    decltype(setsockoptCall)::Replacement const replacement_;
};

class ClientBroadcastSocketTest : public testing::Test
{
    test::DescriptorCensus const census_;
};

// ---- Making one.

TEST_F(ClientBroadcastSocketTest, MayBroadcastFromTheStart)
{
    EXPECT_TRUE(ClientBroadcastSocket(Loopback(), true).IsBroadcast());
    EXPECT_TRUE(ClientBroadcastSocket(Loopback(), false).IsBroadcast());
}

TEST_F(ClientBroadcastSocketTest, DoesNotReuseAddresses)
{
    EXPECT_FALSE(ClientBroadcastSocket(Loopback(), true).IsReuseAddress());
}

TEST_F(ClientBroadcastSocketTest, FailureToAllowBroadcastsCarriesTheConstructor)
{
    FailingSetsockopt const failing(ENOBUFS);
    EXPECT_EQ(test::Failure(ENOBUFS, {"src/util/Socket.cpp", "src/util/ClientBroadcastSocket.cpp"}),
              FailureOf([] { ClientBroadcastSocket(Loopback(), true); }));
}

TEST_F(ClientBroadcastSocketTest, ForeignExceptionFromAllowingBroadcastsPassesUnchanged)
{
    FailingSetsockopt const failing(ENOBUFS);
    test::FailingAllocation const failingText;
    EXPECT_THROW(ClientBroadcastSocket(Loopback(), true), std::bad_alloc);
    EXPECT_TRUE(failingText.HasFailed());
}

TEST_F(ClientBroadcastSocketTest, PicksItsPortWhenItFirstSends)
{
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(Address(0, INADDR_ANY), client.GetHostAddress());
    WriteText(client, "first");
    unsigned short const port = client.GetHostAddress().GetPort();
    EXPECT_NE(0, port);
    WriteText(client, "second");
    EXPECT_EQ(Loopback(port), peer.Receive().sender);
    EXPECT_EQ(Loopback(port), peer.Receive().sender);
}

TEST_F(ClientBroadcastSocketTest, OverridesReadAndWriteOnly)
{
    std::vector<void const*> const socket = test::StreamOperations(Socket(-1));
    std::vector<void const*> const client = test::StreamOperations(ClientBroadcastSocket(Loopback(), true));
    EXPECT_EQ(std::vector<void const*>(socket.begin(), socket.begin() + 4),
              std::vector<void const*>(client.begin(), client.begin() + 4));
    EXPECT_NE(socket[4], client[4]);
    EXPECT_NE(socket[5], client[5]);
}

// ---- Sending.

TEST_F(ClientBroadcastSocketTest, OneWriteIsOneDatagram)
{
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(5, WriteText(client, "first"));
    EXPECT_EQ(6, WriteText(client, "second"));
    EXPECT_EQ("first", peer.Receive().bytes);
    EXPECT_EQ("second", peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsToABroadcastAddress)
{
    BroadcastPeer const peer(LoopbackBroadcast());
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(5, WriteText(client, "hello"));
    EXPECT_EQ("hello", peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, WithoutThePermissionABroadcastIsRefused)
{
    BroadcastPeer const peer(LoopbackBroadcast());
    ClientBroadcastSocket client(peer.GetAddress(), true);
    client.SetBroadcast(false);
    EXPECT_EQ(WriteFailure(EACCES), FailureOf([&] { WriteText(client, "unheard"); }));
    client.SetBroadcast(true);
    WriteText(client, "heard");
    EXPECT_EQ("heard", peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsToTheAddressThatItWasMadeFor)
{
    BroadcastPeer const peer;
    Address address = peer.GetAddress();
    ClientBroadcastSocket client(address, true);
    address = Address::Empty;
    WriteText(client, "hello");
    EXPECT_EQ("hello", peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsAnEmptyDatagram)
{
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(0, client.Write("unused", 0));
    EXPECT_EQ(0, client.Write(nullptr, 0));
    WriteText(client, "behind them");
    for (char const* bytes : {"", "", "behind them"})
        EXPECT_EQ(bytes, peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsZeroBytesLikeAnyOther)
{
    std::string const bytes("a\0b\0", 4);
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(4, WriteText(client, bytes));
    EXPECT_EQ(bytes, peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsTheLargestDatagramAndNoLargerOne)
{
    std::string const bytes(test::LARGEST_DATAGRAM, 'x');
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    EXPECT_EQ(WriteFailure(EMSGSIZE), FailureOf([&] { WriteText(client, bytes + "x"); }));
    EXPECT_EQ(static_cast<int>(bytes.size()), WriteText(client, bytes));
    EXPECT_EQ(bytes, peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, SendsWithoutFlags)
{
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    decltype(sendtoCall)::Replacement const watch(sendtoCall, [](int descriptor, void const* buffer, std::size_t size,
                                                                 int flags, sockaddr const* to, socklen_t length) {
        EXPECT_EQ(0, flags);
        return sendtoCall.System(descriptor, buffer, size, flags, to, length);
    });
    EXPECT_EQ(5, WriteText(client, "hello"));
    EXPECT_EQ("hello", peer.Receive().bytes);
}

TEST_F(ClientBroadcastSocketTest, NobodyNeedsToListen)
{
    Address nobody = Loopback();
    {
        BroadcastPeer const peer;
        nobody = peer.GetAddress();
    }
    ClientBroadcastSocket client(nobody, true);
    EXPECT_EQ(1, WriteText(client, "1"));
    EXPECT_EQ(1, WriteText(client, "2"));
}

TEST_F(ClientBroadcastSocketTest, AnAddressThatIsTooShortIsRefused)
{
    BroadcastPeer const peer;
    Address address = peer.GetAddress();
    for (socklen_t const length : {socklen_t{0}, socklen_t{8}}) {
        address.length = length;
        ClientBroadcastSocket client(address, true);
        EXPECT_EQ(WriteFailure(EINVAL), FailureOf([&] { WriteText(client, "x"); })) << length;
    }
}

TEST_F(ClientBroadcastSocketTest, ClosedSocketThrows)
{
    ClientBroadcastSocket client(Loopback(), true);
    client.Close();
    EXPECT_EQ(WriteFailure(EBADF), FailureOf([&] { WriteText(client, "x"); }));
}

TEST_F(ClientBroadcastSocketTest, NetworkWithoutARouteThrows)
{
    test::ExpectPassesInChildOrSkips([] {
        test::EnterOwnNetwork();
        ClientBroadcastSocket client(Address(4711, INADDR_BROADCAST), true);
        EXPECT_EQ(WriteFailure(ENETUNREACH), FailureOf([&] { WriteText(client, "x"); }));
        EXPECT_TRUE(client.IsOpen());
    });
}

// Local datagrams wait for their receiver, so a sender can be kept from going on.
class LocalClientBroadcastSocketTest : public ClientBroadcastSocketTest
{
protected:
    // How the client fails that writes more than the receiver has room for.
    std::string FailureWithoutRoom(ClientBroadcastSocket& client)
    {
        return FailureOf([&] {
            for (;;)
                WriteText(client, "x");
        });
    }

    test::TemporaryDirectory const folder_;
    BroadcastPeer const peer_{Address(folder_ / "socket")};
};

TEST_F(LocalClientBroadcastSocketTest, SendsToAPath)
{
    ClientBroadcastSocket client(peer_.GetAddress(), true);
    EXPECT_EQ(5, WriteText(client, "hello"));
    EXPECT_EQ("hello", peer_.Receive().bytes);
}

TEST_F(LocalClientBroadcastSocketTest, NobodyAtThePathThrows)
{
    ClientBroadcastSocket client(Address(folder_ / "missing"), true);
    EXPECT_EQ(WriteFailure(ENOENT), FailureOf([&] { WriteText(client, "x"); }));
}

TEST_F(LocalClientBroadcastSocketTest, SendsToTheSignificantBytesOfTheAddressOnly)
{
    Address const address = test::AbstractAddress("tovuutil-test-" + std::to_string(getpid()));
    BroadcastPeer const peer(address);
    Address longer = address;
    std::strcpy(longer.address.local.sun_path + longer.length - offsetof(sockaddr_un, sun_path), "and more");
    ClientBroadcastSocket client(longer, true);
    WriteText(client, "hello");
    EXPECT_EQ("hello", peer.Receive().bytes);
}

TEST_F(LocalClientBroadcastSocketTest, BlockingWriteWaitsForRoomUntilItIsInterrupted)
{
    ClientBroadcastSocket client(peer_.GetAddress(), true);
    test::Interruptions const interruptions(1000);
    EXPECT_EQ(WriteFailure(EINTR), FailureWithoutRoom(client));
}

TEST_F(LocalClientBroadcastSocketTest, NonBlockingWriteThrowsWithoutRoom)
{
    ClientBroadcastSocket client(peer_.GetAddress(), false);
    EXPECT_EQ(WriteFailure(EAGAIN), FailureWithoutRoom(client));
}

// ---- Between two machines.

struct BroadcastAddress
{
    char const* name;
    unsigned int ipAddress;
};

class ClientBroadcastSocketNetworkTest : public testing::TestWithParam<BroadcastAddress>
{
protected:
    static Address Target(BroadcastPeer const& receiver)
    {
        return Address(receiver.GetAddress().GetPort(), GetParam().ipAddress);
    }
};

INSTANTIATE_TEST_SUITE_P(Addresses, ClientBroadcastSocketNetworkTest,
                         testing::Values(BroadcastAddress{"Limited", INADDR_BROADCAST},
                                         BroadcastAddress{"Directed",
                                                          NetworkPair::Everybody(0).address.inet.sin_addr.s_addr}),
                         test::ParameterName());

TEST_P(ClientBroadcastSocketNetworkTest, ReachesTheOtherMachine)
{
    test::ExpectPassesInChildOrSkips([] {
        NetworkPair network;
        network.EnterFar();
        BroadcastPeer const receiver(Address(0, INADDR_ANY));
        network.EnterNear();
        ClientBroadcastSocket client(Target(receiver), true);
        EXPECT_EQ(5, WriteText(client, "hello"));

        test::Datagram const received = receiver.Receive();
        EXPECT_EQ("hello", received.bytes);
        EXPECT_EQ(NetworkPair::NearAddress(), received.sender.AddrToString());
        EXPECT_EQ(client.GetHostAddress().GetPort(), received.sender.GetPort());
    });
}

TEST_P(ClientBroadcastSocketNetworkTest, WithoutThePermissionNothingIsSent)
{
    test::ExpectPassesInChildOrSkips([] {
        NetworkPair network;
        network.EnterFar();
        BroadcastPeer const receiver(Address(0, INADDR_ANY));
        network.EnterNear();
        ClientBroadcastSocket client(Target(receiver), true);
        client.SetBroadcast(false);
        EXPECT_EQ(WriteFailure(EACCES), FailureOf([&] { WriteText(client, "unheard"); }));
        client.SetBroadcast(true);
        WriteText(client, "heard");
        EXPECT_EQ("heard", receiver.Receive().bytes);
    });
}

// ---- The refused direction.

// Calls Read as the class's own operation, and as a stream's.
std::vector<Exception> Refusals(ClientBroadcastSocket& client)
{
    Stream& stream = client;
    char buffer[16];
    return {test::Thrown([&] { client.Read(buffer, sizeof(buffer)); }),
            test::Thrown([&] { stream.Read(buffer, sizeof(buffer)); }), test::Thrown([&] { stream.Read(nullptr, 0); })};
}

TEST_F(ClientBroadcastSocketTest, ReadIsRefusedByTheHeader)
{
    ClientBroadcastSocket client(Loopback(), true);
    for (Exception const& refusal : Refusals(client)) {
        EXPECT_STREQ("ClientBroadcastSocket can't Read.", refusal.what());
        ASSERT_EQ(1u, refusal.locations.size());
        EXPECT_STREQ("include/tovu/util/ClientBroadcastSocket.h", refusal.locations[0].file);
        EXPECT_EQ(27u, refusal.locations[0].line);
    }
}

TEST_F(ClientBroadcastSocketTest, ReadIsRefusedOnAClosedSocketAsWell)
{
    ClientBroadcastSocket client(Loopback(), true);
    client.Close();
    for (Exception const& refusal : Refusals(client))
        EXPECT_STREQ("ClientBroadcastSocket can't Read.", refusal.what());
}

TEST_F(ClientBroadcastSocketTest, RefusedReadReceivesNothing)
{
    BroadcastPeer const peer;
    ClientBroadcastSocket client(peer.GetAddress(), true);
    WriteText(client, "question");
    peer.Send("answer", peer.Receive().sender);
    test::AwaitReadable(client);
    Refusals(client);

    unsigned long long count = 0;
    EXPECT_TRUE(client.IsDataAvailable(&count));
    EXPECT_EQ(6u, count);
    TenantSocket view(client.GetDescriptor());
    EXPECT_EQ("answer", test::ReadText(view));
}

}}}  // namespace tovu::util

extern "C" int setsockopt(int descriptor, int level, int option, void const* value, socklen_t size) noexcept
{
    return tovu::util::setsockoptCall(descriptor, level, option, value, size);
}

extern "C" ssize_t sendto(int descriptor, void const* buffer, std::size_t size, int flags, sockaddr const* to,
                          socklen_t length)
{
    return tovu::util::sendtoCall(descriptor, buffer, size, flags, to, length);
}
