#include "tovu/util/ServerBroadcastSocket.h"

#include <cerrno>

namespace tovu { namespace util {

ServerBroadcastSocket::ServerBroadcastSocket(Address const& address, bool blocking) : BroadcastSocket(address, blocking)
{
    if (address.GetFamily() == AF_LOCAL)
        throw Exception(__FILE__, __LINE__, "address.sa_family == AF_LOCAL");

    try {
        Bind(address);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

ServerBroadcastSocket::~ServerBroadcastSocket() noexcept = default;

int ServerBroadcastSocket::Read(void* buffer, unsigned int length)
{
    Address from(GetAddress().GetFamily());
    return Read(buffer, length, from);
}

int ServerBroadcastSocket::Read(void* buffer, unsigned int length, Address& from)
{
    ssize_t const received = recvfrom(GetDescriptor(), buffer, length, 0, &from.address.generic, &from.length);
    if (received == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
    return static_cast<int>(received);
}

}}  // namespace tovu::util
