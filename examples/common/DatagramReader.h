#pragma once

#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ServerBroadcastSocket.h"

namespace volume {

/// Takes datagrams from strangers, on a socket in non-blocking mode. Derive, and handle messages as with any
/// BroadcastMessageProcessor.
///
/// Whatever comes, the next one can be taken: what the parser must not see is dropped, and failures are logged.
class DatagramReader : public tovu::util::BroadcastMessageProcessor
{
public:
    /// Takes one datagram, once a selector has found the socket ready.
    void Take(tovu::util::ServerBroadcastSocket& socket);

    /// Drops what the parser must not see, and takes what it throws that is no std::exception.
    void ParseMessage(tovu::util::ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                      tovu::util::Socket::Address const& sender) const override;
};

}  // namespace volume
