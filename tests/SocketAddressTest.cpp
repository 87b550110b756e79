#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <deque>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "CFunction.h"
#include "ChildOrSkip.h"
#include "ChildProcess.h"
#include "ParameterName.h"
#include "Sockets.h"
#include "TemporaryDirectory.h"
#include "Throws.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util { namespace {

using test::CFunction;
using test::Failure;
using test::FailureOf;
using test::ParameterName;

using Address = Socket::Address;

CFunction<int(char const*, char const*, addrinfo const*, addrinfo**)> getaddrinfoCall("getaddrinfo");
CFunction<void(addrinfo*)> freeaddrinfoCall("freeaddrinfo");
CFunction<netent*(char const*)> getnetbynameCall("getnetbyname");

constexpr std::size_t LOCAL_SIZE = 110;  // a 2-byte family and a 108-byte path
constexpr std::size_t INET_SIZE = 16;
constexpr std::size_t LONGEST_PATH = 107;

static_assert(sizeof(sockaddr_un) == LOCAL_SIZE && sizeof(sockaddr_in) == INET_SIZE, "the system's addresses");
static_assert(std::is_same<decltype(Address::length), socklen_t>::value, "as the system counts it");
static_assert(std::is_same<decltype(Address::Empty), Address const>::value, "a constant");
static_assert(std::is_trivially_copyable<Address>::value, "a plain value");
static_assert(!std::is_polymorphic<Address>::value, "without virtual operations");
static_assert(!std::is_convertible<std::string, Address>::value && !std::is_convertible<unsigned short, Address>::value,
              "addresses are made explicitly");

// The first bytes of the storage.
std::string Bytes(Address const& address, std::size_t count = LOCAL_SIZE)
{
    char bytes[sizeof(address.address)];
    std::memcpy(bytes, &address.address, sizeof(bytes));
    return std::string(bytes, count);
}

std::string FamilyBytes(unsigned short family)
{
    char bytes[sizeof(family)];
    std::memcpy(bytes, &family, sizeof(bytes));
    return std::string(bytes, sizeof(bytes));
}

// What the storage of a local address holds.
std::string LocalBytes(unsigned short family, std::string const& path)
{
    std::string bytes = FamilyBytes(family) + path;
    bytes.resize(LOCAL_SIZE);
    return bytes;
}

// What the first bytes of the storage of an IPv4 address hold: the most significant byte of a number stands first.
std::string InetBytes(unsigned short port, std::vector<unsigned char> const& ipAddress)
{
    std::string bytes = FamilyBytes(AF_INET);
    bytes += static_cast<char>(port >> 8);
    bytes += static_cast<char>(port & 0xff);
    bytes.append(ipAddress.begin(), ipAddress.end());
    bytes.resize(INET_SIZE);
    return bytes;
}

Address FamilyAddress(int family)
{
    return Address(static_cast<unsigned short>(family));
}

// An address made in memory that holds something else, as on a stack that was used before.
template <typename... Arguments>
Address MakeOnUsedMemory(Arguments... arguments)
{
    alignas(Address) unsigned char memory[sizeof(Address)];
    std::memset(memory, 0xab, sizeof(memory));
    return *new (memory) Address(arguments...);
}

void ExpectEmptied(Address const& address)
{
    EXPECT_EQ(std::string(INET_SIZE, '\0'), Bytes(address, INET_SIZE));
    EXPECT_EQ(0u, address.length);
    EXPECT_EQ(AF_UNSPEC, address.GetFamily());
}

TEST(SocketAddressTest, OneStorageIsReadByFamily)
{
    Address const address("/run/x");
    EXPECT_EQ(static_cast<void const*>(&address.address.generic), &address.address.inet);
    EXPECT_EQ(static_cast<void const*>(&address.address.generic), &address.address.local);
    EXPECT_EQ(AF_LOCAL, address.address.generic.sa_family);
    EXPECT_EQ(AF_LOCAL, address.GetFamily());
}

TEST(SocketAddressTest, PathConstructorFillsTheWholeStorage)
{
    Address const address = MakeOnUsedMemory(std::string("/run/volumed.sock"));
    EXPECT_EQ(LocalBytes(AF_LOCAL, "/run/volumed.sock"), Bytes(address));
    EXPECT_EQ(2u + 17u + 1u, address.length);
}

TEST(SocketAddressTest, EmptyPathGivesAnEmptyLocalAddress)
{
    Address const address("");
    EXPECT_EQ(AF_LOCAL, address.GetFamily());
    EXPECT_EQ(3u, address.length);
    EXPECT_EQ("", address.AddrToString());
}

TEST(SocketAddressTest, PathEndsAtItsFirstNul)
{
    Address const address(std::string("ab\0cd", 5));
    EXPECT_EQ(LocalBytes(AF_LOCAL, "ab"), Bytes(address));
    EXPECT_EQ(5u, address.length);
}

// Paths around the longest that is kept.
class SocketAddressPathTest : public testing::TestWithParam<std::size_t>
{
protected:
    SocketAddressPathTest() : path_(GetParam(), 'p'), kept_(path_, 0, LONGEST_PATH) { path_.replace(0, 1, "/"); }

    void ExpectKept(Address const& address)
    {
        kept_.replace(0, 1, "/");
        EXPECT_EQ(kept_, address.AddrToString());
        EXPECT_EQ(kept_.size() + 3, address.length);
        EXPECT_EQ('\0', address.address.local.sun_path[LONGEST_PATH]);
    }

    std::string path_;
    std::string kept_;
};

TEST_P(SocketAddressPathTest, ConstructorKeepsTheFirst107Characters)
{
    ExpectKept(Address(path_));
}

TEST_P(SocketAddressPathTest, SetPathKeepsTheFirst107Characters)
{
    Address address = FamilyAddress(AF_LOCAL);
    address.SetPath(path_);
    ExpectKept(address);
}

INSTANTIATE_TEST_SUITE_P(Length, SocketAddressPathTest, testing::Values(1u, 106u, 107u, 108u, 200u));

TEST(SocketAddressTest, LongestLengthIs110)
{
    EXPECT_EQ(110u, Address(std::string(200, 'p')).length);
}

TEST(SocketAddressTest, LocalFamilyGivesAnEmptyLocalAddress)
{
    Address const address = MakeOnUsedMemory(static_cast<unsigned short>(AF_LOCAL));
    EXPECT_EQ(LocalBytes(AF_LOCAL, ""), Bytes(address));
    EXPECT_EQ(3u, address.length);
}

TEST(SocketAddressTest, Ipv4FamilyGivesAnEmptyIpv4Address)
{
    Address const address = MakeOnUsedMemory(static_cast<unsigned short>(AF_INET));
    EXPECT_EQ(InetBytes(0, {0, 0, 0, 0}), Bytes(address, INET_SIZE));
    EXPECT_EQ(16u, address.length);
}

TEST(SocketAddressTest, AnyOtherFamilyGivesFamily0)
{
    for (int family : {AF_UNSPEC, AF_INET6, AF_NETLINK, 65535})
        ExpectEmptied(MakeOnUsedMemory(static_cast<unsigned short>(family)));
}

TEST(SocketAddressTest, PortIsStoredInNetworkByteOrder)
{
    for (unsigned short port : {0, 1, 80, 8080, 0x1234, 65535}) {
        Address const address = MakeOnUsedMemory(port, htonl(0x0a0b0c0d));
        EXPECT_EQ(InetBytes(port, {10, 11, 12, 13}), Bytes(address, INET_SIZE));
        EXPECT_EQ(16u, address.length);
    }
}

TEST(SocketAddressTest, Ipv4AddressIsStoredAsItIsGiven)
{
    unsigned int asGiven = 0;
    std::memcpy(&asGiven, "\xc0\xa8\x00\x17", sizeof(asGiven));
    EXPECT_EQ(asGiven, Address(80, asGiven).address.inet.sin_addr.s_addr);
    EXPECT_EQ("192.168.0.23", Address(80, asGiven).AddrToString());
}

TEST(SocketAddressTest, TextOfAnIpv4AddressIsDottedDecimalWithoutThePort)
{
    EXPECT_EQ("0.0.0.0", Address(80, INADDR_ANY).AddrToString());
    EXPECT_EQ("255.255.255.255", Address(80, INADDR_BROADCAST).AddrToString());
    EXPECT_EQ("127.0.0.1", Address(80, htonl(INADDR_LOOPBACK)).AddrToString());
    EXPECT_EQ("192.168.100.200", Address(80, htonl(0xc0a864c8)).AddrToString());
}

TEST(SocketAddressTest, TextOfALocalAddressIsItsPath)
{
    EXPECT_EQ("relative/path", Address("relative/path").AddrToString());
}

TEST(SocketAddressTest, PortOfAnIpv4AddressIsInHostByteOrder)
{
    EXPECT_EQ(8080, Address(8080, INADDR_ANY).GetPort());
    EXPECT_EQ(65535, Address(65535, INADDR_ANY).GetPort());
    EXPECT_EQ(0, FamilyAddress(AF_INET).GetPort());
}

TEST(SocketAddressTest, SetPortChangesThePortOnly)
{
    Address address(80, htonl(0x0a0b0c0d));
    address.SetPort(0x1234);
    EXPECT_EQ(InetBytes(0x1234, {10, 11, 12, 13}), Bytes(address, INET_SIZE));
    EXPECT_EQ(16u, address.length);
    EXPECT_EQ(0x1234, address.GetPort());
}

// An address whose family is neither AF_LOCAL nor AF_INET, as a socket of that family reports it.
Address ForeignAddress(unsigned short family)
{
    Address address("something");
    address.address.generic.sa_family = family;
    return address;
}

TEST(SocketAddressTest, ForeignFamilyIsCarriedWithoutText)
{
    EXPECT_EQ(AF_INET6, ForeignAddress(AF_INET6).GetFamily());
    EXPECT_EQ("", ForeignAddress(AF_INET6).AddrToString());
    EXPECT_EQ("", Address::Empty.AddrToString());
}

TEST(SocketAddressTest, PortOfAnyOtherFamilyIs65535)
{
    for (Address const& address : {Address("/run/x"), Address(""), Address::Empty, ForeignAddress(AF_INET6)})
        EXPECT_EQ(65535, address.GetPort());
}

TEST(SocketAddressTest, SetPortChangesNoOtherFamily)
{
    for (Address const& before : {Address("/run/x"), Address(""), Address::Empty, ForeignAddress(AF_INET6)}) {
        Address after = before;
        after.SetPort(8080);
        EXPECT_EQ(Bytes(before), Bytes(after));
        EXPECT_EQ(before.length, after.length);
    }
}

// SetFamily on an address whose bytes are all used.
class SocketAddressSetFamilyTest : public testing::Test
{
protected:
    void SetFamily(int family) { address_.SetFamily(static_cast<unsigned short>(family)); }

    Address const before_{std::string(LONGEST_PATH, 'p')};
    Address address_ = before_;
};

TEST_F(SocketAddressSetFamilyTest, Ipv4EmptiesThe16BytesOfAnIpv4Address)
{
    SetFamily(AF_INET);
    EXPECT_EQ(InetBytes(0, {0, 0, 0, 0}) + Bytes(before_).substr(INET_SIZE), Bytes(address_));
    EXPECT_EQ(16u, address_.length);
}

TEST_F(SocketAddressSetFamilyTest, LocalEmptiesTheStorageButGivesTheIpv4Family)
{
    SetFamily(AF_LOCAL);
    EXPECT_EQ(2, address_.GetFamily());
    EXPECT_EQ(LocalBytes(AF_INET, ""), Bytes(address_));
    EXPECT_EQ(3u, address_.length);
}

TEST_F(SocketAddressSetFamilyTest, AnyOtherChangesNothing)
{
    for (int family : {AF_UNSPEC, AF_INET6, AF_NETLINK, 65535}) {
        SetFamily(family);
        EXPECT_EQ(Bytes(before_), Bytes(address_));
        EXPECT_EQ(before_.length, address_.length);
    }
}

TEST(SocketAddressTest, SetPathReplacesALongerPath)
{
    Address address("/run/a/longer/path");
    address.SetPath("/run/x");
    EXPECT_EQ(LocalBytes(AF_LOCAL, "/run/x"), Bytes(address));
    EXPECT_EQ(9u, address.length);
}

TEST(SocketAddressTest, SetPathPadsThe107BytesThatItOwns)
{
    Address address("");
    std::memset(address.address.local.sun_path, 'x', sizeof(address.address.local.sun_path));
    address.SetPath("ab");
    EXPECT_EQ(LocalBytes(AF_LOCAL, "ab").substr(0, LOCAL_SIZE - 1) + "x", Bytes(address));
    EXPECT_EQ(5u, address.length);
}

TEST(SocketAddressTest, SetPathLeavesTheFamily)
{
    Address address(80, INADDR_ANY);
    address.SetPath("/run/x");
    EXPECT_EQ(LocalBytes(AF_INET, "/run/x"), Bytes(address));
    EXPECT_EQ(9u, address.length);
}

TEST(SocketAddressTest, SetPathOfNothingGivesLength3)
{
    Address address("/run/x");
    address.SetPath("");
    EXPECT_EQ(LocalBytes(AF_LOCAL, ""), Bytes(address));
    EXPECT_EQ(3u, address.length);
}

TEST(SocketAddressTest, EmptyIsAllZero)
{
    ExpectEmptied(Address::Empty);
}

// Both operators, called as what they are: free functions of the namespace.
void ExpectEqual(bool equal, Address const& left, Address const& right)
{
    EXPECT_EQ(equal, tovu::util::operator==(left, right));
    EXPECT_EQ(equal, tovu::util::operator==(right, left));
    EXPECT_EQ(!equal, tovu::util::operator!=(left, right));
    EXPECT_EQ(!equal, tovu::util::operator!=(right, left));
}

TEST(SocketAddressTest, EqualBytesOfEqualLengthAreEqual)
{
    ExpectEqual(true, Address("/run/x"), Address("/run/x"));
    ExpectEqual(true, Address(80, INADDR_ANY), Address(80, INADDR_ANY));
}

TEST(SocketAddressTest, DifferentBytesAreUnequal)
{
    ExpectEqual(false, Address("/run/x"), Address("/run/y"));
    ExpectEqual(false, Address(80, INADDR_ANY), Address(81, INADDR_ANY));
    ExpectEqual(false, Address(80, INADDR_ANY), Address(80, INADDR_BROADCAST));
}

TEST(SocketAddressTest, LastSignificantByteCounts)
{
    Address const left("/run/x");
    Address right = left;
    right.address.local.sun_path[6] = 'y';  // in place of the closing NUL
    ExpectEqual(false, left, right);
}

TEST(SocketAddressTest, BytesBehindTheLengthDoNotCount)
{
    Address const left("/run/x");
    Address right = left;
    right.address.local.sun_path[7] = 'y';
    ExpectEqual(true, left, right);
}

TEST(SocketAddressTest, EqualBytesOfDifferentLengthAreUnequal)
{
    Address const left("/run/x");
    Address right = left;
    --right.length;
    ExpectEqual(false, left, right);
}

TEST(SocketAddressTest, EmptyEqualsEveryAddressOfLength0)
{
    Address address("/run/x");
    ExpectEqual(false, Address::Empty, address);
    address.length = 0;
    ExpectEqual(true, Address::Empty, address);
}

// A resolver that answers with the given results, and sees to it that each list is freed once.
class FakeResolver
{
public:
    // A result is an IPv4 address as text, "::1" for one of IPv6, or null for one without an address.
    explicit FakeResolver(std::vector<char const*> const& results, int answer = 0)
        : answer_(answer),
          lookup_(getaddrinfoCall, [this](char const* node, char const* service, addrinfo const* wanted,
                                          addrinfo** list) { return Lookup(node, service, wanted, list); }),
          release_(freeaddrinfoCall, [this](addrinfo* list) { Release(list); })
    {
        for (char const* result : results)
            Append(result);
    }

    ~FakeResolver() { EXPECT_EQ(chain_.empty() || answer_ < 0 ? 0 : lookups_, releases_); }

    static constexpr char FILLER = 'z';  // what stands in the unused bytes of each IPv4 result

    std::string host;
    addrinfo hints = {};

private:
    struct Result
    {
        addrinfo info;
        sockaddr_storage address;
    };

    void Append(char const* text)
    {
        chain_.emplace_back();
        Result& result = chain_.back();
        result = {};
        if (text != nullptr) {
            sockaddr_in inet = {};
            inet.sin_family = inet_aton(text, &inet.sin_addr) == 1 ? AF_INET : AF_INET6;
            inet.sin_port = htons(7);
            std::memset(inet.sin_zero, FILLER, sizeof(inet.sin_zero));
            std::memcpy(&result.address, &inet, sizeof(inet));
            result.info.ai_family = inet.sin_family;
            result.info.ai_addr = reinterpret_cast<sockaddr*>(&result.address);
        }
        if (chain_.size() > 1)
            chain_[chain_.size() - 2].info.ai_next = &result.info;
    }

    int Lookup(char const* node, char const* service, addrinfo const* wanted, addrinfo** list)
    {
        ++lookups_;
        host = node;
        hints = *wanted;
        EXPECT_EQ(nullptr, service);
        *list = chain_.empty() ? nullptr : &chain_.front().info;
        errno = ENOANO;
        return answer_;
    }

    void Release(addrinfo const* list)
    {
        if (list == nullptr)
            return;
        EXPECT_EQ(&chain_.front().info, list);
        ++releases_;
    }

    int answer_;
    std::deque<Result> chain_;
    int lookups_ = 0;
    int releases_ = 0;
    decltype(getaddrinfoCall)::Replacement lookup_;
    decltype(freeaddrinfoCall)::Replacement release_;
};

Address Resolve(std::string const& host, int family)
{
    return MakeOnUsedMemory(static_cast<unsigned short>(8080), host, static_cast<unsigned short>(family));
}

// What the resolver answers, and the IPv4 address that is made of it: none when `ipAddress` is empty.
struct Resolution
{
    char const* name;
    int family;
    std::vector<char const*> results;
    std::vector<unsigned char> ipAddress;
};

class SocketAddressResolutionTest : public testing::TestWithParam<Resolution>
{
protected:
    static void ExpectResolved(Address const& address)
    {
        if (GetParam().ipAddress.empty())
            return ExpectEmptied(address);
        std::string const used = InetBytes(8080, GetParam().ipAddress).substr(0, 8);
        EXPECT_EQ(used + std::string(8, FakeResolver::FILLER), Bytes(address, INET_SIZE));
        EXPECT_EQ(16u, address.length);
    }
};

TEST_P(SocketAddressResolutionTest, CopiesTheRightResult)
{
    FakeResolver const resolver(GetParam().results);
    ExpectResolved(Resolve("storage", GetParam().family));
}

TEST_P(SocketAddressResolutionTest, PositiveAnswerCountsAsSuccess)
{
    FakeResolver const resolver(GetParam().results, 1);
    ExpectResolved(Resolve("storage", GetParam().family));
}

INSTANTIATE_TEST_SUITE_P(
    Results, SocketAddressResolutionTest,
    testing::Values(Resolution{"FirstOfTwo", AF_UNSPEC, {"10.0.0.1", "10.0.0.2"}, {10, 0, 0, 1}},
                    Resolution{"FirstIpv4AskedForIpv4", AF_INET, {"10.0.0.1", "::1"}, {10, 0, 0, 1}},
                    Resolution{"FirstIpv4AskedForIpv6", AF_INET6, {"10.0.0.1"}, {10, 0, 0, 1}},
                    Resolution{"FirstIpv4AskedForLocal", AF_LOCAL, {"10.0.0.1"}, {10, 0, 0, 1}},
                    Resolution{"SecondAskedForAnything", AF_UNSPEC, {"::1", "10.0.0.2", "10.0.0.3"}, {10, 0, 0, 2}},
                    Resolution{"SecondAskedForIpv4", AF_INET, {"::1", "10.0.0.2", "10.0.0.3"}, {10, 0, 0, 2}},
                    Resolution{"Last", AF_UNSPEC, {"::1", "::1", "::1", "10.0.0.4"}, {10, 0, 0, 4}},
                    Resolution{"NoneAskedForIpv6", AF_INET6, {"::1", "10.0.0.2"}, {}},
                    Resolution{"NoneAskedForLocal", AF_LOCAL, {"::1", "10.0.0.2"}, {}},
                    Resolution{"NoneOfIpv6Only", AF_UNSPEC, {"::1", "::1"}, {}},
                    Resolution{"NoneOfIpv6OnlyAskedForIpv4", AF_INET, {"::1"}, {}},
                    Resolution{"NoneOfNoResults", AF_UNSPEC, {}, {}},
                    Resolution{"NoneWithoutAFirstAddress", AF_UNSPEC, {nullptr, "10.0.0.2"}, {}}),
    ParameterName());

TEST(SocketAddressTest, ResolverIsAskedForTheHostAndFamilyOnly)
{
    for (int family : {AF_UNSPEC, AF_INET, AF_INET6}) {
        FakeResolver const resolver({"10.0.0.1"});
        Resolve("storage", family);
        EXPECT_EQ("storage", resolver.host);
        EXPECT_EQ(family, resolver.hints.ai_family);
        EXPECT_EQ(0, resolver.hints.ai_flags | resolver.hints.ai_socktype | resolver.hints.ai_protocol);
        EXPECT_EQ(0u, resolver.hints.ai_addrlen);
        EXPECT_EQ(nullptr, resolver.hints.ai_addr);
        EXPECT_EQ(nullptr, resolver.hints.ai_canonname);
        EXPECT_EQ(nullptr, resolver.hints.ai_next);
    }
}

TEST(SocketAddressTest, NegativeAnswerThrowsTheErrnoText)
{
    for (int answer : {EAI_NONAME, EAI_AGAIN, EAI_SYSTEM}) {
        FakeResolver const resolver({}, answer);
        EXPECT_EQ(Failure(ENOANO, {"src/util/Socket.cpp"}), FailureOf([] { Resolve("storage", AF_INET); }));
    }
}

TEST(SocketAddressTest, HostMayBeANumber)
{
    EXPECT_EQ(InetBytes(8080, {192, 168, 0, 23}), Bytes(Resolve("192.168.0.23", AF_INET), INET_SIZE));
    EXPECT_EQ(InetBytes(8080, {192, 168, 0, 23}), Bytes(Resolve("192.168.0.23", AF_UNSPEC), INET_SIZE));
    EXPECT_EQ(16u, Resolve("192.168.0.23", AF_UNSPEC).length);
}

TEST(SocketAddressTest, LocalhostIsTheLoopbackAddress)
{
    EXPECT_EQ(test::Loopback(8080), Resolve("localhost", AF_INET));
    EXPECT_EQ(test::Loopback(8080), Resolve("localhost", AF_UNSPEC));
}

TEST(SocketAddressTest, Ipv6NumberHasNoIpv4Address)
{
    ExpectEmptied(Resolve("::1", AF_UNSPEC));
    ExpectEmptied(Resolve("::1", AF_INET6));
}

// Expects that the C library's resolver refuses the host, and that the text is of the `errno` that it leaves.
void ExpectUnknownHost(std::string const& host, int family)
{
    int answer = 0;
    int error = 0;
    decltype(getaddrinfoCall)::Replacement const watched(
        getaddrinfoCall, [&](char const* node, char const* service, addrinfo const* hints, addrinfo** list) {
            errno = ENOANO;
            answer = getaddrinfoCall.System(node, service, hints, list);
            error = errno;
            return answer;
        });
    std::string const failure = FailureOf([&] { Resolve(host, family); });
    EXPECT_LT(answer, 0);
    EXPECT_EQ(Failure(error, {"src/util/Socket.cpp"}), failure);
    EXPECT_EQ(std::string::npos, failure.find(gai_strerror(answer)));
}

TEST(SocketAddressTest, NumberOfTheOtherFamilyIsUnknown)
{
    ExpectUnknownHost("::1", AF_INET);
    ExpectUnknownHost("127.0.0.1", AF_INET6);
}

TEST(SocketAddressTest, UnknownHostThrowsTheErrnoText)
{
    test::ExpectPassesInChildOrSkips([] {
        test::EnterOwnNetwork();  // where no name server answers
        ExpectUnknownHost("no-such-host.invalid", AF_INET);
        ExpectUnknownHost("no-such-host.invalid", AF_UNSPEC);
    });
}

Address MakeInNetwork(std::string const& network, unsigned int host)
{
    return MakeOnUsedMemory(static_cast<unsigned short>(0x1234), network, host);
}

// A network's number as the system knows it, a host number, and the address that the two make.
struct NetworkHost
{
    char const* name;
    uint32_t network;
    unsigned int host;
    std::vector<unsigned char> ipAddress;
};

class SocketAddressNetworkTest : public testing::TestWithParam<NetworkHost>
{};

TEST_P(SocketAddressNetworkTest, JoinsNetworkAndHost)
{
    std::string asked;
    netent entry = {};
    entry.n_net = GetParam().network;
    decltype(getnetbynameCall)::Replacement const known(getnetbynameCall, [&](char const* name) {
        asked = name;
        return &entry;
    });

    Address const address = MakeInNetwork("storage", GetParam().host);
    EXPECT_EQ("storage", asked);
    EXPECT_EQ(InetBytes(0x1234, GetParam().ipAddress), Bytes(address, INET_SIZE));
    EXPECT_EQ(16u, address.length);
}

INSTANTIATE_TEST_SUITE_P(Networks, SocketAddressNetworkTest,
                         testing::Values(NetworkHost{"OneByte", 10, 0x010203, {10, 1, 2, 3}},
                                         NetworkHost{"TwoBytes", 0xac10, 0x0203, {172, 16, 2, 3}},
                                         NetworkHost{"ThreeBytes", 0xc0a817, 3, {192, 168, 23, 3}},
                                         NetworkHost{"FourBytes", 0x0a141e00, 7, {10, 20, 30, 7}}),
                         ParameterName());

TEST(SocketAddressTest, UnknownNetworkThrowsTheErrnoText)
{
    decltype(getnetbynameCall)::Replacement const unknown(getnetbynameCall, [](char const*) -> netent* {
        errno = ENOANO;
        return nullptr;
    });
    EXPECT_EQ(Failure(ENOANO, {"src/util/Socket.cpp"}), FailureOf([] { MakeInNetwork("storage", 7); }));
}

// Expects that the C library does not know the network, and that the text is of the `errno` that it leaves.
void ExpectUnknownNetwork(std::string const& network)
{
    int error = 0;
    decltype(getnetbynameCall)::Replacement const watched(getnetbynameCall, [&](char const* name) {
        netent* const entry = getnetbynameCall.System(name);
        error = errno;
        return entry;
    });
    std::string const failure = FailureOf([&] { MakeInNetwork(network, 7); });
    EXPECT_EQ(Failure(error, {"src/util/Socket.cpp"}), failure);
}

TEST(SocketAddressTest, NetworksComeFromTheSystem)
{
    test::ExpectPassesInChildOrSkips([] {
        if (!test::EnterMountNamespace() || !test::EnterNamespace(CLONE_NEWNET))
            test::SkipFromChild("this machine gives a process no mounts and network of its own");
        test::TemporaryDirectory const folder;
        test::WriteFile(folder / "networks", "storage 10.20.30.0\n");
        if (mount((folder / "networks").c_str(), "/etc/networks", "none", MS_BIND, nullptr) == -1)
            test::SkipFromChild("this machine has no /etc/networks to put a file over");

        EXPECT_EQ("10.20.30.7", MakeInNetwork("storage", 7).AddrToString());
        EXPECT_EQ(0x1234, MakeInNetwork("storage", 7).GetPort());
        ExpectUnknownNetwork("no-such-network");
    });
}

}}}  // namespace tovu::util

extern "C" int getaddrinfo(char const* host, char const* service, addrinfo const* hints, addrinfo** list)
{
    return tovu::util::getaddrinfoCall(host, service, hints, list);
}

extern "C" void freeaddrinfo(addrinfo* list) noexcept
{
    tovu::util::freeaddrinfoCall(list);
}

extern "C" netent* getnetbyname(char const* name)
{
    return tovu::util::getnetbynameCall(name);
}
