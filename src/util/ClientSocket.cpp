#include "tovu/util/ClientSocket.h"

#include <cerrno>

#include "tovu/util/Exception.h"

namespace tovu { namespace util {

ClientSocket::ClientSocket(Address const& address, bool blocking) : Socket(address.GetFamily(), SOCK_STREAM, 0)
{
    try {
        if (!blocking)
            SetBlocking(false);
        Connect(address);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

void ClientSocket::Connect(Address const& address)
{
    if (connect(GetDescriptor(), &address.address.generic, address.length) == 0)
        return;

    int const error = errno;
    if (!IsBlocking() && error == EAGAIN)  // a socket in blocking mode: the sense of IsBlocking is reversed
        return;

    errno = error;
    throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

}}  // namespace tovu::util
