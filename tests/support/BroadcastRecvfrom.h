#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <functional>
#include <string>

#include "CFunction.h"

// Defines recvfrom(2) for the program, so include it in one source file only.

namespace tovu { namespace test {

using RecvfromFunction = CFunction<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)>;

inline RecvfromFunction& RecvfromCall()
{
    static RecvfromFunction call("recvfrom");
    return call;
}

/// What a call of recvfrom(2) is given.
struct RecvfromArguments
{
    int descriptor;
    std::string buffer;  ///< The bytes that are to be overwritten.
    int flags;
    sockaddr const* address;
    socklen_t length;
};

/// Shows each call of recvfrom(2) in a scope to `look`, and lets it go on to the system.
class WatchedRecvfrom
{
public:
    explicit WatchedRecvfrom(std::function<void(RecvfromArguments const&)> const& look)
        : replacement_(RecvfromCall(), [look](int descriptor, void* buffer, std::size_t size, int flags,
                                              sockaddr* address, socklen_t* length) {
              std::string const before(static_cast<char const*>(buffer), size);
              look({descriptor, before, flags, address, *length});
              return RecvfromCall().System(descriptor, buffer, size, flags, address, length);
          })
    {}

private:
    RecvfromFunction::Replacement const replacement_;
};

}}  // namespace tovu::test

extern "C" ssize_t recvfrom(int descriptor, void* buffer, std::size_t size, int flags, sockaddr* address,
                            socklen_t* length)
{
    return tovu::test::RecvfromCall()(descriptor, buffer, size, flags, address, length);
}
