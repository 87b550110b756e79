#include "tovu/util/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>

#include "DestructorGuard.h"
#include "HostName.h"
#include "tovu/util/Exception.h"

namespace tovu { namespace util {

namespace {

constexpr std::size_t INTERFACE_RECORDS_SIZE = 4096;

// The longest path that Address keeps; one byte of the field is left for the closing NUL.
constexpr std::size_t MAXIMUM_PATH = sizeof(sockaddr_un::sun_path) - 1;

// What the length of a local address counts on top of its path: the family and the closing NUL.
constexpr socklen_t LOCAL_OVERHEAD = offsetof(sockaddr_un, sun_path) + 1;

void SetFlag(int descriptor, int option, bool value)
{
    int const number = value ? 1 : 0;
    if (setsockopt(descriptor, SOL_SOCKET, option, &number, sizeof(number)) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

int GetOption(int descriptor, int option)
{
    int number = 0;
    socklen_t size = sizeof(number);
    if (getsockopt(descriptor, SOL_SOCKET, option, &number, &size) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return number;
}

void QueryInterface(Socket const& socket, unsigned long request, ifreq& record)
{
    if (ioctl(socket.GetDescriptor(), request, &record) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

std::string Ipv4Text(sockaddr const& address)
{
    sockaddr_in inet;
    std::memcpy(&inet, &address, sizeof(inet));
    return inet_ntoa(inet.sin_addr);  // NOLINT(concurrency-mt-unsafe): glibc keeps one buffer for each thread
}

// Comes back once the record's family word is AF_INET. While it is anything else nothing can change it: the loop spins,
// and reading through volatile keeps the compiler from removing it.
void AwaitInetFamily(ifreq const& record)
{
    sa_family_t const volatile& family = record.ifr_addr.sa_family;
    while (family != AF_INET)
        continue;  // cppcheck-suppress redundantContinue ; stands for an empty body
}

}  // namespace

Socket::Socket(int domain, int type, int protocol) : descriptor_(socket(domain, type, protocol))
{
    if (descriptor_ == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

Socket::Socket(int descriptor) : descriptor_(descriptor) {}

Socket::~Socket() noexcept
{
    try {
        Socket::Close();
    } catch (...) {
        internal::LogDestructorFailure(__FILE__, __LINE__);
    }
}

bool Socket::IsOpen() const
{
    return descriptor_ != -1;
}

void Socket::Close()
{
    if (!IsOpen())  // NOLINT(clang-analyzer-optin.cplusplus.VirtualCall): a destructor means its own class's
        return;

    if (close(descriptor_) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    descriptor_ = -1;
}

bool Socket::Flush()
{
    return IsOpen();
}

bool Socket::IsDataAvailable(unsigned long long* count)
{
    int waiting = 0;
    if (ioctl(descriptor_, FIONREAD, &waiting) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    if (count != nullptr)
        *count = static_cast<unsigned>(waiting);
    return waiting != 0;
}

int Socket::Read(void* buffer, unsigned int length)
{
    ssize_t const received = recv(descriptor_, buffer, length, 0);
    if (received == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(received);
}

int Socket::Write(void const* buffer, unsigned int length)
{
    ssize_t const sent = send(descriptor_, buffer, length, 0);
    if (sent == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(sent);
}

void Socket::Bind(Address const& address)
{
    if (bind(descriptor_, &address.address.generic, address.length) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

void Socket::SetBlocking(bool blocking)
{
    int nonBlocking = blocking ? 0 : 1;
    if (ioctl(descriptor_, FIONBIO, &nonBlocking) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

bool Socket::IsBlocking() const
{
    int const flags = fcntl(descriptor_, F_GETFL);
    if (flags == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return (flags & O_NONBLOCK) != 0;
}

void Socket::SetBroadcast(bool broadcast)
{
    SetFlag(descriptor_, SO_BROADCAST, broadcast);
}

bool Socket::IsBroadcast() const
{
    return GetOption(descriptor_, SO_BROADCAST) == 1;
}

void Socket::SetReuseAddress(bool reuse)
{
    SetFlag(descriptor_, SO_REUSEADDR, reuse);
}

bool Socket::IsReuseAddress() const
{
    return GetOption(descriptor_, SO_REUSEADDR) == 1;
}

void Socket::GetInfo(int& family, int& type, int& protocol) const
{
    Address address(AF_UNSPEC);
    address.length = sizeof(address.address);
    if (getsockname(descriptor_, &address.address.generic, &address.length) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    family = address.GetFamily();
    type = GetOption(descriptor_, SO_TYPE);
    protocol = 0;
}

namespace {

// The address of one side, as getsockname or getpeername tells it.
Socket::Address AskForAddress(Socket const& socket, int (*ask)(int, sockaddr*, socklen_t*))
{
    int family = AF_UNSPEC;
    int type = 0;
    int protocol = 0;
    socket.GetInfo(family, type, protocol);

    Socket::Address address(static_cast<unsigned short>(family));
    address.length = sizeof(address.address);
    if (ask(socket.GetDescriptor(), &address.address.generic, &address.length) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return address;
}

}  // namespace

Socket::Address Socket::GetPeerAddress() const
{
    return AskForAddress(*this, &getpeername);
}

Socket::Address Socket::GetHostAddress() const
{
    return AskForAddress(*this, &getsockname);
}

std::string Socket::GetHostName()
{
    char name[internal::HOST_NAME_SIZE];
    internal::ReadHostName(name);
    return name;
}

bool Socket::IsConnected() const
{
    ssize_t received = 0;
    {
        SetSocketNonBlocking guard(*this);
        char byte = 0;
        received = recv(descriptor_, &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT);
    }
    return received != 0;
}

void Socket::GetInterfaces(std::vector<InterfaceInfo>& interfaces)
{
    Socket const query(AF_INET, SOCK_DGRAM, 0);

    union
    {
        char bytes[INTERFACE_RECORDS_SIZE];
        ifreq first;
    } records = {};
    ifconf list = {};
    list.ifc_len = sizeof(records.bytes);
    list.ifc_buf = records.bytes;
    if (ioctl(query.GetDescriptor(), SIOCGIFCONF, &list) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    if (list.ifc_len == 0)
        return;

    // The cursor stays at the first record: after one pass its family word holds the interface's flags. And the second
    // record, used for the broadcast and the destination address, never gets the interface's name. Kept so: nobody may
    // depend on this operation coming back.
    ifreq& record = records.first;
    ifreq addressQuery = {};
    for (;;) {
        AwaitInetFamily(record);

        InterfaceInfo interface;
        interface.name.assign(record.ifr_name, strnlen(record.ifr_name, sizeof(record.ifr_name)));
        interface.ipAddress = Ipv4Text(record.ifr_addr);

        QueryInterface(query, SIOCGIFFLAGS, record);
        interface.isUp = (record.ifr_flags & IFF_UP) != 0;
        if (interface.isUp && (record.ifr_flags & IFF_BROADCAST) != 0) {
            QueryInterface(query, SIOCGIFBRDADDR, addressQuery);
            interface.broadcastAddress = Ipv4Text(addressQuery.ifr_broadaddr);
        }
        if (interface.isUp && (record.ifr_flags & IFF_POINTOPOINT) != 0) {
            QueryInterface(query, SIOCGIFDSTADDR, addressQuery);
            interface.destinationAddress = Ipv4Text(addressQuery.ifr_dstaddr);
        }
        interfaces.push_back(interface);
    }
}

Socket::Address const Socket::Address::Empty(static_cast<unsigned short>(AF_UNSPEC));

Socket::Address::Address(std::string const& path) : address(), length(0)
{
    address.local.sun_family = AF_LOCAL;
    SetPath(path);
}

Socket::Address::Address(unsigned short family) noexcept : address(), length(0)
{
    switch (family) {
        case AF_LOCAL:
            address.local.sun_family = AF_LOCAL;
            length = LOCAL_OVERHEAD;
            break;
        case AF_INET:
            address.inet.sin_family = AF_INET;
            length = sizeof(address.inet);
            break;
        default:
            break;
    }
}

Socket::Address::Address(unsigned short port, unsigned int ipAddress) : Address(static_cast<unsigned short>(AF_INET))
{
    address.inet.sin_addr.s_addr = ipAddress;
    SetPort(port);
}

Socket::Address::Address(unsigned short port, std::string const& host, unsigned short family) : address(), length(0)
{
    addrinfo hints = {};
    hints.ai_family = family;
    addrinfo* first = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &first) < 0)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> const results(first, &freeaddrinfo);
    if (first == nullptr || first->ai_addr == nullptr)
        return;

    // Results behind the first count only for a caller who asked for IPv4 or for anything.
    addrinfo const* result = first;
    bool const walk = family == AF_UNSPEC || family == AF_INET;
    while (result != nullptr && result->ai_addr->sa_family != AF_INET)
        result = walk ? result->ai_next : nullptr;
    if (result == nullptr)
        return;

    std::memcpy(&address.inet, result->ai_addr, sizeof(address.inet));
    length = sizeof(address.inet);
    SetPort(port);
}

Socket::Address::Address(unsigned short port, std::string const& network, unsigned int host) : address(), length(0)
{
    // Networks are looked up while a program starts, if at all.
    // cppcheck-suppress getnetbynameCalled ; see above
    // NOLINTNEXTLINE(concurrency-mt-unsafe): see above
    netent const* const entry = getnetbyname(network.c_str());
    if (entry == nullptr)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    address.inet.sin_family = AF_INET;
    address.inet.sin_addr = inet_makeaddr(entry->n_net, host);
    length = sizeof(address.inet);
    SetPort(port);
}

std::string Socket::Address::AddrToString() const
{
    if (GetFamily() == AF_INET) {
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &address.inet.sin_addr, text, sizeof(text));
        return text;
    }
    if (GetFamily() == AF_LOCAL)
        return std::string(address.local.sun_path, strnlen(address.local.sun_path, sizeof(address.local.sun_path)));
    return std::string();
}

unsigned short Socket::Address::GetPort() const
{
    return GetFamily() == AF_INET ? ntohs(address.inet.sin_port) : 65535;
}

void Socket::Address::SetPort(unsigned short port)
{
    if (GetFamily() == AF_INET)
        address.inet.sin_port = htons(port);
}

void Socket::Address::SetFamily(unsigned short family)
{
    switch (family) {
        case AF_INET:
            address.inet = sockaddr_in();
            address.inet.sin_family = AF_INET;
            length = sizeof(address.inet);
            break;
        case AF_LOCAL:
            address.local = sockaddr_un();
            address.local.sun_family = AF_INET;  // not AF_LOCAL: the constructor is the way to make a local address
            length = LOCAL_OVERHEAD;
            break;
        default:
            break;
    }
}

void Socket::Address::SetPath(std::string const& path)
{
    std::strncpy(address.local.sun_path, path.c_str(), MAXIMUM_PATH);
    length = LOCAL_OVERHEAD + static_cast<socklen_t>(strnlen(address.local.sun_path, MAXIMUM_PATH));
}

bool operator==(Socket::Address const& left, Socket::Address const& right)
{
    return left.length == right.length && std::memcmp(&left.address, &right.address, left.length) == 0;
}

bool operator!=(Socket::Address const& left, Socket::Address const& right)
{
    return !(left == right);
}

TenantSocket::TenantSocket(int descriptor) : Socket(descriptor) {}

TenantSocket::~TenantSocket() noexcept
{
    ReleaseDescriptor();
}

SetSocketNonBlocking::SetSocketNonBlocking(Socket const& socket)
    : view_(socket.GetDescriptor()), wasBlocking_(view_.IsBlocking())
{
    if (wasBlocking_)
        view_.SetBlocking(false);
}

SetSocketNonBlocking::~SetSocketNonBlocking()
{
    try {
        if (wasBlocking_)
            view_.SetBlocking(true);
    } catch (...) {
        internal::LogDestructorFailure(__FILE__, __LINE__);
    }
}

}}  // namespace tovu::util
