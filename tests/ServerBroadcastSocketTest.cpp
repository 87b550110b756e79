#include "tovu/util/ServerBroadcastSocket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <future>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "BroadcastCases.h"
#include "BroadcastRecvfrom.h"
#include "BroadcastSockets.h"
#include "ChildOrSkip.h"
#include "FailingAllocation.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "Latch.h"
#include "NetworkPair.h"
#include "ParameterName.h"
#include "Sanitizers.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/StreamSelector.h"

namespace tovu { namespace test { namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Server, BroadcastCases, util::ServerBroadcastSocket, );

}}}  // namespace tovu::test

namespace tovu { namespace util { namespace {

using test::BroadcastPeer;
using test::FailureOf;
using test::Loopback;
using test::NetworkPair;
using test::ReachedAt;
using test::ReadText;

using Address = Socket::Address;

static_assert(std::is_base_of<BroadcastSocket, ServerBroadcastSocket>::value, "a broadcast socket");

// A failure of Read.
std::string ReadFailure(int error)
{
    return test::Failure(error, {"src/util/ServerBroadcastSocket.cpp"});
}

// A failure in the base class's part of the constructor.
std::string ConstructorFailure(int error)
{
    return test::Failure(error, {"src/util/Socket.cpp", "src/util/ServerBroadcastSocket.cpp"});
}

// Room for the address of an IPv4 sender.
Address RoomForSender()
{
    return Address(static_cast<unsigned short>(AF_INET));
}

class ServerBroadcastSocketTest : public testing::Test
{
    test::DescriptorCensus const census_;
};

// ---- Making one.

TEST_F(ServerBroadcastSocketTest, IsBoundToItsAddress)
{
    ServerBroadcastSocket const server(Loopback(), true);
    EXPECT_EQ("127.0.0.1", server.GetHostAddress().AddrToString());
    EXPECT_NE(0, server.GetHostAddress().GetPort());
}

TEST_F(ServerBroadcastSocketTest, SetsNoOptionOfTheSocket)
{
    ServerBroadcastSocket const server(Loopback(), true);
    EXPECT_FALSE(server.IsBroadcast());
    EXPECT_FALSE(server.IsReuseAddress());
}

TEST_F(ServerBroadcastSocketTest, SecondReceiverOnAPortIsRefused)
{
    ServerBroadcastSocket const first(Loopback(), true);
    EXPECT_EQ(ConstructorFailure(EADDRINUSE), FailureOf([&] { ServerBroadcastSocket(first.GetHostAddress(), true); }));
}

TEST_F(ServerBroadcastSocketTest, APortIsFreeOnceItsReceiverIsGone)
{
    Address address = Loopback();
    {
        ServerBroadcastSocket const first(address, true);
        address = first.GetHostAddress();
    }
    EXPECT_EQ(address, ServerBroadcastSocket(address, true).GetHostAddress());
}

TEST_F(ServerBroadcastSocketTest, AnAddressThatIsTooShortIsRefused)
{
    Address local(Loopback());
    local.SetFamily(AF_LOCAL);  // makes the family AF_INET, with the length of a local address
    EXPECT_EQ(ConstructorFailure(EINVAL), FailureOf([&] { ServerBroadcastSocket(local, true); }));
}

TEST_F(ServerBroadcastSocketTest, FamiliesBesidesLocalAreTheSystemsToAccept)
{
    Address kernel = RoomForSender();
    kernel.address.generic.sa_family = AF_NETLINK;
    ServerBroadcastSocket const server(kernel, true);
    EXPECT_EQ(AF_NETLINK, test::GetSocketOption(server, SO_DOMAIN));
}

TEST_F(ServerBroadcastSocketTest, ForeignExceptionFromTheBindPassesUnchanged)
{
    ServerBroadcastSocket const first(Loopback(), true);
    Address const address = first.GetHostAddress();
    test::FailingAllocation const failingText;
    EXPECT_THROW(ServerBroadcastSocket(address, true), std::bad_alloc);
    EXPECT_TRUE(failingText.HasFailed());
}

TEST_F(ServerBroadcastSocketTest, OverridesReadAndWriteOnly)
{
    std::vector<void const*> const socket = test::StreamOperations(Socket(-1));
    std::vector<void const*> const server = test::StreamOperations(ServerBroadcastSocket(Loopback(), true));
    EXPECT_EQ(std::vector<void const*>(socket.begin(), socket.begin() + 4),
              std::vector<void const*>(server.begin(), server.begin() + 4));
    EXPECT_NE(socket[4], server[4]);
    EXPECT_NE(socket[5], server[5]);
}

// ---- Local addresses.

class ServerBroadcastSocketLocalTest : public ServerBroadcastSocketTest
{
protected:
    test::TemporaryDirectory const folder_;
    Address const path_{folder_ / "socket"};
    std::string const refusal_ = test::Failure("address.sa_family == AF_LOCAL", {"src/util/ServerBroadcastSocket.cpp"});
};

TEST_F(ServerBroadcastSocketLocalTest, LocalAddressIsRefusedByTheConstructorAlone)
{
    for (bool const blocking : {true, false}) {
        EXPECT_EQ(refusal_, FailureOf([&] { ServerBroadcastSocket(path_, blocking); }));
        EXPECT_EQ(refusal_,
                  FailureOf([&] { ServerBroadcastSocket(Address(static_cast<unsigned short>(AF_LOCAL)), blocking); }));
    }
}

TEST_F(ServerBroadcastSocketLocalTest, LocalAddressIsRefusedBeforeTheBind)
{
    FailureOf([&] { ServerBroadcastSocket(path_, true); });
    EXPECT_NE(0, access(path_.AddrToString().c_str(), F_OK));
}

TEST_F(ServerBroadcastSocketLocalTest, LocalAddressIsRefusedAfterTheModeIsSet)
{
    test::FailingIoctl const failing(ENOBUFS);
    EXPECT_EQ(test::Failure(ENOBUFS, {"src/util/Socket.cpp", "src/util/BroadcastSocket.cpp"}),
              FailureOf([&] { ServerBroadcastSocket(path_, false); }));
}

// ---- Receiving: a server and a peer that sends to it.

class ServerBroadcastSocketReadTest : public ServerBroadcastSocketTest
{
protected:
    void Send(std::string const& bytes) { peer_.Send(bytes, ReachedAt(server_)); }

    // Reads with room for `size` bytes and the sender's address.
    std::string ReadFrom(Address& sender, unsigned size = 100)
    {
        std::vector<char> buffer(size + 1);
        int const count = server_.Read(buffer.data(), size, sender);
        return std::string(buffer.data(), static_cast<std::size_t>(count));
    }

    BroadcastPeer const peer_;
    ServerBroadcastSocket server_{Loopback(), true};
};

TEST_F(ServerBroadcastSocketReadTest, TellsTheSendersAddress)
{
    Send("hello");
    Address sender = RoomForSender();
    EXPECT_EQ("hello", ReadFrom(sender));
    EXPECT_EQ(peer_.GetAddress(), sender);
    EXPECT_NE(server_.GetHostAddress(), sender);
}

TEST_F(ServerBroadcastSocketReadTest, TellsEachDatagramsOwnSender)
{
    BroadcastPeer const other;
    Send("first");
    other.Send("second", ReachedAt(server_));
    Address sender = RoomForSender();
    EXPECT_EQ("first", ReadFrom(sender));
    EXPECT_EQ(peer_.GetAddress(), sender);
    EXPECT_EQ("second", ReadFrom(sender));
    EXPECT_EQ(other.GetAddress(), sender);
}

TEST_F(ServerBroadcastSocketReadTest, ReceivesWhatAClientBroadcasts)
{
    ServerBroadcastSocket server(test::LoopbackBroadcast(), true);
    ClientBroadcastSocket client(server.GetHostAddress(), true);
    test::WriteText(client, "hello");
    Address sender = RoomForSender();
    char buffer[16] = "";
    EXPECT_EQ(5, server.Read(buffer, sizeof(buffer), sender));
    EXPECT_STREQ("hello", buffer);
    EXPECT_EQ(client.GetHostAddress().GetPort(), sender.GetPort());
}

// The two forms of Read, for what they promise alike.
struct ReadForm
{
    char const* name;
    int (*read)(ServerBroadcastSocket& server, void* buffer, unsigned size);
};

class ServerBroadcastSocketReadFormTest : public ServerBroadcastSocketReadTest,
                                          public testing::WithParamInterface<ReadForm>
{
protected:
    static int Read(ServerBroadcastSocket& server, void* buffer, unsigned size)
    {
        return GetParam().read(server, buffer, size);
    }

    // The bytes that are read with room for `size`, and no byte behind them.
    std::string Read(unsigned size)
    {
        std::string buffer(size + 1, '#');
        int const count = Read(server_, &buffer[0], size);
        EXPECT_EQ(std::string::npos, buffer.find_first_not_of('#', static_cast<std::size_t>(count)));
        return buffer.substr(0, static_cast<std::size_t>(count));
    }

    static std::string FailureOfRead(ServerBroadcastSocket& server)
    {
        return FailureOf([&] {
            char buffer[16];
            Read(server, buffer, sizeof(buffer));
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, ServerBroadcastSocketReadFormTest,
                         testing::Values(ReadForm{"WithoutSender",
                                                  [](ServerBroadcastSocket& server, void* buffer, unsigned size) {
                                                      return server.Read(buffer, size);
                                                  }},
                                         ReadForm{"OfAStream",
                                                  [](ServerBroadcastSocket& server, void* buffer, unsigned size) {
                                                      return static_cast<Stream&>(server).Read(buffer, size);
                                                  }},
                                         ReadForm{"WithSender",
                                                  [](ServerBroadcastSocket& server, void* buffer, unsigned size) {
                                                      Address sender = RoomForSender();
                                                      return server.Read(buffer, size, sender);
                                                  }}),
                         test::ParameterName());

TEST_P(ServerBroadcastSocketReadFormTest, OneReadTakesOneDatagram)
{
    Send("first");
    Send("second");
    EXPECT_EQ("first", Read(100));
    EXPECT_EQ("second", Read(100));
}

TEST_P(ServerBroadcastSocketReadFormTest, TheRestOfALongerDatagramIsLost)
{
    Send("0123456789");
    Send("next");
    EXPECT_EQ("0123", Read(4));
    EXPECT_EQ("next", Read(4));
}

TEST_P(ServerBroadcastSocketReadFormTest, AReadOfNothingTakesADatagramAsWell)
{
    Send("lost");
    Send("next");
    EXPECT_EQ("", Read(0));
    EXPECT_EQ("next", Read(4));
}

TEST_P(ServerBroadcastSocketReadFormTest, AnEmptyDatagramCounts0)
{
    Send("");
    Send("next");
    EXPECT_EQ("", Read(100));
    EXPECT_EQ("next", Read(100));
}

TEST_P(ServerBroadcastSocketReadFormTest, TheLargestDatagramComesWhole)
{
    std::string const bytes(test::LARGEST_DATAGRAM, 'x');
    Send(bytes);
    EXPECT_EQ(bytes, Read(test::LARGEST_DATAGRAM));
}

TEST_P(ServerBroadcastSocketReadFormTest, NonBlockingReadThrowsWithNothingQueued)
{
    ServerBroadcastSocket server(Loopback(), false);
    EXPECT_EQ(ReadFailure(EAGAIN), FailureOfRead(server));
    EXPECT_TRUE(server.IsOpen());
}

TEST_P(ServerBroadcastSocketReadFormTest, BlockingReadWaitsUntilItIsInterrupted)
{
    test::Interruptions const interruptions(1000);
    EXPECT_EQ(ReadFailure(EINTR), FailureOfRead(server_));
}

TEST_P(ServerBroadcastSocketReadFormTest, ClosedSocketThrows)
{
    server_.Close();
    EXPECT_EQ(ReadFailure(EBADF), FailureOfRead(server_));
}

TEST_P(ServerBroadcastSocketReadFormTest, AThreadReceivesWhatAnotherSends)
{
    std::future<std::string> received = std::async(std::launch::async, [this] {
        std::string all;
        while (all.size() < 20)
            all += Read(100);
        return all;
    });
    for (char const* bytes : {"01234", "56789", "abcde", "fghij"})
        Send(bytes);
    ASSERT_EQ(std::future_status::ready, received.wait_for(test::DEADLINE)) << "four datagrams";
    EXPECT_EQ("0123456789abcdefghij", received.get());
}

// ---- The room for the sender's address.

TEST_F(ServerBroadcastSocketReadTest, OnlyAsMuchOfTheAddressIsStoredAsThereIsRoomFor)
{
    Address const whole = peer_.GetAddress();
    for (socklen_t const room : {socklen_t{0}, socklen_t{4}, socklen_t{15}, socklen_t{16}}) {
        Send("x");
        Address sender = RoomForSender();
        std::memset(&sender.address, 0x5A, sizeof(sender.address));
        Address expected = sender;
        std::memcpy(&expected.address, &whole.address, room);

        sender.length = room;
        ReadFrom(sender);
        EXPECT_EQ(16u, sender.length) << "the true length, with room for " << room;
        EXPECT_EQ(0, std::memcmp(&expected.address, &sender.address, sizeof(sender.address))) << "room for " << room;
    }
}

TEST_F(ServerBroadcastSocketReadTest, MoreRoomThanNeededLeavesTheTrueLength)
{
    Send("x");
    Address sender = RoomForSender();
    sender.length = sizeof(sender.address);
    ReadFrom(sender);
    EXPECT_EQ(peer_.GetAddress(), sender);
}

TEST_F(ServerBroadcastSocketReadTest, ALengthThatIsNoneIsTheSystemsToRefuse)
{
    if (test::RunsUnderMemcheck())
        GTEST_SKIP() << "such a length is an error to memcheck";

    Send("x");
    Address sender = RoomForSender();
    sender.length = static_cast<socklen_t>(-1);
    EXPECT_EQ(ReadFailure(EINVAL), FailureOf([&] { ReadFrom(sender); }));
}

TEST_F(ServerBroadcastSocketReadTest, ReadWithoutASenderHasRoomForOneOfItsOwnFamily)
{
    test::WatchedRecvfrom const watch([this](test::RecvfromArguments const& call) {
        EXPECT_EQ(server_.GetDescriptor(), call.descriptor);
        EXPECT_EQ(0, call.flags);
        EXPECT_EQ(sizeof(sockaddr_in), call.length);
        Address const empty = RoomForSender();
        EXPECT_EQ(0, std::memcmp(&empty.address, call.address, sizeof(sockaddr_in)));
    });
    Send("hello");
    EXPECT_EQ("hello", ReadText(server_, 100));
}

// ---- Asking what waits.

TEST_F(ServerBroadcastSocketReadTest, DataAvailableIsTheSizeOfTheNextDatagram)
{
    Send("123");
    Send("12345");
    for (unsigned const size : {3u, 5u}) {
        unsigned long long count = 77;
        EXPECT_TRUE(server_.IsDataAvailable(&count));
        EXPECT_EQ(size, count);
        ReadText(server_);
    }
}

TEST_F(ServerBroadcastSocketReadTest, NothingQueuedIsNoData)
{
    unsigned long long count = 77;
    EXPECT_FALSE(server_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
    EXPECT_FALSE(server_.IsDataAvailable(nullptr));
}

TEST_F(ServerBroadcastSocketReadTest, AnEmptyDatagramIsNoDataButMakesTheSocketReady)
{
    Send("");
    Send("behind it");
    StreamSelector selector;
    selector.AddStreamForReading(server_);
    EXPECT_TRUE(selector.Select());
    EXPECT_TRUE(selector.IsStreamReadyForReading(server_));

    unsigned long long count = 77;
    EXPECT_FALSE(server_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ("", ReadText(server_));
    EXPECT_EQ("behind it", ReadText(server_));
}

// ---- Between two machines.

class ServerBroadcastSocketNetworkTest : public testing::TestWithParam<bool>
{};

INSTANTIATE_TEST_SUITE_P(Modes, ServerBroadcastSocketNetworkTest, testing::Bool(),
                         [](testing::TestParamInfo<bool> const& row) { return row.param ? "Limited" : "Directed"; });

TEST_P(ServerBroadcastSocketNetworkTest, TellsTheOtherMachinesAddressAndPort)
{
    test::ExpectPassesInChildOrSkips([] {
        NetworkPair network;
        network.EnterFar();
        ServerBroadcastSocket server(Address(0, INADDR_ANY), true);
        network.EnterNear();
        unsigned short const port = server.GetHostAddress().GetPort();
        ClientBroadcastSocket client(GetParam() ? Address(port, INADDR_BROADCAST) : NetworkPair::Everybody(port), true);
        test::WriteText(client, "hello");

        test::AwaitReadable(server);
        char buffer[16] = "";
        Address sender = RoomForSender();
        EXPECT_EQ(5, server.Read(buffer, sizeof(buffer), sender));
        EXPECT_STREQ("hello", buffer);
        EXPECT_EQ(Address(client.GetHostAddress().GetPort(), inet_addr(NetworkPair::NearAddress())), sender);
    });
}

// ---- The refused direction.

// Calls Write as the class's own operation, and as a stream's.
std::vector<Exception> Refusals(ServerBroadcastSocket& server)
{
    Stream& stream = server;
    return {test::Thrown([&] { server.Write("x", 1); }), test::Thrown([&] { stream.Write("x", 1); }),
            test::Thrown([&] { stream.Write(nullptr, 0); })};
}

TEST_F(ServerBroadcastSocketTest, WriteIsRefusedByTheHeader)
{
    ServerBroadcastSocket server(Loopback(), true);
    for (Exception const& refusal : Refusals(server)) {
        EXPECT_STREQ("ServerBroadcastSocket can't Write.", refusal.what());
        ASSERT_EQ(1u, refusal.locations.size());
        EXPECT_STREQ("include/tovu/util/ServerBroadcastSocket.h", refusal.locations[0].file);
        EXPECT_EQ(40u, refusal.locations[0].line);
    }
}

TEST_F(ServerBroadcastSocketTest, WriteIsRefusedOnAClosedSocketAsWell)
{
    ServerBroadcastSocket server(Loopback(), true);
    server.Close();
    for (Exception const& refusal : Refusals(server))
        EXPECT_STREQ("ServerBroadcastSocket can't Write.", refusal.what());
}

TEST_F(ServerBroadcastSocketTest, RefusedWriteSendsNothing)
{
    BroadcastPeer const peer;
    ServerBroadcastSocket server(Loopback(), true);
    Address const to = peer.GetAddress();
    ASSERT_EQ(0, connect(server.GetDescriptor(), &to.address.generic, to.length));
    Refusals(server);

    TenantSocket view(server.GetDescriptor());
    test::WriteText(view, "sent by another");
    EXPECT_EQ("sent by another", peer.Receive().bytes);
}

}}}  // namespace tovu::util
