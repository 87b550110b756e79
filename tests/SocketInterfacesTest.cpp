#include "tovu/util/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "ChildOrSkip.h"
#include "Descriptors.h"
#include "IoctlCalls.h"
#include "ParameterName.h"
#include "Sanitizers.h"
#include "Sockets.h"

namespace tovu { namespace util { namespace {

using test::CountDescriptors;
using test::FailureOf;
using test::GetSocketOption;
using test::ParameterName;
using test::SocketFailure;

static_assert(std::is_copy_constructible<Socket::InterfaceInfo>::value &&
                  std::is_copy_assignable<Socket::InterfaceInfo>::value,
              "a value");

Socket::InterfaceInfo MakeInterface(std::string const& name, std::string const& ipAddress, bool isUp)
{
    Socket::InterfaceInfo interface;
    interface.name = name;
    interface.ipAddress = ipAddress;
    interface.isUp = isUp;
    return interface;
}

using Interfaces = std::vector<Socket::InterfaceInfo>;

bool IsSame(Socket::InterfaceInfo const& left, Socket::InterfaceInfo const& right)
{
    return left.name == right.name && left.ipAddress == right.ipAddress && left.isUp == right.isUp &&
           left.broadcastAddress == right.broadcastAddress && left.destinationAddress == right.destinationAddress;
}

void ExpectInterfaces(Interfaces const& expected, Interfaces const& interfaces)
{
    EXPECT_EQ(expected.size(), interfaces.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), interfaces.begin(), interfaces.end(), &IsSame));
}

TEST(InterfaceInfoTest, StartsEmptyAndDown)
{
    ExpectInterfaces({MakeInterface("", "", false)}, {Socket::InterfaceInfo()});
}

// The system's answers about network interfaces, for one record of one interface, and the questions put to it.
class FakeNetwork
{
public:
    FakeNetwork(int family, std::vector<int> const& flags) : family_(family), flags_(flags) {}

    std::string broadcastAddress;    // none: the question fails with EADDRNOTAVAIL
    std::string destinationAddress;  // none: the question fails with EDESTADDRREQ
    std::vector<unsigned long> requests;
    int roomForRecords = 0;  // in bytes

private:
    static int Fail(int error)
    {
        errno = error;
        return -1;
    }

    static void Store(sockaddr& place, int family, char const* ipAddress)
    {
        sockaddr_in inet = {};
        inet.sin_family = static_cast<sa_family_t>(family);
        EXPECT_EQ(1, inet_aton(ipAddress, &inet.sin_addr));
        std::memcpy(&place, &inet, sizeof(inet));
    }

    int Answer(int descriptor, unsigned long request, void* argument)
    {
        requests.push_back(request);
        TenantSocket const socket(descriptor);
        EXPECT_EQ(AF_INET, GetSocketOption(socket, SO_DOMAIN));
        EXPECT_EQ(SOCK_DGRAM, GetSocketOption(socket, SO_TYPE));
        return request == SIOCGIFCONF ? List(*static_cast<ifconf*>(argument))
                                      : Tell(request, *static_cast<ifreq*>(argument));
    }

    // Two records: the second is never looked at.
    int List(ifconf& list)
    {
        roomForRecords = list.ifc_len;
        records_ = list.ifc_req;
        std::strcpy(records_[0].ifr_name, "net0");
        Store(records_[0].ifr_addr, family_, "10.0.0.1");
        std::strcpy(records_[1].ifr_name, "net1");
        Store(records_[1].ifr_addr, AF_INET, "10.0.0.2");
        list.ifc_len = 2 * sizeof(ifreq);
        return 0;
    }

    int Tell(unsigned long request, ifreq& record)
    {
        switch (request) {
            case SIOCGIFFLAGS:
                EXPECT_EQ(records_, &record);
                if (flags_.empty())
                    return Fail(ENETDOWN);
                record.ifr_flags = static_cast<short>(flags_.front());
                flags_.erase(flags_.begin());
                return 0;
            case SIOCGIFBRDADDR:
                EXPECT_STREQ("", record.ifr_name);
                return TellAddress(broadcastAddress, EADDRNOTAVAIL, record);
            case SIOCGIFDSTADDR:
                EXPECT_STREQ("", record.ifr_name);
                return TellAddress(destinationAddress, EDESTADDRREQ, record);
            default:
                ADD_FAILURE() << "an unexpected request: " << request;
                return Fail(EINVAL);
        }
    }

    static int TellAddress(std::string const& ipAddress, int error, ifreq& record)
    {
        if (ipAddress.empty())
            return Fail(error);
        Store(record.ifr_addr, AF_INET, ipAddress.c_str());
        return 0;
    }

    int family_;
    std::vector<int> flags_;
    ifreq* records_ = nullptr;
    test::IoctlReplacement const system_{test::IoctlCall(),
                                         [this](int descriptor, unsigned long request, void* argument) {
                                             return Answer(descriptor, request, argument);
                                         }};
};

// GetInterfaces, called where it comes back; `interfaces_` holds an entry before.
class GetInterfacesTest : public testing::Test
{
protected:
    // How the call fails. It must not lose its descriptor.
    std::string Failure()
    {
        std::size_t const before = CountDescriptors();
        std::string const failure = FailureOf([&] { Socket::GetInterfaces(interfaces_); });
        EXPECT_EQ(before, CountDescriptors());
        return failure;
    }

    Socket::InterfaceInfo const first_ = MakeInterface("first", "192.168.0.1", true);
    Interfaces interfaces_{first_};
};

TEST_F(GetInterfacesTest, ThrowsWithoutASocketToAsk)
{
    test::ExpectPassesInChild([&] {
        test::AllowNoMoreDescriptors();
        EXPECT_EQ(SocketFailure(EMFILE), FailureOf([&] { Socket::GetInterfaces(interfaces_); }));
        ExpectInterfaces({first_}, interfaces_);
    });
}

TEST_F(GetInterfacesTest, ThrowsWithoutAList)
{
    test::IoctlReplacement const failing(test::IoctlCall(), [](int, unsigned long request, void*) {
        EXPECT_EQ(static_cast<unsigned long>(SIOCGIFCONF), request);
        errno = ENOBUFS;
        return -1;
    });
    EXPECT_EQ(SocketFailure(ENOBUFS), Failure());
    ExpectInterfaces({first_}, interfaces_);
}

TEST_F(GetInterfacesTest, ThrowsWithoutFlags)
{
    FakeNetwork const network(AF_INET, {});
    EXPECT_EQ(SocketFailure(ENETDOWN), Failure());
    EXPECT_EQ((std::vector<unsigned long>{SIOCGIFCONF, SIOCGIFFLAGS}), network.requests);
    ExpectInterfaces({first_}, interfaces_);
}

TEST_F(GetInterfacesTest, HasRoomFor4096BytesOfRecords)
{
    FakeNetwork const network(AF_INET, {});
    EXPECT_EQ(SocketFailure(ENETDOWN), Failure());
    EXPECT_EQ(4096, network.roomForRecords);
}

TEST_F(GetInterfacesTest, ThrowsWithoutABroadcastAddress)
{
    FakeNetwork const network(AF_INET, {IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT});
    EXPECT_EQ(SocketFailure(EADDRNOTAVAIL), Failure());
    EXPECT_EQ((std::vector<unsigned long>{SIOCGIFCONF, SIOCGIFFLAGS, SIOCGIFBRDADDR}), network.requests);
    ExpectInterfaces({first_}, interfaces_);
}

TEST_F(GetInterfacesTest, ThrowsWithoutADestinationAddress)
{
    FakeNetwork network(AF_INET, {IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT});
    network.broadcastAddress = "10.0.0.255";
    EXPECT_EQ(SocketFailure(EDESTADDRREQ), Failure());
    EXPECT_EQ((std::vector<unsigned long>{SIOCGIFCONF, SIOCGIFFLAGS, SIOCGIFBRDADDR, SIOCGIFDSTADDR}),
              network.requests);
    ExpectInterfaces({first_}, interfaces_);
}

TEST_F(GetInterfacesTest, AppendsAnInterfaceThatOnlyBroadcastsAgainAndAgain)
{
    FakeNetwork const network(AF_INET, {IFF_BROADCAST, IFF_BROADCAST, IFF_BROADCAST});
    EXPECT_EQ(SocketFailure(ENETDOWN), Failure());
    ASSERT_EQ(4u, interfaces_.size());
    EXPECT_TRUE(IsSame(first_, interfaces_[0]));
    EXPECT_TRUE(IsSame(MakeInterface("net0", "10.0.0.1", false), interfaces_[1]));
    EXPECT_TRUE(IsSame(interfaces_[1], interfaces_[2]));
    EXPECT_TRUE(IsSame(interfaces_[1], interfaces_[3]));
}

// A timer that ticks while the process computes. It ends a call that goes round and round without a question to the
// system, as nothing else does.
class EndlessCall
{
public:
    // Once no ioctl has been made for many ticks, runs `check` and ends the process, a child.
    static void Watch(std::function<void()> const& check)
    {
        if (test::THREADS_ARE_WATCHED)
            test::SkipFromChild("ThreadSanitizer holds signals back until a call is made, and this loop makes none");
        check_ = &check;
        struct sigaction action = {};
        action.sa_handler = &Tick;
        EXPECT_EQ(0, sigaction(SIGVTALRM, &action, nullptr));
        itimerval const interval = {{0, 5000}, {0, 5000}};
        EXPECT_EQ(0, setitimer(ITIMER_VIRTUAL, &interval, nullptr));
    }

private:
    static void Tick(int /*signal*/)
    {
        static std::sig_atomic_t requestsBefore = 0;
        static int quietTicks = 0;
        quietTicks = requestsBefore == test::IoctlCount() ? quietTicks + 1 : 0;
        requestsBefore = test::IoctlCount();
        if (quietTicks < 20)
            return;

        (*check_)();
        std::fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }

    static std::function<void()> const* check_;
};

std::function<void()> const* EndlessCall::check_ = nullptr;

// Expects, in a child process, that GetInterfaces neither returns nor throws, and that `check` passes meanwhile.
void ExpectEndless(Interfaces& interfaces, std::function<void()> const& check)
{
    EndlessCall::Watch(check);
    Socket::GetInterfaces(interfaces);
    ADD_FAILURE() << "GetInterfaces came back";
}

// A record after which GetInterfaces goes round and round, and what it has asked and appended by then.
struct EndlessRecord
{
    char const* name;
    int family;
    int flags;
    std::vector<unsigned long> requests;
    Interfaces appended;
};

Socket::InterfaceInfo MakeInterface(bool isUp, std::string const& broadcastAddress,
                                    std::string const& destinationAddress)
{
    Socket::InterfaceInfo interface = MakeInterface("net0", "10.0.0.1", isUp);
    interface.broadcastAddress = broadcastAddress;
    interface.destinationAddress = destinationAddress;
    return interface;
}

class GetInterfacesEndlessTest : public testing::TestWithParam<EndlessRecord>
{};

TEST_P(GetInterfacesEndlessTest, GoesRoundAndRound)
{
    test::ExpectPassesInChildOrSkips([] {
        FakeNetwork network(GetParam().family, {GetParam().flags});
        network.broadcastAddress = "10.0.0.255";
        network.destinationAddress = "10.0.0.9";
        Interfaces interfaces;
        ExpectEndless(interfaces, [&] {
            EXPECT_EQ(GetParam().requests, network.requests);
            ExpectInterfaces(GetParam().appended, interfaces);
        });
    });
}

INSTANTIATE_TEST_SUITE_P(
    Records, GetInterfacesEndlessTest,
    testing::Values(EndlessRecord{"Up", AF_INET, IFF_UP, {SIOCGIFCONF, SIOCGIFFLAGS}, {MakeInterface(true, "", "")}},
                    EndlessRecord{"UpWithBroadcast",
                                  AF_INET,
                                  IFF_UP | IFF_BROADCAST,
                                  {SIOCGIFCONF, SIOCGIFFLAGS, SIOCGIFBRDADDR},
                                  {MakeInterface(true, "10.0.0.255", "")}},
                    EndlessRecord{"UpWithDestination",
                                  AF_INET,
                                  IFF_UP | IFF_POINTOPOINT,
                                  {SIOCGIFCONF, SIOCGIFFLAGS, SIOCGIFDSTADDR},
                                  {MakeInterface(true, "", "10.0.0.9")}},
                    EndlessRecord{"UpWithBoth",
                                  AF_INET,
                                  IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT,
                                  {SIOCGIFCONF, SIOCGIFFLAGS, SIOCGIFBRDADDR, SIOCGIFDSTADDR},
                                  {MakeInterface(true, "10.0.0.255", "10.0.0.9")}},
                    EndlessRecord{"DownWithBoth",
                                  AF_INET,
                                  IFF_BROADCAST | IFF_POINTOPOINT | IFF_RUNNING,
                                  {SIOCGIFCONF, SIOCGIFFLAGS},
                                  {MakeInterface(false, "", "")}},
                    EndlessRecord{
                        "DownWithNothing", AF_INET, 0, {SIOCGIFCONF, SIOCGIFFLAGS}, {MakeInterface(false, "", "")}},
                    EndlessRecord{"OfAnotherFamily", AF_INET6, 0, {SIOCGIFCONF}, {}}),
    ParameterName());

// The child's own network, with one interface at most that has an address.
class OwnNetwork
{
public:
    OwnNetwork() { test::EnterOwnNetwork(); }

    // Adds a virtual interface: IFF_TUN makes a point-to-point one, IFF_TAP one that broadcasts.
    static void Add(short kind)
    {
        int const device = open("/dev/net/tun", O_RDWR);  // the interface lives as long as the process
        ifreq request = Request("net0");
        request.ifr_flags = static_cast<short>(kind | IFF_NO_PI);
        if (device == -1 || ioctl(device, TUNSETIFF, &request) == -1)
            test::SkipFromChild("this machine makes no virtual interfaces");

        request = Request("net0");
        Socket::Address const address(0, htonl(0x0a000001));
        std::memcpy(&request.ifr_addr, &address.address.inet, sizeof(request.ifr_addr));
        Change(SIOCSIFADDR, request);
    }

    static void SetFlags(char const* name, int flags)
    {
        ifreq request = Request(name);
        request.ifr_flags = static_cast<short>(flags);
        Change(SIOCSIFFLAGS, request);
    }

    static int GetFlags(char const* name)
    {
        ifreq request = Request(name);
        Change(SIOCGIFFLAGS, request);
        return request.ifr_flags;
    }

private:
    static ifreq Request(char const* name)
    {
        ifreq request = {};
        std::strncpy(request.ifr_name, name, sizeof(request.ifr_name) - 1);
        return request;
    }

    static void Change(unsigned long request, ifreq& argument)
    {
        Socket const socket(AF_INET, SOCK_DGRAM, 0);
        EXPECT_EQ(0, ioctl(socket.GetDescriptor(), request, &argument)) << std::strerror(errno);
    }
};

// GetInterfaces about a real network of the test's own.
class GetInterfacesOfTheSystemTest : public GetInterfacesTest
{};

TEST_F(GetInterfacesOfTheSystemTest, ReturnsWithoutAnyAndKeepsWhatIsThere)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        std::size_t const before = CountDescriptors();
        Socket::GetInterfaces(interfaces_);
        EXPECT_EQ(before, CountDescriptors());
        ExpectInterfaces({first_}, interfaces_);
    });
}

TEST_F(GetInterfacesOfTheSystemTest, NeverEndsOnceItHasAppendedTheLoopback)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        network.SetFlags("lo", IFF_UP);
        ExpectEndless(interfaces_, [&] {
            ExpectInterfaces({first_, MakeInterface("lo", "127.0.0.1", true)}, interfaces_);
        });
    });
}

TEST_F(GetInterfacesOfTheSystemTest, NeverEndsOnceItHasAppendedAPointToPointInterfaceThatIsDown)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        network.Add(IFF_TUN);
        EXPECT_EQ(IFF_POINTOPOINT, network.GetFlags("net0") & (IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT));
        ExpectEndless(interfaces_, [&] {
            ExpectInterfaces({first_, MakeInterface("net0", "10.0.0.1", false)}, interfaces_);
        });
    });
}

TEST_F(GetInterfacesOfTheSystemTest, FailsForAnInterfaceThatIsUpAndBroadcasts)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        network.Add(IFF_TAP);
        network.SetFlags("net0", IFF_UP);
        EXPECT_EQ(IFF_UP | IFF_BROADCAST, network.GetFlags("net0") & (IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT));
        EXPECT_EQ(SocketFailure(ENODEV), Failure());
        ExpectInterfaces({first_}, interfaces_);
    });
}

TEST_F(GetInterfacesOfTheSystemTest, FailsForAPointToPointInterfaceThatIsUp)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        network.Add(IFF_TUN);
        network.SetFlags("net0", IFF_UP);
        EXPECT_EQ(IFF_UP | IFF_POINTOPOINT, network.GetFlags("net0") & (IFF_UP | IFF_BROADCAST | IFF_POINTOPOINT));
        EXPECT_EQ(SocketFailure(ENODEV), Failure());
        ExpectInterfaces({first_}, interfaces_);
    });
}

TEST_F(GetInterfacesOfTheSystemTest, AppendsAnInterfaceThatOnlyBroadcastsAgainAndAgain)
{
    test::ExpectPassesInChildOrSkips([&] {
        OwnNetwork const network;
        network.Add(IFF_TAP);
        network.SetFlags("net0", 0);
        EXPECT_EQ(IFF_BROADCAST, network.GetFlags("net0"));

        int flagsAsked = 0;
        test::IoctlReplacement const counted(test::IoctlCall(),
                                             [&](int descriptor, unsigned long request, void* argument) {
                                                 if (request != SIOCGIFFLAGS || ++flagsAsked <= 100)
                                                     return test::IoctlCall().System(descriptor, request, argument);
                                                 errno = ENETDOWN;  // the only way out
                                                 return -1;
                                             });
        EXPECT_EQ(SocketFailure(ENETDOWN), Failure());
        ASSERT_EQ(101u, interfaces_.size());
        EXPECT_TRUE(std::all_of(interfaces_.begin() + 1, interfaces_.end(), [](Socket::InterfaceInfo const& interface) {
            return interface.name == "net0" && !interface.isUp && interface.broadcastAddress.empty();
        }));
    });
}

}}}  // namespace tovu::util
