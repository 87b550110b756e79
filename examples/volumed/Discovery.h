#pragma once

#include <string>

#include "common/GuardedBroadcastMessageProcessor.h"

namespace volume {

/// Answers clients that look for services:
///
///   Discover port   Service, with hostName, processId and version, and with tcpPort when the service listens on TCP;
///                   sent as one datagram to that port of whoever asked
///
/// Anything else is ignored: a datagram's sender is whoever it says it is, and gets no more than it sent, about.
///
/// Threads: one.
class Discovery : public GuardedBroadcastMessageProcessor
{
public:
    /// Listens on a UDP port. Borrows the guard. Throws tovu::util::Exception.
    Discovery(unsigned short port, MessageGuard& guard);

    /// What to add to a selector.
    tovu::util::ServerBroadcastSocket const& GetSocket() const { return socket_; }

    /// The port of TCP to tell clients about.
    void SetTcpPort(unsigned short port) { tcpPort_ = port; }

    /// Takes one datagram, once a selector has found the socket ready. Failures are logged.
    void Serve();

    bool IsValidMessage(std::string const& name) const override;
    void HandleMessage(tovu::util::ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element, tovu::util::Socket::Address const& sender) const override;

private:
    tovu::util::ServerBroadcastSocket socket_;
    unsigned short tcpPort_ = 0;  // 0 for none
};

}  // namespace volume
