#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Descriptors.h"
#include "Sockets.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace test {

/// The most bytes that one IPv4 datagram holds, see udp(7).
constexpr unsigned LARGEST_DATAGRAM = 65507;

/// The broadcast address of the loopback network: nobody but this machine gets what is sent to it.
inline util::Socket::Address LoopbackBroadcast(unsigned short port = 0)
{
    return util::Socket::Address(port, htonl(0x7FFFFFFF));
}

/// Expects that no descriptor is lost in its scope. The first member of a fixture: it outlives the others.
class DescriptorCensus
{
public:
    DescriptorCensus() : before_(CountDescriptors()) {}
    DescriptorCensus(DescriptorCensus const&) = delete;
    DescriptorCensus& operator=(DescriptorCensus const&) = delete;
    ~DescriptorCensus() { EXPECT_EQ(before_, CountDescriptors()); }

private:
    std::size_t const before_;
};

struct Datagram
{
    std::string bytes;
    util::Socket::Address sender;
};

/// The other side of a socket under test: sends and receives datagrams by the system's own calls.
class BroadcastPeer
{
public:
    explicit BroadcastPeer(util::Socket::Address const& address = Loopback())
        : socket_(address.GetFamily(), SOCK_DGRAM, 0)
    {
        socket_.Bind(address);
    }

    util::Socket::Address GetAddress() const { return socket_.GetHostAddress(); }

    void Send(std::string const& bytes, util::Socket::Address const& to) const
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  sendto(socket_.GetDescriptor(), bytes.data(), bytes.size(), 0, &to.address.generic, to.length));
    }

    /// Waits for the next datagram.
    Datagram Receive() const
    {
        AwaitReadable(socket_);
        std::vector<char> buffer(LARGEST_DATAGRAM);
        util::Socket::Address sender(static_cast<unsigned short>(AF_UNSPEC));
        sender.length = sizeof(sender.address);
        ssize_t const count = recvfrom(socket_.GetDescriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                       &sender.address.generic, &sender.length);
        EXPECT_NE(-1, count);
        return {std::string(buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count)), sender};
    }

private:
    util::Socket socket_;
};

/// Where a datagram from this machine reaches `receiver`, whatever that is bound to.
inline util::Socket::Address ReachedAt(util::Socket const& receiver)
{
    return Loopback(receiver.GetHostAddress().GetPort());
}

/// Writes a text, and returns what Write does.
inline int WriteText(util::Stream& stream, std::string const& text)
{
    return stream.Write(text.data(), static_cast<unsigned>(text.size()));
}

/// Reads at most `size` bytes by one call, and returns them.
inline std::string ReadText(util::Stream& stream, unsigned size = LARGEST_DATAGRAM)
{
    std::vector<char> buffer(size + 1);
    int const count = stream.Read(buffer.data(), size);
    EXPECT_LE(0, count);
    return std::string(buffer.data(), static_cast<std::size_t>(count < 0 ? 0 : count));
}

}}  // namespace tovu::test
