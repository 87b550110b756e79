#include "GuardedBroadcastMessageProcessor.h"

#include <exception>

#include "HostPort.h"
#include "tovu/util/LoggerMgr.h"

namespace volume {

using namespace tovu::util;

// An empty datagram is not taken by ProcessMessage and would keep the socket ready: it is read away. So is one that the
// system found to be damaged meanwhile, with EAGAIN.
void GuardedBroadcastMessageProcessor::Take(ServerBroadcastSocket& socket)
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

void GuardedBroadcastMessageProcessor::ParseMessage(ServerBroadcastSocket& socket, unsigned char const* data,
                                                    unsigned length, Socket::Address const& sender) const
{
    Verdict const verdict =
        guard_.Admit(data, length, [&] { BroadcastMessageProcessor::ParseMessage(socket, data, length, sender); });
    if (verdict != Verdict::Accepted)
        Refuse(verdict, length, sender);
}

void GuardedBroadcastMessageProcessor::Refuse(Verdict reason, unsigned length, Socket::Address const& sender) const
{
    unsigned long const count = guard_.Count(reason);
    if ((count & (count - 1)) == 0)
        TOVU_LOG(LoggerMgr::LEVEL_WARNING, "A datagram of %u bytes from %s is refused: %s (%lu so far).\n", length,
                 ToText(sender).c_str(), Words(reason), count);
}

}  // namespace volume
