#pragma once

#include "tovu/util/BroadcastSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"

namespace tovu { namespace util {

/// Receives datagrams on a port, with their senders' addresses, and cannot send any.
/// \code
///     ServerBroadcastSocket socket(Socket::Address(4711, INADDR_ANY), true);
///     char datagram[1500];
///     Socket::Address sender(static_cast<unsigned short>(AF_INET));
///     socket.Read(datagram, sizeof(datagram), sender);
/// \endcode
///
/// IsDataAvailable tells the size of the next datagram. It is false for an empty one, which stays queued, and a selector
/// finds the socket ready, until it is read.
///
/// Ownership, threads, errors: as Socket.
class ServerBroadcastSocket : public BroadcastSocket
{
public:
    /// Binds to the address. The port is not shared: a second receiver fails with the text of EADDRINUSE. A failure to
    /// bind carries this constructor in its trail. A local address is refused: "address.sa_family == AF_LOCAL".
    ServerBroadcastSocket(Address const& address, bool blocking);
    ~ServerBroadcastSocket() noexcept override;

    /// Receives one datagram, and forgets who sent it.
    int Read(void* buffer, unsigned int length) override;

    /// Receives one datagram, see recvfrom(2), and its sender's address; of one longer than `length` the rest is lost.
    /// On entry `from.length` says how much room there is, as in an address that was made for the family AF_INET.
    /// \return The number of bytes received; 0 for an empty datagram.
    int Read(void* buffer, unsigned int length, Address& from);

    /// Refused: always throws "ServerBroadcastSocket can't Write.".
    int Write(void const* /*buffer*/, unsigned int /*length*/) override
    {
        throw Exception(__FILE__, __LINE__, FormatString("%s", "ServerBroadcastSocket can't Write."));
    }
};

}}  // namespace tovu::util
