#pragma once

#include <memory>

#include "tovu/util/Socket.h"

namespace tovu { namespace util {

/// A stream socket that listens from when it is made, on a local or an IPv4 address, and hands out connections.
/// \code
///     ServerSocket listener(Socket::Address("/run/volumed.sock"), SOMAXCONN, true);
///     std::unique_ptr<Socket> connection(listener.Accept());
/// \endcode
///
/// Ownership: as Socket. A connection belongs to the caller and does not depend on the listener. The file of a local
///     address stays when the listener goes.
/// Threads, errors: as Socket.
class ServerSocket : public Socket
{
public:
    /// Binds and listens. A file at a local address's path is removed before; an IPv4 address is reused, so that the
    /// connections of an earlier run (TIME_WAIT) do not stand in the way. A failure carries this constructor in its
    /// trail, unless it is that of socket(2).
    ///
    /// \param address  Where to listen; for port 0 the system picks one, see GetHostAddress.
    /// \param backlog  How many connections may wait to be accepted, see listen(2).
    /// \param blocking False makes Accept throw, with the text of EAGAIN, when no connection waits. Connections are in
    ///                 blocking mode either way.
    ServerSocket(Address const& address, int backlog, bool blocking);

    /// See listen(2).
    virtual void Listen(int backlog);

    /// Waits for a connection and takes it, see accept(2). Its address is that of GetPeerAddress.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    virtual std::auto_ptr<Socket> Accept();
#pragma GCC diagnostic pop
};

}}  // namespace tovu::util
