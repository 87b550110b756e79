#pragma once

#include "tovu/util/Socket.h"

namespace tovu { namespace util {

/// A stream socket that connects when it is made, to a local or an IPv4 address.
/// \code
///     ClientSocket socket(Socket::Address("/run/volumed.sock"), true);
///     socket.Write("<GetInfo/>", sizeof("<GetInfo/>"));
/// \endcode
///
/// Ownership, threads, errors: as Socket.
class ClientSocket : public Socket
{
public:
    /// Connects. With `blocking` false the socket is switched to non-blocking mode before, and a connection that is not
    /// made at once throws the text of EINPROGRESS. A failure carries this constructor in its trail, unless it is that
    /// of socket(2).
    ClientSocket(Address const& address, bool blocking);

    /// See connect(2). EAGAIN counts as success on a socket for which IsBlocking() is false, that is in blocking mode.
    void Connect(Address const& address);
};

}}  // namespace tovu::util
