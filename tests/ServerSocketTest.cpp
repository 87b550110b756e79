#include "tovu/util/ServerSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "CFunction.h"
#include "ChildProcess.h"
#include "Descriptors.h"
#include "FailingAllocation.h"
#include "Interruptions.h"
#include "IoctlCalls.h"
#include "ParameterName.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/ClientSocket.h"

namespace tovu { namespace util { namespace {

using test::AwaitReadable;
using test::CFunction;
using test::CountDescriptors;
using test::FailureOf;
using test::Loopback;
using test::ParameterName;
using test::SocketFailure;

using Address = Socket::Address;

CFunction<int(int, sockaddr*, socklen_t*)> acceptCall("accept");
CFunction<int(int, int)> listenCall("listen");
CFunction<int(int, int, int, void const*, socklen_t)> setsockoptCall("setsockopt");

static_assert(std::is_base_of<Socket, ServerSocket>::value, "a socket");
static_assert(sizeof(ServerSocket) == sizeof(Socket), "without state of its own");
static_assert(!std::is_copy_constructible<ServerSocket>::value && !std::is_copy_assignable<ServerSocket>::value,
              "one owner");
static_assert(std::is_nothrow_destructible<ServerSocket>::value, "destructors never throw");
static_assert(std::is_constructible<std::unique_ptr<Socket>, decltype(std::declval<ServerSocket&>().Accept())>::value,
              "the caller owns a connection");

// A failure of one of the operations, called alone.
std::string ServerFailure(int error)
{
    return test::Failure(error, {"src/util/ServerSocket.cpp"});
}

// A failure in the base class's part of the constructor.
std::string ConstructorFailure(int error)
{
    return test::Failure(error, {"src/util/Socket.cpp", "src/util/ServerSocket.cpp"});
}

// True when the first allocation that `action` makes fails, and the failure comes out of it.
template <typename Action>
bool PassesOutOfMemoryOn(Action action)
{
    test::FailingAllocation const failing;
    try {
        action();
    } catch (std::bad_alloc const&) {
        return true;
    }
    return false;
}

// A function of one result for every call that fails with an error.
template <typename... Arguments>
std::function<int(Arguments...)> Failing(CFunction<int(Arguments...)> const& /*function*/, int error)
{
    return [error](Arguments...) {
        errno = error;
        return -1;
    };
}

class ServerSocketTest : public testing::Test
{
protected:
    ~ServerSocketTest() override { EXPECT_EQ(descriptors_, CountDescriptors()); }

    Address Path() const { return Address(folder_ / "socket"); }

    std::size_t const descriptors_ = CountDescriptors();
    test::TemporaryDirectory const folder_;
};

struct Family
{
    char const* name;
    bool local;
};

// What holds for local and IPv4 addresses alike.
class ServerSocketFamilyTest : public ServerSocketTest, public testing::WithParamInterface<Family>
{
protected:
    Address FreeAddress() const { return GetParam().local ? Path() : Loopback(); }
};

INSTANTIATE_TEST_SUITE_P(Families, ServerSocketFamilyTest,
                         testing::Values(Family{"Local", true}, Family{"Ipv4", false}), ParameterName());

TEST_P(ServerSocketFamilyTest, ListensOnceItIsMade)
{
    ServerSocket const server(FreeAddress(), 1, true);
    EXPECT_EQ(1, test::GetSocketOption(server, SO_ACCEPTCONN));
    EXPECT_EQ(SOCK_STREAM, test::GetSocketOption(server, SO_TYPE));
    EXPECT_EQ(FreeAddress().AddrToString(), server.GetHostAddress().AddrToString());
}

TEST_P(ServerSocketFamilyTest, AcceptedConnectionCarriesBytesBothWays)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket client(server.GetHostAddress(), true);
    std::unique_ptr<Socket> const connection(server.Accept());
    char buffer[16] = "";
    EXPECT_EQ(4, client.Write("ping", 4));
    EXPECT_EQ(4, connection->Read(buffer, sizeof(buffer)));
    EXPECT_STREQ("ping", buffer);
    EXPECT_EQ(4, connection->Write("pong", 4));
    EXPECT_EQ(4, client.Read(buffer, sizeof(buffer)));
    EXPECT_STREQ("pong", buffer);
}

TEST_P(ServerSocketFamilyTest, ConnectionsAreAcceptedInTheirOrder)
{
    ServerSocket server(FreeAddress(), 2, true);
    ClientSocket first(server.GetHostAddress(), true);
    ClientSocket second(server.GetHostAddress(), true);
    first.Write("1", 1);
    second.Write("2", 1);
    for (char expected : {'1', '2'}) {
        char byte = 0;
        EXPECT_EQ(1, server.Accept()->Read(&byte, 1));
        EXPECT_EQ(expected, byte);
    }
}

TEST_P(ServerSocketFamilyTest, AcceptedConnectionIsAPlainSocket)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    std::unique_ptr<Socket> const connection(server.Accept());
    Socket const& accepted = *connection;
    EXPECT_EQ(typeid(Socket), typeid(accepted));
    EXPECT_TRUE(accepted.IsOpen());
    EXPECT_NE(server.GetDescriptor(), accepted.GetDescriptor());
}

TEST_P(ServerSocketFamilyTest, PeerAddressOfAConnectionIsTheClients)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    EXPECT_EQ(client.GetHostAddress(), server.Accept()->GetPeerAddress());
}

TEST_P(ServerSocketFamilyTest, DestroyingAConnectionClosesIt)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    std::unique_ptr<Socket> connection(server.Accept());
    int const descriptor = connection->GetDescriptor();
    connection.reset();
    EXPECT_FALSE(test::IsDescriptorOpen(descriptor));
    AwaitReadable(client);
    EXPECT_FALSE(client.IsConnected());
}

TEST_P(ServerSocketFamilyTest, ConnectionOutlivesTheListener)
{
    std::unique_ptr<ServerSocket> server(new ServerSocket(FreeAddress(), 1, true));
    ClientSocket client(server->GetHostAddress(), true);
    std::unique_ptr<Socket> const connection(server->Accept());
    server.reset();
    char byte = 0;
    EXPECT_EQ(1, connection->Write("x", 1));
    EXPECT_EQ(1, client.Read(&byte, 1));
    EXPECT_TRUE(connection->IsConnected());
}

TEST_P(ServerSocketFamilyTest, BlockingListenerIsInBlockingMode)
{
    test::FailingIoctl const modeIsNotTouched(ENOBUFS);
    EXPECT_FALSE(ServerSocket(FreeAddress(), 1, true).IsBlocking());
}

TEST_P(ServerSocketFamilyTest, OtherListenerIsInNonBlockingMode)
{
    EXPECT_TRUE(ServerSocket(FreeAddress(), 1, false).IsBlocking());  // its sense is reversed
}

TEST_P(ServerSocketFamilyTest, ConnectionOfANonBlockingListenerIsInBlockingMode)
{
    ServerSocket server(FreeAddress(), 1, false);
    ClientSocket const client(server.GetHostAddress(), true);
    AwaitReadable(server);
    EXPECT_FALSE(server.Accept()->IsBlocking());
}

TEST_P(ServerSocketFamilyTest, NonBlockingAcceptThrowsWithNothingPending)
{
    ServerSocket server(FreeAddress(), 1, false);
    EXPECT_EQ(ServerFailure(EAGAIN), FailureOf([&] { server.Accept(); }));
    EXPECT_TRUE(server.IsOpen());
}

TEST_P(ServerSocketFamilyTest, BlockingAcceptWaitsUntilItIsInterrupted)
{
    ServerSocket server(FreeAddress(), 1, true);
    test::Interruptions const interruptions(1000);
    EXPECT_EQ(ServerFailure(EINTR), FailureOf([&] { server.Accept(); }));
}

TEST_P(ServerSocketFamilyTest, AcceptThrowsWithoutADescriptor)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    test::ExpectPassesInChild([&] {
        test::AllowNoMoreDescriptors();
        EXPECT_EQ(ServerFailure(EMFILE), FailureOf([&] { server.Accept(); }));
    });
}

TEST_P(ServerSocketFamilyTest, AcceptWithoutMemoryLosesNoDescriptor)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    AwaitReadable(server);
    std::size_t const before = CountDescriptors();
    EXPECT_TRUE(PassesOutOfMemoryOn([&] { server.Accept(); }));
    EXPECT_EQ(before, CountDescriptors());
    AwaitReadable(client);
    EXPECT_FALSE(client.IsConnected());
}

TEST_P(ServerSocketFamilyTest, AcceptAsksForNoAddress)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    int calls = 0;
    decltype(acceptCall)::Replacement const watch(acceptCall,
                                                  [&](int descriptor, sockaddr* address, socklen_t* length) {
                                                      ++calls;
                                                      EXPECT_EQ(server.GetDescriptor(), descriptor);
                                                      EXPECT_EQ(nullptr, address);
                                                      EXPECT_EQ(nullptr, length);
                                                      return acceptCall.System(descriptor, address, length);
                                                  });
    EXPECT_TRUE(server.Accept()->IsOpen());
    EXPECT_EQ(1, calls);
}

TEST_P(ServerSocketFamilyTest, ClosedListenerThrows)
{
    ServerSocket server(FreeAddress(), 1, true);
    server.Close();
    EXPECT_EQ(ServerFailure(EBADF), FailureOf([&] { server.Accept(); }));
    EXPECT_EQ(ServerFailure(EBADF), FailureOf([&] { server.Listen(1); }));
}

TEST_P(ServerSocketFamilyTest, ListenThrowsForAConnectedSocket)
{
    ServerSocket server(FreeAddress(), 1, true);
    ClientSocket const client(server.GetHostAddress(), true);
    dup2(server.Accept()->GetDescriptor(), server.GetDescriptor());
    EXPECT_EQ(ServerFailure(EINVAL), FailureOf([&] { server.Listen(1); }));
}

TEST_P(ServerSocketFamilyTest, BacklogIsPassedOn)
{
    std::vector<int> backlogs;
    decltype(listenCall)::Replacement const watch(listenCall, [&](int descriptor, int backlog) {
        backlogs.push_back(backlog);
        return listenCall.System(descriptor, backlog);
    });
    ServerSocket server(FreeAddress(), 7, true);
    server.Listen(9);
    EXPECT_EQ((std::vector<int>{7, 9}), backlogs);
}

TEST_P(ServerSocketFamilyTest, FailureToSetTheModeCarriesTheConstructor)
{
    test::FailingIoctl const failing(ENOBUFS);
    EXPECT_EQ(ConstructorFailure(ENOBUFS), FailureOf([&] { ServerSocket(FreeAddress(), 1, false); }));
}

TEST_P(ServerSocketFamilyTest, FailureToListenCarriesTheConstructor)
{
    decltype(listenCall)::Replacement const failing(listenCall, Failing(listenCall, ENOBUFS));
    EXPECT_EQ(test::Failure(ENOBUFS, {"src/util/ServerSocket.cpp", "src/util/ServerSocket.cpp"}),
              FailureOf([&] { ServerSocket(FreeAddress(), 1, true); }));
}

TEST_F(ServerSocketTest, BacklogLimitsTheConnectionsThatWait)
{
    ServerSocket server(Path(), 0, true);
    ClientSocket const first(Path(), false);
    test::Thrown([&] { ClientSocket(Path(), false); });
    server.Listen(1);
    EXPECT_TRUE(ClientSocket(Path(), false).IsConnected());
}

TEST_F(ServerSocketTest, CreationIsOutsideTheTrail)
{
    EXPECT_EQ(SocketFailure(EAFNOSUPPORT), FailureOf([] { ServerSocket(Address::Empty, 1, true); }));
    test::ExpectPassesInChild([] {
        test::AllowNoMoreDescriptors();
        EXPECT_EQ(SocketFailure(EMFILE), FailureOf([] { ServerSocket(Loopback(), 1, true); }));
    });
}

TEST_F(ServerSocketTest, AddressInUseThrowsWithTheBindAndTheConstructor)
{
    ServerSocket const owner(Loopback(), 1, true);
    EXPECT_EQ(ConstructorFailure(EADDRINUSE), FailureOf([&] { ServerSocket(owner.GetHostAddress(), 1, true); }));
}

TEST_F(ServerSocketTest, MissingFolderThrowsWithTheBindAndTheConstructor)
{
    EXPECT_EQ(ConstructorFailure(ENOENT),
              FailureOf([&] { ServerSocket(Address(folder_ / "missing/socket"), 1, true); }));
}

TEST_F(ServerSocketTest, AddressIsReusedForIpv4Only)
{
    EXPECT_TRUE(ServerSocket(Loopback(), 1, true).IsReuseAddress());
    EXPECT_FALSE(ServerSocket(Path(), 1, true).IsReuseAddress());
}

TEST_F(ServerSocketTest, FailureToReuseTheAddressCarriesTheConstructor)
{
    decltype(setsockoptCall)::Replacement const failing(setsockoptCall, Failing(setsockoptCall, ENOBUFS));
    EXPECT_EQ(ConstructorFailure(ENOBUFS), FailureOf([] { ServerSocket(Loopback(), 1, true); }));
}

TEST_F(ServerSocketTest, PortWithConnectionsOfAnEarlierRunIsBound)
{
    Address address = Loopback();
    {
        ServerSocket server(address, 1, true);
        address = server.GetHostAddress();
        ClientSocket const client(address, true);
        server.Accept();  // closed at once: the server's end stays in TIME_WAIT
        AwaitReadable(client);
    }
    Socket other(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(SocketFailure(EADDRINUSE), FailureOf([&] { other.Bind(address); }));
    EXPECT_EQ(address, ServerSocket(address, 1, true).GetHostAddress());
}

TEST_F(ServerSocketTest, SocketFileStaysWhenTheListenerGoes)
{
    ServerSocket(Path(), 1, true);
    EXPECT_EQ(0, access(Path().AddrToString().c_str(), F_OK));
    EXPECT_EQ(1u, test::Thrown([&] { Socket(AF_LOCAL, SOCK_STREAM, 0).Bind(Path()); }).locations.size());
}

TEST_F(ServerSocketTest, SocketFileOfAnEarlierRunIsReplaced)
{
    ServerSocket(Path(), 1, true);
    ServerSocket server(Path(), 1, true);
    ClientSocket const client(Path(), true);
    EXPECT_TRUE(server.Accept()->IsConnected());
}

TEST_F(ServerSocketTest, SocketFileOfALivingListenerIsReplacedAsWell)
{
    ServerSocket const before(Path(), 1, false);
    ServerSocket server(Path(), 1, false);
    ClientSocket const client(Path(), true);
    EXPECT_TRUE(server.Accept()->IsConnected());
}

TEST_F(ServerSocketTest, PlainFileAtThePathIsReplaced)
{
    test::WriteFile(folder_ / "socket", "text");
    ServerSocket const server(Path(), 1, true);
    struct stat status = {};
    ASSERT_EQ(0, stat((folder_ / "socket").c_str(), &status));
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
}

TEST_F(ServerSocketTest, FileAtThePathStaysWhenTheModeCannotBeSet)
{
    test::WriteFile(folder_ / "socket", "text");
    test::FailingIoctl const failing(ENOBUFS);
    EXPECT_EQ(ConstructorFailure(ENOBUFS), FailureOf([&] { ServerSocket(Path(), 1, false); }));
    EXPECT_EQ(0, access((folder_ / "socket").c_str(), F_OK));
}

TEST_F(ServerSocketTest, FolderAtThePathMakesTheBindFail)
{
    ASSERT_EQ(0, mkdir((folder_ / "socket").c_str(), 0700));
    EXPECT_EQ(ConstructorFailure(EADDRINUSE), FailureOf([&] { ServerSocket(Path(), 1, true); }));
}

TEST_F(ServerSocketTest, FileAtAPathThatIsCutIsTheOneThatIsReplaced)
{
    std::string path = folder_ / "";
    path.resize(200, 'p');
    test::WriteFile(path.substr(0, 107), "text");
    ServerSocket const server((Address(path)), 1, true);
    EXPECT_EQ(path.substr(0, 107), server.GetHostAddress().AddrToString());
}

TEST_F(ServerSocketTest, ForeignExceptionPassesUnchangedAndLosesNoDescriptor)
{
    Address const path = Path();  // long enough that its text is allocated
    EXPECT_TRUE(PassesOutOfMemoryOn([&] { ServerSocket(path, 1, true); }));
}

TEST_F(ServerSocketTest, InheritsTheOperationsOfAStream)
{
    EXPECT_EQ(test::StreamOperations(Socket(-1)), test::StreamOperations(ServerSocket(Path(), 1, true)));
}

}}}  // namespace tovu::util

extern "C" int accept(int descriptor, sockaddr* address, socklen_t* length)
{
    return tovu::util::acceptCall(descriptor, address, length);
}

extern "C" int listen(int descriptor, int backlog) noexcept
{
    return tovu::util::listenCall(descriptor, backlog);
}

extern "C" int setsockopt(int descriptor, int level, int option, void const* value, socklen_t size) noexcept
{
    return tovu::util::setsockoptCall(descriptor, level, option, value, size);
}
