#include "tovu/util/ServerSocket.h"

#include <unistd.h>

#include <cerrno>

#include "tovu/util/Exception.h"

namespace tovu { namespace util {

ServerSocket::ServerSocket(Address const& address, int backlog, bool blocking)
    : Socket(address.GetFamily(), SOCK_STREAM, 0)
{
    try {
        if (!blocking)
            SetBlocking(false);
        if (address.GetFamily() == AF_LOCAL)
            unlink(address.AddrToString().c_str());  // an earlier run's file; when that fails, Bind tells
        else
            SetReuseAddress(true);
        Bind(address);
        ServerSocket::Listen(backlog);
    } catch (Exception& exception) {
        exception.locations.push_back(Exception::Location(__FILE__, __LINE__));
        throw;
    }
}

void ServerSocket::Listen(int backlog)
{
    if (listen(GetDescriptor(), backlog) == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // auto_ptr is part of the interface
std::auto_ptr<Socket> ServerSocket::Accept()
{
    int const descriptor = accept(GetDescriptor(), nullptr, nullptr);
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));

    try {
        return std::auto_ptr<Socket>(new Socket(descriptor));
    } catch (...) {
        close(descriptor);  // no memory for its owner: the connection must not stay open without one
        throw;
    }
}
#pragma GCC diagnostic pop

}}  // namespace tovu::util
