#include <netdb.h>
#include <sched.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FaultFixture.h"
#include "Sockets.h"
#include "tovu/util/BroadcastSocket.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/ClientSocket.h"
#include "tovu/util/ServerBroadcastSocket.h"
#include "tovu/util/ServerSocket.h"

namespace tovu { namespace test {

namespace {

using util::BroadcastSocket;
using util::ClientBroadcastSocket;
using util::ClientSocket;
using util::Exception;
using util::ServerBroadcastSocket;
using util::ServerSocket;
using util::Socket;

std::string const SOCKET = "src/util/Socket.cpp";

// Every class closes in Socket's destructor.
Rule ClosesQuietly()
{
    return Fails(Call::close, Ignored().Logging(SOCKET + " %E"));
}

void RunSocket(Run& run)
{
    FaultScope const scope(run.fault);
    Socket socket(AF_INET, SOCK_DGRAM, 0);
    socket.SetBlocking(false);
    run.out << socket.IsBlocking();
    socket.SetBroadcast(true);
    run.out << socket.IsBroadcast();
    socket.SetReuseAddress(true);
    run.out << socket.IsReuseAddress();
    socket.Bind(Loopback());
    int family = 0;
    int type = 0;
    int protocol = 1;
    socket.GetInfo(family, type, protocol);
    run.out << family << type << protocol << socket.GetHostAddress().AddrToString();
    socket.Close();
    run.out << socket.IsOpen();
}

Scenario SocketScenario()
{
    Expected const fails = Throws(SOCKET);
    return {"Socket",
            {"Socket"},
            RunSocket,
            "true true true 2 2 0 127.0.0.1 false",
            {
                Fails(Call::socket, fails),
                Fails(Call::ioctl, fails),
                Fails(Call::fcntl, fails),
                Fails(Call::setsockopt, Times(2, fails)),
                Fails(Call::getsockopt, Times(4, fails)),
                Fails(Call::bind, fails),
                Fails(Call::getsockname, Times(3, fails)),
                Fails(Call::close, fails.Logging(SOCKET + " Bad file descriptor")),
            },
            {},
            true};
}

void RunSocketTransfers(Run& run)
{
    ConnectedPair pair = ConnectIpv4Pair();
    FaultScope const scope(run.fault);
    run.out << pair.near->Write("hello", 5);
    char buffer[8] = "";
    run.out << pair.far->Read(buffer, 5) << buffer;
    run.out << pair.near->IsDataAvailable(nullptr) << pair.near->GetPeerAddress().AddrToString();
    pair.near.reset();
}

Scenario SocketTransfersScenario()
{
    Expected const fails = Throws(SOCKET);
    return {"SocketTransfers",
            {"Socket"},
            RunSocketTransfers,
            "5 5 hello false 127.0.0.1",
            {
                Fails(Call::send, fails),
                MovesOneByte(Call::send, {Gives("1 1 h false 127.0.0.1")}),
                MovesHalf(Call::send, {Gives("2 2 he false 127.0.0.1")}),
                Fails(Call::recv, fails),
                MovesOneByte(Call::recv, {Gives("5 1 h false 127.0.0.1")}),
                MovesHalf(Call::recv, {Gives("5 2 he false 127.0.0.1")}),
                Fails(Call::ioctl, fails),
                Fails(Call::getsockname, fails),
                Fails(Call::getsockopt, fails),
                Fails(Call::getpeername, fails),
                ClosesQuietly(),
            },
            {},
            true};
}

// With the socket in non-blocking mode, which the guard takes for blocking.
void RunIsConnected(Run& run)
{
    ConnectedPair const pair = ConnectLocalPair();
    pair.near->SetBlocking(false);
    FaultScope const scope(run.fault);
    run.out << pair.near->IsConnected();
}

Scenario IsConnectedScenario()
{
    return {"SocketIsConnected",
            {"Socket"},
            RunIsConnected,
            "true",
            {
                Fails(Call::fcntl, Throws(SOCKET)),
                Fails(Call::recv, Ignored()),
                Fails(Call::ioctl, {Throws(SOCKET), Ignored().Logging(SOCKET + " %E")}),
            },
            {},
            true};
}

void RunHostName(Run& run)
{
    FaultScope const scope(run.fault);
    run.out << Socket::GetHostName().empty();
}

Scenario HostNameScenario()
{
    return {"SocketGetHostName", {"Socket"}, RunHostName, "false", {Fails(Call::gethostname, Gives("true"))}, {}, true};
}

void RunHostAddress(Run& run)
{
    FaultScope const scope(run.fault);
    Socket::Address const address(80, "127.0.0.1", static_cast<unsigned short>(AF_INET));
    run.out << address.AddrToString() << address.GetPort();
}

Scenario HostAddressScenario()
{
    return {"SocketAddressOfAHost",
            {"Socket"},
            RunHostAddress,
            "127.0.0.1 80",
            {Fails(Call::getaddrinfo, Throws(SOCKET))},
            {"Exception '*' " + SOCKET},
            true};
}

// A machine need not know any network: without a fault it does not matter whether it does.
void RunNetworkAddress(Run& run)
{
    FaultScope const scope(run.fault);
    try {
        Socket::Address const address(80, "loopback", 1U);
        run.out << "asked";
    } catch (Exception const&) {
        if (FaultScope::HasHappened())
            throw;
        run.out << "asked";
    }
}

Scenario NetworkAddressScenario()
{
    return {"SocketAddressOfANetwork",
            {"Socket"},
            RunNetworkAddress,
            "asked",
            {Fails(Call::getnetbyname, Throws(SOCKET))},
            {"Exception '*' " + SOCKET},
            true};
}

// In a network without interfaces: with one the operation does not come back.
void RunInterfaces(Run& run)
{
    RunInFork(run, [](Run& inside) {
        if (!EnterNamespace(CLONE_NEWNET)) {
            inside.out << NO_NETWORK;
            return;
        }
        FaultScope const scope(inside.fault);
        std::vector<Socket::InterfaceInfo> interfaces;
        Socket::GetInterfaces(interfaces);
        inside.out << interfaces.size();
    });
}

// A listener that has room for one connection.
struct Listener
{
    explicit Listener(Socket::Address const& where) : socket(where.GetFamily(), SOCK_STREAM, 0)
    {
        socket.Bind(where);
        EXPECT_EQ(0, listen(socket.GetDescriptor(), 1));
    }

    Socket socket;
};

void RunClientSocket(Run& run)
{
    Listener const listener(AbstractAddress("tovu-faults-" + std::to_string(getpid())));
    Socket::Address const address = listener.socket.GetHostAddress();
    FaultScope const scope(run.fault);
    ClientSocket const client(address, true);
    run.out << client.IsOpen();
}

Scenario ClientSocketScenario()
{
    std::string const source = "src/util/ClientSocket.cpp";
    return {"ClientSocket",
            {"ClientSocket"},
            RunClientSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                FailsWith({EAGAIN}, Call::connect, Ignored()),
                Fails(Call::connect, Throws(source + " " + source)),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunNonBlockingClientSocket(Run& run)
{
    Listener const listener(AbstractAddress("tovu-faults-" + std::to_string(getpid())));
    Socket::Address const address = listener.socket.GetHostAddress();
    FaultScope const scope(run.fault);
    ClientSocket const client(address, false);
    run.out << client.IsOpen();
}

Scenario NonBlockingClientSocketScenario()
{
    std::string const source = "src/util/ClientSocket.cpp";
    return {"ClientSocketNonBlocking",
            {"ClientSocket"},
            RunNonBlockingClientSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                Fails(Call::ioctl, Throws(SOCKET + " " + source)),
                Fails(Call::connect, Throws(source + " " + source)),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunServerSocket(Run& run)
{
    FaultScope const scope(run.fault);
    ServerSocket const server(Loopback(), 1, false);
    run.out << server.IsOpen();
}

Scenario ServerSocketScenario()
{
    std::string const source = "src/util/ServerSocket.cpp";
    return {"ServerSocket",
            {"ServerSocket"},
            RunServerSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                Fails(Call::ioctl, Throws(SOCKET + " " + source)),
                Fails(Call::setsockopt, Throws(SOCKET + " " + source)),
                Fails(Call::bind, Throws(SOCKET + " " + source)),
                Fails(Call::listen, Throws(source + " " + source)),
                ClosesQuietly(),
            },
            {},
            true};
}

// On the file that the run before has left.
void RunLocalServerSocket(Run& run)
{
    Socket::Address const address(FaultFolder() / "server.sock");
    if (access((FaultFolder() / "server.sock").c_str(), F_OK) != 0)
        Socket(AF_LOCAL, SOCK_STREAM, 0).Bind(address);
    FaultScope const scope(run.fault);
    ServerSocket const server(address, 1, true);
    run.out << server.IsOpen();
}

Scenario LocalServerSocketScenario()
{
    std::string const source = "src/util/ServerSocket.cpp";
    return {"ServerSocketOnAPath",
            {"ServerSocket"},
            RunLocalServerSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                // Nobody looks at it: it is the file that is in the way.
                Fails(Call::unlink, ThrowsOther("Exception 'Address already in use' " + SOCKET + " " + source)),
                Fails(Call::bind, Throws(SOCKET + " " + source)),
                Fails(Call::listen, Throws(source + " " + source)),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunAccept(Run& run)
{
    ServerSocket server(Loopback(), 1, true);
    ClientSocket client(server.GetHostAddress(), true);
    client.Write("hello", 5);
    FaultScope const scope(run.fault);
    std::unique_ptr<Socket> const connection(server.Accept().release());
    char buffer[8] = "";
    run.out << connection->Read(buffer, 5) << buffer;
}

Scenario AcceptScenario()
{
    return {"ServerSocketAccept",
            {"ServerSocket"},
            RunAccept,
            "5 hello",
            {
                Fails(Call::accept, Throws("src/util/ServerSocket.cpp")),
                Fails(Call::recv, Throws(SOCKET)),
                MovesOneByte(Call::recv, {Gives("1 h")}),
                MovesHalf(Call::recv, {Gives("2 he")}),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunBroadcastSocket(Run& run)
{
    FaultScope const scope(run.fault);
    BroadcastSocket const socket(Loopback(), false);
    run.out << socket.IsOpen();
}

Scenario BroadcastSocketScenario()
{
    return {"BroadcastSocket",
            {"BroadcastSocket"},
            RunBroadcastSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                Fails(Call::ioctl, Throws(SOCKET + " src/util/BroadcastSocket.cpp")),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunClientBroadcastSocket(Run& run)
{
    ServerBroadcastSocket const server(Loopback(), true);
    Socket::Address const address = server.GetHostAddress();
    FaultScope const scope(run.fault);
    ClientBroadcastSocket client(address, true);
    run.out << client.Write("hello", 5);
}

Scenario ClientBroadcastSocketScenario()
{
    std::string const source = "src/util/ClientBroadcastSocket.cpp";
    return {"ClientBroadcastSocket",
            {"ClientBroadcastSocket"},
            RunClientBroadcastSocket,
            "5",
            {
                Fails(Call::socket, Throws(SOCKET)),
                Fails(Call::setsockopt, Throws(SOCKET + " " + source)),
                Fails(Call::sendto, Throws(source)),
                MovesOneByte(Call::sendto, {Gives("1")}),
                MovesHalf(Call::sendto, {Gives("2")}),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunServerBroadcastSocket(Run& run)
{
    FaultScope const scope(run.fault);
    ServerBroadcastSocket const server(Loopback(), true);
    run.out << server.IsOpen();
}

Scenario ServerBroadcastSocketScenario()
{
    return {"ServerBroadcastSocket",
            {"ServerBroadcastSocket"},
            RunServerBroadcastSocket,
            "true",
            {
                Fails(Call::socket, Throws(SOCKET)),
                Fails(Call::bind, Throws(SOCKET + " src/util/ServerBroadcastSocket.cpp")),
                ClosesQuietly(),
            },
            {},
            true};
}

void RunServerBroadcastRead(Run& run)
{
    ServerBroadcastSocket server(Loopback(), true);
    ClientBroadcastSocket client(server.GetHostAddress(), true);
    client.Write("hello", 5);
    client.Write("again", 5);
    FaultScope const scope(run.fault);
    char buffer[8] = "";
    run.out << server.Read(buffer, 5) << buffer;
    Socket::Address from(static_cast<unsigned short>(AF_INET));
    char other[8] = "";
    run.out << server.Read(other, 5, from) << other << from.AddrToString();
}

Scenario ServerBroadcastReadScenario()
{
    std::string const source = "src/util/ServerBroadcastSocket.cpp";
    return {"ServerBroadcastSocketRead",
            {"ServerBroadcastSocket"},
            RunServerBroadcastRead,
            "5 hello 5 again 127.0.0.1",
            {
                Fails(Call::recvfrom, {Throws(source), Throws(source)}),
                MovesOneByte(Call::recvfrom, {Gives("1 h 5 again 127.0.0.1"), Gives("5 hello 1 a 127.0.0.1")}),
                MovesHalf(Call::recvfrom, {Gives("2 he 5 again 127.0.0.1"), Gives("5 hello 2 ag 127.0.0.1")}),
            },
            {},
            true};
}

}  // namespace

char const* const NO_NETWORK = "no network of its own";

Scenario InterfacesScenario()
{
    return {"SocketInterfaces",
            {"Socket"},
            RunInterfaces,
            "0",
            {
                Fails(Call::socket, Throws(SOCKET)), Fails(Call::ioctl, Throws(SOCKET)),
                Fails(Call::close, Ignored()),  // what a child logs is not seen
            },
            {},
            true,
            true};
}

std::vector<Scenario> SocketScenarios()
{
    return {SocketScenario(),
            SocketTransfersScenario(),
            IsConnectedScenario(),
            HostNameScenario(),
            HostAddressScenario(),
            NetworkAddressScenario(),
            ClientSocketScenario(),
            NonBlockingClientSocketScenario(),
            ServerSocketScenario(),
            LocalServerSocketScenario(),
            AcceptScenario(),
            BroadcastSocketScenario(),
            ClientBroadcastSocketScenario(),
            ServerBroadcastSocketScenario(),
            ServerBroadcastReadScenario()};
}

}}  // namespace tovu::test
