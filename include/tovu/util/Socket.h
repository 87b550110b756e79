#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <vector>

#include "tovu/util/Stream.h"

namespace tovu { namespace util {

/// A BSD socket as a Stream, with its settings and queries.
/// \code
///     Socket socket(AF_INET, SOCK_STREAM, 0);
///     socket.SetReuseAddress(true);
///     socket.Bind(Socket::Address(4711, INADDR_ANY));
/// \endcode
///
/// Ownership: owns its descriptor; not copyable. The destructor closes it and logs a failure instead of throwing.
/// Threads: one thread at a time.
/// Errors: a failed system call throws Exception with the text of `errno`. After Close every operation but
///     IsOpen, Close and Flush throws that of EBADF.
class Socket : public Stream
{
public:
    class Address;
    struct InterfaceInfo;

    /// Makes a socket, see socket(2).
    Socket(int domain, int type, int protocol);

    /// Adopts a descriptor; -1 makes a closed Socket.
    explicit Socket(int descriptor);

    Socket(Socket const&) = delete;
    Socket& operator=(Socket const&) = delete;
    ~Socket() noexcept override;

    bool IsOpen() const override;

    /// See close(2). When that fails the Socket keeps its descriptor.
    void Close() override;

    /// Does nothing: a socket has nothing to push.
    bool Flush() override;

    /// Stores the number of bytes waiting, and returns whether that is not 0. See FIONREAD in tcp(7) and unix(7).
    bool IsDataAvailable(unsigned long long* count) override;

    /// One recv(2). Returns 0 once the peer has shut its side down. An interrupted call throws.
    int Read(void* buffer, unsigned int length) override;

    /// One send(2) without flags.
    /// \return The number of bytes taken, which may be less than `length` in non-blocking mode, or when a signal
    ///         interrupts the call. Writing to a broken connection raises SIGPIPE unless the process ignores it.
    int Write(void const* buffer, unsigned int length) override;

    /// See bind(2).
    void Bind(Address const& address);

    /// Switches to blocking mode, or with false to non-blocking mode.
    void SetBlocking(bool blocking);

    /// True for a socket in non-blocking mode: the sense is the reverse of the name, and callers count on it
    /// (see ClientSocket::Connect and SetSocketNonBlocking).
    bool IsBlocking() const;

    /// SO_BROADCAST of socket(7).
    void SetBroadcast(bool broadcast);

    /// SO_BROADCAST of socket(7).
    bool IsBroadcast() const;

    /// SO_REUSEADDR of socket(7).
    void SetReuseAddress(bool reuse);

    /// SO_REUSEADDR of socket(7).
    bool IsReuseAddress() const;

    /// Asks for the address family and the type (SOCK_STREAM, ...). `protocol` is always set to 0.
    void GetInfo(int& family, int& type, int& protocol) const;

    /// The address of the other side, see getpeername(2).
    Address GetPeerAddress() const;

    /// The address of this side, see getsockname(2).
    Address GetHostAddress() const;

    /// The machine's name, see gethostname(2). The call's result is not checked.
    static std::string GetHostName();

    /// False when a read would return 0, as it does once the peer has shut its side down and everything it sent was
    /// read, or before an empty datagram. True in every other case, also when the question fails. Consumes nothing. A
    /// socket in non-blocking mode is in blocking mode afterwards, see SetSocketNonBlocking.
    bool IsConnected() const;

    /// Appends the machine's IPv4 interfaces, see netdevice(7). Do not call it: it only returns on a machine without
    /// any. With one or more it throws, or it never ends, because it looks at the first one again and again.
    static void GetInterfaces(std::vector<InterfaceInfo>& interfaces);

    /// The descriptor, still owned by the Socket; -1 when closed.
    int GetDescriptor() const { return descriptor_; }

protected:
    /// Gives the descriptor up without closing it: the Socket is closed afterwards.
    void ReleaseDescriptor() noexcept { descriptor_ = -1; }

private:
    int descriptor_;  // -1 when closed
};

/// One socket address, local (a path) or IPv4 (address and port): a plain value.
/// \code
///     Socket::Address const local("/run/volumed.sock");
///     Socket::Address const server(4711, htonl(INADDR_LOOPBACK));
///     std::string const text = server.AddrToString();  // "127.0.0.1"
/// \endcode
///
/// Threads: as any value.
/// Errors: the two constructors that look a name up throw Exception; nothing else does.
class Socket::Address
{
public:
    /// Room for one address, read by its family.
    /// \code
    ///     bool IsLoopback(Socket::Address::Storage const& address)
    ///     {
    ///         return address.generic.sa_family == AF_INET &&
    ///                address.inet.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
    ///     }
    /// \endcode
    union Storage
    {
        sockaddr generic;   ///< Any family: the family itself.
        sockaddr_in inet;   ///< AF_INET, see ip(7).
        sockaddr_un local;  ///< AF_LOCAL, see unix(7).
    };

    /// A local address. At most 107 characters of the path are kept. `length` counts the closing NUL.
    explicit Address(std::string const& path);

    /// An empty address of a family, AF_LOCAL or AF_INET. Any other gives family 0 and length 0.
    explicit Address(unsigned short family) noexcept;

    /// An IPv4 address. `port` is in host byte order, `ipAddress` in network byte order, for example INADDR_ANY.
    Address(unsigned short port, unsigned int ipAddress);

    /// The first IPv4 address of a host, see getaddrinfo(3), asked for with the family AF_UNSPEC or AF_INET. Family 0
    /// and length 0 when it has none. Throws the text of the current `errno`, not the resolver's, for an unknown host.
    Address(unsigned short port, std::string const& host, unsigned short family);

    /// A host number in a network named in networks(5). Throws the text of the current `errno` for an unknown network.
    Address(unsigned short port, std::string const& network, unsigned int host);

    /// The family 0 address of length 0.
    static Address const Empty;

    /// AF_LOCAL or AF_INET; 0 for an empty address.
    unsigned short GetFamily() const { return address.generic.sa_family; }

    /// "127.0.0.1" without the port, the path of a local address, nothing for any other family.
    std::string AddrToString() const;

    /// The port in host byte order; 65535 for any family but AF_INET.
    unsigned short GetPort() const;

    /// Sets the port, in host byte order. Nothing happens for any family but AF_INET.
    void SetPort(unsigned short port);

    /// Empties the address. AF_INET makes it an IPv4 address; AF_LOCAL gives length 3, but family AF_INET: callers rely
    /// on the difference from the constructor. Any other family changes nothing.
    void SetFamily(unsigned short family);

    /// Sets the path, at most 107 characters of it, and the length. The family stays.
    void SetPath(std::string const& path);

    Storage address;   ///< The address; of AF_INET both parts are in network byte order.
    socklen_t length;  ///< How many bytes of `address` count.
};

/// True when both lengths are equal and that many bytes are. An address of length 0 equals any other of length 0.
/// \relates Socket::Address
bool operator==(Socket::Address const& left, Socket::Address const& right);

/// The opposite of ==.
/// \relates Socket::Address
bool operator!=(Socket::Address const& left, Socket::Address const& right);

/// One network interface, as Socket::GetInterfaces reports it. Addresses are dotted decimal text.
/// \code
///     Socket::InterfaceInfo loopback;
///     loopback.name = "lo";
///     loopback.ipAddress = "127.0.0.1";
///     loopback.isUp = true;
/// \endcode
struct Socket::InterfaceInfo
{
    std::string name;              ///< "eth0"
    std::string ipAddress;         ///< Its IPv4 address.
    bool isUp = false;             ///< True for an interface that is up.
    std::string broadcastAddress;  ///< Empty unless it is up and has one.
    std::string
        destinationAddress;  ///< The other end of a point-to-point interface; empty unless it is up and has one.
};

/// A Socket over a descriptor that somebody else owns.
/// \code
///     #include <unistd.h>
///     TenantSocket input(STDIN_FILENO);  // of a service that inetd(8) has started
///     unsigned long long waiting = 0;
///     input.IsDataAvailable(&waiting);
/// \endcode
///
/// Ownership: borrows the descriptor; destruction does not close it. Close, called explicitly, does.
/// Threads and errors: as Socket.
class TenantSocket : public Socket
{
public:
    /// Borrows a descriptor; -1 makes a closed Socket.
    explicit TenantSocket(int descriptor);
    ~TenantSocket() noexcept override;
};

/// Remembers a socket's mode for the length of a scope.
/// \code
///     Socket socket(AF_INET, SOCK_DGRAM, 0);
///     socket.SetBlocking(false);
///     {
///         SetSocketNonBlocking const guard(socket);
///     }
///     socket.IsBlocking();  // false: the socket is in blocking mode now
/// \endcode
///
/// Because Socket::IsBlocking is true for a socket in non-blocking mode, the guard works the other way round than its
/// name: a socket in blocking mode is left alone, one in non-blocking mode is in blocking mode when the scope ends.
///
/// Ownership: borrows the socket's descriptor.
/// Threads: as the socket.
/// Errors: the constructor throws Exception like Socket::IsBlocking; the destructor logs a failure instead.
class SetSocketNonBlocking
{
public:
    /// Asks for the mode, and changes nothing yet.
    explicit SetSocketNonBlocking(Socket const& socket);
    SetSocketNonBlocking(SetSocketNonBlocking const&) = delete;
    SetSocketNonBlocking& operator=(SetSocketNonBlocking const&) = delete;
    ~SetSocketNonBlocking();

private:
    TenantSocket view_;
    bool wasBlocking_;  // what IsBlocking said at the start
};

}}  // namespace tovu::util
