#include "tovu/util/ClientBroadcastSocket.h"

#include <cerrno>

namespace tovu { namespace util {

ClientBroadcastSocket::ClientBroadcastSocket(Address const& address, bool blocking) : BroadcastSocket(address, blocking)
{
    try {
        SetBroadcast(true);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

ClientBroadcastSocket::~ClientBroadcastSocket() noexcept = default;

int ClientBroadcastSocket::Write(void const* buffer, unsigned int length)
{
    Address const& to = GetAddress();
    ssize_t const sent = sendto(GetDescriptor(), buffer, length, 0, &to.address.generic, to.length);
    if (sent == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(sent);
}

}}  // namespace tovu::util
