// The HOST:PORT of a command line. No host is looked up by name.

#include <arpa/inet.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "Fuzz.h"
#include "common/HostPort.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace fuzz { namespace {

// The digits of a port number without leading zeros; empty for another text.
std::string PortDigits(std::string const& text)
{
    std::string digits = text.substr(std::min(text.find_first_not_of('0'), text.size()));
    bool const isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    bool const fits = digits.size() < 5 || (digits.size() == 5 && digits <= "65535");
    if (!isNumber || !fits)
        return std::string();
    return digits.empty() ? "0" : digits;
}

void CheckPort(std::string const& text)
{
    std::string read;
    try {
        read = std::to_string(volume::ParsePort(text));
    } catch (std::invalid_argument const&) {
        read.clear();
    }
    RequireEqual(PortDigits(text), read, "a port is a number up to 65535, and nothing else is one");
}

bool IsNumeric(std::string const& host)
{
    in_addr address;
    return host.find_first_not_of("0123456789.") == std::string::npos && inet_aton(host.c_str(), &address) != 0;
}

void CheckHostPort(std::string const& text)
{
    std::string::size_type const colon = text.rfind(':');
    std::string const host = text.substr(0, colon);
    std::string const port = colon == std::string::npos ? std::string() : PortDigits(text.substr(colon + 1));
    if (!IsNumeric(host) && !host.empty() && !port.empty())
        return;

    try {
        util::Socket::Address const address = volume::ParseHostPort(text);
        Require(!host.empty() && !port.empty(), "an address has a host and a port");
        RequireEqual(port, std::to_string(address.GetPort()), "the port is that of the text");
        Require(address.address.inet.sin_addr.s_addr == inet_addr(host.c_str()), "the host is that of the text");
        Require(volume::ParseHostPort(volume::ToText(address)) == address, "the text of an address gives it back");
    } catch (std::invalid_argument const&) {
        Require(host.empty() || port.empty(), "a text with a host and a port is an address");
    }
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    std::string const text = Input(data, size).TakeRest();
    CheckPort(text);
    CheckHostPort(text);
    return 0;
}
