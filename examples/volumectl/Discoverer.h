#pragma once

#include <string>
#include <vector>

#include "common/GuardedBroadcastMessageProcessor.h"

namespace volume {

/// One service that has answered.
struct FoundService
{
    std::string document;  ///< The answer as it came.
    std::string address;   ///< Where it came from.
    std::string hostName;
    std::string processId;
    std::string version;
    std::string tcpPort;  ///< Empty when it does not listen on TCP.
};

/// Looks for volume services in the network: asks with a broadcast, and collects the answers of one second.
class Discoverer : public GuardedBroadcastMessageProcessor
{
public:
    /// Throws tovu::util::Exception.
    Discoverer();

    /// Asks whoever listens on an address, usually one of all hosts, and waits. Throws tovu::util::Exception.
    std::vector<FoundService> const& Ask(tovu::util::Socket::Address const& address);

    bool IsValidMessage(std::string const& name) const override;
    void HandleMessage(tovu::util::ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                       xercesc::DOMNode const& element, tovu::util::Socket::Address const& sender) const override;

private:
    MessageGuard guard_;
    tovu::util::ServerBroadcastSocket answers_;
    mutable std::vector<FoundService> found_;  // the hooks are const; what they find is the result of Ask
};

}  // namespace volume
