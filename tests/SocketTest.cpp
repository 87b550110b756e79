#include "tovu/util/Socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "CFunction.h"
#include "CapturedLog.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "FreshProcess.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "LogLines.h"
#include "ParameterName.h"
#include "PipePair.h"
#include "PrivateMember.h"
#include "Sockets.h"
#include "TakenAway.h"
#include "TemporaryDirectory.h"
#include "ThrowingClose.h"
#include "Throws.h"
#include "tovu/util/LoggerMgr.h"

namespace tovu { namespace util { namespace {

using test::AwaitReadable;
using test::CapturedLog;
using test::CFunction;
using test::ConnectedPair;
using test::FailureOf;
using test::GetSocketOption;
using test::IsDescriptorOpen;
using test::Loopback;
using test::ParameterName;
using test::SocketFailure;
using test::TakenAway;

using Address = Socket::Address;

CFunction<ssize_t(int, void*, std::size_t, int)> recvCall("recv");
CFunction<ssize_t(int, void const*, std::size_t, int)> sendCall("send");
CFunction<int(int, sockaddr*, socklen_t*)> getsocknameCall("getsockname");
CFunction<int(int, int, int, void*, socklen_t*)> getsockoptCall("getsockopt");
CFunction<int(int, int, int, void const*, socklen_t)> setsockoptCall("setsockopt");
CFunction<int(char*, std::size_t)> gethostnameCall("gethostname");

static_assert(std::is_base_of<Stream, Socket>::value && std::is_base_of<Socket, TenantSocket>::value, "streams");
static_assert(!std::is_copy_constructible<Socket>::value && !std::is_copy_assignable<Socket>::value, "one owner");
static_assert(!std::is_copy_constructible<TenantSocket>::value && !std::is_copy_assignable<TenantSocket>::value,
              "one view");
static_assert(!std::is_copy_constructible<SetSocketNonBlocking>::value &&
                  !std::is_copy_assignable<SetSocketNonBlocking>::value,
              "one scope");
static_assert(std::is_nothrow_destructible<Socket>::value && std::is_nothrow_destructible<TenantSocket>::value &&
                  std::is_nothrow_destructible<SetSocketNonBlocking>::value,
              "destructors never throw");
static_assert(!std::is_polymorphic<SetSocketNonBlocking>::value, "a plain guard");

TEST(TenantSocketTest, InheritsEveryOperation)
{
    EXPECT_EQ(test::StreamOperations(Socket(-1)), test::StreamOperations(TenantSocket(-1)));
}

// What socket(2) is asked for, and the protocol that it chooses.
struct Kind
{
    char const* name;
    int domain;
    int type;
    int protocol;
    int chosenProtocol;
};

class SocketKindTest : public testing::TestWithParam<Kind>
{
protected:
    Socket socket_{GetParam().domain, GetParam().type, GetParam().protocol};
};

TEST_P(SocketKindTest, IsWhatIsAskedFor)
{
    EXPECT_TRUE(socket_.IsOpen());
    EXPECT_TRUE(IsDescriptorOpen(socket_.GetDescriptor()));
    EXPECT_EQ(GetParam().domain, GetSocketOption(socket_, SO_DOMAIN));
    EXPECT_EQ(GetParam().type, GetSocketOption(socket_, SO_TYPE));
    EXPECT_EQ(GetParam().chosenProtocol, GetSocketOption(socket_, SO_PROTOCOL));
}

TEST_P(SocketKindTest, IsMadeWithoutAnyFlag)
{
    EXPECT_EQ(0, fcntl(socket_.GetDescriptor(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, fcntl(socket_.GetDescriptor(), F_GETFL) & O_NONBLOCK);
}

TEST_P(SocketKindTest, InfoTellsFamilyAndTypeAndProtocol0)
{
    int family = -1;
    int type = -1;
    int protocol = -1;
    socket_.GetInfo(family, type, protocol);
    EXPECT_EQ(GetParam().domain, family);
    EXPECT_EQ(GetParam().type, type);
    EXPECT_EQ(0, protocol);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SocketKindTest,
                         testing::Values(Kind{"Ipv4Stream", AF_INET, SOCK_STREAM, 0, IPPROTO_TCP},
                                         Kind{"Ipv4Datagram", AF_INET, SOCK_DGRAM, IPPROTO_UDP, IPPROTO_UDP},
                                         Kind{"LocalStream", AF_LOCAL, SOCK_STREAM, 0, 0},
                                         Kind{"LocalDatagram", AF_LOCAL, SOCK_DGRAM, 0, 0},
                                         Kind{"Netlink", AF_NETLINK, SOCK_RAW, 0, 0}),
                         ParameterName());

TEST(SocketTest, UnknownKindsThrow)
{
    EXPECT_EQ(SocketFailure(EAFNOSUPPORT), FailureOf([] { Socket(AF_UNSPEC, SOCK_STREAM, 0); }));
    EXPECT_EQ(SocketFailure(EINVAL), FailureOf([] { Socket(AF_INET, 77, 0); }));
    EXPECT_EQ(SocketFailure(EPROTONOSUPPORT), FailureOf([] { Socket(AF_INET, SOCK_STREAM, IPPROTO_UDP); }));
}

TEST(SocketTest, NoFreeDescriptorThrows)
{
    test::ExpectPassesInChild([] {
        test::AllowNoMoreDescriptors();
        EXPECT_EQ(SocketFailure(EMFILE), FailureOf([] { Socket(AF_INET, SOCK_STREAM, 0); }));
    });
}

TEST(SocketTest, AdoptsADescriptor)
{
    int const descriptor = ::socket(AF_LOCAL, SOCK_STREAM, 0);
    {
        Socket const socket(descriptor);
        EXPECT_TRUE(socket.IsOpen());
        EXPECT_EQ(descriptor, socket.GetDescriptor());
    }
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
}

TEST(SocketTest, AdoptingMinus1MakesAClosedSocket)
{
    Socket const socket(-1);
    EXPECT_FALSE(socket.IsOpen());
    EXPECT_EQ(-1, socket.GetDescriptor());
}

TEST(SocketTest, OnlyMinus1IsClosed)
{
    EXPECT_TRUE(TenantSocket(0).IsOpen());
    EXPECT_TRUE(TenantSocket(-2).IsOpen());
}

TEST(SocketTest, DescriptorMayBe0)
{
    test::ExpectPassesInChild([] {
        close(STDIN_FILENO);
        Socket socket(AF_LOCAL, SOCK_STREAM, 0);
        EXPECT_EQ(0, socket.GetDescriptor());
        socket.Close();
        EXPECT_FALSE(IsDescriptorOpen(0));
    });
}

TEST(SocketTest, CloseReleasesTheDescriptor)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    int const descriptor = socket.GetDescriptor();
    socket.Close();
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
    EXPECT_FALSE(socket.IsOpen());
    EXPECT_EQ(-1, socket.GetDescriptor());
}

TEST(SocketTest, SecondCloseDoesNothing)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    socket.Close();
    Socket const successor(AF_LOCAL, SOCK_STREAM, 0);  // takes the same number
    socket.Close();
    EXPECT_FALSE(socket.IsOpen());
    EXPECT_TRUE(IsDescriptorOpen(successor.GetDescriptor()));
}

TEST(SocketTest, FailedCloseKeepsTheDescriptor)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    int const descriptor = socket.GetDescriptor();
    TakenAway const taken(descriptor);
    EXPECT_EQ(SocketFailure(EBADF), FailureOf([&] { socket.Close(); }));
    EXPECT_TRUE(socket.IsOpen());
    EXPECT_EQ(descriptor, socket.GetDescriptor());
}

TEST(SocketTest, FlushTellsWhetherItIsOpen)
{
    ConnectedPair pair = test::ConnectLocalPair();
    EXPECT_TRUE(pair.near->Flush());
    EXPECT_FALSE(pair.far->IsDataAvailable(nullptr));
    pair.near->Close();
    EXPECT_FALSE(pair.near->Flush());
}

// Every operation that calls the system.
struct Operation
{
    char const* name;
    void (*run)(Socket& socket);
};

std::vector<Operation> SystemOperations()
{
    return {
        {"IsDataAvailable", [](Socket& socket) { socket.IsDataAvailable(nullptr); }},
        {"Read",
         [](Socket& socket) {
             char byte = 0;
             socket.Read(&byte, 1);
         }},
        {"Write", [](Socket& socket) { socket.Write("x", 1); }},
        {"Bind", [](Socket& socket) { socket.Bind(Loopback()); }},
        {"SetBlocking", [](Socket& socket) { socket.SetBlocking(true); }},
        {"IsBlocking", [](Socket& socket) { socket.IsBlocking(); }},
        {"SetBroadcast", [](Socket& socket) { socket.SetBroadcast(true); }},
        {"IsBroadcast", [](Socket& socket) { socket.IsBroadcast(); }},
        {"SetReuseAddress", [](Socket& socket) { socket.SetReuseAddress(true); }},
        {"IsReuseAddress", [](Socket& socket) { socket.IsReuseAddress(); }},
        {"GetInfo",
         [](Socket& socket) {
             int value = 0;
             socket.GetInfo(value, value, value);
         }},
        {"GetPeerAddress", [](Socket& socket) { socket.GetPeerAddress(); }},
        {"GetHostAddress", [](Socket& socket) { socket.GetHostAddress(); }},
        {"IsConnected", [](Socket& socket) { socket.IsConnected(); }},
    };
}

class SocketOperationTest : public testing::TestWithParam<Operation>
{};

TEST_P(SocketOperationTest, ThrowsOnAClosedSocket)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    socket.Close();
    EXPECT_EQ(SocketFailure(EBADF), FailureOf([&] { GetParam().run(socket); }));
    EXPECT_FALSE(socket.IsOpen());
}

TEST_P(SocketOperationTest, FailureLeavesTheDescriptor)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    int const descriptor = socket.GetDescriptor();
    TakenAway const taken(descriptor);
    EXPECT_EQ(SocketFailure(EBADF), FailureOf([&] { GetParam().run(socket); }));
    EXPECT_EQ(descriptor, socket.GetDescriptor());
}

INSTANTIATE_TEST_SUITE_P(Operations, SocketOperationTest, testing::ValuesIn(SystemOperations()), ParameterName());

// A way to connect two sockets.
struct Connection
{
    char const* name;
    ConnectedPair (*make)();
};

// What stream sockets of both families do alike: `near_` is the one under test.
class ConnectedSocketTest : public testing::TestWithParam<Connection>
{
protected:
    std::string Read(unsigned int length)
    {
        std::string bytes(length, '?');
        AwaitReadable(near_);
        int const count = near_.Read(&bytes[0], length);
        return bytes.substr(0, static_cast<std::size_t>(count));
    }

    // Writes until that fails.
    void WriteOn()
    {
        static char const block[65536] = "";
        for (;;)
            near_.Write(block, sizeof(block));
    }

    ConnectedPair pair_ = GetParam().make();
    Socket& near_ = *pair_.near;
    Socket& far_ = *pair_.far;
};

TEST_P(ConnectedSocketTest, WrittenBytesAreRead)
{
    EXPECT_EQ(5, far_.Write("hello", 5));
    EXPECT_EQ("hello", Read(16));
}

TEST_P(ConnectedSocketTest, ReadTakesNoMoreThanAskedFor)
{
    far_.Write("hello", 5);
    EXPECT_EQ("hel", Read(3));
    EXPECT_EQ("lo", Read(16));
}

TEST_P(ConnectedSocketTest, ReadReturns0AtTheEnd)
{
    far_.Write("hello", 5);
    far_.Close();
    EXPECT_EQ("hello", Read(16));
    EXPECT_EQ("", Read(16));
    EXPECT_EQ("", Read(16));
}

TEST_P(ConnectedSocketTest, ReadReturns0OncePeerShutsItsSideDown)
{
    EXPECT_EQ(0, shutdown(far_.GetDescriptor(), SHUT_WR));
    EXPECT_EQ("", Read(16));
    EXPECT_EQ(5, near_.Write("hello", 5));
}

TEST_P(ConnectedSocketTest, ReadThrowsWithNothingThereInNonBlockingMode)
{
    near_.SetBlocking(false);
    char byte = 0;
    EXPECT_EQ(SocketFailure(EAGAIN), FailureOf([&] { near_.Read(&byte, 1); }));
}

TEST_P(ConnectedSocketTest, InterruptedReadThrows)
{
    test::Interruptions const interruptions(1000);
    char byte = 0;
    EXPECT_EQ(SocketFailure(EINTR), FailureOf([&] { near_.Read(&byte, 1); }));
}

TEST_P(ConnectedSocketTest, InterruptedWriteThrows)
{
    test::Interruptions const interruptions(1000);
    EXPECT_EQ(SocketFailure(EINTR), FailureOf([&] { WriteOn(); }));
}

TEST_P(ConnectedSocketTest, WriteThrowsWithoutRoomInNonBlockingMode)
{
    near_.SetBlocking(false);
    EXPECT_EQ(SocketFailure(EAGAIN), FailureOf([&] { WriteOn(); }));
}

TEST_P(ConnectedSocketTest, WriteReturnsTheCountThatHadRoom)
{
    std::vector<char> const block(64 * 1024 * 1024);
    near_.SetBlocking(false);
    int const count = near_.Write(block.data(), static_cast<unsigned int>(block.size()));
    EXPECT_GT(count, 0);
    EXPECT_LT(static_cast<std::size_t>(count), block.size());
}

TEST_P(ConnectedSocketTest, ReadIsOneRecvWithoutFlags)
{
    far_.Write("hello", 5);
    AwaitReadable(near_);
    int calls = 0;
    char buffer[16] = "";
    decltype(recvCall)::Replacement const watch(recvCall,
                                                [&](int descriptor, void* bytes, std::size_t size, int flags) {
                                                    ++calls;
                                                    EXPECT_EQ(near_.GetDescriptor(), descriptor);
                                                    EXPECT_EQ(buffer, bytes);
                                                    EXPECT_EQ(sizeof(buffer), size);
                                                    EXPECT_EQ(0, flags);
                                                    return recvCall.System(descriptor, bytes, size, flags);
                                                });
    EXPECT_EQ(5, near_.Read(buffer, sizeof(buffer)));
    EXPECT_EQ(1, calls);
}

TEST_P(ConnectedSocketTest, WriteIsOneSendWithoutFlags)
{
    int calls = 0;
    char const bytes[] = "hello";
    decltype(sendCall)::Replacement const watch(sendCall,
                                                [&](int descriptor, void const* buffer, std::size_t size, int flags) {
                                                    ++calls;
                                                    EXPECT_EQ(near_.GetDescriptor(), descriptor);
                                                    EXPECT_EQ(bytes, buffer);
                                                    EXPECT_EQ(5u, size);
                                                    EXPECT_EQ(0, flags);
                                                    return sendCall.System(descriptor, buffer, size - 2, flags);
                                                });
    EXPECT_EQ(3, near_.Write(bytes, 5));
    EXPECT_EQ(1, calls);
}

TEST_P(ConnectedSocketTest, WriteToABrokenConnectionThrowsWhereTheSignalIsIgnored)
{
    EXPECT_EQ(0, shutdown(near_.GetDescriptor(), SHUT_WR));
    EXPECT_EQ(SocketFailure(EPIPE), FailureOf([&] { near_.Write("x", 1); }));
}

TEST_P(ConnectedSocketTest, WriteToABrokenConnectionRaisesTheSignal)
{
    EXPECT_EQ(0, shutdown(near_.GetDescriptor(), SHUT_WR));
    test::ChildResult const result = test::RunInChild([&] {
        std::signal(SIGPIPE, SIG_DFL);
        near_.Write("x", 1);
    });
    EXPECT_FALSE(result.exited) << result.output;
    EXPECT_EQ(SIGPIPE, result.code);
}

TEST_P(ConnectedSocketTest, WaitingBytesAreCounted)
{
    far_.Write("hello", 5);
    AwaitReadable(near_);
    unsigned long long count = ~0ULL;
    EXPECT_TRUE(near_.IsDataAvailable(&count));
    EXPECT_EQ(5u, count);
    EXPECT_TRUE(near_.IsDataAvailable(nullptr));
    EXPECT_EQ("hello", Read(16));
}

TEST_P(ConnectedSocketTest, NothingWaitingCounts0)
{
    unsigned long long count = ~0ULL;
    EXPECT_FALSE(near_.IsDataAvailable(&count));
    EXPECT_EQ(0u, count);
    EXPECT_FALSE(near_.IsDataAvailable(nullptr));
}

TEST_P(ConnectedSocketTest, EndOfTheDataIsNoData)
{
    far_.Close();
    AwaitReadable(near_);
    EXPECT_FALSE(near_.IsDataAvailable(nullptr));
}

TEST_P(ConnectedSocketTest, SilentPeerIsConnected)
{
    EXPECT_TRUE(near_.IsConnected());
}

TEST_P(ConnectedSocketTest, ClosedPeerIsNotConnected)
{
    far_.Close();
    AwaitReadable(near_);
    EXPECT_FALSE(near_.IsConnected());
}

TEST_P(ConnectedSocketTest, PeerThatShutItsSideDownIsNotConnected)
{
    EXPECT_EQ(0, shutdown(far_.GetDescriptor(), SHUT_WR));
    AwaitReadable(near_);
    EXPECT_FALSE(near_.IsConnected());
}

TEST_P(ConnectedSocketTest, PeerWithUnreadDataIsConnectedUntilItIsRead)
{
    far_.Write("hello", 5);
    far_.Close();
    AwaitReadable(near_);
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_EQ("hello", Read(16));
    AwaitReadable(near_);
    EXPECT_FALSE(near_.IsConnected());
}

TEST_P(ConnectedSocketTest, IsConnectedConsumesNothing)
{
    far_.Write("hello", 5);
    AwaitReadable(near_);
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_EQ("hello", Read(16));
}

TEST_P(ConnectedSocketTest, IsConnectedPeeksForOneByteAndDoesNotWait)
{
    int calls = 0;
    decltype(recvCall)::Replacement const watch(recvCall,
                                                [&](int descriptor, void* bytes, std::size_t size, int flags) {
                                                    ++calls;
                                                    EXPECT_EQ(near_.GetDescriptor(), descriptor);
                                                    EXPECT_EQ(1u, size);
                                                    EXPECT_EQ(MSG_PEEK | MSG_DONTWAIT, flags);
                                                    return recvCall.System(descriptor, bytes, size, flags);
                                                });
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_EQ(1, calls);
}

TEST_P(ConnectedSocketTest, SocketThatHasShutItsOwnReadingDownIsNotConnected)
{
    EXPECT_EQ(0, shutdown(near_.GetDescriptor(), SHUT_RD));
    EXPECT_FALSE(near_.IsConnected());
}

TEST_P(ConnectedSocketTest, IsConnectedLeavesBlockingModeAlone)
{
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_FALSE(near_.IsBlocking());
}

TEST_P(ConnectedSocketTest, IsConnectedLeavesANonBlockingSocketInBlockingMode)
{
    near_.SetBlocking(false);
    EXPECT_TRUE(near_.IsConnected());
    EXPECT_FALSE(near_.IsBlocking());
}

TEST_P(ConnectedSocketTest, AddressesOfBothSidesCorrespond)
{
    EXPECT_EQ(near_.GetHostAddress(), far_.GetPeerAddress());
    EXPECT_EQ(near_.GetPeerAddress(), far_.GetHostAddress());
}

INSTANTIATE_TEST_SUITE_P(Families, ConnectedSocketTest,
                         testing::Values(Connection{"Local", &test::ConnectLocalPair},
                                         Connection{"Ipv4", &test::ConnectIpv4Pair}),
                         ParameterName());

TEST(SocketTest, ReadThrowsOnceThePeerBreaksOff)
{
    ConnectedPair pair = test::ConnectIpv4Pair();
    test::Reset(*pair.far);
    AwaitReadable(*pair.near);
    char byte = 0;
    EXPECT_EQ(SocketFailure(ECONNRESET), FailureOf([&] { pair.near->Read(&byte, 1); }));
}

TEST(SocketTest, PeerThatBreaksOffCountsAsConnected)
{
    ConnectedPair pair = test::ConnectIpv4Pair();
    test::Reset(*pair.far);
    AwaitReadable(*pair.near);
    EXPECT_TRUE(pair.near->IsConnected());
}

TEST(SocketTest, UnconnectedSocketCountsAsConnected)
{
    EXPECT_TRUE(Socket(AF_INET, SOCK_STREAM, 0).IsConnected());
}

TEST(SocketTest, EmptyDatagramCountsAsNotConnected)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_LOCAL, SOCK_DGRAM, 0, ends));
    Socket reader(ends[0]);
    Socket writer(ends[1]);
    writer.Write("", 0);
    EXPECT_FALSE(reader.IsConnected());
    char byte = 0;
    EXPECT_EQ(0, reader.Read(&byte, 1));
    EXPECT_TRUE(reader.IsConnected());
}

TEST(SocketTest, UnconnectedSocketNeitherReadsNorWrites)
{
    Socket socket(AF_INET, SOCK_STREAM, 0);
    char byte = 0;
    EXPECT_EQ(SocketFailure(ENOTCONN), FailureOf([&] { socket.Read(&byte, 1); }));
    EXPECT_EQ(SocketFailure(EPIPE), FailureOf([&] { socket.Write("x", 1); }));
}

TEST(SocketTest, InterruptedWriteReturnsTheCountThatHadRoom)
{
    ConnectedPair pair = test::ConnectLocalPair();
    int const room = 4096;
    ASSERT_EQ(0, setsockopt(pair.near->GetDescriptor(), SOL_SOCKET, SO_SNDBUF, &room, sizeof(room)));
    std::vector<char> const block(256 * 1024);
    test::Interruptions const interruptions(10000);
    int const count = pair.near->Write(block.data(), static_cast<unsigned int>(block.size()));
    EXPECT_GT(count, 0);
    EXPECT_LT(static_cast<std::size_t>(count), block.size());
}

TEST(SocketTest, OneReadTakesOneDatagram)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_LOCAL, SOCK_DGRAM, 0, ends));
    Socket reader(ends[0]);
    Socket writer(ends[1]);
    writer.Write("first", 5);
    writer.Write("second", 6);

    char buffer[16] = "";
    EXPECT_EQ(3, reader.Read(buffer, 3));  // without a flag that would tell of the rest
    EXPECT_EQ(6, reader.Read(buffer, sizeof(buffer)));
    EXPECT_STREQ("second", buffer);
}

TEST(SocketTest, ListenerHasNoData)
{
    Socket socket(AF_INET, SOCK_STREAM, 0);
    socket.Bind(Loopback());
    ASSERT_EQ(0, listen(socket.GetDescriptor(), 1));
    unsigned long long count = 7;
    EXPECT_EQ(SocketFailure(EINVAL), FailureOf([&] { socket.IsDataAvailable(&count); }));
    EXPECT_EQ(7u, count);
}

TEST(SocketTest, CountOfWaitingBytesIsExtendedWithZeros)
{
    test::IoctlReplacement const answer(test::IoctlCall(), [](int, unsigned long request, void* argument) {
        EXPECT_EQ(static_cast<unsigned long>(FIONREAD), request);
        int const waiting = -1;
        std::memcpy(argument, &waiting, sizeof(waiting));
        return 0;
    });
    unsigned long long count = 0;
    EXPECT_TRUE(Socket(-1).IsDataAvailable(&count));
    EXPECT_EQ(0xffffffffULL, count);
}

TEST(SocketTest, BindTakesAPath)
{
    test::TemporaryDirectory const folder;
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    socket.Bind(Address(folder / "socket"));
    EXPECT_EQ(0, access((folder / "socket").c_str(), F_OK));
    EXPECT_EQ(Address(folder / "socket"), socket.GetHostAddress());
}

TEST(SocketTest, BindTakesAnIpv4Address)
{
    Socket socket(AF_INET, SOCK_STREAM, 0);
    socket.Bind(Loopback());
    Address const bound = socket.GetHostAddress();
    EXPECT_NE(0, bound.GetPort());
    EXPECT_EQ(Loopback(bound.GetPort()), bound);
}

TEST(SocketTest, BindPassesTheSignificantBytesOnly)
{
    Address const address = test::AbstractAddress("tovuutil-test-" + std::to_string(getpid()));
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    socket.Bind(address);
    EXPECT_EQ(address, socket.GetHostAddress());
    EXPECT_EQ("", socket.GetHostAddress().AddrToString());
}

TEST(SocketTest, BindThrowsForAnAddressInUse)
{
    Socket owner(AF_INET, SOCK_STREAM, 0);
    owner.Bind(Loopback());
    Socket socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(SocketFailure(EADDRINUSE), FailureOf([&] { socket.Bind(owner.GetHostAddress()); }));
    socket.Bind(Loopback());
}

TEST(SocketTest, BindThrowsForAMissingFolder)
{
    test::TemporaryDirectory const folder;
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    EXPECT_EQ(SocketFailure(ENOENT), FailureOf([&] { socket.Bind(Address(folder / "missing/socket")); }));
}

TEST(SocketTest, IsBlockingTellsOfNonBlockingMode)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    EXPECT_FALSE(socket.IsBlocking());
    socket.SetBlocking(false);
    EXPECT_TRUE(socket.IsBlocking());
    socket.SetBlocking(true);
    EXPECT_FALSE(socket.IsBlocking());
}

TEST(SocketTest, SetBlockingSwitchesTheSystemsFlagOnly)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    ASSERT_EQ(0, fcntl(socket.GetDescriptor(), F_SETFL, O_RDWR | O_APPEND));
    socket.SetBlocking(false);
    EXPECT_EQ(O_RDWR | O_APPEND | O_NONBLOCK, fcntl(socket.GetDescriptor(), F_GETFL));
    socket.SetBlocking(true);
    EXPECT_EQ(O_RDWR | O_APPEND, fcntl(socket.GetDescriptor(), F_GETFL));
    EXPECT_FALSE(socket.IsBlocking());
}

// What is asked of FIONBIO in a scope: 1 for non-blocking mode, 0 for blocking mode.
class ModeRequests
{
public:
    std::vector<int> values;

private:
    test::IoctlReplacement const watch_{test::IoctlCall(),
                                        [this](int descriptor, unsigned long request, void* argument) {
                                            EXPECT_EQ(static_cast<unsigned long>(FIONBIO), request);
                                            int value = -1;
                                            std::memcpy(&value, argument, sizeof(value));
                                            values.push_back(value);
                                            return test::IoctlCall().System(descriptor, request, argument);
                                        }};
};

TEST(SocketTest, SetBlockingAsksFor1And0)
{
    Socket socket(AF_LOCAL, SOCK_STREAM, 0);
    ModeRequests const requests;
    socket.SetBlocking(false);
    socket.SetBlocking(true);
    EXPECT_EQ((std::vector<int>{1, 0}), requests.values);
}

// A setting of the socket level that is on or off.
struct Setting
{
    char const* name;
    int option;
    void (Socket::*set)(bool);
    bool (Socket::*get)() const;
};

class SocketSettingTest : public testing::TestWithParam<Setting>
{
protected:
    void Set(bool value) { (socket_.*GetParam().set)(value); }
    bool Get() const { return (socket_.*GetParam().get)(); }

    Socket socket_{AF_INET, SOCK_DGRAM, 0};
};

TEST_P(SocketSettingTest, IsOffAtFirst)
{
    EXPECT_FALSE(Get());
}

TEST_P(SocketSettingTest, IsSwitchedOnAndOff)
{
    Set(true);
    EXPECT_TRUE(Get());
    EXPECT_EQ(1, GetSocketOption(socket_, GetParam().option));
    Set(false);
    EXPECT_FALSE(Get());
    EXPECT_EQ(0, GetSocketOption(socket_, GetParam().option));
}

TEST_P(SocketSettingTest, IsSetByAnIntOf0Or1)
{
    std::vector<int> values;
    decltype(setsockoptCall)::Replacement const watch(
        setsockoptCall, [&](int descriptor, int level, int option, void const* value, socklen_t size) {
            EXPECT_EQ(socket_.GetDescriptor(), descriptor);
            EXPECT_EQ(SOL_SOCKET, level);
            EXPECT_EQ(GetParam().option, option);
            EXPECT_EQ(4u, size);
            int number = -1;
            std::memcpy(&number, value, sizeof(number));
            values.push_back(number);
            return 0;
        });
    Set(true);
    Set(false);
    EXPECT_EQ((std::vector<int>{1, 0}), values);
}

TEST_P(SocketSettingTest, IsOnForTheInt1Only)
{
    int answer = 0;
    decltype(getsockoptCall)::Replacement const system(
        getsockoptCall, [&](int descriptor, int level, int option, void* value, socklen_t* size) {
            EXPECT_EQ(socket_.GetDescriptor(), descriptor);
            EXPECT_EQ(SOL_SOCKET, level);
            EXPECT_EQ(GetParam().option, option);
            EXPECT_EQ(4u, *size);
            std::memcpy(value, &answer, sizeof(answer));
            return 0;
        });
    for (int other : {0, 2, -1, 257}) {
        answer = other;
        EXPECT_FALSE(Get()) << other;
    }
    answer = 1;
    EXPECT_TRUE(Get());
}

TEST_P(SocketSettingTest, IsRefusedByWhatIsNoSocket)
{
    test::PipePair<> const pipe;
    Socket noSocket(dup(pipe.reader.GetDescriptor()));
    EXPECT_EQ(SocketFailure(ENOTSOCK), FailureOf([&] { (noSocket.*GetParam().set)(true); }));
    EXPECT_EQ(SocketFailure(ENOTSOCK), FailureOf([&] { (noSocket.*GetParam().get)(); }));
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SocketSettingTest,
    testing::Values(Setting{"Broadcast", SO_BROADCAST, &Socket::SetBroadcast, &Socket::IsBroadcast},
                    Setting{"ReuseAddress", SO_REUSEADDR, &Socket::SetReuseAddress, &Socket::IsReuseAddress}),
    ParameterName());

TEST(SocketTest, InfoThrowsWhenTheTypeIsNotTold)
{
    Socket const socket(AF_LOCAL, SOCK_STREAM, 0);
    decltype(getsockoptCall)::Replacement const failing(getsockoptCall,
                                                        [](int, int level, int option, void*, socklen_t* size) {
                                                            EXPECT_EQ(SOL_SOCKET, level);
                                                            EXPECT_EQ(SO_TYPE, option);
                                                            EXPECT_EQ(4u, *size);
                                                            errno = ENOBUFS;
                                                            return -1;
                                                        });
    int family = -1;
    int value = -1;
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket.GetInfo(family, value, value); }));
    EXPECT_EQ(AF_LOCAL, family);
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket.GetInfo(value, value, value); }));
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket.GetPeerAddress(); }));
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket.GetHostAddress(); }));
}

// The first question is about the family, the second one knows it. Both have room for every address.
TEST(SocketTest, HostAddressIsAskedForInAnEmptyAddressOfTheFamily)
{
    for (int const family : {AF_LOCAL, AF_INET}) {
        Socket const socket(family, SOCK_STREAM, 0);
        std::vector<int> families;
        decltype(getsocknameCall)::Replacement const watch(
            getsocknameCall, [&](int descriptor, sockaddr* address, socklen_t* length) {
                EXPECT_EQ(socket.GetDescriptor(), descriptor);
                EXPECT_EQ(sizeof(Address::Storage), *length);
                families.push_back(address->sa_family);
                return getsocknameCall.System(descriptor, address, length);
            });
        socket.GetHostAddress();
        EXPECT_EQ((std::vector<int>{AF_UNSPEC, family}), families);
    }
}

TEST(SocketTest, HostAddressThrowsWhenOnlyTheSecondQuestionFails)
{
    Socket const socket(AF_LOCAL, SOCK_STREAM, 0);
    int calls = 0;
    decltype(getsocknameCall)::Replacement const failing(
        getsocknameCall, [&](int descriptor, sockaddr* address, socklen_t* length) {
            if (++calls == 1)
                return getsocknameCall.System(descriptor, address, length);
            errno = ENOBUFS;
            return -1;
        });
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket.GetHostAddress(); }));
    EXPECT_EQ(2, calls);
}

TEST(SocketTest, UnboundIpv4SocketHasAnEmptyAddress)
{
    EXPECT_EQ(Address(0, INADDR_ANY), Socket(AF_INET, SOCK_STREAM, 0).GetHostAddress());
}

TEST(SocketTest, UnnamedLocalSocketHasAFamilyOnly)
{
    Address const address = Socket(AF_LOCAL, SOCK_STREAM, 0).GetHostAddress();
    EXPECT_EQ(AF_LOCAL, address.GetFamily());
    EXPECT_EQ(2u, address.length);
    EXPECT_EQ("", address.AddrToString());
}

TEST(SocketTest, UnnamedLocalPeerHasAFamilyOnly)
{
    Address const address = test::ConnectLocalPair().near->GetPeerAddress();
    EXPECT_EQ(AF_LOCAL, address.GetFamily());
    EXPECT_EQ(2u, address.length);
    EXPECT_EQ("", address.AddrToString());
}

TEST(SocketTest, PeerAddressOfAnUnconnectedSocketThrows)
{
    EXPECT_EQ(SocketFailure(ENOTCONN), FailureOf([] { Socket(AF_INET, SOCK_STREAM, 0).GetPeerAddress(); }));
    EXPECT_EQ(SocketFailure(ENOTCONN), FailureOf([] { Socket(AF_LOCAL, SOCK_STREAM, 0).GetPeerAddress(); }));
}

// A local socket whose path fills the system's field to the last character, without room for a closing NUL.
class LongestPathTest : public testing::Test
{
protected:
    LongestPathTest() : path_(folder_ / "")
    {
        path_.resize(sizeof(address_.sun_path), 'p');
        address_.sun_family = AF_LOCAL;
        std::memcpy(address_.sun_path, path_.data(), path_.size());
        EXPECT_EQ(0, bind(socket_.GetDescriptor(), reinterpret_cast<sockaddr*>(&address_), sizeof(address_)));
        EXPECT_EQ(0, listen(socket_.GetDescriptor(), 1));
    }

    test::TemporaryDirectory const folder_;
    std::string path_;
    sockaddr_un address_ = {};
    Socket socket_{AF_LOCAL, SOCK_STREAM, 0};
};

TEST_F(LongestPathTest, HostAddressComesWhole)
{
    EXPECT_EQ(path_, socket_.GetHostAddress().AddrToString());
    EXPECT_EQ(111u, socket_.GetHostAddress().length);
}

TEST_F(LongestPathTest, PeerAddressComesWhole)
{
    Socket const client(AF_LOCAL, SOCK_STREAM, 0);
    ASSERT_EQ(0, connect(client.GetDescriptor(), reinterpret_cast<sockaddr*>(&address_), sizeof(address_)));
    EXPECT_EQ(path_, client.GetPeerAddress().AddrToString());
    EXPECT_EQ(111u, client.GetPeerAddress().length);
}

TEST(SocketTest, HostNameIsTheSystems)
{
    utsname system = {};
    ASSERT_EQ(0, uname(&system));
    EXPECT_EQ(system.nodename, Socket::GetHostName());
}

// GetHostName with an answer of gethostname(2): what it stores and what it returns.
std::string HostNameAfter(char const* stored, int result)
{
    decltype(gethostnameCall)::Replacement const system(gethostnameCall, [&](char* buffer, std::size_t size) {
        EXPECT_EQ(256u, size);
        std::strcpy(buffer, stored);
        return result;
    });
    return Socket::GetHostName();
}

TEST(SocketTest, HostNameMayHave255Characters)
{
    std::string const longest(255, 'h');
    EXPECT_EQ(longest, HostNameAfter(longest.c_str(), 0));
}

TEST(SocketTest, HostNameIsWhatAFailedCallLeaves)
{
    EXPECT_EQ("hal", HostNameAfter("hal", -1));
    EXPECT_EQ("", HostNameAfter("", -1));
}

// A text with N in place of each number: a line of the source is known to be there, but not which.
std::string WithoutNumbers(std::string const& text)
{
    std::string result;
    bool inNumber = false;
    for (char character : text) {
        bool const isDigit = std::isdigit(static_cast<unsigned char>(character)) != 0;
        if (!isDigit)
            result += character;
        else if (!inNumber)
            result += 'N';
        inNumber = isDigit;
    }
    return result;
}

// Expects that a destructor has told, in one line, of a failed system call of the socket's own.
void ExpectFailureLogged(CapturedLog& log, int error)
{
    std::vector<CapturedLog::Line> const lines = log.Take();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Error src/util/Socket.cpp:N ", WithoutNumbers(lines[0].header));
    EXPECT_EQ(test::ErrnoText(error) + "\nTraceback:\nthrown from src/util/Socket.cpp, line N\n",
              WithoutNumbers(lines[0].message));
}

TEST(SocketDestructorTest, ClosesTheDescriptor)
{
    ConnectedPair pair = test::ConnectLocalPair();
    int const descriptor = pair.near->GetDescriptor();
    pair.near.reset();
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
    EXPECT_FALSE(pair.far->IsConnected());
}

TEST(SocketDestructorTest, LogsAFailedClose)
{
    CapturedLog log;
    {
        Socket const socket(AF_LOCAL, SOCK_STREAM, 0);
        close(socket.GetDescriptor());
    }
    ExpectFailureLogged(log, EBADF);
}

TEST(SocketDestructorTest, LogsNothingForAClosedSocket)
{
    CapturedLog log;
    {
        Socket socket(AF_LOCAL, SOCK_STREAM, 0);
        socket.Close();
        Socket const neverOpen(-1);
    }
    EXPECT_EQ(std::vector<std::string>(), test::TakeLines(log));
}

TEST(SocketDestructorTest, LogsNothingBelowTheThreshold)
{
    test::ExpectPassesWithIdleLog([] {
        {
            Socket const socket(AF_LOCAL, SOCK_STREAM, 0);
            close(socket.GetDescriptor());
        }
        LoggerMgr::Instance().Log(LoggerMgr::LEVEL_ERROR, "here", 1, "the first line");
        EXPECT_EQ("the first line", LoggerMgr::Instance().Deq().second);
    });
}

class SocketDestructorKindTest : public testing::TestWithParam<test::CaughtKind>
{};

INSTANTIATE_TEST_SUITE_P(Caught, SocketDestructorKindTest, testing::ValuesIn(test::CaughtKinds()), ParameterName());

TEST_P(SocketDestructorKindTest, LogsWhatItCatchesAndGoesOn)
{
    CapturedLog log;
    std::unique_ptr<Socket> socket(new Socket(AF_LOCAL, SOCK_STREAM, 0));
    test::ThrowingClose const failure(socket->GetDescriptor(), GetParam().thrower);
    socket.reset();

    std::vector<CapturedLog::Line> const lines = log.Take();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Error src/util/Socket.cpp:N ", WithoutNumbers(lines[0].header));
    EXPECT_EQ(GetParam().logged() + "\n", lines[0].message);
}

TEST(TenantSocketTest, WorksOnTheBorrowedDescriptor)
{
    ConnectedPair pair = test::ConnectLocalPair();
    TenantSocket tenant(pair.near->GetDescriptor());
    EXPECT_TRUE(tenant.IsOpen());
    EXPECT_EQ(pair.near->GetDescriptor(), tenant.GetDescriptor());
    EXPECT_EQ(5, tenant.Write("hello", 5));
    EXPECT_TRUE(pair.far->IsDataAvailable(nullptr));
}

TEST(TenantSocketTest, DestructorLeavesTheDescriptorOpen)
{
    Socket const owner(AF_LOCAL, SOCK_STREAM, 0);
    std::unique_ptr<Socket> tenant(new TenantSocket(owner.GetDescriptor()));
    tenant.reset();
    EXPECT_TRUE(IsDescriptorOpen(owner.GetDescriptor()));
}

TEST(TenantSocketTest, CloseClosesTheDescriptor)
{
    int const descriptor = ::socket(AF_LOCAL, SOCK_STREAM, 0);
    TenantSocket tenant(descriptor);
    tenant.Close();
    EXPECT_FALSE(IsDescriptorOpen(descriptor));
    EXPECT_FALSE(tenant.IsOpen());
}

// A socket in a mode, guarded for the length of `guard_`.
class SetSocketNonBlockingTest : public testing::Test
{
protected:
    void Guard() { guard_.reset(new SetSocketNonBlocking(socket_)); }
    void Release() { guard_.reset(); }

    Socket socket_{AF_LOCAL, SOCK_STREAM, 0};
    std::unique_ptr<SetSocketNonBlocking> guard_;
};

TEST_F(SetSocketNonBlockingTest, LeavesASocketInBlockingModeAlone)
{
    ModeRequests const requests;
    Guard();
    EXPECT_FALSE(socket_.IsBlocking());
    Release();
    EXPECT_FALSE(socket_.IsBlocking());
    EXPECT_EQ(std::vector<int>(), requests.values);
}

TEST_F(SetSocketNonBlockingTest, LeavesANonBlockingSocketInBlockingMode)
{
    socket_.SetBlocking(false);
    ModeRequests const requests;
    Guard();
    EXPECT_TRUE(socket_.IsBlocking());
    Release();
    EXPECT_FALSE(socket_.IsBlocking());
    EXPECT_EQ((std::vector<int>{1, 0}), requests.values);
}

TEST_F(SetSocketNonBlockingTest, SamplesTheModeOnceAtTheStart)
{
    Guard();
    socket_.SetBlocking(false);
    Release();
    EXPECT_TRUE(socket_.IsBlocking());
}

TEST_F(SetSocketNonBlockingTest, LeavesTheDescriptorOpen)
{
    for (bool blocking : {true, false}) {
        socket_.SetBlocking(blocking);
        Guard();
        Release();
        EXPECT_TRUE(IsDescriptorOpen(socket_.GetDescriptor()));
    }
}

TOVU_PRIVATE_MEMBER(GuardView, TenantSocket, SetSocketNonBlocking, view_);
TOVU_PRIVATE_MEMBER(GuardMode, bool, SetSocketNonBlocking, wasBlocking_);

TEST_F(SetSocketNonBlockingTest, KeepsAViewAndTheMode)
{
    socket_.SetBlocking(false);
    Guard();
    EXPECT_EQ(socket_.GetDescriptor(), GuardView::Of(*guard_).GetDescriptor());
    EXPECT_TRUE(GuardMode::Of(*guard_));
}

TEST_F(SetSocketNonBlockingTest, ThrowsForAClosedSocket)
{
    socket_.Close();
    EXPECT_EQ(SocketFailure(EBADF), FailureOf([&] { Guard(); }));
}

TEST_F(SetSocketNonBlockingTest, FailureToSetTheModeThrowsAndLeavesTheDescriptorOpen)
{
    socket_.SetBlocking(false);
    test::FailingIoctl const failing(ENOBUFS);
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { Guard(); }));
    EXPECT_EQ(SocketFailure(ENOBUFS), FailureOf([&] { socket_.IsConnected(); }));
    EXPECT_TRUE(IsDescriptorOpen(socket_.GetDescriptor()));
}

TEST_F(SetSocketNonBlockingTest, DestructorLogsAFailure)
{
    socket_.SetBlocking(false);
    Guard();
    CapturedLog log;
    {
        TakenAway const taken(socket_.GetDescriptor());
        Release();
    }
    ExpectFailureLogged(log, EBADF);
}

}}}  // namespace tovu::util

extern "C" ssize_t recv(int descriptor, void* buffer, std::size_t size, int flags)
{
    return tovu::util::recvCall(descriptor, buffer, size, flags);
}

extern "C" ssize_t send(int descriptor, void const* buffer, std::size_t size, int flags)
{
    return tovu::util::sendCall(descriptor, buffer, size, flags);
}

extern "C" int getsockname(int descriptor, sockaddr* address, socklen_t* length) noexcept
{
    return tovu::util::getsocknameCall(descriptor, address, length);
}

extern "C" int getsockopt(int descriptor, int level, int option, void* value, socklen_t* size) noexcept
{
    return tovu::util::getsockoptCall(descriptor, level, option, value, size);
}

extern "C" int setsockopt(int descriptor, int level, int option, void const* value, socklen_t size) noexcept
{
    return tovu::util::setsockoptCall(descriptor, level, option, value, size);
}

extern "C" int gethostname(char* name, std::size_t size) noexcept
{
    return tovu::util::gethostnameCall(name, size);
}
