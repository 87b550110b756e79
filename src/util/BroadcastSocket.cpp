#include "tovu/util/BroadcastSocket.h"

#include "tovu/util/Exception.h"

namespace tovu { namespace util {

BroadcastSocket::BroadcastSocket(Address const& address, bool blocking)
    : Socket(address.GetFamily(), SOCK_DGRAM, 0), address_(address)
{
    try {
        if (!blocking)
            SetBlocking(false);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

BroadcastSocket::~BroadcastSocket() noexcept = default;

}}  // namespace tovu::util
