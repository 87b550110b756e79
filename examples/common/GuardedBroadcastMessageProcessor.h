#pragma once

#include "MessageGuard.h"
#include "tovu/util/BroadcastMessageProcessor.h"
#include "tovu/util/ServerBroadcastSocket.h"

namespace volume {

/// A BroadcastMessageProcessor for datagrams of strangers: the counterpart of GuardedMessageProcessor. Derive, and
/// handle messages as with any BroadcastMessageProcessor.
///
/// Whatever comes, the next one can be taken: what the guard refuses is dropped without an answer, and failures are
/// logged. Since anybody can send as many datagrams as they like, a refusal is logged when the number of those for the
/// same reason is 1, 2, 4, 8 and so on.
///
/// Ownership: borrows the guard.
/// Threads: as BroadcastMessageProcessor.
class GuardedBroadcastMessageProcessor : public tovu::util::BroadcastMessageProcessor
{
public:
    explicit GuardedBroadcastMessageProcessor(MessageGuard& guard) : guard_(guard) {}
    GuardedBroadcastMessageProcessor(GuardedBroadcastMessageProcessor const&) = delete;
    GuardedBroadcastMessageProcessor& operator=(GuardedBroadcastMessageProcessor const&) = delete;

    /// Takes one datagram from a socket in non-blocking mode, once a selector has found it ready; an empty one is read
    /// away. Throws nothing.
    void Take(tovu::util::ServerBroadcastSocket& socket);

    void ParseMessage(tovu::util::ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                      tovu::util::Socket::Address const& sender) const final;

private:
    void Refuse(Verdict reason, unsigned length, tovu::util::Socket::Address const& sender) const;

    MessageGuard& guard_;
};

}  // namespace volume
