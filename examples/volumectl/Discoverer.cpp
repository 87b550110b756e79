#include "Discoverer.h"

#include <xercesc/dom/DOMNode.hpp>

#include "common/XmlText.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/Format.h"
#include "tovu/util/StreamSelector.h"

namespace volume {

using namespace tovu::util;

Discoverer::Discoverer() : GuardedBroadcastMessageProcessor(guard_), answers_(Socket::Address(0, INADDR_ANY), false) {}

// The selector leaves in the time what has not been used of it.
std::vector<FoundService> const& Discoverer::Ask(Socket::Address const& address)
{
    std::string const question = FormatString(R"(<Discover port="%u"/>)", answers_.GetHostAddress().GetPort());
    ClientBroadcastSocket(address, true).Write(question.data(), static_cast<unsigned>(question.size()));

    StreamSelector::TimeVal remaining(1, 0);
    for (;;) {
        StreamSelector selector;
        selector.AddStreamForReading(answers_);
        if (selector.Select(remaining))
            Take(answers_);
        else if (remaining.tv_sec == 0 && remaining.tv_usec == 0)
            return found_;
    }
}

bool Discoverer::IsValidMessage(std::string const& name) const
{
    return name == "Service";
}

void Discoverer::HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* data, unsigned length,
                               xercesc::DOMNode const& element, Socket::Address const& sender) const
{
    found_.push_back({std::string(reinterpret_cast<char const*>(data), length), sender.AddrToString(),
                      AttributeText(element, "hostName"), AttributeText(element, "processId"),
                      AttributeText(element, "version"), AttributeText(element, "tcpPort")});
}

}  // namespace volume
