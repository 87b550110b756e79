// What the tests of the debugger's printers look at: values of every kind, and one function to stop in.

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/GUID.h"
#include "tovu/util/Socket.h"

using namespace tovu::util;

namespace {

Exception Caught(char const* path)
{
    try {
        FileHandleStream().Open(path, O_RDONLY, 0);
    } catch (Exception& exception) {
        exception.locations.emplace_back("daemon.cpp", 17U);
        exception.locations.emplace_back("main.cpp", 4U);
        return exception;
    }
    return Exception("nowhere", 0, "Nothing was thrown.");
}

Socket::Address Abstract(std::string const& name)
{
    Socket::Address address(static_cast<unsigned short>(AF_LOCAL));
    std::memcpy(address.address.local.sun_path + 1, name.data(), name.size());
    address.length = static_cast<socklen_t>(sizeof(address.address.local.sun_family) + 1 + name.size());
    return address;
}

Socket::Address WithFamily(unsigned short family, socklen_t length)
{
    Socket::Address address(family);
    address.address.generic.sa_family = family;
    address.length = length;
    return address;
}

// A value over which something else was written.
template <typename Value, unsigned char BYTE>
Value const& Overwritten()
{
    alignas(Value) static unsigned char bytes[sizeof(Value)];
    std::memset(bytes, BYTE, sizeof(bytes));
    return *reinterpret_cast<Value const*>(bytes);
}

struct Holder
{
    GUID guid;
    Socket::Address address;
};

}  // namespace

// Called at the end, with everything in reach of the frame above.
__attribute__((noinline)) void StopHere();

void StopHere()
{
    __asm__ volatile("");
}

int main()
{
    Exception const exception = Caught("/no/such/file");
    Exception const& reference = exception;
    Exception const* const pointer = &exception;
    std::exception const* const base = &exception;
    Exception const odd("odd.cpp", 1, "a bell \a, an e acute \xC3\xA9, a stray \xFF\nand a second line");
    Exception const longer("longer.cpp", 1, std::string(300, 'x'));
    Exception nameless("named.cpp", 1, "One place has no name.");
    nameless.locations.emplace_back(nullptr, 2U);
    nameless.locations.emplace_back("behind.cpp", 3U);
    Exception nowhere("gone.cpp", 1, "It has no places.");
    nowhere.locations.clear();
    Exception everywhere("everywhere.cpp", 1, "It was seen often.");
    everywhere.locations.resize(1000, Exception::Location("again.cpp", 5));

    Socket::Address const inet(4711, htonl(INADDR_LOOPBACK));
    Socket::Address const& inetReference = inet;
    Socket::Address const local(std::string("/run/volumed.sock"));
    Socket::Address const longest(std::string(200, 'p'));
    Socket::Address const abstract = Abstract("volumed");
    Socket::Address const unnamed = WithFamily(AF_LOCAL, sizeof(sa_family_t));
    Socket::Address const empty = Socket::Address::Empty;
    Socket::Address const inet6 = WithFamily(AF_INET6, 28);
    Socket::Address changed(static_cast<unsigned short>(AF_INET));
    changed.SetFamily(AF_LOCAL);
    Socket::Address endless("/run/volumed.sock");
    endless.length = 0xFFFFFFFF;

    GUID const guid("0123456789abcdef0123456789ABCDEF");
    GUID const& guidReference = guid;
    Holder const holder = {GUID::Empty, inet};

    Exception const& clearedException = Overwritten<Exception, 0>();
    Exception const& overwrittenException = Overwritten<Exception, 0xA5>();
    Socket::Address const& overwrittenAddress = Overwritten<Socket::Address, 0xA5>();

    StopHere();
    // Whatever is looked at is used as well.
    return reference.what() == pointer->what() && base->what() == exception.what() &&
                   inetReference.length == local.length && guidReference == guid && holder.guid == guid &&
                   &clearedException == &overwrittenException && odd.locations.size() == longer.locations.size() &&
                   longest == abstract && unnamed == empty && inet6 == changed && endless == overwrittenAddress
               ? 1
               : 0;
}
