#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "ChildOrSkip.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace test {

/// Changes the network of the calling process, a child, with ip(8), and skips its test when that fails.
inline void ChangeNetwork(std::string const& change)
{
    if (std::system(("ip " + change).c_str()) != 0)
        SkipFromChild(("this machine does not let a process change its own network: ip " + change).c_str());
}

/// Gives the calling process, a child, a network of its own in which it reaches itself.
inline void EnterOwnLoopback()
{
    EnterOwnNetwork();
    ChangeNetwork("link set lo up");
}

/// Two networks of the child's own with a cable between them: what is broadcast in the near one arrives in the far one.
/// A socket stays in the network in which it was made. For the body of ExpectPassesInChildOrSkips; nothing of it is seen
/// outside, and it ends with the process.
class NetworkPair
{
public:
    /// Enters the near network.
    NetworkPair() : near_(EnterNew()), far_(EnterNew())
    {
        ChangeNetwork("link add far type veth peer name near netns /proc/self/fd/" + std::to_string(near_));
        ChangeNetwork("address add 10.77.0.2/24 broadcast 10.77.0.255 dev far");
        ChangeNetwork("link set far up");

        // The end of which datagrams are sent comes up last: with the other end there, it takes them from the start.
        EnterNear();
        ChangeNetwork("address add 10.77.0.1/24 broadcast 10.77.0.255 dev near");
        ChangeNetwork("link set near up");
        ChangeNetwork("route add default dev near");
    }

    NetworkPair(NetworkPair const&) = delete;
    NetworkPair& operator=(NetworkPair const&) = delete;
    ~NetworkPair()
    {
        close(near_);
        close(far_);
    }

    void EnterNear() { EXPECT_EQ(0, setns(near_, CLONE_NEWNET)); }
    void EnterFar() { EXPECT_EQ(0, setns(far_, CLONE_NEWNET)); }

    /// The address of the near network's only machine.
    static char const* NearAddress() { return "10.77.0.1"; }

    /// The address of everybody in both networks.
    static util::Socket::Address Everybody(unsigned short port)
    {
        return util::Socket::Address(port, inet_addr("10.77.0.255"));
    }

private:
    static int EnterNew()
    {
        EnterOwnNetwork();
        int const network = open("/proc/self/ns/net", O_RDONLY);
        EXPECT_NE(-1, network);
        return network;
    }

    int near_;
    int far_;
};

}}  // namespace tovu::test
