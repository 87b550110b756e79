#pragma once

#include "tovu/util/BroadcastSocket.h"
#include "tovu/util/Exception.h"
#include "tovu/util/Format.h"

namespace tovu { namespace util {

/// Sends datagrams to one address, usually a broadcast address, and cannot receive any.
/// \code
///     ClientBroadcastSocket socket(Socket::Address(4711, INADDR_BROADCAST), true);
///     socket.Write("<Discover/>", 11);
/// \endcode
///
/// Ownership, threads, errors: as Socket.
class ClientBroadcastSocket : public BroadcastSocket
{
public:
    /// The system picks the port to send from when the first datagram is sent. A failure to permit broadcasts carries
    /// this constructor in its trail.
    ClientBroadcastSocket(Address const& address, bool blocking);
    ~ClientBroadcastSocket() noexcept override;

    /// Refused: always throws "ClientBroadcastSocket can't Read.".
    int Read(void* /*buffer*/, unsigned int /*length*/) override
    {
        throw Exception(__FILE__, __LINE__, FormatString("%s", "ClientBroadcastSocket can't Read."));
    }

    /// Sends one datagram, see sendto(2) and the limits in udp(7).
    /// \return The number of bytes sent: all of them.
    int Write(void const* buffer, unsigned int length) override;
};

}}  // namespace tovu::util
