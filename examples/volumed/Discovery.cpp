#include "Discovery.h"

#include <xercesc/dom/DOMNode.hpp>

#include "Descriptor.h"
#include "VolumeService.h"
#include "common/HostPort.h"
#include "common/XmlText.h"
#include "tovu/util/ClientBroadcastSocket.h"
#include "tovu/util/Format.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using namespace tovu::util;

Discovery::Discovery(unsigned short port, MessageGuard& guard)
    : GuardedBroadcastMessageProcessor(guard), socket_(Socket::Address(port, INADDR_ANY), false)
{
    CloseOnExec(socket_.GetDescriptor());
}

void Discovery::Serve()
{
    Take(socket_);
}

bool Discovery::IsValidMessage(std::string const& name) const
{
    return name == "Discover";
}

void Discovery::HandleMessage(ServerBroadcastSocket& /*socket*/, unsigned char const* /*data*/, unsigned /*length*/,
                              xercesc::DOMNode const& element, Socket::Address const& sender) const
{
    Socket::Address address = sender;
    address.SetPort(ParsePort(AttributeText(element, "port")));
    ClientBroadcastSocket client(address, false);
    CloseOnExec(client.GetDescriptor());

    std::string const tcpPort = tcpPort_ != 0 ? FormatString(R"( tcpPort="%u")", tcpPort_) : std::string();
    std::string const answer = DescribeService("Service", tcpPort);
    client.Write(answer.data(), static_cast<unsigned>(answer.size()));
    TOVU_LOG(LoggerMgr::LEVEL_INFO, "%s is told about this service.\n", ToText(address).c_str());
}

}  // namespace volume
