#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Descriptors.h"
#include "Latch.h"
#include "Throws.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace test {

inline util::Socket::Address Loopback(unsigned short port = 0)
{
    return util::Socket::Address(port, htonl(INADDR_LOOPBACK));
}

/// An address in the abstract name space: it stands in no folder, and its length says where the name ends.
inline util::Socket::Address AbstractAddress(std::string const& name)
{
    util::Socket::Address address(std::string{});
    std::memcpy(address.address.local.sun_path + 1, name.data(), name.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return address;
}

/// Waits until `socket` has something to tell: data, a connection, the peer's end or an error.
inline void AwaitReadable(util::Socket const& socket)
{
    pollfd waiting = {socket.GetDescriptor(), POLLIN, 0};
    int const milliseconds = static_cast<int>(std::chrono::milliseconds(DEADLINE).count());
    EXPECT_EQ(1, poll(&waiting, 1, milliseconds)) << "the socket has nothing to read";
}

/// Two sockets that are connected with each other.
struct ConnectedPair
{
    std::unique_ptr<util::Socket> near;
    std::unique_ptr<util::Socket> far;
};

inline ConnectedPair ConnectLocalPair()
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, socketpair(AF_LOCAL, SOCK_STREAM, 0, ends));
    return {std::unique_ptr<util::Socket>(new util::Socket(ends[0])),
            std::unique_ptr<util::Socket>(new util::Socket(ends[1]))};
}

inline ConnectedPair ConnectIpv4Pair()
{
    util::Socket listener(AF_INET, SOCK_STREAM, 0);
    listener.Bind(Loopback());
    EXPECT_EQ(0, listen(listener.GetDescriptor(), 1));

    ConnectedPair pair;
    pair.near.reset(new util::Socket(AF_INET, SOCK_STREAM, 0));
    util::Socket::Address const address = listener.GetHostAddress();
    EXPECT_EQ(0, connect(pair.near->GetDescriptor(), &address.address.generic, address.length));
    pair.far.reset(new util::Socket(accept(listener.GetDescriptor(), nullptr, nullptr)));
    return pair;
}

/// Breaks an IPv4 connection off: the peer's next call fails with ECONNRESET.
inline void Reset(util::Socket& socket)
{
    linger const atOnce = {1, 0};
    EXPECT_EQ(0, setsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce)));
    socket.Close();
}

inline int GetSocketOption(util::Socket const& socket, int option)
{
    int value = -1;
    socklen_t size = sizeof(value);
    EXPECT_EQ(0, getsockopt(socket.GetDescriptor(), SOL_SOCKET, option, &value, &size));
    return value;
}

/// A failure as text: what happened, then the source file of each place that it travelled through.
inline std::string Failure(std::string what, std::vector<std::string> const& trail)
{
    for (std::string const& file : trail)
        what += "\n" + file;
    return what;
}

/// The failure of a system call.
inline std::string Failure(int error, std::vector<std::string> const& trail)
{
    return Failure(ErrnoText(error), trail);
}

/// The failure of a system call in Socket's own operations: they leave one location.
inline std::string SocketFailure(int error)
{
    return Failure(error, {"src/util/Socket.cpp"});
}

/// The failure with which `action` ends.
template <typename Action>
std::string FailureOf(Action action)
{
    util::Exception const exception = Thrown(action);
    std::vector<std::string> trail;
    for (util::Exception::Location const& location : exception.locations) {
        trail.push_back(location.file);
        EXPECT_NE(0u, location.line);
    }
    return Failure(exception.what(), trail);
}

/// What stands in an object's table of virtual operations, from IsOpen to Write.
inline std::vector<void const*> StreamOperations(util::Stream const& stream)
{
    void* const* table = nullptr;
    std::memcpy(&table, static_cast<void const*>(&stream), sizeof(table));
    return std::vector<void const*>(table + 2, table + 8);
}

/// Leaves the process, a child, no room for another descriptor.
///
/// A Socket fails before, for another reason: the undefined-behaviour sanitizer needs descriptors of its own when it
/// meets the first object of a class.
inline void AllowNoMoreDescriptors()
{
    EXPECT_EQ(SocketFailure(EAFNOSUPPORT), FailureOf([] { util::Socket(-1, SOCK_STREAM, 0); }));
    ForbidDescriptorsFrom(0);
}

}}  // namespace tovu::test
