#pragma once

#include <atomic>

#include "MessageGuard.h"
#include "tovu/util/MessageProcessor.h"

namespace volume {

/// A MessageProcessor for a peer that is not trusted. Derive, and handle messages as with any other; each peer has a
/// processor of its own, all share a guard:
/// \code
///     MessageGuard guard;
///     ...
///     VolumeMessages(guard).ReadMessages(*peer);
/// \endcode
///
/// The parser sees no message that the guard refuses, no more than one message of the limit's length is ever kept, and
/// what the parser throws that is no std::exception ends the message and not the thread. Each refusal is counted, logged
/// with its reason, and told to HandleRefusal. A message that is too long ends the reading: nobody knows how long it
/// would have become. After any other the next one is read.
///
/// Ownership: borrows the guard.
/// Threads: as MessageProcessor; any may call EndReading.
/// Errors: as MessageProcessor, except that nothing but a std::exception passes out.
class GuardedMessageProcessor : public tovu::util::MessageProcessor
{
public:
    explicit GuardedMessageProcessor(MessageGuard& guard) : guard_(guard) {}
    GuardedMessageProcessor(GuardedMessageProcessor const&) = delete;
    GuardedMessageProcessor& operator=(GuardedMessageProcessor const&) = delete;

    /// Reads and processes messages until the stream ends or EndReading is called. Stands in for that of the base, which
    /// keeps whatever comes without a delimiter. The stream may be one that a StreamSelector can watch.
    void ReadMessages(tovu::util::Stream& stream);

    /// Makes ReadMessages return: after the message that is being handled, or else with the next bytes. What came behind
    /// that message is dropped. The hooks may call it.
    void EndReading() const { ended_ = true; }

    unsigned ParseMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length) const final;

    /// Learns of a message that was refused, of which `length` bytes had come. Does nothing here.
    virtual void HandleRefusal(Verdict reason, tovu::util::Stream& stream, unsigned length) const;

private:
    // What has no bound.
    using tovu::util::MessageProcessor::ProcessMessages;
    using tovu::util::MessageProcessor::SetStop;

    void ReadChunk(tovu::util::Stream& stream);
    void Refuse(Verdict reason, tovu::util::Stream& stream, unsigned length) const;

    MessageGuard& guard_;
    mutable unsigned pending_ = 0;            // bytes that have come and of which no message was made yet
    mutable std::atomic<bool> ended_{false};  // the hooks, which set it, are const
};

}  // namespace volume
