#include "tovu/util/StreamSelector.h"

#include <cerrno>
#include <string>
#include <typeinfo>

#include "tovu/util/Exception.h"
#include "tovu/util/FileHandleStream.h"
#include "tovu/util/Format.h"
#include "tovu/util/Pipe.h"
#include "tovu/util/Socket.h"

namespace tovu { namespace util {

namespace {

// The text for a stream that cannot be watched: it is closed, or it has no descriptor at all.
std::string InvalidStream()
{
    return FormatString("%s", "Invalid stream.");
}

// The descriptor of a stream, asked of the three classes that have one. A closed stream answers -1 itself, and all else
// is -1 as well: no stream, and a FileStream, whose descriptor says nothing about what its FILE has buffered.
// The connections that a server has accepted are Sockets and nothing more. To compare types tells that for a tenth of
// what the casts take, of which the first fails.
int GetDescriptor(Stream const* stream)
{
    if (stream != nullptr && typeid(*stream) == typeid(Socket))
        return static_cast<Socket const*>(stream)->GetDescriptor();
    if (auto const* const pipe = dynamic_cast<Pipe const*>(stream))
        return pipe->GetDescriptor();
    if (auto const* const socket = dynamic_cast<Socket const*>(stream))
        return socket->GetDescriptor();
    if (auto const* const file = dynamic_cast<FileHandleStream const*>(stream))
        return file->GetDescriptor();
    return -1;
}

// Waits for what the sets hold, through the one call that both forms of Select share. The sets have room for FD_SETSIZE
// (1024) descriptors, and all of them are looked at, since no highest one is kept.
//
// The result is that of select(2), with three answers:
//
//   more than 0    so many bits are set now, and all others are clear
//   0              the time is over, and all bits are clear
//   -1             with EINTR a signal came; both sets are as they were, so what was added still looks ready, and the
//                  caller must not ask. Otherwise the call has failed: EBADF for a descriptor that is not open, EINVAL
//                  for a time below 0 or one that is too large
//
// A signal that comes just before the wait does not interrupt it. A program that stops on one lets the handler write a
// byte to a Pipe, and watches its other end together with the rest.
int Wait(fd_set* readSet, fd_set* writeSet, timeval* timeout)
{
    return select(FD_SETSIZE, readSet, writeSet, nullptr, timeout);
}

}  // namespace

StreamSelector::TimeVal::TimeVal(long seconds, long microseconds) : timeval()
{
    tv_sec = seconds;
    tv_usec = microseconds;
}

// The two sets are all that a selector holds, 128 bytes each, so that one can be made on the stack for every wait; no
// descriptor of an earlier wait is left in it, and nothing has to be taken out again.
//
// A bit stands for the number of its descriptor, in the layout that the system's macros know. Nothing is checked
// against 1024 here: where the library is built with _FORTIFY_SOURCE the macros do it, and end the process instead of
// writing behind the set. A server that may hold more descriptors looks at the numbers when it accepts.
StreamSelector::StreamSelector()
{
    FD_ZERO(&readSet_);
    FD_ZERO(&writeSet_);
}

// "Ready" means that one call will not block, whatever it then says:
//
//   for reading    bytes wait, or the other side is closed (a read gives 0), or an error waits to be told; a listening
//                  socket has a connection to accept
//   for writing    there is room for some bytes, or the other side is closed (a write gives EPIPE), or a connection that
//                  was under way has been made or has failed
//
// Which way a stream goes is not known here. The reading end of a pipe is never ready for writing, so whoever adds the
// wrong one waits without end; a file that is open for one direction only is ready for both, and the call in the other
// one fails (EBADF).
//
// Regular files are always ready for both, also at their end, where a reader that waits for more bytes would spin:
// files are watched for the sake of code that takes any stream, not to learn that they grow.
//
// What was ready need not be so any more when it is used: another thread or process may have taken the bytes, and a
// datagram with a wrong checksum is dropped when it is read. A stream in non-blocking mode says EAGAIN then. A large
// write to a socket in blocking mode may block all the same, once the room is used up.
//
// One stream may be added for both, and adding it twice is no error. Streams that share a descriptor (a TenantSocket
// and its owner) are one to the selector.
//
// A descriptor is added by its number. Closing the stream between adding and waiting is an error of the wait (EBADF);
// when the number has been given to another file meanwhile, that one is watched instead.
void StreamSelector::AddStreamForReading(Stream const& stream)
{
    int const descriptor = GetDescriptor(&stream);
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, InvalidStream());
    FD_SET(descriptor, &readSet_);
}

void StreamSelector::AddStreamForWriting(Stream const& stream)
{
    int const descriptor = GetDescriptor(&stream);
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, InvalidStream());
    FD_SET(descriptor, &writeSet_);
}

bool StreamSelector::Select()
{
    int const ready = Wait(&readSet_, &writeSet_, nullptr);
    if (ready > 0)
        return true;
    if (ready == 0 || errno == EINTR)
        return false;

    throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

// The system leaves in `timeout` what was not used of it, so a caller that goes on after an interruption hands in the
// same object again and waits no longer in all.
bool StreamSelector::Select(TimeVal& timeout)
{
    int const ready = Wait(&readSet_, &writeSet_, &timeout);
    if (ready > 0)
        return true;
    if (ready == 0 || errno == EINTR)
        return false;

    throw Exception(__FILE__, __LINE__, Exception::FromErrorCode(errno));
}

// The sets now hold what the wait found. A stream that was closed since is refused, although its number may still be
// set: that number may belong to another file by now.
bool StreamSelector::IsStreamReadyForReading(Stream const& stream) const
{
    int const descriptor = GetDescriptor(&stream);
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, InvalidStream());
    return FD_ISSET(descriptor, &readSet_);
}

bool StreamSelector::IsStreamReadyForWriting(Stream const& stream) const
{
    int const descriptor = GetDescriptor(&stream);
    if (descriptor == -1)
        throw Exception(__FILE__, __LINE__, InvalidStream());
    return FD_ISSET(descriptor, &writeSet_);
}

}}  // namespace tovu::util
