#include "DatagramReader.h"

#include <exception>

#include "HostPort.h"
#include "Prolog.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using namespace tovu::util;

// An empty datagram is not taken by ProcessMessage and would keep the socket ready: it is read away. So is one that the
// system found to be damaged meanwhile, with EAGAIN.
void DatagramReader::Take(ServerBroadcastSocket& socket)
{
    try {
        if (!ProcessMessage(socket)) {
            char byte = 0;
            socket.Read(&byte, sizeof(byte));
        }
    } catch (std::exception const& exception) {
        TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "A datagram was lost: %s\n", exception.what());
    }
}

void DatagramReader::ParseMessage(ServerBroadcastSocket& socket, unsigned char const* data, unsigned length,
                                  Socket::Address const& sender) const
{
    if (InspectProlog(data, length) != Prolog::Accepted)
        return;

    try {
        BroadcastMessageProcessor::ParseMessage(socket, data, length, sender);
    } catch (std::exception const&) {
        throw;
    } catch (...) {
        TOVU_LOG(LoggerMgr::LEVEL_DEBUG, "A datagram from %s cannot be parsed.\n", ToText(sender).c_str());
    }
}

}  // namespace volume
