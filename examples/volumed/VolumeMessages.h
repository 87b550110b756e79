#pragma once

#include <atomic>
#include <string>

#include "tovu/util/MessageProcessor.h"

namespace volume {

/// The client takes no answer, or the service stops before it does. Deliberately no std::exception: MessageProcessor
/// takes those for faults of the message, and would have it answered.
struct AnswerNotTaken
{
    char const* reason;
};

/// The messages of the volume service, for one connection. Each is answered with one document.
///
///   Echo       Echo, with the same content
///   GetInfo    Info, with the attributes hostName, processId and version
///   other      Error, with the attribute code and the reason in words
///
/// An empty message is dropped without an answer. The stream is in non-blocking mode. Besides what MessageProcessor
/// throws, AnswerNotTaken passes out of ReadMessages.
class VolumeMessages : public tovu::util::MessageProcessor
{
public:
    /// Makes ReadMessages return or throw soon. May be called from any thread.
    void Stop();

    /// Refuses what the parser must not see, and answers for what it throws that is no std::exception.
    unsigned ParseMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;

    bool IsValidMessage(std::string const& name) const override;

    void HandleMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override;

    void HandleError(int code, tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;

private:
    void Answer(tovu::util::Stream& stream, std::string const& document) const;
    void AwaitRoom(tovu::util::Stream& stream) const;

    std::atomic<bool> stopping_{false};
};

}  // namespace volume
