#include "tovu/util/ClientSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "CFunction.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "ParameterName.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "Throws.h"

namespace tovu { namespace util { namespace {

using test::AwaitReadable;
using test::CFunction;
using test::CountDescriptors;
using test::FailureOf;
using test::Loopback;
using test::ParameterName;
using test::SocketFailure;

using Address = Socket::Address;

CFunction<int(int, int, int)> socketCall("socket");
CFunction<int(int, sockaddr const*, socklen_t)> connectCall("connect");
CFunction<int(int, int, void*)> fcntlCall("fcntl");

using ConnectReplacement = decltype(connectCall)::Replacement;

static_assert(std::is_base_of<Socket, ClientSocket>::value, "a socket");
static_assert(sizeof(ClientSocket) == sizeof(Socket), "without state of its own");
static_assert(!std::is_copy_constructible<ClientSocket>::value && !std::is_copy_assignable<ClientSocket>::value,
              "one owner");
static_assert(std::is_nothrow_destructible<ClientSocket>::value, "destructors never throw");

// A failure of Connect, called alone.
std::string ConnectFailure(int error)
{
    return test::Failure(error, {"src/util/ClientSocket.cpp"});
}

// A failure of Connect, called by the constructor.
std::string ConstructorFailure(int error)
{
    return test::Failure(error, {"src/util/ClientSocket.cpp", "src/util/ClientSocket.cpp"});
}

// A system that answers every connect(2) with one error.
class FailingConnect
{
public:
    explicit FailingConnect(int error)
        : replacement_(connectCall, [error](int, sockaddr const*, socklen_t) {
              errno = error;
              return -1;
          })
    {}

private:
    ConnectReplacement const replacement_;
};

// A socket that listens on an address of a family.
class Listener
{
public:
    explicit Listener(int family, int backlog = 8) : socket_(family, SOCK_STREAM, 0)
    {
        socket_.Bind(family == AF_LOCAL ? Address(folder_ / "socket") : Loopback());
        EXPECT_EQ(0, listen(socket_.GetDescriptor(), backlog));
    }

    Address GetAddress() const { return socket_.GetHostAddress(); }

    bool HasConnection() const
    {
        return Socket(accept4(socket_.GetDescriptor(), nullptr, nullptr, SOCK_NONBLOCK)).IsOpen();
    }

    std::unique_ptr<Socket> Accept() const
    {
        AwaitReadable(socket_);
        return std::unique_ptr<Socket>(new Socket(accept(socket_.GetDescriptor(), nullptr, nullptr)));
    }

    void SetBlocking(bool blocking) { socket_.SetBlocking(blocking); }

private:
    test::TemporaryDirectory const folder_;
    Socket socket_;
};

// A listener with room for one connection, which is taken: it answers nobody.
class FullListener : public Listener
{
public:
    explicit FullListener(int family) : Listener(family, 0), first_(GetAddress(), true) {}

private:
    ClientSocket const first_;
};

struct Family
{
    char const* name;
    int family;
};

// What holds for local and IPv4 addresses alike.
class ClientSocketFamilyTest : public testing::TestWithParam<Family>
{
protected:
    int family_ = GetParam().family;
};

INSTANTIATE_TEST_SUITE_P(Families, ClientSocketFamilyTest,
                         testing::Values(Family{"Local", AF_LOCAL}, Family{"Ipv4", AF_INET}), ParameterName());

TEST_P(ClientSocketFamilyTest, IsConnectedOnceItIsMade)
{
    Listener const listener(family_);
    ClientSocket client(listener.GetAddress(), true);
    std::unique_ptr<Socket> const connection = listener.Accept();
    EXPECT_EQ(listener.GetAddress(), client.GetPeerAddress());
    EXPECT_EQ(5, client.Write("hello", 5));

    char buffer[16] = "";
    EXPECT_EQ(5, connection->Read(buffer, sizeof(buffer)));
    EXPECT_STREQ("hello", buffer);
}

TEST_P(ClientSocketFamilyTest, AsksForAStreamSocketOfTheFamily)
{
    Listener const listener(family_);
    decltype(socketCall)::Replacement const watch(socketCall, [&](int domain, int type, int protocol) {
        EXPECT_EQ(family_, domain);
        EXPECT_EQ(SOCK_STREAM, type);
        EXPECT_EQ(0, protocol);
        return socketCall.System(domain, type, protocol);
    });
    ClientSocket const client(listener.GetAddress(), true);
    EXPECT_EQ(SOCK_STREAM, test::GetSocketOption(client, SO_TYPE));
}

TEST_P(ClientSocketFamilyTest, PassesTheSignificantBytesOfTheAddress)
{
    Listener const listener(family_);
    Address const address = listener.GetAddress();
    ConnectReplacement const watch(connectCall, [&](int descriptor, sockaddr const* bytes, socklen_t length) {
        Address passed("");
        std::memcpy(&passed.address, bytes, length);
        passed.length = length;
        EXPECT_EQ(address, passed);
        return connectCall.System(descriptor, bytes, length);
    });
    ClientSocket const client(address, true);
    EXPECT_EQ(address, client.GetPeerAddress());
}

TEST_P(ClientSocketFamilyTest, DestructionEndsTheConnection)
{
    Listener const listener(family_);
    std::unique_ptr<ClientSocket> client(new ClientSocket(listener.GetAddress(), true));
    std::unique_ptr<Socket> const connection = listener.Accept();
    client.reset();
    AwaitReadable(*connection);
    EXPECT_FALSE(connection->IsConnected());
}

TEST_P(ClientSocketFamilyTest, InterruptedConnectThrows)
{
    FullListener const listener(family_);
    test::Interruptions const interruptions(1000);
    EXPECT_EQ(ConstructorFailure(EINTR), FailureOf([&] { ClientSocket(listener.GetAddress(), true); }));
}

TEST_P(ClientSocketFamilyTest, SecondConnectThrows)
{
    Listener const listener(family_);
    ClientSocket client(listener.GetAddress(), true);
    EXPECT_EQ(ConnectFailure(EISCONN), FailureOf([&] { client.Connect(listener.GetAddress()); }));
    EXPECT_TRUE(client.IsConnected());
}

TEST_P(ClientSocketFamilyTest, ConnectAfterCloseThrows)
{
    Listener const listener(family_);
    ClientSocket client(listener.GetAddress(), true);
    client.Close();
    util::Exception const exception = test::Thrown([&] { client.Connect(listener.GetAddress()); });
    EXPECT_EQ(test::ErrnoText(EBADF), exception.what());
    EXPECT_FALSE(client.IsOpen());
}

TEST(ClientSocketTest, InheritsEveryOperation)
{
    Listener const listener(AF_LOCAL);
    ClientSocket const client(listener.GetAddress(), true);
    EXPECT_EQ(test::StreamOperations(Socket(-1)), test::StreamOperations(client));
}

TEST(ClientSocketTest, ConnectsToAnAbstractAddress)
{
    Address const address = test::AbstractAddress("tovuutil-client-" + std::to_string(getpid()));
    Socket listener(AF_LOCAL, SOCK_STREAM, 0);
    listener.Bind(address);
    ASSERT_EQ(0, listen(listener.GetDescriptor(), 1));
    EXPECT_EQ(address, ClientSocket(address, true).GetPeerAddress());
}

TEST(ClientSocketTest, BlockingClientStaysInBlockingMode)
{
    Listener const listener(AF_LOCAL);
    test::FailingIoctl const modeIsNotTouched(ENOBUFS);
    EXPECT_FALSE(ClientSocket(listener.GetAddress(), true).IsBlocking());
}

TEST(ClientSocketTest, OtherClientIsInNonBlockingMode)
{
    Listener const listener(AF_LOCAL);
    ClientSocket const client(listener.GetAddress(), false);
    EXPECT_TRUE(client.IsBlocking());  // its sense is reversed
    EXPECT_EQ(listener.GetAddress(), client.GetPeerAddress());
}

TEST(ClientSocketTest, ModeIsSetBeforeTheConnection)
{
    Listener listener(AF_LOCAL);
    bool nonBlocking = false;
    ConnectReplacement const watch(connectCall, [&](int descriptor, sockaddr const* address, socklen_t length) {
        nonBlocking = (fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0;
        return connectCall.System(descriptor, address, length);
    });
    ClientSocket const client(listener.GetAddress(), false);
    EXPECT_TRUE(nonBlocking);
}

TEST(ClientSocketTest, FailureToSetTheModeThrowsWithoutConnecting)
{
    Listener listener(AF_LOCAL);
    std::size_t const before = CountDescriptors();
    {
        test::FailingIoctl const failing(ENOBUFS);
        EXPECT_EQ(test::Failure(ENOBUFS, {"src/util/Socket.cpp", "src/util/ClientSocket.cpp"}),
                  FailureOf([&] { ClientSocket(listener.GetAddress(), false); }));
    }
    EXPECT_EQ(before, CountDescriptors());
    listener.SetBlocking(false);
    EXPECT_FALSE(listener.HasConnection());
}

TEST(ClientSocketTest, CreationIsOutsideTheTrail)
{
    EXPECT_EQ(SocketFailure(EAFNOSUPPORT), FailureOf([] { ClientSocket(Address::Empty, true); }));
    test::ExpectPassesInChild([] {
        test::AllowNoMoreDescriptors();
        EXPECT_EQ(SocketFailure(EMFILE), FailureOf([] { ClientSocket(Loopback(1), true); }));
    });
}

// Addresses where nobody answers.
class ClientSocketFailureTest : public testing::Test
{
protected:
    ~ClientSocketFailureTest() override { EXPECT_EQ(descriptors_, CountDescriptors()); }

    static std::string FailureTo(Address const& address)
    {
        return FailureOf([&] { ClientSocket(address, true); });
    }

    std::size_t const descriptors_ = CountDescriptors();
    test::TemporaryDirectory const folder_;
};

TEST_F(ClientSocketFailureTest, MissingPathThrows)
{
    EXPECT_EQ(ConstructorFailure(ENOENT), FailureTo(Address(folder_ / "missing")));
}

TEST_F(ClientSocketFailureTest, PlainFileThrows)
{
    test::WriteFile(folder_ / "file", "");
    EXPECT_EQ(ConstructorFailure(ECONNREFUSED), FailureTo(Address(folder_ / "file")));
}

TEST_F(ClientSocketFailureTest, LocalSocketThatDoesNotListenThrows)
{
    Socket silent(AF_LOCAL, SOCK_STREAM, 0);
    silent.Bind(Address(folder_ / "socket"));
    EXPECT_EQ(ConstructorFailure(ECONNREFUSED), FailureTo(silent.GetHostAddress()));
}

TEST_F(ClientSocketFailureTest, PortThatDoesNotListenThrows)
{
    Socket silent(AF_INET, SOCK_STREAM, 0);
    silent.Bind(Loopback());
    EXPECT_EQ(ConstructorFailure(ECONNREFUSED), FailureTo(silent.GetHostAddress()));
}

TEST_F(ClientSocketFailureTest, TruncatedAddressThrows)
{
    Address address = Loopback(1);
    address.length = 3;
    EXPECT_EQ(ConstructorFailure(EINVAL), FailureTo(address));
}

TEST_F(ClientSocketFailureTest, TrailHasTheThrowSiteAndTheConstructor)
{
    util::Exception const exception = test::Thrown([&] { ClientSocket(Address(folder_ / "missing"), true); });
    ASSERT_EQ(2u, exception.locations.size());
    EXPECT_NE(exception.locations[0].line, exception.locations[1].line);
}

TEST_F(ClientSocketFailureTest, ForeignExceptionPassesUnchanged)
{
    ConnectReplacement const throwing(
        connectCall, [](int, sockaddr const*, socklen_t) -> int { throw std::runtime_error("a standard failure"); });
    try {
        ClientSocket const client(Loopback(1), true);
        ADD_FAILURE() << "nothing was thrown";
    } catch (std::runtime_error const& exception) {
        EXPECT_STREQ("a standard failure", exception.what());
    }
}

// An exception of a program's own, which must come out as itself.
class OwnException : public Exception
{
public:
    OwnException() : Exception("own.cpp", 7, "own") {}
};

TEST_F(ClientSocketFailureTest, DerivedExceptionComesOutAsItself)
{
    ConnectReplacement const throwing(connectCall,
                                      [](int, sockaddr const*, socklen_t) -> int { throw OwnException(); });
    try {
        ClientSocket const client(Loopback(1), true);
        ADD_FAILURE() << "nothing was thrown";
    } catch (OwnException const& exception) {
        ASSERT_EQ(2u, exception.locations.size());
        EXPECT_STREQ("own.cpp", exception.locations[0].file);
        EXPECT_STREQ("src/util/ClientSocket.cpp", exception.locations[1].file);
    }
}

TEST_F(ClientSocketFailureTest, NonBlockingClientThrowsWhileAnIpv4ListenerDoesNotAnswer)
{
    FullListener const listener(AF_INET);
    EXPECT_EQ(ConstructorFailure(EINPROGRESS), FailureOf([&] { ClientSocket(listener.GetAddress(), false); }));
}

TEST_F(ClientSocketFailureTest, NonBlockingClientThrowsWhileALocalListenerHasNoRoom)
{
    FullListener const listener(AF_LOCAL);
    EXPECT_EQ(ConstructorFailure(EAGAIN), FailureOf([&] { ClientSocket(listener.GetAddress(), false); }));
}

TEST_F(ClientSocketFailureTest, BlockingClientThatTimesOutCountsAsConnected)
{
    FullListener const listener(AF_LOCAL);
    decltype(socketCall)::Replacement const impatient(socketCall, [](int domain, int type, int protocol) {
        int const descriptor = socketCall.System(domain, type, protocol);
        timeval const timeout = {0, 1000};
        EXPECT_EQ(0, setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout)));
        return descriptor;
    });
    ClientSocket const client(listener.GetAddress(), true);
    EXPECT_TRUE(client.IsOpen());
    EXPECT_EQ(SocketFailure(ENOTCONN), FailureOf([&] { client.GetPeerAddress(); }));
}

// What becomes of an error that connect(2) reports, in both modes.
struct Answer
{
    char const* name;
    int error;
    bool pardonedInBlockingMode;
};

class ClientSocketAnswerTest : public testing::TestWithParam<Answer>
{
protected:
    Address const address_ = Loopback(1);
    FailingConnect const failing_{GetParam().error};
};

INSTANTIATE_TEST_SUITE_P(Errors, ClientSocketAnswerTest,
                         testing::Values(Answer{"NoRoom", EAGAIN, true}, Answer{"InProgress", EINPROGRESS, false},
                                         Answer{"Already", EALREADY, false}, Answer{"Refused", ECONNREFUSED, false},
                                         Answer{"TimedOut", ETIMEDOUT, false}, Answer{"Interrupted", EINTR, false}),
                         ParameterName());

TEST_P(ClientSocketAnswerTest, BlockingClientPardonsAFullListenerOnly)
{
    if (GetParam().pardonedInBlockingMode) {
        EXPECT_TRUE(ClientSocket(address_, true).IsOpen());
    } else {
        EXPECT_EQ(ConstructorFailure(GetParam().error), FailureOf([&] { ClientSocket(address_, true); }));
    }
}

TEST_P(ClientSocketAnswerTest, NonBlockingClientPardonsNothing)
{
    EXPECT_EQ(ConstructorFailure(GetParam().error), FailureOf([&] { ClientSocket(address_, false); }));
}

TEST_P(ClientSocketAnswerTest, ErrorOutlivesTheQuestionAboutTheMode)
{
    decltype(fcntlCall)::Replacement const forgetful(fcntlCall, [](int descriptor, int command, void* argument) {
        int const flags = fcntlCall.System(descriptor, command, argument);
        errno = ENOANO;
        return flags;
    });
    EXPECT_EQ(ConstructorFailure(GetParam().error), FailureOf([&] { ClientSocket(address_, false); }));
}

TEST(ClientSocketTest, PardonHoldsForConnectAsWell)
{
    Listener const listener(AF_LOCAL);
    ClientSocket client(listener.GetAddress(), true);
    FailingConnect const failing(EAGAIN);
    client.Connect(listener.GetAddress());
    client.SetBlocking(false);
    EXPECT_EQ(ConnectFailure(EAGAIN), FailureOf([&] { client.Connect(listener.GetAddress()); }));
}

}}}  // namespace tovu::util

extern "C" int socket(int domain, int type, int protocol) noexcept
{
    return tovu::util::socketCall(domain, type, protocol);
}

extern "C" int connect(int descriptor, sockaddr const* address, socklen_t length)
{
    return tovu::util::connectCall(descriptor, address, length);
}

extern "C" int fcntl(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return tovu::util::fcntlCall(descriptor, command, argument);
}
