#include "HostPort.h"

#include <boost/lexical_cast.hpp>
#include <stdexcept>

namespace volume {

using tovu::util::Socket;

unsigned short ParsePort(std::string const& text)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        throw std::invalid_argument("'" + text + "' is not a port number");
    try {
        return boost::lexical_cast<unsigned short>(text);
    } catch (boost::bad_lexical_cast const&) {
        throw std::invalid_argument("port " + text + " is above 65535");
    }
}

Socket::Address ParseHostPort(std::string const& text)
{
    std::string::size_type const colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0)
        throw std::invalid_argument("'" + text + "' is not of the form HOST:PORT");

    std::string const host = text.substr(0, colon);
    Socket::Address const address(ParsePort(text.substr(colon + 1)), host, static_cast<unsigned short>(AF_INET));
    if (address.GetFamily() != AF_INET)
        throw std::invalid_argument("'" + host + "' has no IPv4 address");
    return address;
}

std::string ToText(Socket::Address const& address)
{
    if (address.GetFamily() == AF_INET)
        return address.AddrToString() + ":" + std::to_string(address.GetPort());

    std::string const path = address.AddrToString();
    return path.empty() ? "local" : path;
}

}  // namespace volume
