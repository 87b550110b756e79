#pragma once

#include <atomic>
#include <string>

#include "VolumeService.h"
#include "tovu/util/MessageProcessor.h"

namespace volume {

/// The messages of one connection. Each is answered with one document, see VolumeService:
///
///   Send path   File, with name and size, and behind its delimiter the bytes of the file
///   refused     Error, with the attribute code and the reason in words
///
/// An empty message is dropped without an answer. The stream is a Socket in non-blocking mode. Besides what
/// MessageProcessor throws, AnswerNotTaken passes out of ReadMessages.
class VolumeMessages : public tovu::util::MessageProcessor
{
public:
    explicit VolumeMessages(VolumeService& service) : service_(service) {}

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
    void SendFile(tovu::util::Stream& stream, std::string const& path) const;

    VolumeService& service_;
    std::atomic<bool> stopping_{false};
};

}  // namespace volume
