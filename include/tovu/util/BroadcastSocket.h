#pragma once

#include "tovu/util/Socket.h"

namespace tovu { namespace util {

/// A datagram socket and the address that it was made for: what ClientBroadcastSocket and ServerBroadcastSocket have in
/// common.
/// \code
///     BroadcastSocket socket(Socket::Address(4711, INADDR_ANY), true);
///     socket.Bind(Socket::Address(4711, INADDR_ANY));  // the constructor does not bind
/// \endcode
///
/// Ownership, threads, errors: as Socket.
class BroadcastSocket : public Socket
{
public:
    /// Makes a datagram socket of the address's family and keeps a copy of the address. With `blocking` false the socket
    /// is in non-blocking mode; a failure of that carries this constructor in its trail.
    BroadcastSocket(Address const& address, bool blocking);
    ~BroadcastSocket() noexcept override;

protected:
    /// The address that was given to the constructor.
    Address const& GetAddress() const { return address_; }

private:
    Address address_;
};

}}  // namespace tovu::util
