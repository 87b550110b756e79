// Addresses of any bytes, of any path, and of any number.

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "Fuzz.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace fuzz { namespace {

using Address = util::Socket::Address;

constexpr std::size_t LONGEST_PATH = 107;
constexpr std::size_t LOCAL_OVERHEAD = offsetof(sockaddr_un, sun_path) + 1;

// As the kernel may have written it.
Address FromBytes(std::string const& bytes)
{
    Address address = Address::Empty;
    address.length = static_cast<socklen_t>(std::min(bytes.size(), sizeof(address.address)));
    std::memcpy(&address.address, bytes.data(), address.length);
    return address;
}

std::string ToBytes(Address const& address)
{
    return std::string(reinterpret_cast<char const*>(&address.address), address.length);
}

void CheckEquality(Address const& a, Address const& b)
{
    Require((a == b) == (ToBytes(a) == ToBytes(b)), "addresses are equal when their bytes are");
    Require((a != b) == !(a == b), "or else not equal");
}

// The text and the port of an address of any family, which may be cut off anywhere.
void CheckQuestions(Address const& address)
{
    std::string const text = address.AddrToString();
    switch (address.GetFamily()) {
        case AF_INET:
            Require(inet_addr(text.c_str()) == address.address.inet.sin_addr.s_addr, "the text is the address");
            Require(address.GetPort() == ntohs(address.address.inet.sin_port), "the port is that of the address");
            break;
        case AF_LOCAL:
            Require(text.size() <= sizeof(address.address.local.sun_path), "a path ends where its field does");
            Require(address.GetPort() == 65535, "a local address has no port");
            break;
        default:
            Require(text.empty() && address.GetPort() == 65535, "another family has neither text nor port");
    }
}

void CheckSetters(Address address, unsigned short number, std::string const& path)
{
    bool const isInet = address.GetFamily() == AF_INET;
    Address const before = address;
    address.SetPort(number);
    Require(address.GetPort() == (isInet ? number : 65535), "the port of an IPv4 address can be set");
    Require(isInet || address == before, "that of another is none");

    unsigned short const family = address.GetFamily();
    address.SetPath(path);
    Require(address.GetFamily() == family || address.length < 2, "the path leaves the family alone");
    Require(address.length >= LOCAL_OVERHEAD && address.length <= LOCAL_OVERHEAD + LONGEST_PATH,
            "the length is that of the path");

    Address other = before;
    other.SetFamily(number);
    bool const isKnown = number == AF_INET || number == AF_LOCAL;
    Require(isKnown ? other.GetFamily() == AF_INET : other == before, "only two families can be set");
}

void CheckPath(std::string const& path)
{
    Address const address(path);
    std::string const kept = path.substr(0, std::min(path.find('\0'), LONGEST_PATH));
    RequireEqual(kept, address.AddrToString(), "a path is kept, up to 107 characters");
    Require(address.length == LOCAL_OVERHEAD + kept.size(), "its closing zero counts");
    Require(address == Address(kept), "what does not fit makes no difference");
    CheckQuestions(address);
}

void CheckNumber(unsigned short port, unsigned number)
{
    Address const address(port, number);
    Require(address.GetPort() == port && address.length == sizeof(sockaddr_in), "the port is kept");
    Address const again(port, inet_addr(address.AddrToString().c_str()));
    Require(again == address, "text and port give the address back");
}

}}}  // namespace tovu::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using namespace tovu::fuzz;

    Input input(data, size);
    auto const port = static_cast<unsigned short>(input.TakeNumber(2));
    auto const number = static_cast<unsigned>(input.TakeNumber(4));
    std::string const bytes = input.TakeRest();

    Address const address = FromBytes(bytes);
    CheckQuestions(address);
    CheckSetters(address, port, bytes);
    CheckPath(bytes);
    CheckNumber(port, number);
    CheckEquality(address, Address(bytes));
    CheckEquality(address, Address(port, number));
    CheckEquality(Address(port, number), Address(static_cast<unsigned short>(number), number));
    return 0;
}
