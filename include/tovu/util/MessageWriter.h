#pragma once

#include "tovu/util/Mutex.h"

namespace tovu { namespace util {

class Stream;

/// Writes messages to a stream: the bytes as they are given, so the sender includes the delimiter (one 0x00 byte behind
/// each document, see MessageProcessor).
/// \code
///     #include "tovu/util/ClientSocket.h"
///     ClientSocket socket(Socket::Address("/run/volumed.sock"), true);
///     MessageWriter(socket).Write("<Ping/>", sizeof("<Ping/>"));  // the literal's own NUL is the delimiter
/// \endcode
///
/// Ownership: borrows the stream, which must outlive the writer.
/// Threads: Write takes no lock. Threads that share one connection share one MessageWriter and hold its mutex around
///     Write, so that their messages do not mix.
/// Errors: what the selector and the stream throw passes through. A stream that takes no more is logged, not thrown.
class MessageWriter
{
public:
    /// A writer for one stream; writes nothing yet.
    explicit MessageWriter(Stream& stream) : stream_(stream) {}

    /// Writes until `length` bytes have gone; blocks without limit, interruptions included.
    /// \return `length`, or less when the stream returned 0 before: then "write failed." is logged as an error.
    unsigned int Write(void const* buffer, unsigned int length) const;

    /// The mutex for threads that share this writer.
    Mutex& GetMutex() { return mutex_; }

private:
    Mutex mutex_;  // not taken by Write
    Stream& stream_;
};

}}  // namespace tovu::util
