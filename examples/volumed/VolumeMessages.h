#pragma once

#include <atomic>
#include <string>

#include "VolumeService.h"
#include "common/GuardedMessageProcessor.h"

namespace volume {

/// The messages of one connection. Each is answered with one document, see VolumeService:
///
///   Send path   File, with name and size, and behind its delimiter the bytes of the file
///   refused     Error, with the attribute code and the reason in words
///
/// An empty message is dropped without an answer. The stream is a Socket in non-blocking mode. ReadMessages returns when
/// the client has left, or when the service leaves it: for a message that is too long, for an answer that it does not
/// take, for a stop.
class VolumeMessages : public GuardedMessageProcessor
{
public:
    explicit VolumeMessages(VolumeService& service) : GuardedMessageProcessor(service.GetGuard()), service_(service) {}

    /// Makes ReadMessages return or throw soon. May be called from any thread.
    void Stop();

    /// Why ReadMessages has left the client; empty when that was not its own decision.
    std::string const& GetReasonToLeave() const { return reasonToLeave_; }

    bool IsValidMessage(std::string const& name) const override;

    void HandleMessage(tovu::util::Stream& stream, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element) const override;

    void HandleError(int code, tovu::util::Stream& stream, unsigned char const* data, unsigned length) const override;

    void HandleRefusal(Verdict reason, tovu::util::Stream& stream, unsigned length) const override;

private:
    template <typename Action>
    void TryToAnswer(Action action) const;
    void Leave(std::string const& reason) const;
    void AnswerError(tovu::util::Stream& stream, int code) const;
    void Answer(tovu::util::Stream& stream, std::string const& document) const;
    void SendFile(tovu::util::Stream& stream, std::string const& path) const;

    VolumeService& service_;
    std::atomic<bool> stopping_{false};
    mutable std::string reasonToLeave_;  // the hooks, which leave, are const
};

}  // namespace volume
